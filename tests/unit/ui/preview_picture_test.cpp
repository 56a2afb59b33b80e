#include "ui/preview_picture.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vextra {
namespace {

TEST(PlaceholderFrame, IsADarkFieldWithABarAndNothingElse) {
    std::vector<std::byte> frame(3, std::byte{1});  // whatever was there
    fillPlaceholderFrame(frame);
    ASSERT_EQ(frame.size(), 3'686'400u);

    const auto pixelAt = [&](std::size_t x, std::size_t y) {
        const std::byte* at = frame.data() + y * 5120 + x * 4;
        return std::to_integer<std::uint32_t>(at[0]) | std::to_integer<std::uint32_t>(at[1]) << 8 |
               std::to_integer<std::uint32_t>(at[2]) << 16 | std::to_integer<std::uint32_t>(at[3]) << 24;
    };
    constexpr std::uint32_t kField = 0xFF121924;  // A R G B: 255 18 25 36
    constexpr std::uint32_t kBar = 0xFFECA53E;    // A R G B: 255 236 165 62
    for (std::size_t y = 0; y < 720; ++y) {
        for (std::size_t x = 0; x < 1280; ++x) {
            const bool inBar = 214 <= x && x < 1066 && 345 <= y && y < 376;
            ASSERT_EQ(pixelAt(x, y), inBar ? kBar : kField) << x << "," << y;
        }
    }
}

}  // namespace
}  // namespace vextra
