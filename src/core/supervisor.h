// The broker's one worker: it connects only while a lease or a preview asks for it, keeps the producer alive
// within bounds, and never lets an old picture pass for a new one. Pure: everything that touches the system
// comes in through the doors, so that hours of demand, stalls and recoveries run in milliseconds of a test.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>

#include "base/system_types.h"
#include "bridge/bridge_layout.h"
#include "config/settings.h"
#include "core/shared_status.h"
#include "diag/event_codes.h"
#include "diag/event_line.h"

namespace vextra {

// All of them are called on the Supervisor's thread only.
struct SupervisorDoors {
    std::function<Tick()> now;
    std::function<std::int32_t()> countLeases;  // -1: the demand channel cannot be read
    std::function<bool()> takeStopSignal;       // true once for each signal; taking it clears it
    std::function<bool()> accountMayPublish;    // not elevated, and the bridge's owner
    std::function<void(std::wstring_view)> showStatus;
    std::function<void()> askWindowToQuit;  // the stop signal arrived while idle
    std::function<void(EventCode, std::int32_t)> log;

    std::function<bool()> openBridge;
    std::function<void(const std::byte* pixels, BridgeState, std::uint64_t frameCounter)> publish;
    std::function<void()> closeBridge;

    std::function<bool(bool syntheticTest, std::wstring_view url, const BrokerSettings&)> startProducer;
    std::function<std::int32_t(std::byte* buffer, std::uint32_t capacityBytes)> readProducer;
    std::function<void()> stopProducer;

    std::function<void(const std::byte* pixels)> keepPreview;  // copies the frame for the window
    // Empty without an evidence folder. Given the frame, its number and the pump's tick.
    std::function<void(const std::byte* pixels, std::uint64_t frameNumber, Tick now)> recordEvidence;
};

// What the thread does after a pass.
enum class NextPass {
    kAtOnce = 1,  // demand begin was refused: repeated without any wait, on purpose
    kActiveWait,  // a demand episode is under way: kActivePassMs
    kIdleWait,    // kIdlePassMs
    kNever,       // Quit was taken
};

constexpr std::uint32_t kActivePassMs = 5;
constexpr std::uint32_t kIdlePassMs = 50;
constexpr Tick kDemandGraceMs = 500;    // from the last demand to the producer's stop
constexpr Tick kStallRecoverMs = 7000;  // age of the newest frame above which the producer is given up
constexpr Tick kStartRetryMs = 3000;
constexpr std::uint32_t kMaxFailures = 5;     // consecutive; after that the episode makes no further attempt
constexpr std::uint32_t kHealthyFrames = 32;  // of one generation: clear the failures
constexpr std::uint32_t kReportEveryFrames = 16;

// The wait before the next attempt, given the failures before this one.
constexpr Tick recoveryDelayMs(std::uint32_t failures) {
    return Tick{1000} << (failures < 3 ? failures : 3);
}

// What is remembered from one pass to the next, beside SharedStatus. A plain value: with it and the
// SharedStatus of the same moment a Supervisor can go on from there.
struct SupervisorMemory {
    std::uint32_t frameBytesRead = 0;
    bool producerExists = false;
    Tick idleSince = 0;  // 0: demand present
    Tick retryAt = 0;
    std::uint32_t failures = 0;  // consecutive
    std::uint32_t framesInGeneration = 0;
    bool firstFrameSeen = false;
    Tick firstFrameDeadline = 0;
    bool suspended = false;
    bool exhausted = false;
    bool forceFfmpeg = false;  // automatic backend, after GStreamer failed in this episode
};

class Supervisor {
public:
    // `mediaFoundationStarted`: false refuses every demand.
    Supervisor(SharedStatus& shared, SupervisorDoors doors, bool mediaFoundationStarted);

    NextPass runPass();

private:
    enum class Begin { kDone = 1, kRefused };

    // Commands
    void suspend();
    void resume();
    void stopAndSuspend();
    void togglePause();

    Begin beginDemand(bool demand);
    Begin refuse(std::wstring_view text);
    void stopEpisode();

    void pump();
    bool startProducer();
    void readProducer();
    void publishFrame();
    void watch();
    void recover();

    void stopProducerInstance();
    void publishHeader(BridgeState state);
    void setStatus(BrokerStatus status) { shared_.status = status; }
    void restartFirstFrameClock();
    void clearFailures();
    bool syntheticTest() const { return snapshot_.source == SourceKind::kSyntheticTest; }

    SharedStatus& shared_;
    const SupervisorDoors doors_;
    const bool mediaFoundationStarted_;

    // Everything below belongs to the Supervisor's thread.
    struct alignas(32) FrameBuffer {
        std::byte bytes[kFrameBytes];
    };
    std::unique_ptr<FrameBuffer> frame_ = std::make_unique<FrameBuffer>();
    BrokerSettings snapshot_;  // taken at demand begin
    SecretText url_;           // built from it; empty for the synthetic test
    SupervisorMemory memory_;

    friend class SupervisorExplorer;  // a test that goes back to what was remembered and takes another turn
};

}  // namespace vextra
