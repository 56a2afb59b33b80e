// How large the main window is on the screen that it has, and where. Lengths are pixels unless a name says
// design units. Pure.
#pragma once

#include <optional>

#include "ui/design_units.h"

namespace vextra {

struct PixelBounds {
    int left = 0;
    int top = 0;
    int right = 0;
    int bottom = 0;

    constexpr int width() const { return right - left; }
    constexpr int height() const { return bottom - top; }
    bool operator==(const PixelBounds&) const = default;
};

struct PixelSize {
    int width = 0;
    int height = 0;

    bool operator==(const PixelSize&) const = default;
};

// What a window adds to its client area, on each side.
struct FrameWidths {
    int left = 0;
    int top = 0;  // with the caption
    int right = 0;
    int bottom = 0;

    constexpr int across() const { return left + right; }
    constexpr int upright() const { return top + bottom; }
    bool operator==(const FrameWidths&) const = default;
};

struct Screen {
    int dpi = kDesignDpi;
    PixelBounds workArea{-32'768, -32'768, 32'767, 32'767};  // what the taskbar leaves; unknown: no limit
    FrameWidths frame;                                       // at that DPI

    bool operator==(const Screen&) const = default;
};

// The DPI that the contents are laid out and drawn at: the screen's own, or where the least window would be
// larger than the work area, the largest at which it fits; never less than six tenths of the screen's.
int layoutDpi(const Screen& screen);

// What a user can't make the window smaller than.
PixelSize leastWindowSize(const Screen& screen);

// Where the window is when it is made.
PixelBounds firstWindowPlace(const Screen& screen);

// The window when it comes from one screen to another, or its screen has changed: left alone where it fits,
// else its contents keep their size and all of it lies in the work area. Only a window that was half outside
// before, by its user's wish, may be so again.
PixelBounds windowPlaceOn(const Screen& to, const Screen& from, const PixelBounds& window);

// The size for another DPI; nothing: in proportion to the DPI, as the system does by itself.
std::optional<PixelSize> windowSizeForDpi(const Screen& to, const Screen& from, const PixelSize& window);

// `suggested` by the system for another DPI, with the same promise as windowPlaceOn.
PixelBounds windowPlaceForDpi(const Screen& to, const Screen& from, const PixelBounds& window,
                              const PixelBounds& suggested);

// A window that was dropped by its user, here and with this DPI: moved only where it is larger than the work
// area.
PixelBounds windowPlaceAfterDrop(const Screen& screen, const PixelBounds& window);

}  // namespace vextra
