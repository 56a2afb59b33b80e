// What is read from the decoder, how a stream ends, and what starts and stops leave behind.
#include <algorithm>

#include "ffmpeg_process_fixture_win.h"

namespace vextra::test {
namespace {

// ---- reading ----

using UncountedFfmpegProcessTest = FfmpegProcessTest;

TEST_F(FfmpegProcessTest, ReadBeforeAnyStartSaysThatTheStreamHasEnded) {
    EXPECT_EQ(pollOnce(), -1);
}

TEST_F(FfmpegProcessTest, SilentChildYieldsNothing) {
    startStub("then=hang");
    for (int i = 0; i < 50; ++i)
        ASSERT_EQ(pollOnce(), 0);
}

TEST_F(FfmpegProcessTest, ReadDoesNotWaitForASilentChild) {
    startStub("then=hang");
    EXPECT_LT(durationOf([&] {
                  for (int i = 0; i < 100; ++i)
                      pollOnce();
              }),
              milliseconds(1000));
}

TEST_F(FfmpegProcessTest, ReadDoesNotWaitForTheRestOfAFrame) {
    startStub("tailBytes=5000\nthen=hang");
    EXPECT_EQ(pollUntilNews(), 5000);
}

TEST_F(FfmpegProcessTest, ReadTakesNoMoreThanTheCapacity) {
    startStub("tailBytes=5000\nthen=hang");
    ASSERT_EQ(pollUntilNews(1), 1);  // the other 4999 came with it
    EXPECT_EQ(pollOnce(1000), 1000);
}

TEST_F(FfmpegProcessTest, ReadWritesNothingBehindTheCapacity) {
    startStub("tailBytes=5000\nthen=hang");
    std::ranges::fill(buffer_, std::byte{0xAA});  // what comes are zeros
    ASSERT_EQ(pollUntilNews(1), 1);
    EXPECT_EQ(buffer_[1], std::byte{0xAA});
}

TEST_F(FfmpegProcessTest, ReadLeavesTheRestForTheNextRead) {
    startStub("tailBytes=5000\nthen=hang");
    ASSERT_EQ(pollUntilNews(1), 1);
    EXPECT_EQ(pollOnce(), 4999);
}

TEST_F(FfmpegProcessTest, FramesInOddPiecesComeWholeAndInOrder) {
    startStub("frames=6\npieceBytes=1,4095,1048577,3,65536\nthen=hang");
    FrameCollector frames = collector();
    frames.collect(6, kPatience);
    EXPECT_EQ(frames.values(), countingFromZero(6));
}

TEST_F(FfmpegProcessTest, FramesInSmallPiecesComeWholeAndInOrder) {
    startStub("frames=2\npieceBytes=4095\nthen=hang");
    FrameCollector frames = collector();
    frames.collect(2, kPatience);
    EXPECT_EQ(frames.values(), countingFromZero(2));
}

TEST_F(UncountedFfmpegProcessTest, NoneOfTooManyFramesIsLost) {
    startStub("frames=64\nthen=hang");
    FrameCollector frames = collector();
    frames.collect(64, kPatience);
    EXPECT_EQ(frames.values(), countingFromZero(64));
}

TEST_F(FfmpegProcessTest, NothingFollowsTheLastFrame) {
    startStub("frames=3\nthen=hang");
    FrameCollector frames = collector();
    frames.collect(3, kPatience);
    ASSERT_EQ(frames.wholeFrames(), 3u);
    EXPECT_EQ(frames.poll(), 0);
}

TEST_F(UncountedFfmpegProcessTest, SixteenFramesPerSecondAreKept) {
    startStub("frames=endless\nframesPerSecond=16");
    FrameCollector frames = collector();
    frames.collect(1, kPatience);
    const milliseconds sixteenMore = durationOf([&] { frames.collect(17, kPatience); });
    EXPECT_NEAR(static_cast<double>(sixteenMore.count()), 1000.0, 150.0);
}

TEST_F(FfmpegProcessTest, FloodOfMessagesDoesNotStopTheFrames) {
    startStub("frames=8\nerrorBytes=100000\nthen=hang");
    FrameCollector frames = collector();
    frames.collect(8, kPatience);
    EXPECT_EQ(frames.values(), countingFromZero(8));
}

// ---- the end of a stream ----

TEST_F(FfmpegProcessTest, ChildThatExitsAtOnceEndsTheStream) {
    startStub("exitCode=1");
    EXPECT_EQ(pollUntilNews(), -1);
}

TEST_F(FfmpegProcessTest, EndOfStreamLasts) {
    startStub("");
    ASSERT_EQ(pollUntilNews(), -1);
    EXPECT_EQ(pollOnce(), -1);
}

TEST_F(FfmpegProcessTest, ChildThatExitsAfterHalfAFrameEndsTheStream) {
    startStub("tailBytes=1843200\ndelayMs=100");
    FrameCollector frames = collector();
    frames.collect(1, kPatience);
    EXPECT_TRUE(frames.ended());
}

TEST_F(FfmpegProcessTest, HalfAFrameIsNotReportedAsAWholeOne) {
    startStub("frames=2\ntailBytes=1843200\nthen=exit");
    FrameCollector frames = collector();
    frames.collect(3, kPatience);
    EXPECT_EQ(frames.wholeFrames(), 2u);
}

TEST_F(FfmpegProcessTest, BytesOfAnEndedChildAreNotRead) {
    const FollowedProcess child(startStub("tailBytes=5000\ndelayMs=200").number("pid"));
    ASSERT_TRUE(child.endsWithin(kPatience));
    EXPECT_EQ(pollOnce(), -1);
}

TEST_F(FfmpegProcessTest, HalfAFrameAndSilenceIsNoEnd) {
    startStub("tailBytes=1843200\nthen=hang");
    FrameCollector frames = collector();
    frames.collect(1, milliseconds(500));
    EXPECT_EQ(frames.bytesOfNextFrame(), 1843200u);
    EXPECT_FALSE(frames.ended());
}

TEST_F(FfmpegProcessTest, ClosedOutputOfALivingChildEndsTheStream) {
    const FollowedProcess child(startStub("then=close\ndelayMs=200").number("pid"));
    EXPECT_EQ(pollUntilNews(), -1);
    EXPECT_TRUE(child.runs());
}

TEST_F(FfmpegProcessTest, BytesBeforeAClosedOutputAreRead) {
    startStub("frames=2\nthen=close");
    FrameCollector frames = collector();
    frames.collect(3, kPatience);
    EXPECT_EQ(frames.values(), countingFromZero(2));
}

// ---- starting and stopping ----

TEST_F(FfmpegProcessTest, StopBeforeAnyStartIsHarmless) {
    decoder_.stop();
    EXPECT_EQ(decoder_.processId(), 0u);
}

TEST_F(FfmpegProcessTest, StopTwiceIsHarmless) {
    startStub("then=hang");
    decoder_.stop();
    decoder_.stop();
    EXPECT_EQ(decoder_.processId(), 0u);
}

TEST_F(FfmpegProcessTest, StopForgetsTheChild) {
    startStub("then=hang");
    decoder_.stop();
    EXPECT_EQ(decoder_.processId(), 0u);
}

TEST_F(FfmpegProcessTest, ReadAfterStopSaysThatTheStreamHasEnded) {
    startStub("frames=endless");
    decoder_.stop();
    EXPECT_EQ(pollOnce(), -1);
}

TEST_F(FfmpegProcessTest, StopIsNotLogged) {
    startStub("then=hang");
    reports_.events.clear();
    decoder_.stop();
    EXPECT_TRUE(reports_.events.empty());
}

TEST_F(FfmpegProcessTest, StopOfASilentChildIsShort) {
    startStub("then=hang\nstartSleeper=1");
    EXPECT_LT(durationOf([&] { decoder_.stop(); }), kLongestStop);
}

TEST_F(FfmpegProcessTest, StopOfAChildThatWaitsForTheReaderIsShort) {
    startStub("frames=endless");
    std::this_thread::sleep_for(milliseconds(200));  // the pipe is full by now
    EXPECT_LT(durationOf([&] { decoder_.stop(); }), kLongestStop);
}

TEST_F(FfmpegProcessTest, StartStopsTheRunningChild) {
    const FollowedProcess first(startStub("then=hang").number("pid"));
    ASSERT_TRUE(start(kSynthetic));
    EXPECT_FALSE(first.runs());
}

TEST_F(FfmpegProcessTest, SecondStartBeginsWithAWholeFrame) {
    install_.behave("frames=endless");
    ASSERT_TRUE(start(kSynthetic));
    ASSERT_GT(pollUntilNews(), 0);
    ASSERT_TRUE(start(kSynthetic));
    FrameCollector frames = collector();
    frames.collect(3, kPatience);
    EXPECT_EQ(frames.values(), countingFromZero(3));
}

TEST_F(FfmpegProcessTest, DecoderThatFailsAtFirstCanBeStartedAgain) {
    install_.behave("failFirst=2\nexitCode=1\nframes=1\nthen=hang");
    for (int i = 0; i < 2; ++i) {
        ASSERT_TRUE(start(kSynthetic));
        ASSERT_EQ(pollUntilNews(), -1);
    }
    ASSERT_TRUE(start(kSynthetic));
    EXPECT_GT(pollUntilNews(), 0);
}

TEST_F(FfmpegProcessTest, TwoHundredStartsAndStopsLeaveNoHandles) {
    install_.behave("frames=endless");
    const auto startAndStop = [&] {
        ASSERT_TRUE(start(kSynthetic));
        pollOnce();
        decoder_.stop();
    };
    startAndStop();
    for (int attempt = 0; attempt < 5; ++attempt) {
        const int failuresBefore = failuresOfWine_;
        const std::uint32_t before = ownHandleCount();
        for (int i = 0; i < 200; ++i)
            startAndStop();
        if (failuresOfWine_ == failuresBefore) {
            EXPECT_EQ(ownHandleCount(), before);
            return;
        }
    }
    ADD_FAILURE() << "Wine failed in each of five attempts to start 200 processes";
}

}  // namespace
}  // namespace vextra::test
