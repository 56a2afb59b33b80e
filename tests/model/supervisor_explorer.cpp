#include "model/supervisor_explorer.h"

#include <algorithm>
#include <span>
#include <utility>

#include "base/fnv1a.h"

namespace vextra {
namespace {

// The onlooker's own figures: a model that took them from the Supervisor would share its mistakes.
constexpr Tick kGraceMs = 500;
constexpr Tick kFreshMs = 2000;
constexpr Tick kStallMs = 7000;
constexpr Tick kFirstFrameMs = 3500;  // set by the user; here unlike every other figure
constexpr Tick kFailedStartMs = 3000;
constexpr std::array<Tick, 5> kRecoveryMs{1000, 2000, 4000, 8000, 8000};
constexpr std::uint32_t kMostAttempts = 5;
constexpr std::uint32_t kGoodFrames = 32;
constexpr std::uint32_t kHalfFrameBytes = kFrameBytes / 2;

constexpr std::array<std::pair<SupervisorCommand, std::string_view>, 6> kCommands{{
    {SupervisorCommand::kStartNow, "StartNow"},
    {SupervisorCommand::kTogglePause, "TogglePause"},
    {SupervisorCommand::kStopAndSuspend, "StopAndSuspend"},
    {SupervisorCommand::kQuit, "Quit"},
    {SupervisorCommand::kSuspend, "Suspend"},
    {SupervisorCommand::kResume, "Resume"},
}};

// For the key: how long ago or how far ahead, as far as it matters. 0: never.
std::uint32_t ageOf(Tick then, Tick now, Tick most) {
    return then == 0 ? 0 : static_cast<std::uint32_t>(std::min(now - then, most)) + 1;
}
std::uint32_t timeTo(Tick then, Tick now) {
    return then > now ? static_cast<std::uint32_t>(then - now) : 0;
}

}  // namespace

std::size_t SupervisorExplorer::KeyHash::operator()(const Key& key) const {
    return static_cast<std::size_t>(fnv1a64(std::as_bytes(std::span(key))));
}

SupervisorExplorer::SupervisorExplorer(DecoderBackend decoder)
    : decoder_(decoder), supervisor_(shared_, doors(), /*mediaFoundationStarted=*/true), moves_(allMoves()) {
    shared_.settings.source = SourceKind::kCustomUrl;
    shared_.settings.customUrl.assign(L"rtsp://camera/live");
    shared_.settings.decoder = decoder;
    shared_.settings.firstFrameDeadlineMs = static_cast<std::uint32_t>(kFirstFrameMs);
    if (decoder == DecoderBackend::kGstreamer)
        start_.outside.startOutcome = StartOutcome::kGstreamer;
}

// --- The moves ---

std::vector<SupervisorExplorer::Move> SupervisorExplorer::allMoves() {
    using Self = SupervisorExplorer;
    std::vector<Move> moves;
    const auto add = [&](std::string name, std::function<bool(Self&)> change) {
        moves.push_back({std::move(name),
                         [change = std::move(change)](Self& self) { return change(self) && self.pass(); }});
    };
    // A value of the outside world; nothing to look at where it stands already.
    const auto addValue = [&](std::string name, auto Outside::*member, auto value) {
        add(std::move(name),
            [member, value](Self& self) { return std::exchange(self.outside_.*member, value) != value; });
    };

    add("pass", [](Self&) { return true; });
    for (const auto& [command, name] : kCommands) {
        add(std::string(name), [command = command](Self& self) {
            self.shared_.mailbox = command;
            return true;
        });
        add("late " + std::string(name), [command = command](Self& self) {
            self.lateCommand_ = command;
            return true;
        });
    }
    addValue("lease", &Outside::leases, 1);
    addValue("no lease", &Outside::leases, 0);
    addValue("leases unreadable", &Outside::leases, -1);
    addValue("stop signal", &Outside::stopSignal, true);
    add("preview", [](Self& self) {
        self.shared_.previewDeadline = self.outside_.now + kManualPreviewMs;
        self.shared_.mailbox = SupervisorCommand::kResume;
        return true;
    });
    add("preview ends", [](Self& self) { return self.shared_.previewDeadline.exchange(0) != 0; });

    const auto addSession = [&](std::string name, std::uint32_t away) {
        add(std::move(name), [away](Self& self) { return self.shared_.sessionAway.exchange(away) != away; });
    };
    addSession("locked", kSessionLocked);
    addSession("unlocked", 0);

    addValue("starts GStreamer", &Outside::startOutcome, StartOutcome::kGstreamer);
    addValue("starts FFmpeg", &Outside::startOutcome, StartOutcome::kFfmpeg);
    addValue("starts fail", &Outside::startOutcome, StartOutcome::kFails);
    addValue("bridge refused", &Outside::bridgeOpens, false);
    addValue("bridge opens", &Outside::bridgeOpens, true);
    addValue("account refused", &Outside::accountTrusted, false);
    addValue("account trusted", &Outside::accountTrusted, true);

    const auto addRead = [&](std::string name, ReadOutcome outcome) {
        add(std::move(name), [outcome](Self& self) {
            self.read_ = outcome;
            return true;
        });
    };
    addRead("half a frame", ReadOutcome::kHalfFrame);
    addRead("frame", ReadOutcome::kRestOfFrame);
    addRead("stream ends", ReadOutcome::kEnd);
    moves.push_back({"31 frames", [](Self& self) {
                         for (int frames = 0; frames < 31 && !self.ended_; ++frames) {
                             self.read_ = ReadOutcome::kRestOfFrame;
                             self.pass();
                         }
                         return self.outside_.producerRuns;
                     }});

    // Time alone: the next move's pass meets whatever became due together with its own change. A second, and
    // to each border at which something has to happen, just before, on and past it.
    moves.push_back({"1000 ms", [](Self& self) { return (self.outside_.now += 1000) != 0; }});
    const std::array<std::pair<std::string_view, Tick (*)(const Self&)>, 6> borders{{
        {"grace", [](const Self& self) { return self.outside_.withoutDemandSince + kGraceMs; }},
        {"retry", [](const Self& self) { return self.outside_.noAttemptBefore; }},
        {"first frame's deadline",
         [](const Self& self) { return self.outside_.producerStartedAt + kFirstFrameMs; }},
        {"fresh", [](const Self& self) { return self.outside_.newestFrameAt + kFreshMs; }},
        {"stall", [](const Self& self) { return self.outside_.newestFrameAt + kStallMs; }},
        {"preview's end", [](const Self& self) { return self.shared_.previewDeadline.load(); }},
    }};
    for (const auto& [name, border] : borders) {
        for (const int pastMs : {-1, 0, 1}) {
            moves.push_back(
                {"to " + std::string(name) +
                     (pastMs < 0   ? " - 1"
                      : pastMs > 0 ? " + 1"
                                   : ""),
                 [border = border, pastMs](Self& self) { return self.waitFor(border(self), pastMs); }});
        }
    }
    return moves;
}

bool SupervisorExplorer::waitFor(Tick deadline, int pastMs) {
    if (deadline < outside_.now || deadline + static_cast<Tick>(pastMs) <= outside_.now)
        return false;
    outside_.now = deadline + static_cast<Tick>(pastMs);
    return true;
}

// --- The doors ---

SupervisorDoors SupervisorExplorer::doors() {
    return {
        .now = [this] { return outside_.now; },
        .countLeases =
            [this] {
                if (lateCommand_ != SupervisorCommand::kNone)
                    shared_.mailbox = lateCommand_;
                return outside_.leases;
            },
        .takeStopSignal = [this] { return std::exchange(outside_.stopSignal, false); },
        .accountMayPublish = [this] { return outside_.accountTrusted; },
        .showStatus = [](std::wstring_view) {},
        .askWindowToQuit = [this] { ++pass_.quitRequests; },
        .log = [this](EventCode code, std::int32_t) { log(code); },
        .openBridge =
            [this] {
                promise(!outside_.bridgeOpen, "the bridge is opened once");
                return outside_.bridgeOpen = outside_.bridgeOpens;
            },
        .publish = [this](const std::byte* pixels, BridgeState state,
                          std::uint64_t counter) { publish(pixels, state, counter); },
        .closeBridge = [this] { outside_.bridgeOpen = false; },
        .startProducer = [this](bool, std::wstring_view,
                                const BrokerSettings& settings) { return startProducer(settings); },
        .readProducer = [this](std::byte*, std::uint32_t capacity) { return readProducer(capacity); },
        .stopProducer =
            [this] {
                outside_.producerRuns = false;
                outside_.halfFrame = false;
                outside_.newestFrameAt = 0;
            },
        .keepPreview = [](const std::byte*) {},
        .recordEvidence = nullptr,
    };
}

bool SupervisorExplorer::startProducer(const BrokerSettings& settings) {
    Outside& out = outside_;
    ++counts_.attempts;
    promise(!out.producerRuns, "one producer at a time");
    promise(out.bridgeOpen, "no producer without a bridge");
    promise(out.withoutDemandSince == 0 || out.now - out.withoutDemandSince < kGraceMs,
            "no attempt without demand");
    promise(!out.suspended && !shared_.paused, "no attempt while suspended or paused");
    promise(!pass_.away, "no attempt while the user is away");
    promise(out.now >= out.noAttemptBefore, "no attempt sooner than the delay allows");
    promise(++out.attempts <= kMostAttempts, "at most 5 attempts without 32 good frames");
    const bool fallback = decoder_ == DecoderBackend::kAutomatic && out.gstreamerFailed;
    promise(settings.decoder == (fallback ? DecoderBackend::kFfmpeg : decoder_),
            "the user's decoder, or FFmpeg after GStreamer failed in automatic");

    const BackendPlan plan =
        planBackend(/*syntheticTest=*/false, settings.decoder, out.startOutcome == StartOutcome::kGstreamer);
    const bool gstreamer = plan == BackendPlan::kGstreamerOnly || plan == BackendPlan::kGstreamerThenFfmpeg;
    if (plan != BackendPlan::kRefuseNoGstreamer) {
        out.producerKind = gstreamer ? EffectiveBackend::kGstreamer : EffectiveBackend::kFfmpeg;
        shared_.effectiveBackend = out.producerKind;
    }
    if (plan == BackendPlan::kRefuseNoGstreamer || out.startOutcome == StartOutcome::kFails) {
        ++out.failures;
        out.noAttemptBefore = out.now + kFailedStartMs;
        return false;
    }
    ++pass_.starts;
    out.producerRuns = true;
    out.producerStartedAt = out.now;
    out.newestFrameAt = 0;
    out.framesOfProducer = 0;
    out.halfFrame = false;
    return true;
}

std::int32_t SupervisorExplorer::readProducer(std::uint32_t capacityBytes) {
    Outside& out = outside_;
    promise(out.producerRuns, "only a running producer is read");
    promise(capacityBytes == (out.halfFrame ? kFrameBytes - kHalfFrameBytes : kFrameBytes),
            "a frame holds the bytes of one producer, all of them");
    switch (read_) {
        case ReadOutcome::kNothing: return 0;
        case ReadOutcome::kHalfFrame:
            if (out.halfFrame)
                return 0;
            out.halfFrame = true;
            return static_cast<std::int32_t>(kHalfFrameBytes);
        case ReadOutcome::kRestOfFrame:
            out.halfFrame = false;
            pass_.frameCompleted = true;
            return static_cast<std::int32_t>(capacityBytes);
        case ReadOutcome::kEnd: pass_.readEnded = true; return -1;
    }
    return 0;
}

void SupervisorExplorer::publish(const std::byte* pixels, BridgeState state, std::uint64_t frameCounter) {
    Outside& out = outside_;
    promise((pixels != nullptr) == (state == BridgeState::kLive), "pixels if and only if live");
    promise(out.bridgeOpen || state == BridgeState::kStopped, "nothing but Stopped for a closed bridge");
    promise(frameCounter == shared_.frameCounter, "the number of the newest frame");
    if (state == BridgeState::kLive) {
        promise(pass_.frameCompleted && out.producerRuns, "live only with a frame completed in this pass");
        ++pass_.liveFrames;
        ++counts_.liveFrames;
        out.newestFrameAt = out.now;
        out.framesOfProducer = std::min(out.framesOfProducer + 1, kGoodFrames);
        if (out.framesOfProducer == kGoodFrames)
            out.attempts = out.failures = 0;
    } else if (state == BridgeState::kFallback && out.shown == BridgeState::kLive && out.producerRuns) {
        ++counts_.staleFallbacks;
    }
    out.shown = state;
}

// What the onlooker concludes from the log; that a line is there if and only if its command was is checked
// after the pass.
void SupervisorExplorer::log(EventCode code) {
    Outside& out = outside_;
    pass_.logged |= std::uint64_t{1} << static_cast<unsigned>(code);
    switch (code) {
        case EventCode::kDemandBegin:
            promise(pass_.demand && !pass_.activeBefore, "an episode begins with demand, and once");
            out.suspended = out.heldOff = out.gstreamerFailed = false;
            out.attempts = out.failures = 0;
            out.noAttemptBefore = 0;
            break;
        case EventCode::kPowerSuspend: out.suspended = true; break;
        case EventCode::kPowerResume:
            out.heldOff = false;
            if (shared_.active) {
                out.suspended = false;
                out.attempts = out.failures = 0;
                out.noAttemptBefore = 0;
            }
            break;
        case EventCode::kProducerResume: out.attempts = out.failures = 0; break;
        case EventCode::kAutoGstreamerFallback:
            promise(
                decoder_ == DecoderBackend::kAutomatic && out.producerKind == EffectiveBackend::kGstreamer,
                "FFmpeg instead of GStreamer only in automatic");
            out.gstreamerFailed = true;
            ++counts_.fallbacksToFfmpeg;
            break;
        case EventCode::kProducerReconnect:
            promise(decoder_ != DecoderBackend::kAutomatic ||
                        out.producerKind != EffectiveBackend::kGstreamer || out.gstreamerFailed,
                    "in automatic, FFmpeg after GStreamer failed");
            promise(pass_.recoveries++ == 0, "a lost producer counts once");
            promise(out.failures < kMostAttempts, "no recovery after the last one");
            out.noAttemptBefore = out.now + kRecoveryMs[std::min<std::size_t>(out.failures, 4)];
            ++out.failures;
            ++counts_.recoveries;
            break;
        case EventCode::kLastDemandReleased:
            promise(out.withoutDemandSince != 0 && out.now - out.withoutDemandSince >= kGraceMs,
                    "demand that comes back within 500 ms finds its producer");
            ++counts_.graceStops;
            break;
        default: break;
    }
}

// --- One pass and its promises ---

void SupervisorExplorer::promise(bool kept, const char* what) {
    if (!kept)
        broken_.push_back(what);
}

bool SupervisorExplorer::pass() {
    const Outside before = outside_;
    const std::uint32_t generationBefore = shared_.generation;
    pass_ = {};
    pass_.command = shared_.mailbox;
    pass_.activeBefore = shared_.active;
    pass_.away = shared_.sessionAway != 0;
    pass_.demand = outside_.leases >= 1 || shared_.previewDeadline > outside_.now;
    if (pass_.demand)
        outside_.withoutDemandSince = 0;
    else if (outside_.withoutDemandSince == 0)
        outside_.withoutDemandSince = outside_.now;

    const NextPass next = supervisor_.runPass();

    ++counts_.passes;
    counts_.refusals += next == NextPass::kAtOnce ? 1 : 0;
    counts_.lateCommands += lateCommand_ != SupervisorCommand::kNone ? 1 : 0;
    counts_.exhaustions += outside_.failures == kMostAttempts && before.failures < kMostAttempts ? 1 : 0;
    promise(shared_.mailbox == lateCommand_, "no command is lost but by a newer one");
    promise(shared_.generation == generationBefore + pass_.starts, "a generation for each start");
    promise(pass_.quitRequests == (before.stopSignal && before.leases == 0 ? 1u : 0u) && !outside_.stopSignal,
            "the stop signal quits while no lease is held, and is gone in any case");
    checkCommand(next);
    checkAfter(before, next);
    read_ = ReadOutcome::kNothing;
    lateCommand_ = SupervisorCommand::kNone;
    ended_ = next == NextPass::kNever;
    return true;
}

// Each command has its effect in the pass after it was posted, and nothing has that effect without it.
void SupervisorExplorer::checkCommand(NextPass next) {
    using enum SupervisorCommand;
    const SupervisorCommand command = pass_.command;
    // Demand that ended long enough ago ends the episode before the command is looked at.
    const bool active = pass_.activeBefore && !logged(EventCode::kLastDemandReleased);
    const bool toggled = logged(EventCode::kProducerPause) || logged(EventCode::kProducerResume);
    promise((next == NextPass::kNever) == (command == kQuit), "Quit, and only Quit, ends the loop");
    const bool suspendAsked = command == kSuspend && active;
    promise(!suspendAsked || logged(EventCode::kPowerSuspend), "Suspend suspends what is active");
    promise(!logged(EventCode::kPowerSuspend) || suspendAsked || pass_.away,
            "nothing is suspended but by Suspend and behind a lock");
    counts_.awaySuspensions += logged(EventCode::kPowerSuspend) && !suspendAsked ? 1 : 0;
    promise(logged(EventCode::kPowerResume) == (command == kResume), "Resume is done");
    promise(toggled == (command == kTogglePause && active), "TogglePause is done while active");
    promise(logged(EventCode::kStopComplete) ==
                (command == kQuit || command == kStopAndSuspend || logged(EventCode::kLastDemandReleased)),
            "StopAndSuspend and Quit stop");
    if (command == kStopAndSuspend)
        outside_.heldOff = true;
    promise(shared_.active || command == kQuit || shared_.paused == outside_.heldOff,
            "after StopAndSuspend, and only then, demand starts nothing until Resume");
    const bool begins =
        pass_.demand && !active && (command == kStartNow || (command == kNone && !outside_.heldOff));
    promise(begins == (next == NextPass::kAtOnce || logged(EventCode::kDemandBegin)),
            "demand begins or is refused, at once");
}

void SupervisorExplorer::checkAfter(const Outside& before, NextPass next) {
    const Outside& out = outside_;
    const Tick now = out.now;
    promise(out.shown != BridgeState::kLive ||
                (out.producerRuns && out.newestFrameAt != 0 && now - out.newestFrameAt <= kFreshMs),
            "never live without a fresh frame");
    promise(shared_.status != BrokerStatus::kLive || out.newestFrameAt != 0,
            "never called live without a frame");
    promise(
        out.newestFrameAt == 0 || shared_.lastFrameTick == out.newestFrameAt || shared_.lastFrameTick == 0,
        "the newest frame's own tick");
    promise(!pass_.away || (!out.producerRuns && out.shown != BridgeState::kLive),
            "nothing plays while the user is away");
    const bool delivered = before.producerRuns && before.newestFrameAt != 0;
    const bool replaces =
        pass_.command == SupervisorCommand::kResume && delivered && shared_.active && !pass_.away;
    promise(!replaces || pass_.starts == 1 || out.failures == 1,
            "resuming replaces a producer that has delivered, in the same pass");
    promise(!replaces || pass_.readEnded || pass_.recoveries == 0, "resuming counts no failure");
    promise(pass_.liveFrames == (pass_.frameCompleted ? 1u : 0u), "each complete frame goes out, once");
    promise(out.withoutDemandSince == 0 || now - out.withoutDemandSince < kGraceMs ||
                (!out.producerRuns && !shared_.active),
            "no producer without demand for 500 ms");
    promise(shared_.active == out.bridgeOpen, "the bridge is open while active, closed when idle");
    promise(shared_.active || (!out.producerRuns && out.shown == BridgeState::kStopped),
            "idle leaves nothing behind");
    promise(shared_.leaseCount == out.leases, "the leases are told");
    promise(next != NextPass::kIdleWait || !shared_.active, "no long wait while active");

    const bool deadlinePassed = before.newestFrameAt == 0 && now >= before.producerStartedAt + kFirstFrameMs;
    const bool stalled = before.newestFrameAt != 0 && now - before.newestFrameAt > kStallMs;
    const bool mayStop = pass_.command != SupervisorCommand::kNone || pass_.away || pass_.readEnded ||
                         deadlinePassed || stalled || logged(EventCode::kLastDemandReleased);
    promise(!before.producerRuns || out.producerRuns || mayStop, "no producer is stopped without a reason");
    promise(pass_.starts == 0 || out.producerRuns || pass_.readEnded,
            "a producer that starts is given its time");
    promise(!out.producerRuns || (out.newestFrameAt == 0 ? now < out.producerStartedAt + kFirstFrameMs
                                                         : now - out.newestFrameAt <= kStallMs),
            "no producer is kept that delivers nothing");
    const bool mayTry = shared_.active && !shared_.paused && !out.suspended && out.failures < kMostAttempts;
    promise(!mayTry || out.producerRuns || now < out.noAttemptBefore, "an attempt as soon as it is allowed");
}

// --- The exploration ---

Moment SupervisorExplorer::now() const {
    return {supervisor_.memory_,
            {shared_.mailbox, shared_.previewDeadline, shared_.sessionAway, shared_.active, shared_.paused,
             shared_.status, shared_.lastFrameTick, shared_.frameCounter, shared_.generation,
             shared_.effectiveBackend},
            outside_};
}

void SupervisorExplorer::goBackTo(const Moment& moment) {
    supervisor_.memory_ = moment.memory;
    const SharedWords& words = moment.shared;
    shared_.mailbox = words.mailbox;
    shared_.previewDeadline = words.previewDeadline;
    shared_.sessionAway = words.sessionAway;
    shared_.active = words.active;
    shared_.paused = words.paused;
    shared_.status = words.status;
    shared_.lastFrameTick = words.lastFrameTick;
    shared_.frameCounter = words.frameCounter;
    shared_.generation = words.generation;
    shared_.effectiveBackend = words.effectiveBackend;
    outside_ = moment.outside;
    ended_ = false;
}

// Left out is what no pass and no promise looks at: the running numbers of frames and generations, and how
// long ago something was once it is so long ago that nothing more comes of it.
SupervisorExplorer::Key SupervisorExplorer::keyOfNow() const {
    const SupervisorMemory& memory = supervisor_.memory_;
    const Outside& out = outside_;
    const Tick now = out.now;
    const bool waitsForFirst = memory.producerExists && !memory.firstFrameSeen;
    const auto bits = [](auto... flags) {
        std::uint32_t word = 0;
        ((word = word << 1 | (flags ? 1u : 0u)), ...);
        return word;
    };
    return {
        memory.frameBytesRead,
        ageOf(memory.idleSince, now, kGraceMs),
        timeTo(memory.retryAt, now),
        memory.failures,
        std::min(memory.framesInGeneration, kGoodFrames),
        waitsForFirst ? timeTo(memory.firstFrameDeadline, now) : 0,
        bits(memory.producerExists, memory.firstFrameSeen, memory.suspended, memory.exhausted,
             memory.forceFfmpeg),
        static_cast<std::uint32_t>(shared_.mailbox.load()),
        timeTo(shared_.previewDeadline, now),
        shared_.sessionAway,
        bits(shared_.active.load(), shared_.paused.load()),
        static_cast<std::uint32_t>(shared_.status.load()),
        ageOf(shared_.lastFrameTick, now, kStallMs + 1),
        static_cast<std::uint32_t>(shared_.effectiveBackend.load()),
        static_cast<std::uint32_t>(out.leases),
        static_cast<std::uint32_t>(out.startOutcome),
        bits(out.bridgeOpens, out.accountTrusted, out.stopSignal, out.producerRuns, out.halfFrame,
             out.bridgeOpen, out.suspended, out.heldOff, out.gstreamerFailed),
        static_cast<std::uint32_t>(out.producerKind),
        out.producerRuns && out.newestFrameAt == 0 ? ageOf(out.producerStartedAt, now, kFirstFrameMs) : 0,
        ageOf(out.newestFrameAt, now, kStallMs + 1),
        out.framesOfProducer,
        static_cast<std::uint32_t>(out.shown),
        ageOf(out.withoutDemandSince, now, kGraceMs),
        out.attempts,
        out.failures,
        timeTo(out.noAttemptBefore, now),
    };
}

bool SupervisorExplorer::make(const Move& move) {
    const bool changed = move.make(*this);
    for (const char* const what : broken_)
        violation_ += std::string(violation_.empty() ? "" : "; ") + what;
    broken_.clear();
    return changed || !violation_.empty();
}

void SupervisorExplorer::explore(const std::vector<std::string_view>& opening, int depth) {
    goBackTo(start_);
    seen_.clear();
    steps_.clear();
    const auto pathTo = [this](std::uint32_t at) {
        std::string path;
        for (; at != 0; at = steps_[at].before)
            path.insert(0, ", " + moves_[steps_[at].move].name);
        return path;
    };
    std::string opened = "start";
    for (const std::string_view name : opening) {
        const auto move = std::ranges::find(moves_, name, &Move::name);
        opened += ", " + std::string(name);
        if (move == moves_.end() || !make(*move) || !violation_.empty()) {
            violation_ = "after " + opened + ": " + (violation_.empty() ? "no such move here" : violation_);
            return;
        }
    }

    struct Reached {
        Moment moment;
        std::uint32_t step;
    };
    steps_.push_back({0, 0});
    seen_.insert(keyOfNow());
    std::vector<Reached> front{{now(), 0}};
    for (int level = 0; level < depth; ++level) {
        std::vector<Reached> reached;
        for (const Reached& from : front) {
            for (std::uint32_t at = 0; at < moves_.size(); ++at) {
                goBackTo(from.moment);
                const bool changed = make(moves_[at]);
                if (!violation_.empty()) {
                    violation_ =
                        "after " + opened + pathTo(from.step) + ", " + moves_[at].name + ": " + violation_;
                    return;
                }
                if (!changed || ended_ || !seen_.insert(keyOfNow()).second)
                    continue;
                steps_.push_back({from.step, at});
                if (level + 1 < depth)
                    reached.push_back({now(), static_cast<std::uint32_t>(steps_.size() - 1)});
            }
        }
        front = std::move(reached);
    }
    counts_.moments += seen_.size();
}

}  // namespace vextra
