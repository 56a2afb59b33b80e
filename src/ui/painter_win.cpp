#include "ui/painter_win.h"

#include <cstdint>

#include "bridge/bridge_layout.h"

namespace vextra {
namespace {

constexpr int kCornerEllipse = 14;
constexpr int kFocusInsetPixels = 3;  // at every scale
constexpr int kMaxTabText = 128;

// One device context with the scale that design units are drawn in.
class Canvas {
public:
    Canvas(HDC dc, int dpi) : dc_(dc), dpi_(dpi) {}

    int pixels(int designUnits) const { return pixelsFromDesign(designUnits, dpi_); }
    RECT rect(int x, int y, int width, int height) const {
        return {pixels(x), pixels(y), pixels(x + width), pixels(y + height)};
    }

    void drawCard(const Card& card, HBRUSH fill) const {
        const RECT area = rect(card.x, card.y, card.width, card.height);
        FillRect(dc_, &area, fill);
        const UniquePen border(CreatePen(PS_SOLID, 1, colorRef(colours::kCardBorder)));
        const Selection pen(dc_, border.get());
        const Selection brush(dc_, GetStockObject(NULL_BRUSH));
        RoundRect(dc_, area.left, area.top, area.right, area.bottom, pixels(kCornerEllipse),
                  pixels(kCornerEllipse));
    }

    void drawLabel(const Label& label) const {
        const UniqueFont font(CreateFontW(-pixels(label.size), 0, 0, 0, static_cast<int>(label.weight), FALSE,
                                          FALSE, FALSE, DEFAULT_CHARSET, OUT_TT_ONLY_PRECIS,
                                          CLIP_DEFAULT_PRECIS, CLEARTYPE_QUALITY, VARIABLE_PITCH | FF_SWISS,
                                          kUiFontName));
        const Selection selected(dc_, font.get());
        SetTextColor(dc_, colorRef(label.colour));
        RECT line = rect(label.x, label.y, label.width, label.size + 12);
        DrawTextW(dc_, label.text.c_str(), static_cast<int>(label.text.size()), &line,
                  DT_SINGLELINE | DT_NOPREFIX | DT_END_ELLIPSIS);
    }

    void drawBanner(const BITMAPINFO& banner) const {
        const auto* bits = reinterpret_cast<const std::byte*>(&banner) + banner.bmiHeader.biSize;
        smoothly();
        const RECT area = rect(kBannerX, kBannerY, kBannerWidth, kBannerHeight);
        StretchDIBits(dc_, area.left, area.top, area.right - area.left, area.bottom - area.top, 0, 0,
                      banner.bmiHeader.biWidth, banner.bmiHeader.biHeight, bits, &banner, DIB_RGB_COLORS,
                      SRCCOPY);
    }

    void drawPreview(const PreviewPlace& place, const std::byte* frame) const {
        BITMAPINFO format{};
        format.bmiHeader.biSize = sizeof format.bmiHeader;
        format.bmiHeader.biWidth = kFrameWidthPx;
        format.bmiHeader.biHeight = -static_cast<LONG>(kFrameHeightPx);  // top row first
        format.bmiHeader.biPlanes = 1;
        format.bmiHeader.biBitCount = 32;
        format.bmiHeader.biCompression = BI_RGB;
        smoothly();
        StretchDIBits(dc_, pixels(place.x), pixels(kPreviewTop), pixels(place.width), pixels(place.height), 0,
                      0, kFrameWidthPx, kFrameHeightPx, frame, &format, DIB_RGB_COLORS, SRCCOPY);
    }

private:
    void smoothly() const {
        SetStretchBltMode(dc_, HALFTONE);
        SetBrushOrgEx(dc_, 0, 0, nullptr);  // as HALFTONE wants it
    }

    const HDC dc_;
    const int dpi_;
};

// A bitmap of a module's resources: its header, followed by the pixels. Null unless it has 24 bits a pixel
// and no compression, hence no palette.
const BITMAPINFO* findBitmap(HINSTANCE module, WORD number) {
    const HRSRC resource = FindResourceW(module, MAKEINTRESOURCEW(number), RT_BITMAP);
    const HGLOBAL loaded = resource != nullptr ? LoadResource(module, resource) : nullptr;
    const auto* bitmap = loaded != nullptr ? static_cast<const BITMAPINFO*>(LockResource(loaded)) : nullptr;
    const bool plain = bitmap != nullptr && bitmap->bmiHeader.biSize >= sizeof(BITMAPINFOHEADER) &&
                       bitmap->bmiHeader.biBitCount == 24 && bitmap->bmiHeader.biCompression == BI_RGB;
    return plain ? bitmap : nullptr;
}

}  // namespace

COLORREF colorRef(Colour colour) {
    return RGB(colour.red, colour.green, colour.blue);
}

Painter::Painter(HINSTANCE module)
    : banner_(findBitmap(module, kBannerResource)),
      white_(CreateSolidBrush(colorRef(colours::kWhite))),
      window_(CreateSolidBrush(colorRef(colours::kWindow))) {}

void Painter::paint(HDC dc, SIZE clientPixels, int dpi, const WindowView& view,
                    const std::byte* frame) const {
    const Canvas canvas(dc, dpi);
    const RECT client{0, 0, clientPixels.cx, clientPixels.cy};
    FillRect(dc, &client, window_.get());
    SetBkMode(dc, TRANSPARENT);
    const RECT header{0, 0, clientPixels.cx, canvas.pixels(kHeaderHeight)};
    FillRect(dc, &header, white_.get());
    if (banner_ != nullptr)
        canvas.drawBanner(*banner_);
    for (const Card& card : view.cards)
        canvas.drawCard(card, white_.get());
    if (view.preview && view.preview->place.width > 0)
        canvas.drawPreview(view.preview->place, frame);
    for (const Label& label : view.labels)
        canvas.drawLabel(label);
}

void drawTab(const DRAWITEMSTRUCT& item, TabState state, HFONT font) {
    const bool selected = state == TabState::kSelected;
    const UniqueBrush fill(CreateSolidBrush(colorRef(selected ? colours::kSelectedTab : colours::kTab)));
    FillRect(item.hDC, &item.rcItem, fill.get());
    wchar_t text[kMaxTabText + 1];
    const int length = GetWindowTextW(item.hwndItem, text, static_cast<int>(std::size(text)));
    const Selection selectedFont(item.hDC, font);
    SetBkMode(item.hDC, TRANSPARENT);
    SetTextColor(item.hDC, colorRef(selected ? colours::kWhite : colours::kTabText));
    RECT area = item.rcItem;
    DrawTextW(item.hDC, text, length, &area, DT_CENTER | DT_VCENTER | DT_SINGLELINE | DT_NOPREFIX);
    if ((item.itemState & ODS_FOCUS) == 0)
        return;
    InflateRect(&area, -kFocusInsetPixels, -kFocusInsetPixels);
    DrawFocusRect(item.hDC, &area);
}

}  // namespace vextra
