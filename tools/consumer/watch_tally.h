// What one sees who watches the bridge for a while: how many frames, how steadily, what went wrong. Pure.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "bridge/bridge_layout.h"
#include "consumer/bridge_reader.h"

namespace vextra {

struct WatchStats {
    std::uint64_t frames = 0;                       // distinct fresh Live frames
    std::uint64_t missed = 0;                       // overwritten before they were read, by the frame counter
    std::uint64_t tornReads = 0;                    // given up after kMaxReadAttempts
    std::uint64_t retriedReads = 0;                 // consistent, but not at the first attempt
    std::uint64_t staleSpells = 0;                  // times that a Live frame was found too old
    std::array<std::uint64_t, 5> updatesByState{};  // distinct updates read, by BridgeState
    std::uint64_t invalidUpdates = 0;               // neither this format nor one of the five states
    std::optional<Tick> firstLiveMs;                // from the start to the first frame
    double framesPerSecond = 0;  // between the first and the last frame, by their own ticks
    std::uint32_t leasesLost = 0;
};

class WatchTally {
public:
    // The clock of firstLiveMs starts at `startMs`: when the lease was taken.
    explicit WatchTally(Tick startMs) : startMs_(startMs) {}

    void noteRead(const ReadResult& result);

    // Judges the newest consistent header, read just now or seen before. True when it carries a new frame.
    bool noteHeader(const BridgeHeader& header, Tick now);

    void noteLeasesLost(std::uint32_t times) { stats_.leasesLost = times; }

    const WatchStats& stats() const { return stats_; }

private:
    void noteUpdate(const BridgeHeader& header, Verdict verdict);
    void noteFrame(const BridgeHeader& header, Tick now);

    const Tick startMs_;
    WatchStats stats_;
    std::optional<std::uint32_t> lastSequence_;
    std::optional<BridgeHeader> lastFrame_;
    bool inStaleSpell_ = false;
    std::uint64_t spanFrames_ = 0;
    Tick spanMs_ = 0;
};

// "live" and so on; "unknown" for what is none of the five.
const char* stateName(std::uint32_t state);

std::string closingLine(const WatchStats& stats);
std::string statsJson(const WatchStats& stats);
std::string headerJson(const BridgeHeader& header, Tick now);

}  // namespace vextra
