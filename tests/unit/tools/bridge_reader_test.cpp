#include "consumer/bridge_reader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#include "bridge/bridge_protocol.h"

namespace vextra {
namespace {

constexpr BridgeWriterIdentity kWriter{4711, 1};
constexpr Tick kNow = 100'000;

std::unique_ptr<BridgeFile> emptyBridge() {
    return std::make_unique<BridgeFile>();
}

std::vector<std::byte> pixelsOf(std::uint8_t value) {
    return std::vector<std::byte>(kFrameBytes, std::byte{value});
}

void noPause() {}

BridgeHeader headerOf(BridgeState state, Tick tickMs) {
    const auto file = emptyBridge();
    publishUpdate(*file, {state, tickMs, 1, nullptr}, kWriter);
    return file->header;
}

TEST(BridgeReader, CopiesALiveUpdateWithItsPixels) {
    const auto file = emptyBridge();
    const auto pixels = pixelsOf(0xA7);
    publishUpdate(*file, {BridgeState::kLive, kNow, 42, pixels.data()}, kWriter);

    BridgeFrame frame;
    const ReadResult result = readBridgeFrame(*file, frame, noPause);

    EXPECT_TRUE(result.consistent);
    EXPECT_EQ(result.attempts, 1u);
    EXPECT_EQ(frame.pixels, pixels);
    EXPECT_EQ(std::memcmp(&frame.header, &file->header, sizeof(BridgeHeader)), 0);
    EXPECT_EQ(frame.header.frameCounter, 42u);
}

TEST(BridgeReader, LeavesItsPixelsAloneWhenTheStateHasNoPicture) {
    const auto file = emptyBridge();
    const auto pixels = pixelsOf(0x11);
    publishUpdate(*file, {BridgeState::kLive, kNow, 1, pixels.data()}, kWriter);
    publishUpdate(*file, {BridgeState::kPaused, kNow, 1, nullptr}, kWriter);

    BridgeFrame frame;
    EXPECT_TRUE(readBridgeFrame(*file, frame, noPause).consistent);
    EXPECT_EQ(frame.pixels, pixelsOf(0));
    EXPECT_EQ(frame.header.state, static_cast<std::uint32_t>(BridgeState::kPaused));
}

TEST(BridgeReader, GivesUpOnAWriterThatDiedInsideAnUpdate) {
    const auto file = emptyBridge();
    file->header.sequence = 7;
    std::uint32_t pauses = 0;
    BridgeFrame frame;

    const ReadResult result = readBridgeFrame(*file, frame, [&] { ++pauses; });

    EXPECT_FALSE(result.consistent);
    EXPECT_EQ(result.attempts, kMaxReadAttempts);
    EXPECT_EQ(pauses, kMaxReadAttempts - 1);
}

TEST(BridgeReader, ReadsAsSoonAsTheUpdateIsComplete) {
    const auto file = emptyBridge();
    publishUpdate(*file, {BridgeState::kFallback, kNow, 5, nullptr}, kWriter);
    file->header.sequence += 1;
    std::uint32_t pauses = 0;
    BridgeFrame frame;

    const ReadResult result = readBridgeFrame(*file, frame, [&] {
        if (++pauses == 3)
            file->header.sequence += 1;
    });

    EXPECT_TRUE(result.consistent);
    EXPECT_EQ(result.attempts, 4u);
    EXPECT_EQ(frame.header.sequence, 4u);
}

TEST(BridgeReader, SeesANewUpdateByItsSequenceWord) {
    const auto file = emptyBridge();
    EXPECT_EQ(peekSequence(*file), 0u);
    publishUpdate(*file, {BridgeState::kStopped, kNow, 0, nullptr}, kWriter);
    EXPECT_EQ(peekSequence(*file), 2u);
}

// Every field and every pixel of an update is a function of its counter, so that a mixture of two shows.
Tick tickOf(std::uint64_t counter) {
    return counter * 3 + 1;
}
std::uint8_t byteOf(std::uint64_t counter) {
    return static_cast<std::uint8_t>(counter * 37 + 11);
}

bool isOfOneUpdate(const BridgeFrame& frame) {
    const BridgeHeader& header = frame.header;
    const std::uint64_t counter = header.frameCounter;
    if (header.tickMs != tickOf(counter) || header.writerPid != static_cast<std::uint32_t>(counter) ||
        header.sequence != 2 * counter)
        return false;
    if (header.state != static_cast<std::uint32_t>(BridgeState::kLive))
        return true;
    return std::all_of(frame.pixels.begin(), frame.pixels.end(),
                       [&](std::byte value) { return value == std::byte{byteOf(counter)}; });
}

struct RaceResult {
    std::uint64_t written = 0;
    std::uint64_t read = 0;
    std::uint64_t retried = 0;
    std::uint64_t mixed = 0;
};

constexpr std::uint64_t kFewestReads = 10;

RaceResult race(BridgeState state) {
    using Clock = std::chrono::steady_clock;
    const auto file = emptyBridge();
    const auto enough = Clock::now() + std::chrono::milliseconds(800);
    const auto end =
        Clock::now() + std::chrono::seconds(30);  // on a busy machine a few reads take their time
    std::atomic<std::uint64_t> read{0};
    std::atomic<std::uint64_t> retried{0};
    std::atomic<std::uint64_t> mixed{0};
    publishUpdate(*file, {BridgeState::kFallback, tickOf(1), 1, nullptr}, {1, 1});

    const auto goesOn = [&] { return Clock::now() < enough || (read <= kFewestReads && Clock::now() < end); };
    const auto reader = [&] {
        BridgeFrame frame;
        while (goesOn()) {
            const ReadResult result = readBridgeFrame(*file, frame, [] { std::this_thread::yield(); });
            if (!result.consistent || frame.header.frameCounter == 1)  // the writer has not begun
                continue;
            ++read;
            retried += result.attempts > 1 ? 1u : 0u;
            mixed += isOfOneUpdate(frame) ? 0u : 1u;
        }
    };
    std::uint64_t counter = 1;
    {
        const std::jthread one(reader);
        const std::jthread other(reader);
        std::vector<std::byte> pixels(kFrameBytes);
        while (goesOn()) {
            ++counter;
            std::fill(pixels.begin(), pixels.end(), std::byte{byteOf(counter)});
            const bool live = state == BridgeState::kLive;
            publishUpdate(*file, {state, tickOf(counter), counter, live ? pixels.data() : nullptr},
                          {static_cast<std::uint32_t>(counter), 1});
            std::this_thread::yield();
        }
    }
    return {counter, read, retried, mixed};
}

TEST(BridgeReader, NeverMixesTwoHeaders) {
    const RaceResult result = race(BridgeState::kFallback);
    EXPECT_EQ(result.mixed, 0u);
    EXPECT_GT(result.written, 10u);
    EXPECT_GT(result.read, kFewestReads);
}

TEST(BridgeReader, NeverMixesTwoPictures) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP()
        << "pixels are copied without atomics and judged afterwards, which the thread sanitizer cannot "
           "know; the same test without it and the header test with it cover the protocol";
#else
    const RaceResult result = race(BridgeState::kLive);
    EXPECT_EQ(result.mixed, 0u);
    EXPECT_GT(result.written, 10u);
    EXPECT_GT(result.read, kFewestReads);
    RecordProperty("written", static_cast<int>(result.written));
    RecordProperty("read", static_cast<int>(result.read));
    RecordProperty("retried", static_cast<int>(result.retried));
#endif
}

TEST(Verdict, TakesALiveFrameForAPictureUpTo2000Ms) {
    EXPECT_EQ(judge(headerOf(BridgeState::kLive, kNow), kNow), Verdict::kPicture);
    EXPECT_EQ(judge(headerOf(BridgeState::kLive, kNow - 2000), kNow), Verdict::kPicture);
    EXPECT_EQ(judge(headerOf(BridgeState::kLive, kNow - 2001), kNow), Verdict::kStale);
}

TEST(Verdict, ForgivesAStampInTheFutureByOneStepOfTheClock) {
    EXPECT_EQ(judge(headerOf(BridgeState::kLive, kNow + kTickSkewMs), kNow), Verdict::kPicture);
    EXPECT_EQ(judge(headerOf(BridgeState::kLive, kNow + kTickSkewMs + 1), kNow), Verdict::kStale);
}

TEST(Verdict, KnowsNoPictureInAnyOtherState) {
    for (const BridgeState state : {BridgeState::kStopped, BridgeState::kFallback, BridgeState::kPaused,
                                    BridgeState::kUnavailable, BridgeState{5}})
        EXPECT_EQ(judge(headerOf(state, kNow), kNow), Verdict::kNotLive) << static_cast<int>(state);
}

TEST(Verdict, RefusesAHeaderOfAnotherFormat) {
    EXPECT_EQ(judge(BridgeHeader{}, kNow), Verdict::kInvalidHeader) << "a file that was never written";
    const BridgeHeader good = headerOf(BridgeState::kLive, kNow);
    for (std::uint32_t BridgeHeader::*const member :
         {&BridgeHeader::magic, &BridgeHeader::version, &BridgeHeader::width, &BridgeHeader::height,
          &BridgeHeader::stride, &BridgeHeader::payloadBytes}) {
        BridgeHeader bad = good;
        bad.*member += 1;
        EXPECT_EQ(judge(bad, kNow), Verdict::kInvalidHeader);
    }
}

}  // namespace
}  // namespace vextra
