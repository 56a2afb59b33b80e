#include "base/wait_win.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "broker_fixture_win.h"
#include "import_swap_win.h"

namespace vextra {
namespace {

using Clock = std::chrono::steady_clock;
using Ms = std::chrono::duration<double, std::milli>;

constexpr double kClockSlackMs = 0.5;  // two clocks are compared
constexpr double kLateMs = 1000;       // a busy machine is late, but not so late as a lost wake-up
constexpr std::uint32_t kForEverMs = 30'000;

struct Waiter {
    UniqueHandle event{CreateEventW(nullptr, FALSE, FALSE, nullptr)};
    WakeWait wait{event.get()};

    double shortWaitMs(std::uint32_t ms) {
        const auto begin = Clock::now();
        wait.waitShort(ms);
        return Ms(Clock::now() - begin).count();
    }
    double plainWaitMs(std::uint32_t ms) {
        const auto begin = Clock::now();
        wait.waitPlain(ms);
        return Ms(Clock::now() - begin).count();
    }
    bool eventIsSet() const { return WaitForSingleObject(event.get(), 0) == WAIT_OBJECT_0; }
};

TEST(WakeWait, LastsItsTimeAndNotMuchLonger) {
    Waiter waiter;
    for (const std::uint32_t ms : {1u, 5u, 20u, 50u}) {
        const double shortMs = waiter.shortWaitMs(ms);
        EXPECT_GE(shortMs, ms - kClockSlackMs);
        EXPECT_LT(shortMs, ms + kLateMs);
    }
    EXPECT_LT(waiter.plainWaitMs(50), 50 + kLateMs);
}

TEST(WakeWait, OfFiveMsIsNotRoundedUpToTheSystemsTick) {
    Waiter waiter;
    double bestMs = kLateMs;
    for (int i = 0; i < 20; ++i)
        bestMs = std::min(bestMs, waiter.shortWaitMs(5));
    EXPECT_LT(bestMs, 10);
}

TEST(WakeWait, EndsAtOnceWhenTheEventIsSetAlready) {
    Waiter waiter;
    SetEvent(waiter.event.get());
    EXPECT_LT(waiter.shortWaitMs(kForEverMs), kLateMs);
    SetEvent(waiter.event.get());
    EXPECT_LT(waiter.plainWaitMs(kForEverMs), kLateMs);
}

TEST(WakeWait, EndsWhenTheEventIsSetMeanwhile) {
    Waiter waiter;
    for (const bool plain : {false, true}) {
        std::thread waker([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(30));
            SetEvent(waiter.event.get());
        });
        const double ms = plain ? waiter.plainWaitMs(kForEverMs) : waiter.shortWaitMs(kForEverMs);
        waker.join();
        EXPECT_LT(ms, 30 + kLateMs);
    }
}

TEST(WakeWait, TakesTheWakeUp) {
    Waiter waiter;
    SetEvent(waiter.event.get());
    waiter.wait.waitShort(kForEverMs);
    EXPECT_FALSE(waiter.eventIsSet());
}

TEST(WakeWait, LeavesAWakeUpThatComesLaterForTheNextWait) {
    Waiter waiter;
    waiter.wait.waitShort(1);
    SetEvent(waiter.event.get());
    EXPECT_LT(waiter.shortWaitMs(kForEverMs), kLateMs);
}

void expectAWaitThatCanBeWoken(Waiter& waiter) {
    EXPECT_GE(waiter.shortWaitMs(20), 20 - kClockSlackMs);
    SetEvent(waiter.event.get());
    EXPECT_LT(waiter.shortWaitMs(kForEverMs), kLateMs);
}

TEST(WakeWait, NeedsNoTimer) {
    const test::RefusedImport<decltype(CreateWaitableTimerExW)> refused("CreateWaitableTimerExW");
    Waiter waiter;
    expectAWaitThatCanBeWoken(waiter);
}

TEST(WakeWait, NeedsNoTimerThatCanBeSet) {
    Waiter waiter;
    const test::RefusedImport<decltype(SetWaitableTimer)> refused("SetWaitableTimer");
    expectAWaitThatCanBeWoken(waiter);
}

// The timer of a wait that the event ended runs out later, and must not cut the next wait short.
TEST(WakeWait, LastsItsTimeAfterAWaitThatTheEventEnded) {
    if (runsUnderWine())
        GTEST_SKIP() << "Wine lets an auto-reset timer stay signalled when it is set anew; Windows clears it";
    Waiter waiter;
    SetEvent(waiter.event.get());
    waiter.wait.waitShort(5);
    Sleep(30);
    EXPECT_GE(waiter.shortWaitMs(50), 50 - kClockSlackMs);
}

}  // namespace
}  // namespace vextra
