// vextra-consumer: the camera's side of the bridge without a camera.
#include <windows.h>

#include <cstdio>
#include <optional>
#include <random>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "base/unique_win.h"
#include "base/wait_win.h"
#include "bridge/bridge_location.h"
#include "bridge/shared_file_win.h"
#include "console/console_win.h"
#include "consumer/bridge_reader.h"
#include "consumer/consumer_options.h"
#include "consumer/lease_holder.h"
#include "consumer/png_file_win.h"
#include "consumer/watch_tally.h"
#include "core/run_outputs.h"

namespace vextra {
namespace {

enum class ConsumerExit { kSuccess = 0, kNoPicture = 1, kUsage = 2, kRefused = 3 };

constexpr std::uint32_t kPollMs = 5;
constexpr std::uint32_t kReadPauseMs = 1;
constexpr Tick kProgressMs = 1000;
constexpr Tick kMsPerSecond = 1000;
constexpr DWORD kReleaseWaitMs = 2000;

void print(const std::string& ascii) {
    printLine(ConsoleStream::kOutput, std::wstring(ascii.begin(), ascii.end()));
}

ConsumerExit fail(ConsumerExit code, const std::wstring& what) {
    printLine(ConsoleStream::kError, L"vextra-consumer: " + what);
    return code;
}

// --- Ctrl+C ends the run early and in order ---

HANDLE stopEvent = nullptr;   // manual-reset; lives as long as the process
HANDLE endedEvent = nullptr;  // manual-reset; set when nothing is left to release

BOOL WINAPI onConsoleControl(DWORD) {
    SetEvent(stopEvent);
    // When the console closes, the process ends as soon as this returns.
    WaitForSingleObject(endedEvent, kReleaseWaitMs);
    return TRUE;
}

bool stopRequested() {
    return WaitForSingleObject(stopEvent, 0) == WAIT_OBJECT_0;
}

// --- The two files ---

std::optional<SharedFile> openBridge(const ConsumerOptions& options) {
    const std::wstring path = options.bridgePath.empty() ? resolveBridgePath() : options.bridgePath;
    SharedFile file = SharedFile::open(path, kBridgeFileBytes, FileAccess::kReadOnly);
    if (!file)
        return std::nullopt;
    return file;
}

// Not through the broker's own channel, which lets only the media source's accounts write: here the file's
// access list decides.
std::optional<SharedFile> openDemand(const ConsumerOptions& options) {
    const std::wstring path = options.demandPath.empty() ? resolveDemandPath() : options.demandPath;
    SharedFile file = SharedFile::open(path, kDemandFileBytes, FileAccess::kReadWrite);
    if (!file)
        return std::nullopt;
    return file;
}

std::uint64_t randomId() {
    static std::random_device device;
    return (std::uint64_t{device()} << 32) | device();
}

constexpr wchar_t kBridgeRefused[] = L"the bridge file is not there or is refused";
constexpr wchar_t kDemandRefused[] =
    L"the demand file is not there, is refused or may not be written by this account";
constexpr wchar_t kNoSlot[] = L"no lease is free: all 16 slots are held";

// --- Commands ---

ConsumerExit hold(const ConsumerOptions& options) {
    const auto demand = openDemand(options);
    if (!demand)
        return fail(ConsumerExit::kRefused, kDemandRefused);
    LeaseHolder lease(*static_cast<DemandFile*>(demand->data()), randomId);
    const Tick startMs = GetTickCount64();
    if (!lease.take(startMs))
        return fail(ConsumerExit::kRefused, kNoSlot);
    print("slot=" + std::to_string(*lease.slot()) + " lease=" + std::to_string(lease.leaseId()));

    WakeWait wait(stopEvent);
    while (!stopRequested() && GetTickCount64() - startMs < options.seconds * kMsPerSecond) {
        if (!lease.keepAlive(GetTickCount64()))
            return fail(ConsumerExit::kRefused, kNoSlot);
        wait.waitPlain(static_cast<std::uint32_t>(kBeatPeriodMs) / 10);
    }
    if (options.crash)
        lease.abandon();
    return ConsumerExit::kSuccess;
}

ConsumerExit readOnce(const ConsumerOptions& options) {
    const auto bridge = openBridge(options);
    if (!bridge)
        return fail(ConsumerExit::kRefused, kBridgeRefused);
    WakeWait wait(stopEvent);
    BridgeFrame frame;
    const ReadResult result = readBridgeFrame(*static_cast<const BridgeFile*>(bridge->data()), frame,
                                              [&] { wait.waitShort(kReadPauseMs); });
    if (!result.consistent)
        return fail(ConsumerExit::kNoPicture,
                    L"no consistent read: the writer is, or died, inside an update");
    const Tick now = GetTickCount64();
    print(headerJson(frame.header, now));
    const Verdict verdict = judge(frame.header, now);
    if (verdict == Verdict::kInvalidHeader)
        return fail(ConsumerExit::kNoPicture, L"the header is not valid: nothing was published yet");
    if (!options.pngPath.empty()) {
        if (verdict != Verdict::kPicture)
            return fail(ConsumerExit::kNoPicture, L"no picture saved: the frame is not a current one");
        if (!writePng(options.pngPath, frame.pixels))
            return fail(ConsumerExit::kNoPicture, L"cannot write " + options.pngPath);
    }
    return ConsumerExit::kSuccess;
}

// Reads the bridge as it changes and keeps the last good frame.
class BridgeWatch {
public:
    BridgeWatch(const BridgeFile& file, Tick startMs, WakeWait& wait)
        : file_(file), wait_(wait), tally_(startMs) {}

    void look() {
        if (!latest_ || peekSequence(file_) != latest_->sequence)
            read();
        if (latest_)
            tally_.noteHeader(*latest_, GetTickCount64());
    }

    WatchTally& tally() { return tally_; }
    const std::optional<BridgeHeader>& latest() const { return latest_; }
    // Of the last current picture; meaningful when at least one frame was counted.
    const std::vector<std::byte>& pixels() const { return picture_.pixels; }

private:
    void read() {
        const ReadResult result = readBridgeFrame(file_, scratch_, [this] { wait_.waitShort(kReadPauseMs); });
        tally_.noteRead(result);
        if (!result.consistent)
            return;
        latest_ = scratch_.header;
        if (judge(scratch_.header, GetTickCount64()) == Verdict::kPicture)
            std::swap(scratch_, picture_);
    }

    const BridgeFile& file_;
    WakeWait& wait_;
    WatchTally tally_;
    BridgeFrame scratch_;
    BridgeFrame picture_;
    std::optional<BridgeHeader> latest_;
};

void printProgress(const BridgeWatch& watch, const WatchStats& stats, Tick elapsedMs) {
    char fps[32];
    std::snprintf(fps, sizeof fps, "%.2f", stats.framesPerSecond);
    print("t=" + std::to_string(elapsedMs / kMsPerSecond) +
          "s state=" + (watch.latest() ? stateName(watch.latest()->state) : "none") +
          " frames=" + std::to_string(stats.frames) + " fps=" + fps);
}

ConsumerExit reportWatch(const ConsumerOptions& options, const BridgeWatch& watch, const WatchStats& stats) {
    print(closingLine(stats));
    if (options.jsonPath == L"-")
        print(statsJson(stats));
    else if (!options.jsonPath.empty() && !writeOutputFile(options.jsonPath, statsJson(stats) + "\n"))
        return fail(ConsumerExit::kNoPicture, L"cannot write " + options.jsonPath);
    if (stats.frames == 0)
        return ConsumerExit::kNoPicture;
    if (!options.pngPath.empty() && !writePng(options.pngPath, watch.pixels()))
        return fail(ConsumerExit::kNoPicture, L"cannot write " + options.pngPath);
    return ConsumerExit::kSuccess;
}

ConsumerExit watchBridge(const ConsumerOptions& options) {
    const auto bridge = openBridge(options);
    if (!bridge)
        return fail(ConsumerExit::kRefused, kBridgeRefused);
    std::optional<SharedFile> demand;
    std::optional<LeaseHolder> lease;
    if (!options.noLease) {
        demand = openDemand(options);
        if (!demand)
            return fail(ConsumerExit::kRefused, kDemandRefused);
        lease.emplace(*static_cast<DemandFile*>(demand->data()), randomId);
    }

    const Tick startMs = GetTickCount64();
    if (lease && !lease->take(startMs))
        return fail(ConsumerExit::kRefused, kNoSlot);
    WakeWait wait(stopEvent);
    BridgeWatch watch(*static_cast<const BridgeFile*>(bridge->data()), startMs, wait);
    const WatchStats& stats = watch.tally().stats();
    Tick progressMs = startMs;
    for (;;) {
        const Tick now = GetTickCount64();
        if (lease && !lease->keepAlive(now))
            return fail(ConsumerExit::kRefused, kNoSlot);
        watch.look();
        if (options.progress && now - progressMs >= kProgressMs) {
            progressMs = now;
            printProgress(watch, stats, now - startMs);
        }
        const bool enough = options.frames != 0 && stats.frames >= options.frames;
        if (enough || stopRequested() || now - startMs >= options.seconds * kMsPerSecond)
            break;
        wait.waitShort(kPollMs);
    }
    if (lease) {
        watch.tally().noteLeasesLost(lease->timesLost());
        lease->release();  // before the slow writing of files
    }
    return reportWatch(options, watch, stats);
}

ConsumerExit run(std::span<const wchar_t* const> arguments) {
    const auto options = parseConsumerOptions(arguments);
    if (!options) {
        printLine(ConsoleStream::kError, kConsumerUsage);
        return ConsumerExit::kUsage;
    }
    switch (options->command) {
        case ConsumerCommand::kWatch: return watchBridge(*options);
        case ConsumerCommand::kLease: return hold(*options);
        case ConsumerCommand::kRead: return readOnce(*options);
    }
    return ConsumerExit::kUsage;
}

}  // namespace
}  // namespace vextra

int wmain(int count, wchar_t** arguments);  // declared by no header

int wmain(int count, wchar_t** arguments) {
    using namespace vextra;
    const UniqueHandle stop(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const UniqueHandle ended(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    stopEvent = stop.get();
    endedEvent = ended.get();
    SetConsoleCtrlHandler(onConsoleControl, TRUE);
    const ConsumerExit code = run({arguments + 1, static_cast<std::size_t>(count) - 1});
    SetEvent(ended.get());
    return static_cast<int>(code);
}
