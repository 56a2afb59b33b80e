// The protocols of the two shared files under ThreadSanitizer. What it can and cannot see of them is told in
// docs/testing.md.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#include "bridge/bridge_protocol.h"
#include "consumer/bridge_reader.h"
#include "consumer/lease_holder.h"

namespace vextra {
namespace {

constexpr std::uint64_t kUpdates = 10'000;
constexpr std::uint64_t kPixelsEvery = 500;  // a frame takes the sanitizer milliseconds

std::byte pixelOf(std::uint64_t update) {
    return static_cast<std::byte>(update / kPixelsEvery);
}

// What the writer knows of each update is written without any synchronisation, before the update. A reader
// that has read the update may look at it, if the sequence word orders the two; else the sanitizer sees a
// race.
TEST(BridgeRaces, AReaderOfAnUpdateSeesWhatItsWriterDidBefore) {
    const auto file = std::make_unique<BridgeFile>();
    std::vector<std::uint64_t> knownOfUpdate(kUpdates + 1);
    std::atomic<bool> done{false};
    std::jthread writer([&] {
        std::vector<std::byte> pixels(kFrameBytes);
        for (std::uint64_t update = 1; update <= kUpdates; ++update) {
            const bool live = update % kPixelsEvery == 0;
            if (live)
                std::memset(pixels.data(), std::to_integer<int>(pixelOf(update)), pixels.size());
            knownOfUpdate[update] = update * 3;
            publishUpdate(*file,
                          {live ? BridgeState::kLive : BridgeState::kFallback, update * 5, update,
                           live ? pixels.data() : nullptr},
                          {7, 1});
            // Time to read it.
            if (live || update % 20 == 0)
                std::this_thread::sleep_for(std::chrono::microseconds(live ? 10'000 : 100));
        }
        done = true;
    });

    std::uint64_t reads = 0;
    std::uint64_t frames = 0;
    BridgeFrame frame;
    for (bool last = false; !last;) {
        last = done;
        if (!readBridgeFrame(*file, frame, [] { std::this_thread::yield(); }).consistent)
            continue;
        const std::uint64_t update = frame.header.sequence / 2;
        ASSERT_EQ(frame.header.frameCounter, update);
        ASSERT_EQ(frame.header.tickMs, update * 5);
        ASSERT_EQ(knownOfUpdate[update], update * 3);
        ++reads;
        if (judge(frame.header, frame.header.tickMs) != Verdict::kPicture)
            continue;
        ++frames;
        ASSERT_EQ(frame.pixels.front(), pixelOf(update));
        ASSERT_EQ(std::memcmp(frame.pixels.data(), frame.pixels.data() + 1, kFrameBytes - 1), 0);
    }
    EXPECT_EQ(frame.header.frameCounter, kUpdates);
    EXPECT_GT(reads, 100u);
    EXPECT_GT(frames, 0u);
    std::printf("%llu reads, %llu of them with pixels, of %llu updates\n",
                static_cast<unsigned long long>(reads), static_cast<unsigned long long>(frames),
                static_cast<unsigned long long>(kUpdates));
}

// Holders and the scan touch a slot by atomic words alone: a plain access would be seen as a race.
TEST(LeaseRaces, HoldersAndTheScanShareTheSlotsByAtomicWordsAlone) {
    constexpr std::size_t kHolders = 3;
    constexpr int kRounds = 2000;
    constexpr Tick kNow = 1'000'000;
    const auto file = std::make_unique<DemandFile>();
    std::atomic<std::size_t> working{kHolders};
    std::vector<std::jthread> holders;
    for (std::size_t h = 0; h < kHolders; ++h) {
        holders.emplace_back([&, h] {
            std::uint64_t next = h << 32;
            LeaseHolder holder(*file, [&next] { return ++next; });
            for (int round = 0; round < kRounds; ++round) {
                const Tick now = kNow + static_cast<Tick>(round);
                if (!holder.take(now))
                    continue;
                holder.keepAlive(now + kBeatPeriodMs);
                if (round % 50 == 0)
                    holder.abandon();  // its slot stays, and is taken over when it no longer beats
                else
                    holder.release();
            }
            --working;
        });
    }
    std::int32_t most = 0;
    while (working != 0)
        most = std::max(most, countFreshLeases(*file, kNow + kRounds + kBeatPeriodMs));
    EXPECT_GT(most, 0) << "the scan never met a holder";
    EXPECT_LE(most, static_cast<std::int32_t>(kLeaseSlots));
}

}  // namespace
}  // namespace vextra
