#include "ui/window_fit.h"

#include <algorithm>

#include "ui/window_layout.h"

namespace vextra {
namespace {

// Of the window at the start.
constexpr int kFirstLeft = 100, kFirstTop = 60;

PixelSize windowFor(int clientWidthUnits, int clientHeightUnits, int dpi, const FrameWidths& frame) {
    return {pixelsFromDesign(clientWidthUnits, dpi) + frame.across(),
            pixelsFromDesign(clientHeightUnits, dpi) + frame.upright()};
}

PixelSize limited(const PixelSize& size, const PixelBounds& area) {
    return {std::min(size.width, area.width()), std::min(size.height, area.height())};
}

bool fitsInto(const PixelSize& size, const PixelBounds& area) {
    return limited(size, area) == size;
}

// Borders at the sides and below are all but invisible: a window that lies at an edge of the work area, as
// one that the system arranged there, reaches beyond it by their width.
PixelBounds roomFor(const Screen& screen) {
    return {screen.workArea.left - screen.frame.left, screen.workArea.top,
            screen.workArea.right + screen.frame.right, screen.workArea.bottom + screen.frame.bottom};
}

bool isInside(const Screen& screen, const PixelBounds& window) {
    const PixelBounds room = roomFor(screen);
    return window.left >= room.left && window.top >= room.top && window.right <= room.right &&
           window.bottom <= room.bottom;
}

PixelBounds movedInside(const PixelBounds& area, int left, int top, const PixelSize& wanted) {
    const PixelSize size = limited(wanted, area);
    left = std::clamp(left, area.left, area.right - size.width);
    top = std::clamp(top, area.top, area.bottom - size.height);
    return {left, top, left + size.width, top + size.height};
}

PixelSize sizeOf(const PixelBounds& window) {
    return {window.width(), window.height()};
}

// Of a window that shows the same on `to` as one of size `window` on `from`, as far as it may.
PixelSize sizeOn(const Screen& to, const Screen& from, const PixelSize& window) {
    const int toDpi = layoutDpi(to), fromDpi = layoutDpi(from);
    PixelSize size = window;
    if (toDpi != fromDpi || to.frame != from.frame) {
        size.width = mulDiv(window.width - from.frame.across(), toDpi, fromDpi) + to.frame.across();
        size.height = mulDiv(window.height - from.frame.upright(), toDpi, fromDpi) + to.frame.upright();
    }
    const PixelSize least = leastWindowSize(to);
    return limited({std::max(size.width, least.width), std::max(size.height, least.height)}, to.workArea);
}

}  // namespace

int layoutDpi(const Screen& screen) {
    const int least = (screen.dpi * 6 + 9) / 10;
    for (int dpi = screen.dpi; dpi > least; --dpi) {
        if (fitsInto(windowFor(kLeastClientWidth, kLeastClientHeight, dpi, screen.frame), screen.workArea))
            return dpi;
    }
    return least;
}

PixelSize leastWindowSize(const Screen& screen) {
    const int dpi = layoutDpi(screen);
    const PixelSize least =
        dpi == screen.dpi
            ? PixelSize{pixelsFromDesign(kWindowMinWidth, dpi), pixelsFromDesign(kWindowMinHeight, dpi)}
            : windowFor(kLeastClientWidth, kLeastClientHeight, dpi, screen.frame);
    return limited(least, screen.workArea);
}

PixelBounds firstWindowPlace(const Screen& screen) {
    return movedInside(screen.workArea, kFirstLeft, kFirstTop,
                       windowFor(kWindowWidth, kWindowHeight, layoutDpi(screen), screen.frame));
}

PixelBounds windowPlaceOn(const Screen& to, const Screen& from, const PixelBounds& window) {
    const PixelSize least = leastWindowSize(to);
    const bool largeEnough = window.width() >= least.width && window.height() >= least.height;
    if (largeEnough && isInside(to, window))
        return window;
    const bool sameScale = layoutDpi(to) == layoutDpi(from);
    const bool outsideByWish = sameScale && !isInside(from, window);
    if (largeEnough && outsideByWish)
        return windowPlaceAfterDrop(to, window);
    return movedInside(to.workArea, window.left, window.top, sizeOn(to, from, sizeOf(window)));
}

std::optional<PixelSize> windowSizeForDpi(const Screen& to, const Screen& from, const PixelSize& window) {
    if (layoutDpi(to) == to.dpi && layoutDpi(from) == from.dpi)
        return std::nullopt;
    return sizeOn(to, from, window);
}

PixelBounds windowPlaceForDpi(const Screen& to, const Screen& from, const PixelBounds& window,
                              const PixelBounds& suggested) {
    if (!isInside(from, window))
        return windowPlaceAfterDrop(to, suggested);
    return isInside(to, suggested)
               ? suggested
               : movedInside(to.workArea, suggested.left, suggested.top, sizeOf(suggested));
}

PixelBounds windowPlaceAfterDrop(const Screen& screen, const PixelBounds& window) {
    return fitsInto(sizeOf(window), roomFor(screen))
               ? window
               : movedInside(screen.workArea, window.left, window.top, sizeOf(window));
}

}  // namespace vextra
