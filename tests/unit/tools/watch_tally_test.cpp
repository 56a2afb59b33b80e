#include "consumer/watch_tally.h"

#include <gtest/gtest.h>

#include <array>
#include <optional>

namespace vextra {
namespace {

constexpr Tick kStart = 50'000;

// A bridge of which only the header matters, looked at as soon as it is written unless told otherwise.
class Watched {
public:
    bool publish(BridgeState state, Tick tickMs, std::uint64_t counter, std::optional<Tick> seenMs = {},
                 std::uint32_t pid = 1) {
        BridgeHeader& header = header_;
        header.sequence += 2;
        header.magic = kBridgeMagic;
        header.version = kBridgeVersion;
        header.width = kFrameWidthPx;
        header.height = kFrameHeightPx;
        header.stride = kFrameStrideBytes;
        header.payloadBytes = kFrameBytes;
        header.state = static_cast<std::uint32_t>(state);
        header.tickMs = tickMs;
        header.frameCounter = counter;
        header.writerPid = pid;
        return look(seenMs.value_or(tickMs));
    }
    bool look(Tick now) { return tally_.noteHeader(header_, now); }
    const WatchStats& stats() const { return tally_.stats(); }

private:
    BridgeHeader header_{};
    WatchTally tally_{kStart};
};

TEST(WatchTally, MeasuresTheRateByTheFramesOwnTicks) {
    Watched bridge;
    for (std::uint64_t i = 0; i <= 160; ++i)
        bridge.publish(BridgeState::kLive, kStart + 175 + i * 125 / 2, i + 1);
    EXPECT_EQ(bridge.stats().frames, 161u);
    EXPECT_EQ(bridge.stats().missed, 0u);
    EXPECT_EQ(bridge.stats().firstLiveMs, 175u);
    EXPECT_DOUBLE_EQ(bridge.stats().framesPerSecond, 16.0);
}

TEST(WatchTally, CountsAFrameOnceHoweverOftenItIsSeen) {
    Watched bridge;
    EXPECT_TRUE(bridge.publish(BridgeState::kLive, kStart, 1));
    EXPECT_FALSE(bridge.look(kStart + 5));
    EXPECT_EQ(bridge.stats().frames, 1u);
    EXPECT_EQ(bridge.stats().updatesByState[2], 1u);
}

TEST(WatchTally, CountsFramesThatWereOverwrittenUnread) {
    Watched bridge;
    bridge.publish(BridgeState::kLive, kStart, 1);
    bridge.publish(BridgeState::kLive, kStart + 250, 5);
    EXPECT_EQ(bridge.stats().frames, 2u);
    EXPECT_EQ(bridge.stats().missed, 3u);
    EXPECT_DOUBLE_EQ(bridge.stats().framesPerSecond, 16.0);
}

TEST(WatchTally, SeesNoGapWhenTheBrokerStartsAnew) {
    Watched bridge;
    bridge.publish(BridgeState::kLive, kStart, 100, kStart, 1);
    bridge.publish(BridgeState::kLive, kStart + 5000, 900, kStart + 5000, 2);
    EXPECT_EQ(bridge.stats().frames, 2u);
    EXPECT_EQ(bridge.stats().missed, 0u);
    EXPECT_DOUBLE_EQ(bridge.stats().framesPerSecond, 0.0);
}

TEST(WatchTally, CountsASpellOfStalenessOnce) {
    Watched bridge;
    bridge.publish(BridgeState::kLive, kStart, 1);
    EXPECT_FALSE(bridge.look(kStart + 2001));
    EXPECT_FALSE(bridge.look(kStart + 2006));
    EXPECT_EQ(bridge.stats().staleSpells, 1u);
    bridge.publish(BridgeState::kLive, kStart + 3000, 2);
    bridge.look(kStart + 6000);
    EXPECT_EQ(bridge.stats().staleSpells, 2u);
}

TEST(WatchTally, TakesWhatADeadBrokerLeftForNoFrame) {
    Watched bridge;
    EXPECT_FALSE(bridge.publish(BridgeState::kLive, kStart - 60'000, 1, kStart));
    EXPECT_EQ(bridge.stats().frames, 0u);
    EXPECT_EQ(bridge.stats().staleSpells, 1u);
    EXPECT_EQ(bridge.stats().firstLiveMs, std::nullopt);
}

TEST(WatchTally, CountsTheUpdatesOfEachState) {
    Watched bridge;
    bridge.publish(BridgeState::kFallback, kStart, 0);
    bridge.publish(BridgeState::kFallback, kStart, 0);
    bridge.publish(BridgeState::kLive, kStart, 1);
    bridge.publish(BridgeState::kPaused, kStart, 1);
    bridge.publish(BridgeState::kUnavailable, kStart, 1);
    bridge.publish(BridgeState::kStopped, kStart, 1);
    bridge.publish(BridgeState{9}, kStart, 1);
    EXPECT_EQ(bridge.stats().updatesByState, (std::array<std::uint64_t, 5>{1, 2, 1, 1, 1}));
    EXPECT_EQ(bridge.stats().invalidUpdates, 1u);
}

TEST(WatchTally, TellsTornReadsFromRetriedOnes) {
    WatchTally tally(kStart);
    tally.noteRead({true, 1});
    tally.noteRead({true, 2});
    tally.noteRead({true, kMaxReadAttempts});
    tally.noteRead({false, kMaxReadAttempts});
    EXPECT_EQ(tally.stats().retriedReads, 2u);
    EXPECT_EQ(tally.stats().tornReads, 1u);
}

TEST(WatchReport, IsOneLine) {
    WatchStats stats;
    EXPECT_EQ(closingLine(stats), "frames=0 fps=0.00 torn=0 stale=0 missed=0 first_live_ms=-1");
    stats.frames = 160;
    stats.framesPerSecond = 15.996;
    stats.tornReads = 1;
    stats.staleSpells = 2;
    stats.missed = 3;
    stats.firstLiveMs = 175;
    EXPECT_EQ(closingLine(stats), "frames=160 fps=16.00 torn=1 stale=2 missed=3 first_live_ms=175");
}

TEST(WatchReport, IsJsonToo) {
    WatchStats stats;
    stats.frames = 2;
    stats.retriedReads = 4;
    stats.leasesLost = 1;
    stats.updatesByState = {1, 2, 3, 4, 5};
    stats.invalidUpdates = 6;
    EXPECT_EQ(statsJson(stats),
              R"({"frames":2,"fps":0.00,"torn":0,"retried":4,"stale":0,"missed":0,"first_live_ms":-1,)"
              R"("leases_lost":1,"updates":{"stopped":1,"fallback":2,"live":3,"paused":4,"unavailable":5,)"
              R"("invalid":6}})");
}

TEST(HeaderReport, CarriesVerdictStateAndAge) {
    BridgeHeader header{};
    header.magic = kBridgeMagic;
    header.version = 1;
    header.width = 1280;
    header.height = 720;
    header.stride = 5120;
    header.payloadBytes = kFrameBytes;
    header.sequence = 8;
    header.state = 2;
    header.tickMs = 1000;
    header.frameCounter = 9;
    header.writerPid = 10;
    header.writerSession = 1;
    EXPECT_EQ(headerJson(header, 1010),
              R"({"verdict":"picture","sequence":8,"magic":826690902,"version":1,"width":1280,"height":720,)"
              R"("stride":5120,"payload_bytes":3686400,"state":"live","tick_ms":1000,"age_ms":10,)"
              R"("frame_counter":9,"writer_pid":10,"writer_session":1})");
}

}  // namespace
}  // namespace vextra
