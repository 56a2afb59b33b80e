// Goes through everything that can happen to the Supervisor, not just through what its authors thought of:
// from each moment every move of the outside world, then one pass, up to a depth; moments that do not differ
// in anything that matters are looked at once. After each pass the promises of the broker are checked.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "core/supervisor.h"
#include "producers/backend_choice.h"

namespace vextra {

enum class StartOutcome : std::uint8_t { kGstreamer = 1, kFfmpeg, kFails };
enum class ReadOutcome : std::uint8_t { kNothing = 1, kHalfFrame, kRestOfFrame, kEnd };

// The words of SharedStatus that a pass reads or writes, as a plain value.
struct SharedWords {
    SupervisorCommand mailbox = SupervisorCommand::kNone;
    Tick previewDeadline = 0;
    std::uint32_t sessionAway = 0;
    bool active = false;
    bool paused = false;
    BrokerStatus status = BrokerStatus::kIdle;
    Tick lastFrameTick = 0;
    std::uint64_t frameCounter = 0;
    std::uint32_t generation = 0;
    EffectiveBackend effectiveBackend = EffectiveBackend::kNone;
};

// What the Supervisor meets, and what an onlooker who sees only its doors remembers of it.
struct Outside {
    Tick now = 1'000'000;
    std::int32_t leases = 0;
    StartOutcome startOutcome = StartOutcome::kFfmpeg;
    bool bridgeOpens = true;
    bool accountTrusted = true;
    bool stopSignal = false;

    bool producerRuns = false;
    EffectiveBackend producerKind = EffectiveBackend::kNone;
    Tick producerStartedAt = 0;
    Tick newestFrameAt = 0;              // of the running producer; 0: none yet
    std::uint32_t framesOfProducer = 0;  // up to kHealthyFrames
    bool halfFrame = false;              // the running producer delivered the first half of a frame
    bool bridgeOpen = false;
    BridgeState shown = BridgeState::kStopped;
    Tick withoutDemandSince = 0;  // the first pass that saw none; 0: demand
    bool suspended = false;
    bool heldOff = false;          // by StopAndSuspend
    bool gstreamerFailed = false;  // in this episode
    std::uint32_t attempts = 0;    // since the failures were forgiven or 32 good frames came
    std::uint32_t failures = 0;    // likewise
    Tick noAttemptBefore = 0;
};

struct Moment {
    SupervisorMemory memory;
    SharedWords shared;
    Outside outside;
};

struct ExplorerCounts {
    std::uint64_t passes = 0;
    std::uint64_t moments = 0;  // that differ
    std::uint64_t liveFrames = 0;
    std::uint64_t attempts = 0;
    std::uint64_t recoveries = 0;
    std::uint64_t exhaustions = 0;
    std::uint64_t refusals = 0;
    std::uint64_t graceStops = 0;
    std::uint64_t fallbacksToFfmpeg = 0;
    std::uint64_t staleFallbacks = 0;   // an old picture taken back while its producer still ran
    std::uint64_t lateCommands = 0;     // posted while a pass ran
    std::uint64_t awaySuspensions = 0;  // by the state of the session, without a Suspend
};

class SupervisorExplorer {
public:
    // With a camera's address and the user's choice of decoder.
    explicit SupervisorExplorer(DecoderBackend decoder);

    // From the start through the moves named in `opening`, then every sequence of up to `depth` moves. Ends
    // early at a broken promise.
    void explore(const std::vector<std::string_view>& opening, int depth);

    const ExplorerCounts& counts() const { return counts_; }
    // Empty, or the first broken promise and the moves that led there.
    const std::string& violation() const { return violation_; }

private:
    struct Move {
        std::string name;
        std::function<bool(SupervisorExplorer&)> make;  // false: it would change nothing here
    };
    using Key = std::array<std::uint32_t, 32>;
    struct KeyHash {
        std::size_t operator()(const Key& key) const;
    };
    // What one pass did.
    struct Pass {
        SupervisorCommand command = SupervisorCommand::kNone;
        std::uint64_t logged = 0;  // a bit for each EventCode
        std::uint32_t starts = 0;  // that succeeded
        std::uint32_t liveFrames = 0;
        std::uint32_t recoveries = 0;
        std::uint32_t quitRequests = 0;
        bool frameCompleted = false;
        bool readEnded = false;
        bool activeBefore = false;
        bool demand = false;
        bool away = false;  // the user has left the session
    };

    static std::vector<Move> allMoves();
    SupervisorDoors doors();
    bool startProducer(const BrokerSettings& settings);
    std::int32_t readProducer(std::uint32_t capacityBytes);
    void publish(const std::byte* pixels, BridgeState state, std::uint64_t frameCounter);
    void log(EventCode code);

    bool make(const Move& move);
    bool waitFor(Tick deadline, int pastMs);
    bool pass();
    void checkAfter(const Outside& before, NextPass next);
    void checkCommand(NextPass next);
    bool logged(EventCode code) const { return (pass_.logged >> static_cast<unsigned>(code) & 1u) != 0; }
    void promise(bool kept, const char* what);

    Moment now() const;
    void goBackTo(const Moment& moment);
    Key keyOfNow() const;

    Moment start_;
    SharedStatus shared_;
    Outside outside_;
    const DecoderBackend decoder_;
    ReadOutcome read_ = ReadOutcome::kNothing;  // of this move
    SupervisorCommand lateCommand_ = SupervisorCommand::kNone;
    bool ended_ = false;
    Pass pass_;
    Supervisor supervisor_;

    std::vector<Move> moves_;
    struct Step {
        std::uint32_t before;
        std::uint32_t move;
    };
    std::vector<Step> steps_;  // how each moment was reached
    std::unordered_set<Key, KeyHash> seen_;
    std::vector<const char*> broken_;
    ExplorerCounts counts_;
    std::string violation_;
};

}  // namespace vextra
