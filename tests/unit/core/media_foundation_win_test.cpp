#include "core/media_foundation_win.h"

#include <gtest/gtest.h>

#include "base/system_types.h"
#include "import_swap_win.h"

namespace vextra {
namespace {

TEST(MediaFoundation, StartsAndStops) {
    MediaFoundation mediaFoundation;
    EXPECT_EQ(mediaFoundation.startup(), 0);
    EXPECT_EQ(mediaFoundation.shutdown(), 0);
}

// As on editions of Windows that come without media features.
TEST(MediaFoundation, SaysWhyItIsNotThere) {
    const test::RefusedImport<decltype(LoadLibraryExW)> refused("LoadLibraryExW");
    MediaFoundation mediaFoundation;
    EXPECT_EQ(mediaFoundation.startup(), hresultFromWindowsError(test::kRefusedError));
    EXPECT_EQ(mediaFoundation.shutdown(), hresultFromWindowsError(ERROR_PROC_NOT_FOUND));
}

}  // namespace
}  // namespace vextra
