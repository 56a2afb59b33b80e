// What the main window does about the screen that it is on: its scale, its size and its place.
#include <utility>

#include "ui/main_window_win.h"

namespace vextra {
namespace {

// Beyond what Windows offers; anything else in a message is not a DPI.
constexpr bool isDpi(int value) {
    return value >= 48 && value <= 960;
}

PixelBounds boundsOf(const RECT& rect) {
    return {rect.left, rect.top, rect.right, rect.bottom};
}

Screen screenAt(HMONITOR monitor, int dpi) {
    Screen screen;
    screen.dpi = dpi;
    MONITORINFO info{};
    info.cbSize = sizeof info;
    if (GetMonitorInfoW(monitor, &info))
        screen.workArea = boundsOf(info.rcWork);
    RECT frame{};
    AdjustWindowRectExForDpi(&frame, kMainWindowStyle, FALSE, 0, static_cast<UINT>(dpi));
    screen.frame = {-frame.left, -frame.top, frame.right, frame.bottom};
    return screen;
}

}  // namespace

Screen MainWindow::screenOfWindow(int dpi) const {
    return screenAt(MonitorFromWindow(window_, MONITOR_DEFAULTTONEAREST), dpi);
}

PixelBounds MainWindow::bounds() const {
    RECT window{};
    GetWindowRect(window_, &window);
    return boundsOf(window);
}

void MainWindow::moveTo(const PixelBounds& place) {
    if (place == bounds())
        return;
    SetWindowPos(window_, nullptr, place.left, place.top, place.width(), place.height(),
                 SWP_NOZORDER | SWP_NOACTIVATE);
}

void MainWindow::takeScreen(const Screen& screen) {
    screen_ = screen;
    dpi_ = layoutDpi(screen);
    const UniqueFont old(font_.release());  // in use until the controls have the new one
    rebuildFont();
    controls_.setFont(font_.get(), scaled(kClosedListHeight));
}

void MainWindow::followScreen() {
    if (drag_ != Drag::kNone)
        return;
    const Screen now = screenOfWindow(screen_.dpi);
    if (now != screen_) {
        takeScreen(now);
        layoutControls();
    }
    // A window that is maximised or minimised gets its place when it is neither.
    if (placedOn_ == screen_ || IsIconic(window_) || IsZoomed(window_))
        return;
    const Screen from = std::exchange(placedOn_, screen_);
    moveTo(windowPlaceOn(screen_, from, bounds()));
}

bool MainWindow::onGetDpiScaledSize(int dpi, SIZE* size) const {
    if (!isDpi(dpi) || size == nullptr)
        return false;
    const auto wanted = windowSizeForDpi(screenOfWindow(dpi), screen_, {size->cx, size->cy});
    if (wanted)
        *size = {wanted->width, wanted->height};
    return wanted.has_value();
}

void MainWindow::onDpiChanged(int dpi, const RECT* suggested) {
    if (!isDpi(dpi) || suggested == nullptr)
        return;
    const PixelBounds before = bounds();
    takeScreen(screenAt(MonitorFromRect(suggested, MONITOR_DEFAULTTONEAREST), dpi));
    if (drag_ != Drag::kNone) {
        // Only where the system wants it does the window stay on the screen whose DPI it was just given.
        drag_ = Drag::kToAnotherDpi;
        placedOn_ = screen_;
        moveTo(boundsOf(*suggested));
    } else if (IsIconic(window_) || IsZoomed(window_)) {
        moveTo(boundsOf(*suggested));
    } else {
        const Screen from = std::exchange(placedOn_, screen_);
        moveTo(windowPlaceForDpi(screen_, from, before, boundsOf(*suggested)));
    }
    layoutControls();
    tray_.replaceImage(trayImage());
    log_.write(EventCode::kDpiChanged);
}

void MainWindow::onDropped() {
    const Drag was = std::exchange(drag_, Drag::kNone);
    if (was == Drag::kToAnotherDpi && !IsZoomed(window_))
        moveTo(windowPlaceAfterDrop(screen_, bounds()));
}

}  // namespace vextra
