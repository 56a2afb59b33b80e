#include "consumer/lease_holder.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <deque>
#include <memory>
#include <set>
#include <thread>
#include <vector>

#include "bridge/bridge_protocol.h"
#include "consumer/bridge_reader.h"

namespace vextra {
namespace {

constexpr Tick kNow = 100'000;

// Gives out what it was told, in turn, and then 1000, 1001 and so on.
std::function<std::uint64_t()> ids(std::deque<std::uint64_t> given = {}) {
    return [given, next = std::uint64_t{1000}]() mutable {
        if (given.empty())
            return next++;
        const std::uint64_t id = given.front();
        given.pop_front();
        return id;
    };
}

void fillWithLiveLeases(DemandFile& file) {
    for (std::uint32_t i = 0; i < kLeaseSlots; ++i)
        file.slots[i] = {i + 1, kNow};
}

TEST(LeaseId, IsNeverZeroNorOneThatIsTaken) {
    DemandFile file{};
    file.slots[3] = {77, kNow};
    EXPECT_EQ(chooseLeaseId(file, ids({0, 77, 0, 78})), 78u);
}

TEST(Lease, CountsForTheBrokerFromItsTaking) {
    DemandFile file{};
    EXPECT_EQ(takeLease(file, 5, kNow), 0u);
    EXPECT_EQ(countFreshLeases(file, kNow), 1);
    EXPECT_EQ(file.slots[0].leaseId, 5u);
    EXPECT_EQ(file.slots[0].heartbeatTickMs, kNow);
}

TEST(Lease, PrefersAFreeSlotToADeadOne) {
    DemandFile file{};
    file.slots[0] = {9, kNow - kLeaseFreshMs - 1};
    EXPECT_EQ(takeLease(file, 5, kNow), 1u);
    EXPECT_EQ(file.slots[0].leaseId, 9u);
}

TEST(Lease, IsTakenOverFromAHolderThatNoLongerBeats) {
    DemandFile file{};
    fillWithLiveLeases(file);
    file.slots[4].heartbeatTickMs = kNow - kLeaseFreshMs - 1;
    EXPECT_EQ(takeLease(file, 99, kNow), 4u);
    EXPECT_EQ(countFreshLeases(file, kNow), 16);
}

TEST(Lease, IsTakenOverFromAHolderThatDiedBeforeItsFirstBeat) {
    DemandFile file{};
    fillWithLiveLeases(file);
    file.slots[7].heartbeatTickMs = 0;
    EXPECT_EQ(takeLease(file, 99, kNow), 7u);
}

TEST(Lease, IsTakenOverFromAnotherBootsHolder) {
    DemandFile file{};
    fillWithLiveLeases(file);
    file.slots[2].heartbeatTickMs = kNow + kTickSkewMs + 1;
    EXPECT_EQ(takeLease(file, 99, kNow), 2u);
}

TEST(Lease, IsNotToBeHadWhileAllSixteenBeat) {
    DemandFile file{};
    fillWithLiveLeases(file);
    file.slots[3].heartbeatTickMs = kNow - kLeaseFreshMs;
    file.slots[5].heartbeatTickMs = kNow + kTickSkewMs;
    EXPECT_EQ(takeLease(file, 99, kNow), std::nullopt);
    for (std::uint32_t i = 0; i < kLeaseSlots; ++i)
        EXPECT_EQ(file.slots[i].leaseId, i + 1);
}

TEST(Lease, GivenBackLeavesTheSlotFree) {
    DemandFile file{};
    LeaseHolder holder(file, ids());
    ASSERT_TRUE(holder.take(kNow));
    holder.release();
    EXPECT_EQ(file.slots[0].leaseId, 0u);
    EXPECT_EQ(file.slots[0].heartbeatTickMs, 0u);
}

TEST(LeaseHolder, GivesItsLeaseBackWhenItEnds) {
    DemandFile file{};
    {
        LeaseHolder holder(file, ids());
        ASSERT_TRUE(holder.take(kNow));
        EXPECT_EQ(countFreshLeases(file, kNow), 1);
    }
    EXPECT_EQ(countFreshLeases(file, kNow), 0);
    EXPECT_EQ(file.slots[0].leaseId, 0u);
}

TEST(LeaseHolder, LeavesAnAbandonedLeaseToTime) {
    DemandFile file{};
    {
        LeaseHolder holder(file, ids());
        ASSERT_TRUE(holder.take(kNow));
        holder.abandon();
    }
    EXPECT_EQ(countFreshLeases(file, kNow + kLeaseFreshMs), 1);
    EXPECT_EQ(countFreshLeases(file, kNow + kLeaseFreshMs + 1), 0);
}

TEST(LeaseHolder, BeatsEvery500Ms) {
    DemandFile file{};
    LeaseHolder holder(file, ids());
    ASSERT_TRUE(holder.take(kNow));
    EXPECT_TRUE(holder.keepAlive(kNow + 499));
    EXPECT_EQ(file.slots[0].heartbeatTickMs, kNow);
    EXPECT_TRUE(holder.keepAlive(kNow + 500));
    EXPECT_EQ(file.slots[0].heartbeatTickMs, kNow + 500);
}

TEST(LeaseHolder, TakesANewSlotWhenItsOwnWasTakenOver) {
    DemandFile file{};
    LeaseHolder holder(file, ids());
    ASSERT_TRUE(holder.take(kNow));
    file.slots[0] = {42, kNow + 400};  // another holder's by now

    EXPECT_TRUE(holder.keepAlive(kNow + 500));

    EXPECT_EQ(holder.slot(), 1u);
    EXPECT_EQ(holder.timesLost(), 1u);
    EXPECT_EQ(file.slots[0].leaseId, 42u);
    EXPECT_EQ(file.slots[0].heartbeatTickMs, kNow + 400);
    EXPECT_EQ(countFreshLeases(file, kNow + 500), 2);
}

TEST(LeaseHolder, SaysSoWhenItsSlotIsLostAndNoneIsLeft) {
    DemandFile file{};
    LeaseHolder holder(file, ids());
    ASSERT_TRUE(holder.take(kNow));
    fillWithLiveLeases(file);
    EXPECT_FALSE(holder.keepAlive(kNow + 500));
    EXPECT_EQ(holder.slot(), std::nullopt);
}

TEST(LeaseHolder, DoesNotFreeASlotThatIsAnothersByNow) {
    DemandFile file{};
    LeaseHolder holder(file, ids());
    ASSERT_TRUE(holder.take(kNow));
    file.slots[0] = {42, kNow};
    holder.release();
    EXPECT_EQ(file.slots[0].leaseId, 42u);
    EXPECT_EQ(file.slots[0].heartbeatTickMs, kNow);
}

TEST(Leases, GoToOneHolderEachHoweverManyTryAtOnce) {
    for (int round = 0; round < 200; ++round) {
        const auto file = std::make_unique<DemandFile>();
        for (std::uint32_t i = 0; i < kLeaseSlots; i += 2)
            file->slots[i] = {500 + i, kNow - 60'000};  // half of them left over by the dead
        constexpr std::size_t kThreads = 4;
        constexpr std::uint64_t kTriesEach = 5;  // 20 want 16
        std::array<std::vector<std::uint32_t>, kThreads> taken;
        {
            std::vector<std::jthread> threads;
            for (std::size_t t = 0; t < kThreads; ++t) {
                threads.emplace_back([&file, &mine = taken[t], t] {
                    for (std::uint64_t i = 0; i < kTriesEach; ++i) {
                        if (const auto slot = takeLease(*file, 1 + t * kTriesEach + i, kNow))
                            mine.push_back(*slot);
                    }
                });
            }
        }
        std::multiset<std::uint32_t> all;
        for (const auto& mine : taken)
            all.insert(mine.begin(), mine.end());
        // A slot between its taking and its first beat may change hands once more; none may be left over.
        const std::set<std::uint32_t> distinct(all.begin(), all.end());
        EXPECT_EQ(distinct.size(), kLeaseSlots);
        EXPECT_EQ(countFreshLeases(*file, kNow), 16);
    }
}

}  // namespace
}  // namespace vextra
