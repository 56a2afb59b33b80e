#include "base/system_types.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace vextra {
namespace {

std::uint32_t bitsFor(std::uint32_t code) {
    return static_cast<std::uint32_t>(hresultFromWindowsError(code));
}

TEST(HresultFromWindowsError, PutsAPositiveCodeIntoTheWin32Facility) {
    EXPECT_EQ(bitsFor(5), 0x80070005u);
    EXPECT_EQ(bitsFor(1460), 0x800705B4u);
}

TEST(HresultFromWindowsError, KeepsZeroAsSuccess) {
    EXPECT_EQ(bitsFor(0), 0u);
}

TEST(HresultFromWindowsError, KeepsWhatAlreadyIsAFailingHresult) {
    EXPECT_EQ(bitsFor(0x80004005u), 0x80004005u);
    EXPECT_EQ(bitsFor(0x80000000u), 0x80000000u);
}

TEST(HresultFromWindowsError, KeepsTheLowSixteenBitsOfALargeCode) {
    EXPECT_EQ(bitsFor(0x00012345u), 0x80072345u);
    EXPECT_EQ(bitsFor(0x7FFFFFFFu), 0x8007FFFFu);
}

TEST(ResultConstants, AreTheSystemsCodesForWhatTheySay) {
    EXPECT_EQ(kResultAccessDenied, hresultFromWindowsError(5));        // ERROR_ACCESS_DENIED
    EXPECT_EQ(kResultProducerNotStarted, hresultFromWindowsError(2));  // ERROR_FILE_NOT_FOUND
    EXPECT_EQ(kResultProducerStalled, hresultFromWindowsError(1460));  // ERROR_TIMEOUT
}

}  // namespace
}  // namespace vextra
