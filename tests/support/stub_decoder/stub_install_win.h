// Install folders of a broker, with the stub or another program as their decoder. For test programs;
// stub-decoder.exe lies beside them.
#pragma once

#include <windows.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "base/unique_win.h"

namespace vextra::test {

constexpr std::chrono::milliseconds kPatience{
    10'000};  // for what is bound to happen; a loaded machine is slow

// What one start of the stub saw: see stub_decoder_win.cpp for the keys.
class StubRecord {
public:
    explicit StubRecord(std::string_view text);

    // Empty when the stub did not record it, and then the test has failed.
    std::wstring text(const std::string& key) const;
    std::uint32_t number(const std::string& key) const;
    // The argument that follows this one; empty when there is none.
    std::wstring argumentAfter(std::wstring_view argument) const;
    bool hasArgument(std::wstring_view argument) const;

private:
    std::map<std::string, std::string> values_;
};

// A folder of its own with this name, below the folder for temporary files, that holds deps\ffmpeg.exe.
class DecoderInstall {
public:
    DecoderInstall(std::wstring_view name, const std::wstring& program);
    ~DecoderInstall();  // removes the folder; what still runs in it makes the test fail
    DecoderInstall(const DecoderInstall&) = delete;
    DecoderInstall& operator=(const DecoderInstall&) = delete;

    const std::wstring& root() const { return root_; }
    std::wstring decoderPath() const { return root_ + L"\\deps\\ffmpeg.exe"; }

private:
    std::wstring folder_;
    std::wstring root_;
};

class StubInstall : public DecoderInstall {
public:
    explicit StubInstall(std::wstring_view name = L"install");

    // Lines `key=value`, for all starts from now on.
    void behave(std::string_view lines) const;
    // Waits for the record of a start, which are counted from 1; fails the test when none comes.
    StubRecord record(std::uint32_t start = 1) const;
};

// Another process, followed by handle: an id may be given to a stranger.
class FollowedProcess {
public:
    explicit FollowedProcess(std::uint32_t processId);
    bool runs() const;
    bool endsWithin(std::chrono::milliseconds limit) const;

private:
    UniqueHandle process_;
};

// The open handles of this process.
std::uint32_t ownHandleCount();

}  // namespace vextra::test
