#include "ui/preview_picture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "bridge/bridge_layout.h"

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

constexpr PreviewView kLive{{}, true};
constexpr PreviewView kNotLive{{}, false};

class PreviewPictureTest : public testing::Test {
protected:
    PreviewPictureTest() {
        fillPlaceholderFrame(placeholder);
        come(1);
    }
    void come(unsigned char number) {
        const std::vector<std::byte> frame(kFrameBytes, std::byte{number});
        keepPreviewFrame(shared, frame.data());
    }
    // The number of the frame that is shown, of which every byte has it; -1: the placeholder.
    int shown(const PreviewView& view) {
        const std::byte* pixels = picture.pixelsFor(view, shared);
        if (std::equal(placeholder.begin(), placeholder.end(), pixels))
            return -1;
        const bool whole =
            std::all_of(pixels, pixels + kFrameBytes, [&](std::byte each) { return each == *pixels; });
        EXPECT_TRUE(whole);
        return std::to_integer<int>(*pixels);
    }

    SharedStatus shared;
    PreviewPicture picture;
    std::vector<std::byte> placeholder;
};

TEST_F(PreviewPictureTest, IsThePlaceholderBeforeTheFirstLiveFrame) {
    EXPECT_EQ(shown(kNotLive), -1);
}

TEST_F(PreviewPictureTest, IsTheNewestFrameWhileItIsLive) {
    EXPECT_EQ(shown(kLive), 1);
    come(2);
    EXPECT_EQ(shown(kLive), 2);
}

// The last picture of a camera that was switched off must not stay on the screen.
TEST_F(PreviewPictureTest, IsThePlaceholderAgainAfterEveryLiveEpisode) {
    for (unsigned char episode = 1; episode <= 3; ++episode) {
        come(episode);
        ASSERT_EQ(shown(kLive), episode);
        EXPECT_EQ(shown(kNotLive), -1) << int{episode};
        EXPECT_EQ(shown(kNotLive), -1) << int{episode} << ", painted once more";
    }
}

}  // namespace
}  // namespace vextra
