#include "ui/preview_picture.h"

#include "bridge/bridge_layout.h"

namespace vextra {
namespace {

struct Bgra {
    unsigned char b, g, r, a;
};
constexpr Bgra kField{36, 25, 18, 255};
constexpr Bgra kBar{62, 165, 236, 255};
constexpr std::uint32_t kBarLeft = 214, kBarRight = 1065;  // columns, inclusive
constexpr std::uint32_t kBarTop = 345, kBarBottom = 375;   // rows, inclusive

}  // namespace

void fillPlaceholderFrame(std::vector<std::byte>& frame) {
    frame.resize(kFrameBytes);
    std::size_t at = 0;
    for (std::uint32_t y = 0; y < kFrameHeightPx; ++y) {
        for (std::uint32_t x = 0; x < kFrameWidthPx; ++x) {
            const bool bar = x >= kBarLeft && x <= kBarRight && y >= kBarTop && y <= kBarBottom;
            const Bgra& pixel = bar ? kBar : kField;
            frame[at++] = std::byte{pixel.b};
            frame[at++] = std::byte{pixel.g};
            frame[at++] = std::byte{pixel.r};
            frame[at++] = std::byte{pixel.a};
        }
    }
}

const std::byte* PreviewPicture::pixelsFor(const PreviewView& view, SharedStatus& shared) {
    if (view.live) {
        copyPreviewFrame(shared, pixels_);
        isPlaceholder_ = false;
    } else if (!isPlaceholder_) {
        fillPlaceholderFrame(pixels_);
        isPlaceholder_ = true;
    }
    return pixels_.data();
}

}  // namespace vextra
