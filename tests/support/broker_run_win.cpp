#include "broker_run_win.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <sstream>

#include "core/instance_win.h"
#include "ui/tray_text.h"

namespace vextra::test {
namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kLeaseId = 0x5445'5354'4C45'4153;
[[maybe_unused]] constexpr std::uint32_t kQuitMs = 5000;
constexpr auto kHeartbeat = std::chrono::milliseconds(250);

void callNtdll(const char* name, HANDLE process) {
    using Function = LONG WINAPI(HANDLE);
    const auto function = reinterpret_cast<Function*>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), name)));
    EXPECT_EQ(function(process), 0) << name;
}

}  // namespace

std::wstring builtFile(std::wstring_view name) {
    std::vector<wchar_t> path(32'768);
    path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
    const fs::path tests = fs::path(path.begin(), path.end()).parent_path();
    return (tests.parent_path() / name).wstring();
}

bool waitUntil(const std::function<bool()>& condition, std::uint32_t timeoutMs) {
    const Tick end = GetTickCount64() + timeoutMs;
    while (!condition()) {
        if (GetTickCount64() >= end)
            return false;
        Sleep(5);
    }
    return true;
}

BrokerRun::BrokerRun(const std::wstring& installRoot, const std::wstring& localAppData)
    : installRoot_(installRoot),
      executable_(installRoot + L"\\bin\\CameraVirtualVextraMF.exe"),
      dataFolder_(localAppData + L"\\Vextra\\CameraVirtualMFBeta"),
      legacyFolder_(localAppData + L"\\Vextra\\CameraVirtualMF"),
      logPath_(dataFolder_ + L"\\diagnostic.log") {
    fs::create_directories(installRoot + L"\\bin");
    fs::create_directories(legacyFolder_);
    fs::copy_file(builtFile(L"bin\\CameraVirtualVextraMF.exe"), executable_);
    SetEnvironmentVariableW(L"LOCALAPPDATA", localAppData.c_str());
}

BrokerRun::~BrokerRun() {
    end();
}

void BrokerRun::end() {
#ifdef VEXTRA_COVERAGE
    // The test is over; a broker that is killed would take what it counted with it.
    PostMessageW(window(), WM_COMMAND, kIdTrayQuit, 0);
    waitForExit(kQuitMs);
#endif
    terminate();
}

UniqueHandle BrokerRun::launch(const std::wstring& options, DWORD* processId) {
    std::wstring commandLine = L"\"" + executable_ + L"\" " + options;
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION started{};
    // The test's own error mode, the launcher's, would hide that the broker sets none.
    const bool running = startProcess([&] {
        return CreateProcessW(executable_.c_str(), commandLine.data(), nullptr, nullptr, FALSE,
                              CREATE_DEFAULT_ERROR_MODE, nullptr, nullptr, &startup, &started);
    });
    if (!running) {
        ADD_FAILURE() << "the broker could not be started: " << GetLastError();
        return {};
    }
    CloseHandle(started.hThread);
    *processId = started.dwProcessId;
    return UniqueHandle(started.hProcess);
}

void BrokerRun::start(const std::wstring& options) {
    ASSERT_FALSE(runs());
    process_ = launch(options, &processId_);
    // Its own line: the log of the run before may still be there.
    const std::string ready = " UI_READY hr=0x00000000 frames=0 pid=" + std::to_string(processId_) + "\n";
    ASSERT_TRUE(waitUntil(
        [&] {
            return !runs() || (fileExists(logPath_) && readFile(logPath_).find(ready) != std::string::npos);
        },
        20'000));
    ASSERT_TRUE(runs()) << "the broker ended at its start";
}

void BrokerRun::terminate() {
    if (!process_)
        return;
    TerminateProcess(process_.get(), 99);
    WaitForSingleObject(process_.get(), 5000);
    process_.reset();
}

bool BrokerRun::runs() const {
    return process_ && WaitForSingleObject(process_.get(), 0) == WAIT_TIMEOUT;
}

HWND BrokerRun::window() const {
    return FindWindowW(kMainWindowClass, nullptr);
}

std::optional<DWORD> BrokerRun::waitForExit(std::uint32_t timeoutMs) {
    if (!process_ || WaitForSingleObject(process_.get(), timeoutMs) != WAIT_OBJECT_0)
        return std::nullopt;
    DWORD code = 0;
    GetExitCodeProcess(process_.get(), &code);
    return code;
}

std::optional<DWORD> BrokerRun::runToEnd(const std::wstring& options, std::uint32_t timeoutMs) {
    DWORD processId = 0;
    const UniqueHandle process = launch(options, &processId);
    DWORD code = 0;
    if (process && WaitForSingleObject(process.get(), timeoutMs) == WAIT_OBJECT_0 &&
        GetExitCodeProcess(process.get(), &code))
        return code;
    if (process)
        TerminateProcess(process.get(), 99);
    return std::nullopt;
}

std::vector<std::string> BrokerRun::events() const {
    std::vector<std::string> codes;
    std::istringstream lines(fileExists(logPath_) ? readFile(logPath_) : "");
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string tick, code;
        words >> tick >> code;
        codes.push_back(code);
    }
    return codes;
}

std::size_t BrokerRun::countEvents(const std::string& code) const {
    std::size_t count = 0;
    for (const std::string& event : events())
        count += event == code || (code == "APP_START" && event.starts_with("APP_START_LIMITED_"));
    return count;
}

bool BrokerRun::waitForEvent(const std::string& code, std::uint32_t timeoutMs) const {
    return waitUntil([&] { return countEvents(code) > 0; }, timeoutMs);
}

Suspension::Suspension(HANDLE process) : process_(process) {
    callNtdll("NtSuspendProcess", process_);
}

Suspension::~Suspension() {
    callNtdll("NtResumeProcess", process_);
}

// --- The media source ---

void DemandSide::takeLease() {
    abandonLease();
    const auto beat = [this] {
        std::atomic_ref<Tick>(demand_->slots[0].heartbeatTickMs).store(GetTickCount64());
    };
    beat();
    std::atomic_ref<std::uint64_t>(demand_->slots[0].leaseId).store(kLeaseId);
    heart_ = std::jthread([beat](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            beat();
            std::this_thread::sleep_for(kHeartbeat);
        }
    });
}

void DemandSide::abandonLease() {
    if (heart_.joinable()) {
        heart_.request_stop();
        heart_.join();
    }
}

void DemandSide::releaseLease() {
    abandonLease();
    std::atomic_ref<Tick>(demand_->slots[0].heartbeatTickMs).store(0);
    std::atomic_ref<std::uint64_t>(demand_->slots[0].leaseId).store(0);
}

bool Viewer::Picture::isWhole() const {
    return std::ranges::all_of(pixels, [&](std::byte byte) { return byte == pixels.front(); });
}

Viewer::Picture Viewer::read() {
    Picture picture;
    picture.pixels.resize(kFrameBytes);
    const std::atomic_ref<std::uint32_t> sequence(bridge_->header.sequence);
    for (int attempt = 0; attempt < 1000; ++attempt) {
        const std::uint32_t before = sequence.load();
        if (before % 2 == 0) {
            std::memcpy(&picture.header, &bridge_->header, sizeof picture.header);
            std::memcpy(picture.pixels.data(), bridge_->pixels, kFrameBytes);
            std::atomic_thread_fence(std::memory_order_seq_cst);
            if (sequence.load() == before)
                return picture;
        }
        Sleep(1);
    }
    ADD_FAILURE() << "no consistent picture in 1000 attempts";
    return picture;
}

bool Viewer::waitForState(BridgeState state, std::uint32_t timeoutMs) {
    return waitUntil([&] { return header().state == static_cast<std::uint32_t>(state); }, timeoutMs);
}

bool Viewer::waitForFrameAfter(std::uint64_t counter, std::uint32_t timeoutMs) {
    return waitUntil([&] { return header().frameCounter > counter; }, timeoutMs);
}

}  // namespace vextra::test
