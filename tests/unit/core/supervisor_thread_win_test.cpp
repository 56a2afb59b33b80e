#include "core/supervisor_thread_win.h"

#include <gtest/gtest.h>

#include <process.h>

#include "import_swap_win.h"

namespace vextra {
namespace {

TEST(SupervisorThread, IsNoneWhenTheSystemHasNoThreadLeft) {
    const test::RefusedImport<decltype(_beginthreadex)> refused("_beginthreadex");
    EXPECT_FALSE(startSupervisorThread({}).joinable());
}

}  // namespace
}  // namespace vextra
