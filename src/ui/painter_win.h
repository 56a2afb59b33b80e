// Draws a WindowView. UI thread only.
#pragma once

#include <cstddef>
#include <vector>

#include "ui/gdi_win.h"
#include "ui/window_view.h"

namespace vextra {

inline constexpr WORD kBannerResource = 102;
inline constexpr wchar_t kUiFontName[] = L"Segoe UI";  // where it is missing, GDI finds another of its family

COLORREF colorRef(Colour colour);

class Painter {
public:
    // `module` holds the banner; without it the header stays white.
    explicit Painter(HINSTANCE module);

    // `frame` is kFrameBytes of BGRA, top row first; it is looked at only when the view has a preview.
    // The banner, the cards, the preview and the labels, over the whole of a client area.
    void paint(HDC dc, SIZE clientPixels, int dpi, const WindowView& view, const std::byte* frame) const;

    // Background of static and edit controls, and of buttons on a card.
    HBRUSH whiteBrush() const { return white_.get(); }
    HBRUSH windowBrush() const { return window_.get(); }

private:
    // The banner where it lies in the module, without a copy of its three megabytes.
    const BITMAPINFO* banner_ = nullptr;
    UniqueBrush white_;
    UniqueBrush window_;
};

// A tab, as WM_DRAWITEM asks for it.
enum class TabState { kSelected = 1, kUnselected };
void drawTab(const DRAWITEMSTRUCT& item, TabState state, HFONT font);

}  // namespace vextra
