// The Supervisor on a thread of its own and a window that never rests, under ThreadSanitizer.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

#include "core/supervisor.h"
#include "producers/backend_choice.h"
#include "ui/labels.h"
#include "ui/preview_picture.h"

namespace vextra {
namespace {

// As the system's: one waiter, and waiting resets it.
class AutoResetEvent {
public:
    void set() {
        const std::lock_guard guard(lock_);
        set_ = true;
        changed_.notify_one();
    }
    void wait() {
        std::unique_lock guard(lock_);
        changed_.wait(guard, [this] { return set_; });
        set_ = false;
    }
    void waitAtMost(std::chrono::milliseconds limit) {
        std::unique_lock guard(lock_);
        changed_.wait_for(guard, limit, [this] { return set_; });
        set_ = false;
    }

private:
    std::mutex lock_;
    std::condition_variable changed_;
    bool set_ = false;
};

enum class Waits { kForTheWakeAlone = 1, kAsTheBrokerDoes };

// The Supervisor's thread with a producer that always has a whole frame, all of one byte. The clock is moved
// by the passes themselves.
class RunningSupervisor {
public:
    explicit RunningSupervisor(Waits waits) : waits_(waits) {
        shared.settings.source = SourceKind::kSyntheticTest;
        fillPlaceholderFrame(shared.previewFrame);
        thread_ = std::thread([this] { run(); });
    }
    RunningSupervisor(const RunningSupervisor&) = delete;
    RunningSupervisor& operator=(const RunningSupervisor&) = delete;
    ~RunningSupervisor() { quit(); }

    void send(SupervisorCommand command) {
        shared.mailbox = command;
        wake_.set();
    }
    void quit() {
        if (!thread_.joinable())
            return;
        send(SupervisorCommand::kQuit);
        thread_.join();
    }

    SharedStatus shared;
    std::atomic<std::int32_t> leases{0};
    std::atomic<Tick> now{1'000'000};
    std::atomic<std::uint64_t> statusChanges{0};

private:
    SupervisorDoors doors() {
        return {
            .now = [this] { return now.load(); },
            .countLeases = [this] { return leases.load(); },
            .takeStopSignal = [] { return false; },
            .accountMayPublish = [] { return true; },
            .showStatus =
                [this](std::wstring_view text) {
                    if (replaceStatusText(shared, text))
                        ++statusChanges;
                },
            .askWindowToQuit = [] {},
            .log = [](EventCode, std::int32_t) {},
            .openBridge = [] { return true; },
            .publish = [](const std::byte*, BridgeState, std::uint64_t) {},
            .closeBridge = [] {},
            .startProducer =
                [this](bool, std::wstring_view, const BrokerSettings&) {
                    shared.effectiveBackend = EffectiveBackend::kFfmpeg;
                    return true;
                },
            .readProducer =
                [this](std::byte* buffer, std::uint32_t capacity) {
                    std::memset(buffer, ++frame_, capacity);
                    return static_cast<std::int32_t>(capacity);
                },
            .stopProducer = [] {},
            .keepPreview = [this](const std::byte* pixels) { keepPreviewFrame(shared, pixels); },
            .recordEvidence = nullptr,
        };
    }
    void run() {
        Supervisor supervisor(shared, doors(), true);
        for (;;) {
            const NextPass next = supervisor.runPass();
            now += kActivePassMs;
            if (next == NextPass::kNever)
                return;
            if (next == NextPass::kAtOnce)
                continue;
            if (waits_ == Waits::kForTheWakeAlone)
                wake_.wait();
            else
                wake_.waitAtMost(std::chrono::milliseconds(1));
        }
    }

    const Waits waits_;
    AutoResetEvent wake_;
    unsigned char frame_ = 0;  // the Supervisor's thread only
    std::thread thread_;
};

TEST(SupervisorRaces, TheWindowSeesWholePicturesAndTextsWhileItCommands) {
    constexpr std::uint64_t kFrames = 100;
    RunningSupervisor supervisor(Waits::kAsTheBrokerDoes);
    SharedStatus& shared = supervisor.shared;
    constexpr SupervisorCommand kCommands[] = {
        SupervisorCommand::kTogglePause, SupervisorCommand::kResume,   SupervisorCommand::kSuspend,
        SupervisorCommand::kResume,      SupervisorCommand::kStartNow, SupervisorCommand::kStopAndSuspend,
        SupervisorCommand::kResume};
    std::vector<std::byte> placeholder;
    fillPlaceholderFrame(placeholder);
    std::vector<std::byte> picture;
    std::uint64_t looks = 0;
    std::uint64_t pictures = 0;
    std::uint64_t highest = 0;
    for (; shared.frameCounter < kFrames; ++looks) {
        supervisor.leases = looks % 64 < 56 ? 1 : 0;
        shared.previewDeadline = looks % 16 == 0 ? supervisor.now + kManualPreviewMs : 0;
        if (looks % 4 == 0)
            supervisor.send(kCommands[looks / 4 % std::size(kCommands)]);

        const std::uint64_t counter = shared.frameCounter;
        ASSERT_GE(counter, highest);
        highest = counter;
        ASSERT_FALSE(statusLabel(statusNow(shared, supervisor.now)).empty());
        ASSERT_FALSE(backendLabel(shared.effectiveBackend).empty());
        ASSERT_LE(shared.generation, looks + kFrames);
        statusTextNow(shared);
        if (looks % 8 != 0)
            continue;
        copyPreviewFrame(shared, picture);
        ASSERT_EQ(picture.size(), kFrameBytes);
        const bool whole = std::memcmp(picture.data(), picture.data() + 1, kFrameBytes - 1) == 0;
        ASSERT_TRUE(whole || picture == placeholder);
        pictures += whole;
    }
    supervisor.quit();
    EXPECT_GT(pictures, 0u);
    EXPECT_GT(supervisor.statusChanges, 0u);
    EXPECT_EQ(shared.status, BrokerStatus::kIdle);
}

// Without a time limit on its wait the Supervisor takes a command only if no wake is ever lost.
TEST(SupervisorRaces, EveryCommandWakesTheSupervisor) {
    RunningSupervisor supervisor(Waits::kForTheWakeAlone);
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    for (int sent = 0; sent < 5000; ++sent) {
        supervisor.send(SupervisorCommand::kResume);
        while (supervisor.shared.mailbox != SupervisorCommand::kNone) {
            ASSERT_LT(std::chrono::steady_clock::now(), limit) << "command " << sent << " was not taken";
            std::this_thread::yield();
        }
    }
}

TEST(SupervisorRaces, SettingsAreCopiedAndReplacedWhole) {
    RunningSupervisor supervisor(Waits::kAsTheBrokerDoes);
    SharedStatus& shared = supervisor.shared;
    supervisor.leases = 1;
    for (std::uint32_t round = 1; round <= 300; ++round) {
        BrokerSettings settings;
        settings.source = SourceKind::kSyntheticTest;
        settings.firstFrameDeadlineMs = round;
        settings.customUrl.assign(std::wstring(round % 40, L'x'));
        replaceSettings(shared, settings);
        supervisor.send(round % 2 == 0 ? SupervisorCommand::kStopAndSuspend : SupervisorCommand::kResume);
        const BrokerSettings now = settingsNow(shared);
        ASSERT_EQ(now.customUrl.view().size(), now.firstFrameDeadlineMs % 40);
        std::this_thread::yield();
    }
}

}  // namespace
}  // namespace vextra
