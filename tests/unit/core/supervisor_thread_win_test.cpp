#include "core/supervisor_thread_win.h"

#include <gtest/gtest.h>

#include <process.h>

#include "import_swap_win.h"

namespace vextra {
namespace {

// A thread that finds no machine, and a log that was never opened.
class SupervisorThreadTest : public testing::Test {
protected:
    void quit() { sendCommand(shared, wake.get(), SupervisorCommand::kQuit); }

    SharedStatus shared;
    EventLog log{shared.frameCounter};
    UniqueHandle wake{CreateEventW(nullptr, FALSE, FALSE, nullptr)};
    UniqueHandle stop{CreateEventW(nullptr, FALSE, FALSE, nullptr)};
    SupervisorThread thread{{
        .shared = &shared,
        .log = &log,
        .wakeEvent = wake.get(),
        .stopSignal = stop.get(),
        .installRoot = {},
        .evidenceFolder = {},
        .gstreamerPlaces = {},
    }};
};

TEST_F(SupervisorThreadTest, IsNoneWhenTheSystemHasNoThreadLeft) {
    const test::RefusedImport<decltype(_beginthreadex)> refused("_beginthreadex");
    EXPECT_FALSE(thread.start(nullptr));
    EXPECT_TRUE(thread.waitForEnd(0));
}

TEST_F(SupervisorThreadTest, EndsAfterQuit) {
    ASSERT_TRUE(thread.start(nullptr));
    EXPECT_FALSE(thread.waitForEnd(100));
    quit();
    EXPECT_TRUE(thread.waitForEnd(5000));
}

TEST_F(SupervisorThreadTest, RunsOnceAtATime) {
    ASSERT_TRUE(thread.start(nullptr));
    EXPECT_FALSE(thread.start(nullptr));
    quit();
    ASSERT_TRUE(thread.waitForEnd(5000));
}

TEST_F(SupervisorThreadTest, CanBeStartedAgain) {
    for (int run = 0; run < 2; ++run) {
        ASSERT_TRUE(thread.start(nullptr));
        quit();
        ASSERT_TRUE(thread.waitForEnd(5000));
    }
    EXPECT_EQ(shared.mailbox, SupervisorCommand::kNone);
}

}  // namespace
}  // namespace vextra
