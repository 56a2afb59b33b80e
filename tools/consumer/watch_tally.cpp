#include "consumer/watch_tally.h"

#include <cstdio>
#include <iterator>

namespace vextra {
namespace {

constexpr const char* kStateNames[] = {"stopped", "fallback", "live", "paused", "unavailable"};

std::string number(std::uint64_t value) {
    return std::to_string(value);
}

std::string twoDecimals(double value) {
    char text[64];
    std::snprintf(text, sizeof text, "%.2f", value);
    return text;
}

std::string firstLive(const WatchStats& stats) {
    return stats.firstLiveMs ? number(*stats.firstLiveMs) : "-1";
}

const char* verdictName(Verdict verdict) {
    switch (verdict) {
        case Verdict::kPicture: return "picture";
        case Verdict::kStale: return "stale";
        case Verdict::kNotLive: return "not-live";
        case Verdict::kInvalidHeader: return "invalid-header";
    }
    return "";
}

}  // namespace

void WatchTally::noteRead(const ReadResult& result) {
    if (!result.consistent)
        ++stats_.tornReads;
    else if (result.attempts > 1)
        ++stats_.retriedReads;
}

bool WatchTally::noteHeader(const BridgeHeader& header, Tick now) {
    const Verdict verdict = judge(header, now);
    if (lastSequence_ != header.sequence)
        noteUpdate(header, verdict);
    lastSequence_ = header.sequence;

    if (verdict == Verdict::kStale && !inStaleSpell_)
        ++stats_.staleSpells;
    inStaleSpell_ = verdict == Verdict::kStale;

    if (verdict != Verdict::kPicture)
        return false;
    const bool isNew = !lastFrame_ || lastFrame_->writerPid != header.writerPid ||
                       lastFrame_->frameCounter != header.frameCounter;
    if (isNew)
        noteFrame(header, now);
    return isNew;
}

void WatchTally::noteUpdate(const BridgeHeader& header, Verdict verdict) {
    if (verdict == Verdict::kInvalidHeader || header.state >= stats_.updatesByState.size())
        ++stats_.invalidUpdates;
    else
        ++stats_.updatesByState[header.state];
}

void WatchTally::noteFrame(const BridgeHeader& header, Tick now) {
    ++stats_.frames;
    if (!stats_.firstLiveMs)
        stats_.firstLiveMs = now - startMs_;
    // A broker that starts anew counts from the beginning: no gap, and no part of the measured time.
    const bool follows = lastFrame_ && lastFrame_->writerPid == header.writerPid &&
                         lastFrame_->frameCounter < header.frameCounter &&
                         lastFrame_->tickMs <= header.tickMs;
    if (follows) {
        stats_.missed += header.frameCounter - lastFrame_->frameCounter - 1;
        spanFrames_ += header.frameCounter - lastFrame_->frameCounter;
        spanMs_ += header.tickMs - lastFrame_->tickMs;
    }
    if (spanMs_ > 0)
        stats_.framesPerSecond = 1000.0 * static_cast<double>(spanFrames_) / static_cast<double>(spanMs_);
    lastFrame_ = header;
}

const char* stateName(std::uint32_t state) {
    return state < std::size(kStateNames) ? kStateNames[state] : "unknown";
}

std::string closingLine(const WatchStats& stats) {
    return "frames=" + number(stats.frames) + " fps=" + twoDecimals(stats.framesPerSecond) +
           " torn=" + number(stats.tornReads) + " stale=" + number(stats.staleSpells) +
           " missed=" + number(stats.missed) + " first_live_ms=" + firstLive(stats);
}

std::string statsJson(const WatchStats& stats) {
    std::string states;
    for (std::uint32_t state = 0; state < stats.updatesByState.size(); ++state)
        states += "\"" + std::string(stateName(state)) + "\":" + number(stats.updatesByState[state]) + ",";
    return "{\"frames\":" + number(stats.frames) + ",\"fps\":" + twoDecimals(stats.framesPerSecond) +
           ",\"torn\":" + number(stats.tornReads) + ",\"retried\":" + number(stats.retriedReads) +
           ",\"stale\":" + number(stats.staleSpells) + ",\"missed\":" + number(stats.missed) +
           ",\"first_live_ms\":" + firstLive(stats) + ",\"leases_lost\":" + number(stats.leasesLost) +
           ",\"updates\":{" + states + "\"invalid\":" + number(stats.invalidUpdates) + "}}";
}

std::string headerJson(const BridgeHeader& header, Tick now) {
    return "{\"verdict\":\"" + std::string(verdictName(judge(header, now))) +
           "\",\"sequence\":" + number(header.sequence) + ",\"magic\":" + number(header.magic) +
           ",\"version\":" + number(header.version) + ",\"width\":" + number(header.width) +
           ",\"height\":" + number(header.height) + ",\"stride\":" + number(header.stride) +
           ",\"payload_bytes\":" + number(header.payloadBytes) + ",\"state\":\"" + stateName(header.state) +
           "\",\"tick_ms\":" + number(header.tickMs) +
           ",\"age_ms\":" + std::to_string(static_cast<std::int64_t>(now - header.tickMs)) +
           ",\"frame_counter\":" + number(header.frameCounter) +
           ",\"writer_pid\":" + number(header.writerPid) +
           ",\"writer_session\":" + number(header.writerSession) + "}";
}

}  // namespace vextra
