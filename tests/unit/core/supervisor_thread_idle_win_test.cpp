#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <new>

#include "bridge/shared_file_win.h"
#include "broker_fixture_win.h"
#include "core/supervisor.h"
#include "heap_watch.h"

namespace vextra {
namespace {

constexpr int kWarmUpPasses = 10;
constexpr int kPasses = 1000;

std::uint64_t allocationsDuring(const std::function<void()>& work) {
    const std::uint64_t before = test::allocationCount;
    work();
    return test::allocationCount - before;
}

// The Supervisor of a provisioned machine without a consumer: clock, demand and stop signal are the real
// ones, the doors that an idle pass has no business with only count.
class IdleSupervisor : public testing::Test {
protected:
    void passes(int count) {
        for (int i = 0; i < count; ++i)
            idleWaits += supervisor.runPass() == NextPass::kIdleWait ? 1 : 0;
    }

    ProvisionedMachine machine;
    DemandChannel demand;
    UniqueHandle stopSignal{CreateEventW(nullptr, FALSE, FALSE, nullptr)};
    SharedStatus shared;
    int idleWaits = 0;
    int logLines = 0;
    int otherCalls = 0;
    Supervisor supervisor{
        shared,
        {
            .now = [] { return Tick{GetTickCount64()}; },
            .countLeases = [this] { return demand.activeLeases(); },
            .takeStopSignal = [this] { return WaitForSingleObject(stopSignal.get(), 0) == WAIT_OBJECT_0; },
            .accountMayPublish = [this] { return ++otherCalls > 0; },
            .showStatus = [this](std::wstring_view) { ++otherCalls; },
            .askWindowToQuit = [this] { ++otherCalls; },
            .log = [this](EventCode, std::int32_t) { ++logLines; },
            .openBridge = [this] { return ++otherCalls < 0; },
            .publish = [this](const std::byte*, BridgeState, std::uint64_t) { ++otherCalls; },
            .closeBridge = [this] { ++otherCalls; },
            .startProducer = [this](bool, std::wstring_view,
                                    const BrokerSettings&) { return ++otherCalls < 0; },
            .readProducer =
                [this](std::byte*, std::uint32_t) {
                    ++otherCalls;
                    return std::int32_t{-1};
                },
            .stopProducer = [this] { ++otherCalls; },
            .keepPreview = [this](const std::byte*) { ++otherCalls; },
            .recordEvidence = nullptr,
        },
        true};
};

TEST_F(IdleSupervisor, CountsAllocationsInThisTest) {
    EXPECT_EQ(allocationsDuring([] { ::operator delete(::operator new(1)); }), 1u);
    EXPECT_EQ(allocationsDuring([] {
                  ::operator delete (::operator new (64, std::align_val_t{64}), std::align_val_t{64});
              }),
              1u);
    // The first look at the demand opens its file, which needs paths.
    EXPECT_GT(allocationsDuring([this] { passes(1); }), 0u);
}

TEST_F(IdleSupervisor, AllocatesAndLogsNothing) {
    passes(kWarmUpPasses);
    ASSERT_EQ(shared.leaseCount, 0) << "the demand channel is not open";
    EXPECT_EQ(allocationsDuring([this] { passes(kPasses); }), 0u);
    EXPECT_EQ(idleWaits, kWarmUpPasses + kPasses);
    EXPECT_EQ(logLines, 0);
    EXPECT_EQ(otherCalls, 0);
}

}  // namespace
}  // namespace vextra
