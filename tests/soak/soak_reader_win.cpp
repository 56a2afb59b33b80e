// A camera that tells everything it sees: it holds a lease, reads the bridge as a media source does, and
// prints
//
//   lease slot=N                                    when it has one
//   frame=N fnv1a64=H tick=T                        each picture it took: the header's counter and tick, its
//   own hash second tick=T state=S frames=N age=MS live_age=MS torn=N
//                                                   once a second: pictures since the last such line, the age
//                                                   of the newest; the greatest age at which an update was
//                                                   seen to be Live still; reads given up so far
//   released tick=T                                 at the end, when the lease is given back
//
//   soak-reader --stop-file PATH [--eager]
//
// It ends when the file is there. --eager: reads without a pause and hashes every copy, the same picture
// again and again. A picture that is seen with another content than before is a line of its own.
//
// The age of a Live update is taken with a clock that was read before the update was looked at: the update
// was still in place later than that, so that a reader that is suspended in between never makes the broker
// look late.
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cwchar>
#include <optional>
#include <random>
#include <string>
#include <string_view>

#include "base/fnv1a.h"
#include "base/unique_win.h"
#include "base/wait_win.h"
#include "bridge/bridge_location.h"
#include "bridge/shared_file_win.h"
#include "consumer/bridge_reader.h"
#include "consumer/lease_holder.h"
#include "consumer/watch_tally.h"

namespace vextra {
namespace {

constexpr std::uint32_t kPollMs = 5;
constexpr std::uint32_t kReadPauseMs = 1;
constexpr Tick kReportMs = 1000;
constexpr Tick kStopLookMs = 100;

enum class Pace { kEveryFrame = 1, kEager };

struct Options {
    std::wstring stopFile;
    Pace pace = Pace::kEveryFrame;
};

std::optional<Options> parse(int count, wchar_t** arguments) {
    Options options;
    for (int i = 1; i < count; ++i) {
        const std::wstring_view name = arguments[i];
        if (name == L"--eager")
            options.pace = Pace::kEager;
        else if (name == L"--stop-file" && i + 1 < count)
            options.stopFile = arguments[++i];
        else
            return std::nullopt;
    }
    if (options.stopFile.empty())
        return std::nullopt;
    return options;
}

std::uint64_t randomId() {
    static std::random_device device;
    return (std::uint64_t{device()} << 32) | device();
}

class Reader {
public:
    Reader(const BridgeFile& file, Pace pace, WakeWait& wait) : file_(file), pace_(pace), wait_(wait) {}

    void look() {
        const Tick before = GetTickCount64();
        const bool isNew = !latest_ || peekSequence(file_) != latest_->sequence;
        if (isNew || pace_ == Pace::kEager)
            read();
        if (latest_ && latest_->state == static_cast<std::uint32_t>(BridgeState::kLive) &&
            latest_->tickMs <= before)
            longestLiveMs_ = std::max(longestLiveMs_, before - latest_->tickMs);
    }

    // Begins a new second.
    void report(Tick now) {
        const auto age = newestMs_ == 0 ? -1LL : static_cast<long long>(now - newestMs_);
        std::printf("second tick=%llu state=%s frames=%u age=%lld live_age=%llu torn=%u\n", now,
                    latest_ ? stateName(latest_->state) : "none", frames_, age, longestLiveMs_, torn_);
        frames_ = 0;
        longestLiveMs_ = 0;
    }

private:
    void read() {
        const ReadResult result = readBridgeFrame(file_, frame_, [this] { wait_.waitShort(kReadPauseMs); });
        latest_.reset();
        if (!result.consistent) {
            ++torn_;
            return;
        }
        latest_ = frame_.header;
        if (judge(frame_.header, GetTickCount64()) == Verdict::kPicture)
            take();
    }

    void take() {
        const std::uint64_t hash = fnv1a64(frame_.pixels);
        if (lastFrame_ == frame_.header.frameCounter && lastHash_ == hash)
            return;
        if (lastFrame_ != frame_.header.frameCounter)
            ++frames_;
        lastFrame_ = frame_.header.frameCounter;
        lastHash_ = hash;
        newestMs_ = frame_.header.tickMs;
        std::printf("frame=%llu fnv1a64=%016llX tick=%llu\n", lastFrame_, hash, newestMs_);
    }

    const BridgeFile& file_;
    const Pace pace_;
    WakeWait& wait_;
    BridgeFrame frame_;
    std::optional<BridgeHeader> latest_;
    std::uint64_t lastFrame_ = 0;
    std::uint64_t lastHash_ = 0;
    Tick newestMs_ = 0;
    std::uint32_t frames_ = 0;
    std::uint32_t torn_ = 0;
    Tick longestLiveMs_ = 0;
};

int run(const Options& options) {
    const SharedFile bridge = SharedFile::open(resolveBridgePath(), kBridgeFileBytes, FileAccess::kReadOnly);
    const SharedFile demand = SharedFile::open(resolveDemandPath(), kDemandFileBytes, FileAccess::kReadWrite);
    const UniqueHandle never(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    if (!bridge || !demand || !never)
        return 3;
    LeaseHolder lease(*static_cast<DemandFile*>(demand.data()), randomId);
    Tick now = GetTickCount64();
    if (!lease.take(now))
        return 3;
    std::printf("lease slot=%u\n", *lease.slot());
    std::fflush(stdout);

    WakeWait wait(never.get());
    Reader reader(*static_cast<const BridgeFile*>(bridge.data()), options.pace, wait);
    Tick reportedMs = now;
    Tick lookedForStopMs = now;
    for (;;) {
        now = GetTickCount64();
        if (!lease.keepAlive(now))
            return 3;
        reader.look();
        if (now - reportedMs >= kReportMs) {
            reportedMs = now;
            reader.report(now);
            if (std::fflush(stdout) != 0)
                return 1;
        }
        if (now - lookedForStopMs >= kStopLookMs) {
            lookedForStopMs = now;
            if (GetFileAttributesW(options.stopFile.c_str()) != INVALID_FILE_ATTRIBUTES)
                break;
        }
        if (options.pace == Pace::kEveryFrame)
            wait.waitShort(kPollMs);
    }
    lease.release();
    std::printf("released tick=%llu\n", GetTickCount64());
    std::fflush(stdout);
    return 0;
}

}  // namespace
}  // namespace vextra

int wmain(int count, wchar_t** arguments) {
    const auto options = vextra::parse(count, arguments);
    if (!options) {
        std::fputs("usage: soak-reader --stop-file PATH [--eager]\n", stderr);
        return 2;
    }
    return vextra::run(*options);
}
