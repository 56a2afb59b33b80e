// The built broker as a user, an installer or the camera's media source meets it: from outside, as a process.
#pragma once

#include <windows.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "base/unique_win.h"
#include "bridge/bridge_layout.h"
#include "broker_fixture_win.h"

namespace vextra::test {

// A file of the build, named from the build folder: bin\..., deps\...
std::wstring builtFile(std::wstring_view name);

// Polls until `condition` holds; false when `timeoutMs` passed first.
bool waitUntil(const std::function<bool()>& condition, std::uint32_t timeoutMs);

// A copy of the built broker in an install root, the folders of its user, and the processes started from it.
// Ends what still runs. One at a time: lock, window class and signal are per user.
class BrokerRun {
public:
    // `localAppData` need not exist; the broker is told of it by the environment of this process.
    BrokerRun(const std::wstring& installRoot, const std::wstring& localAppData);
    ~BrokerRun();
    BrokerRun(const BrokerRun&) = delete;
    BrokerRun& operator=(const BrokerRun&) = delete;

    const std::wstring& installRoot() const { return installRoot_; }
    const std::wstring& dataFolder() const { return dataFolder_; }
    const std::wstring& legacyFolder() const { return legacyFolder_; }

    // Where the broker logs, if not to diagnostic.log in its data folder.
    void useLog(const std::wstring& path) { logPath_ = path; }

    // The broker itself; its window exists when this returns. Options as on a command line.
    void start(const std::wstring& options);
    void terminate();  // as a crash would
    void end();        // when the test is done with it, as at the end of this object
    bool runs() const;
    DWORD processId() const { return processId_; }
    HWND window() const;
    HANDLE process() const { return process_.get(); }
    // The exit code of the broker, once it ended by itself; nothing after `timeoutMs`.
    std::optional<DWORD> waitForExit(std::uint32_t timeoutMs);
    // As the window's own buttons and menus would.
    void command(WORD id) { PostMessageW(window(), WM_COMMAND, id, 0); }

    // A run to the end of another process of the same executable; nothing when it did not end in time.
    std::optional<DWORD> runToEnd(const std::wstring& options, std::uint32_t timeoutMs = 15'000);

    // Codes of the broker's event lines in order, without their numbers.
    std::vector<std::string> events() const;
    std::size_t countEvents(const std::string& code) const;
    bool waitForEvent(const std::string& code, std::uint32_t timeoutMs = 5000) const;

private:
    UniqueHandle launch(const std::wstring& options, DWORD* processId);

    std::wstring installRoot_;
    std::wstring executable_;
    std::wstring dataFolder_;
    std::wstring legacyFolder_;
    std::wstring logPath_;
    UniqueHandle process_;
    DWORD processId_ = 0;
};

// The whole process stands still until this ends, as if it hung.
class Suspension {
public:
    explicit Suspension(HANDLE process);
    ~Suspension();
    Suspension(const Suspension&) = delete;
    Suspension& operator=(const Suspension&) = delete;

private:
    const HANDLE process_;
};

// The half of the camera's media source that asks for pictures.
class DemandSide {
public:
    explicit DemandSide(const std::wstring& demandPath) : demand_(demandPath) {}
    ~DemandSide() { releaseLease(); }
    DemandSide(const DemandSide&) = delete;
    DemandSide& operator=(const DemandSide&) = delete;

    void takeLease();     // slot 0, kept alive by a thread
    void releaseLease();  // gives it back
    void abandonLease();  // as a crash would: no more heartbeats, the slot stays
    DemandFile& demand() { return *demand_; }

private:
    NeighbourView<DemandFile> demand_;
    std::jthread heart_;
};

// The whole of it: holds leases and looks at latest.frame.
class Viewer : public DemandSide {
public:
    Viewer(const std::wstring& bridgePath, const std::wstring& demandPath)
        : DemandSide(demandPath), bridge_(bridgePath) {}

    volatile BridgeHeader& header() { return bridge_->header; }

    // A header and its pixels, read by the sequence protocol.
    struct Picture {
        BridgeHeader header{};
        std::vector<std::byte> pixels;

        // Each byte of a stub's frame is its number in its run: a frame that mixes two is torn.
        bool isWhole() const;
    };
    Picture read();

    bool waitForState(BridgeState state, std::uint32_t timeoutMs = 5000);
    bool waitForFrameAfter(std::uint64_t counter, std::uint32_t timeoutMs = 5000);

private:
    NeighbourView<BridgeFile> bridge_;
};

}  // namespace vextra::test
