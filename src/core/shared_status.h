// What the Supervisor and the window tell each other. Every atomic is read and written sequentially
// consistent.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "base/system_types.h"
#include "config/settings.h"
#include "producers/backend_choice.h"

namespace vextra {

enum class SupervisorCommand : std::uint32_t {
    kNone = 0,
    kStartNow = 1,  // no sender yet: a start check at once
    kTogglePause = 2,
    kStopAndSuspend = 3,
    kQuit = 4,
    kSuspend = 5,
    kResume = 6,
};

enum class BrokerStatus : std::uint32_t {
    kIdle = 0,
    kConnecting = 1,
    kLive = 2,
    kPaused = 3,
    kUnavailable = 4,
    kSuspended = 5,
};

// Why the session's user is away from it: bits of SharedStatus::sessionAway.
constexpr std::uint32_t kSessionLocked = 1;
constexpr std::uint32_t kSessionDisconnected = 2;

constexpr Tick kManualPreviewMs = 60'000;

struct SharedStatus {
    // Written by the window, taken by the Supervisor: a newer command replaces one not yet taken.
    std::atomic<SupervisorCommand> mailbox{SupervisorCommand::kNone};
    std::atomic<Tick> previewDeadline{0};  // 0 or past: no manual preview
    // Written by the window alone. While it is not 0 no decoder runs, whatever else is asked for.
    std::atomic<std::uint32_t> sessionAway{0};  // kSession... bits

    // Written by the Supervisor and its producer, read by the window.
    std::atomic<std::int32_t> leaseCount{0};  // -1: the demand channel cannot be read
    std::atomic<bool> active{false};          // a demand episode is under way
    std::atomic<bool> paused{false};          // also cleared by --force before the Supervisor starts
    std::atomic<BrokerStatus> status{BrokerStatus::kIdle};
    std::atomic<Tick> lastFrameTick{0};          // 0: none in this episode
    std::atomic<std::uint64_t> frameCounter{0};  // complete frames published since the broker started
    std::atomic<std::uint32_t> generation{0};    // producers started
    std::atomic<std::uint32_t> reconnects{0};    // producers given up by the recovery policy
    std::atomic<std::int32_t> lastError{0};      // sanitized result code
    std::atomic<EffectiveBackend> effectiveBackend{EffectiveBackend::kNone};  // written by the producer
    // Whether the source in effect is the synthetic test; written at the start, when settings are applied,
    // and at each demand. No reader: the window's labels go by the settings. It stays because the settings
    // may be others by then, and this alone says what the running episode shows.
    std::atomic<bool> testPattern{false};

    std::mutex statusLock;
    std::wstring statusText;     // guarded by statusLock
    std::wstring failureReason;  // guarded by statusLock; why the decoder failed, until the next live frame
    std::vector<std::byte> previewFrame;  // guarded by statusLock; kFrameBytes of BGRA, never resized

    std::mutex settingsLock;
    BrokerSettings settings;  // guarded by settingsLock; copied and replaced as a whole

    bool previewRuns(Tick now) const { return previewDeadline.load() > now; }
};

// What lies under a lock, as a whole. Any thread; each call takes one lock and gives it back.
void keepPreviewFrame(SharedStatus& shared, const std::byte* pixels);  // kFrameBytes of them
void copyPreviewFrame(SharedStatus& shared, std::vector<std::byte>& to);
bool replaceStatusText(SharedStatus& shared, std::wstring_view text);  // false: it was there already
std::wstring statusTextNow(SharedStatus& shared);
void replaceFailureReason(SharedStatus& shared, std::wstring_view reason);  // no address may be in it
std::wstring failureReasonNow(SharedStatus& shared);
bool renewFailureReason(SharedStatus& shared, std::wstring& known);  // true: it was another
BrokerSettings settingsNow(SharedStatus& shared);
// Of these the source alone, without a copy of the secrets: the window asks for it on every tick.
SourceKind sourceNow(SharedStatus& shared);
void replaceSettings(SharedStatus& shared, const BrokerSettings& settings);

}  // namespace vextra
