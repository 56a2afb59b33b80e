#include "stub_decoder/stub_install_win.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <span>
#include <sstream>
#include <thread>
#include <vector>

#include "base/text.h"
#include "handle_count_win.h"

namespace vextra::test {
namespace {

namespace fs = std::filesystem;

fs::path besideTheTest(std::wstring_view name) {
    std::vector<wchar_t> path(32'768);
    path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
    return fs::path(path.begin(), path.end()).replace_filename(name);
}

std::wstring ownFolder() {
    static std::atomic<int> made{0};
    const std::wstring name =
        L"vextra-stub-" + std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(++made);
    return (fs::temp_directory_path() / name).wstring();
}

std::string readWhole(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

}  // namespace

StubRecord::StubRecord(std::string_view text) {
    std::istringstream lines{std::string(text)};
    for (std::string line; std::getline(lines, line);) {
        const std::size_t equals = line.find('=');
        values_[line.substr(0, equals)] = line.substr(equals + 1);
    }
}

std::wstring StubRecord::text(const std::string& key) const {
    const auto found = values_.find(key);
    if (found == values_.end()) {
        ADD_FAILURE() << "the stub decoder recorded no " << key;
        return {};
    }
    return wideFromUtf8(found->second);
}

std::uint32_t StubRecord::number(const std::string& key) const {
    return static_cast<std::uint32_t>(std::wcstoul(text(key).c_str(), nullptr, 0));
}

std::wstring StubRecord::argumentAfter(std::wstring_view argument) const {
    for (int i = 0;; ++i) {
        const auto found = values_.find("argument" + std::to_string(i));
        const auto next = values_.find("argument" + std::to_string(i + 1));
        if (found == values_.end() || next == values_.end())
            return {};
        if (wideFromUtf8(found->second) == argument)
            return wideFromUtf8(next->second);
    }
}

bool StubRecord::hasArgument(std::wstring_view argument) const {
    for (int i = 0;; ++i) {
        const auto found = values_.find("argument" + std::to_string(i));
        if (found == values_.end())
            return false;
        if (wideFromUtf8(found->second) == argument)
            return true;
    }
}

DecoderInstall::DecoderInstall(std::wstring_view name, const std::wstring& program)
    : folder_(ownFolder()), root_(folder_ + L"\\" + std::wstring(name)) {
    std::error_code error;
    fs::create_directories(fs::path(root_) / L"deps", error);
    fs::copy_file(program, decoderPath(), error);
    if (error)
        ADD_FAILURE() << fs::path(program) << " could not be installed: " << error.message();
}

DecoderInstall::~DecoderInstall() {
    // A program that has just ended may be held for a moment longer.
    std::error_code error;
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (fs::remove_all(folder_, error), error && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    if (error)
        ADD_FAILURE() << "something still uses the test's install folder: " << error.message();
}

StubInstall::StubInstall(std::wstring_view name)
    : DecoderInstall(name, besideTheTest(L"stub-decoder.exe").wstring()) {}

void StubInstall::behave(std::string_view lines) const {
    std::ofstream(fs::path(root()) / L"deps" / L"stub-decoder.txt", std::ios::binary) << lines << '\n';
}

StubRecord StubInstall::record(std::uint32_t start) const {
    const fs::path file = fs::path(root()) / L"deps" / (L"start-" + std::to_wstring(start) + L".record");
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    std::string text;
    while ((text = readWhole(file)).empty()) {
        if (std::chrono::steady_clock::now() > deadline) {
            ADD_FAILURE() << "the stub decoder recorded no start " << start;
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return StubRecord(text);
}

FollowedProcess::FollowedProcess(std::uint32_t processId)
    : process_(OpenProcess(SYNCHRONIZE, FALSE, processId)) {
    EXPECT_TRUE(process_) << "process " << processId << " could not be opened: error " << GetLastError();
}

bool FollowedProcess::runs() const {
    return WaitForSingleObject(process_.get(), 0) == WAIT_TIMEOUT;
}

bool FollowedProcess::endsWithin(std::chrono::milliseconds limit) const {
    return WaitForSingleObject(process_.get(), static_cast<DWORD>(limit.count())) == WAIT_OBJECT_0;
}

std::uint32_t ownHandleCount() {
    const std::uint32_t count = handleCount(GetCurrentProcessId());
    EXPECT_NE(count, 0u) << "the system does not tell its handles";
    return count;
}

}  // namespace vextra::test
