#include "bridge/bridge_protocol.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <limits>
#include <memory>
#include <thread>
#include <vector>

namespace vextra {
namespace {

constexpr BridgeWriterIdentity kWriter{0x11223344, 2};
constexpr std::byte kOldByte{0xA5};

using Bytes = std::vector<std::byte>;

// A file in which every byte is known, so that whatever an update touches shows.
std::unique_ptr<BridgeFile> filledBridge(std::uint32_t sequence) {
    auto file = std::make_unique<BridgeFile>();
    std::memset(static_cast<void*>(file.get()), std::to_integer<int>(kOldByte), sizeof *file);
    file->header.sequence = sequence;
    return file;
}

Bytes bytesOf(const BridgeHeader& header) {
    Bytes bytes(sizeof header);
    std::memcpy(bytes.data(), &header, sizeof header);
    return bytes;
}

// Little-endian, at an offset of the file format: independent of the structure under test.
template <typename T>
void put(Bytes& bytes, std::size_t offset, T value) {
    for (std::size_t i = 0; i < sizeof value; ++i)
        bytes[offset + i] = static_cast<std::byte>(value >> (8 * i) & 0xFF);
}

bool pixelsAreAll(const BridgeFile& file, std::byte value) {
    return file.pixels[0] == value && std::memcmp(file.pixels, file.pixels + 1, kFrameBytes - 1) == 0;
}

TEST(BridgeUpdate, WritesEveryFieldAtItsOffsetAndLeavesTheReservedBytes) {
    const auto file = filledBridge(6);
    publishUpdate(*file, {BridgeState::kPaused, 0x0102030405060708, 0x1112131415161718, nullptr}, kWriter);

    Bytes expected(128, kOldByte);
    put<std::uint32_t>(expected, 0, 8);
    expected[4] = std::byte{'V'};
    expected[5] = std::byte{'M'};
    expected[6] = std::byte{'F'};
    expected[7] = std::byte{'1'};
    put<std::uint32_t>(expected, 8, 1);
    put<std::uint32_t>(expected, 12, 1280);
    put<std::uint32_t>(expected, 16, 720);
    put<std::uint32_t>(expected, 20, 5120);
    put<std::uint32_t>(expected, 24, 3'686'400);
    put<std::uint32_t>(expected, 28, 3);
    put<std::uint64_t>(expected, 32, 0x0102030405060708);
    put<std::uint64_t>(expected, 40, 0x1112131415161718);
    put<std::uint32_t>(expected, 48, 0x11223344);
    put<std::uint32_t>(expected, 52, 2);
    EXPECT_EQ(bytesOf(file->header), expected);
}

TEST(BridgeUpdate, WithoutPixelsLeavesThePixels) {
    const auto file = filledBridge(0);
    publishUpdate(*file, {BridgeState::kFallback, 1, 0, nullptr}, kWriter);
    EXPECT_TRUE(pixelsAreAll(*file, kOldByte));
}

TEST(BridgeUpdate, CopiesTheWholeFrame) {
    const auto file = filledBridge(0);
    Bytes frame(kFrameBytes);
    for (std::size_t i = 0; i < frame.size(); ++i)
        frame[i] = static_cast<std::byte>(i * 31 % 251);
    publishUpdate(*file, {BridgeState::kLive, 1, 1, frame.data()}, kWriter);
    EXPECT_EQ(std::memcmp(file->pixels, frame.data(), frame.size()), 0);
}

TEST(BridgeUpdate, StoresEachStateAsItsNumber) {
    const struct {
        BridgeState state;
        std::uint32_t number;
    } kStates[] = {{BridgeState::kStopped, 0},
                   {BridgeState::kFallback, 1},
                   {BridgeState::kLive, 2},
                   {BridgeState::kPaused, 3},
                   {BridgeState::kUnavailable, 4}};
    const auto file = filledBridge(0);
    for (const auto& [state, number] : kStates) {
        publishUpdate(*file, {state, 1, 0, nullptr}, kWriter);
        EXPECT_EQ(file->header.state, number);
    }
}

TEST(BridgeUpdate, OfTheSameWriterChangesOnlySequenceStateAndTick) {
    const auto file = filledBridge(0);
    publishUpdate(*file, {BridgeState::kFallback, 1000, 7, nullptr}, kWriter);
    Bytes expected = bytesOf(file->header);
    put<std::uint32_t>(expected, 0, 4);
    put<std::uint32_t>(expected, 28, 4);
    put<std::uint64_t>(expected, 32, 1005);
    publishUpdate(*file, {BridgeState::kUnavailable, 1005, 7, nullptr}, kWriter);
    EXPECT_EQ(bytesOf(file->header), expected);
}

TEST(BridgeSequence, AdvancesByTwoWithEveryUpdate) {
    const auto file = filledBridge(0);
    for (std::uint32_t update = 1; update <= 3; ++update) {
        publishUpdate(*file, {BridgeState::kFallback, update, 0, nullptr}, kWriter);
        EXPECT_EQ(file->header.sequence, 2 * update);
    }
}

TEST(BridgeSequence, AdvancesByThreeAfterAWriterThatDiedInItsUpdate) {
    const auto file = filledBridge(41);
    publishUpdate(*file, {BridgeState::kFallback, 1, 0, nullptr}, kWriter);
    EXPECT_EQ(file->header.sequence, 44u);
}

TEST(BridgeSequence, WrapsAroundEven) {
    const auto file = filledBridge(std::numeric_limits<std::uint32_t>::max() - 1);
    publishUpdate(*file, {BridgeState::kFallback, 1, 0, nullptr}, kWriter);
    EXPECT_EQ(file->header.sequence, 0u);
}

TEST(BridgeSequence, IsRepairedAcrossTheWrap) {
    const auto file = filledBridge(std::numeric_limits<std::uint32_t>::max());
    publishUpdate(*file, {BridgeState::kFallback, 1, 0, nullptr}, kWriter);
    EXPECT_EQ(file->header.sequence, 2u);
}

// The reader's half of the protocol, as the media source on the other side of the file does it: what it takes
// under sequence 2n is update n and no other, also while a frame is being copied.
TEST(BridgeSequence, LetsAReaderTakeWholeUpdatesOnly) {
    const auto file = filledBridge(0);
    const Bytes frame(kFrameBytes);
    publishUpdate(*file, {BridgeState::kFallback, 1, 1, nullptr}, kWriter);
    constexpr std::uint64_t kFewestUpdates = 5000, kMostUpdates = 2'000'000;
    std::atomic<bool> met{false};
    std::atomic<bool> done{false};
    std::uint64_t update = 1;  // the writer's until it is joined
    std::thread writer([&] {
        // On a busy machine all of the fewest may fall between two looks of the reader.
        while (update < kFewestUpdates || (!met && update < kMostUpdates)) {
            ++update;
            const std::byte* const pixels = update % 50 == 0 ? frame.data() : nullptr;
            publishUpdate(*file, {BridgeState::kLive, update, update, pixels}, kWriter);
        }
        done = true;
    });

    BridgeHeader& header = file->header;
    const std::atomic_ref<std::uint32_t> sequence(header.sequence);
    int mixed = 0;
    for (bool last = false; !last;) {
        last = done;
        const std::uint32_t before = sequence.load();
        const Tick tick = std::atomic_ref<Tick>(header.tickMs).load();
        const std::uint64_t counter = std::atomic_ref<std::uint64_t>(header.frameCounter).load();
        if (before % 2 == 1 || sequence.load() != before)
            met = true;
        else if (tick != before / 2 || counter != before / 2)
            ++mixed;
    }
    writer.join();
    EXPECT_EQ(mixed, 0);
    EXPECT_TRUE(met) << "reader and writer never met";
    EXPECT_EQ(header.sequence, 2 * update);
}

// --- Leases ---

constexpr Tick kNow = 1'000'000;

std::int32_t countOf(const LeaseSlot& slot, Tick now = kNow) {
    DemandFile file{};
    file.slots[5] = slot;
    return countFreshLeases(file, now);
}

TEST(LeaseCount, OfAnEmptyFileIsZero) {
    EXPECT_EQ(countFreshLeases(DemandFile{}, kNow), 0);
}

TEST(LeaseCount, TakesAHeartbeatOfThisVeryMoment) {
    EXPECT_EQ(countOf({1, kNow}), 1);
}

TEST(LeaseCount, TakesAHeartbeatOf3000MsAgo) {
    EXPECT_EQ(countOf({1, kNow - 3000}), 1);
}

TEST(LeaseCount, SkipsAHeartbeatOf3001MsAgo) {
    EXPECT_EQ(countOf({1, kNow - 3001}), 0);
}

TEST(LeaseCount, SkipsASlotWhoseHeartbeatLiesInTheFuture) {
    EXPECT_EQ(countOf({1, kNow + 1}), 0);
    EXPECT_EQ(countOf({1, std::numeric_limits<Tick>::max()}), 0);
}

TEST(LeaseCount, SkipsAFreeSlotWithAFreshHeartbeat) {
    EXPECT_EQ(countOf({0, kNow}), 0);
}

TEST(LeaseCount, SkipsAReleasedSlot) {
    EXPECT_EQ(countOf({1, 0}), 0);
}

TEST(LeaseCount, SkipsAReleasedSlotRightAfterTheMachineStarted) {
    EXPECT_EQ(countOf({1, 0}, 100), 0);
}

TEST(LeaseCount, TakesIdsThatUseTheirUpperHalfOnly) {
    EXPECT_EQ(countOf({0xFFFFFFFF00000000, kNow}), 1);
}

TEST(LeaseCount, TakesHeartbeatsBeyond32Bits) {
    constexpr Tick kFiftyDaysMs = 0x1'0000'0000;
    EXPECT_EQ(countOf({1, kFiftyDaysMs - 1}, kFiftyDaysMs + 2999), 1);
    EXPECT_EQ(countOf({1, kFiftyDaysMs - 1}, kFiftyDaysMs + 3000), 0);
    EXPECT_EQ(countOf({1, 1}, kFiftyDaysMs + 1), 0);
}

TEST(LeaseCount, TakesTheSameIdOnceForEachSlot) {
    DemandFile file{};
    file.slots[0] = file.slots[15] = {9, kNow};
    EXPECT_EQ(countFreshLeases(file, kNow), 2);
}

TEST(LeaseCount, IsSixteenWhenEverySlotIsLive) {
    DemandFile file{};
    for (LeaseSlot& slot : file.slots)
        slot = {7, kNow};
    EXPECT_EQ(countFreshLeases(file, kNow), 16);
}

TEST(LeaseCount, LeavesOutOnlyTheSlotsThatAreNotLive) {
    DemandFile file{};
    for (std::size_t i = 0; i < kLeaseSlots; ++i)
        file.slots[i] = {i + 1, i % 4 == 0 ? kNow - 3001 : kNow};
    EXPECT_EQ(countFreshLeases(file, kNow), 12);
}

TEST(LeaseCount, NeverLooksBehindTheSlots) {
    DemandFile file{};
    const LeaseSlot live{7, kNow};
    for (std::size_t at = 0; at < sizeof file.reserved; at += sizeof live)
        std::memcpy(file.reserved + at, &live, sizeof live);
    EXPECT_EQ(countFreshLeases(file, kNow), 0);
}

TEST(LeaseCount, ChangesNothingInTheFile) {
    DemandFile file{};
    for (std::size_t i = 0; i < kLeaseSlots; ++i)
        file.slots[i] = {i, kNow - i * 1000};
    const DemandFile before = file;
    countFreshLeases(file, kNow);
    EXPECT_EQ(std::memcmp(&file, &before, sizeof file), 0);
}

// Both ids are live by themselves, so a scan that does not count has seen the slot change under it.
TEST(LeaseCount, SkipsASlotThatChangesHandsDuringTheScan) {
    DemandFile file{};
    file.slots[0] = {1, kNow};
    std::atomic<bool> done{false};
    std::thread holders([&] {
        const std::atomic_ref<std::uint64_t> leaseId(file.slots[0].leaseId);
        while (!done) {
            leaseId.store(2, std::memory_order_relaxed);
            leaseId.store(1, std::memory_order_relaxed);
        }
    });
    bool skipped = false;
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!skipped && std::chrono::steady_clock::now() < limit)
        skipped = countFreshLeases(file, kNow) == 0;
    done = true;
    holders.join();
    EXPECT_TRUE(skipped);
}

TEST(LeaseRelease, ClearsHeartbeatAndId) {
    LeaseSlot slot{7, kNow};
    releaseLease(slot, 7);
    EXPECT_EQ(slot.leaseId, 0u);
    EXPECT_EQ(slot.heartbeatTickMs, 0u);
}

TEST(LeaseRelease, LeavesASlotThatAnotherHolderHasTaken) {
    LeaseSlot slot{8, kNow};
    releaseLease(slot, 7);
    EXPECT_EQ(slot.leaseId, 8u);
    EXPECT_EQ(slot.heartbeatTickMs, kNow);
}

}  // namespace
}  // namespace vextra
