#include "ui/painter_win.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <ostream>
#include <vector>

#include "bridge/bridge_layout.h"
#include "gdi_count_win.h"
#include "test_window_win.h"
#include "ui/preview_picture.h"

namespace vextra {

static std::ostream& operator<<(std::ostream& out, const Colour& colour) {
    return out << int{colour.red} << "," << int{colour.green} << "," << int{colour.blue};
}

namespace {

constexpr Colour kBackground{247, 248, 250};
constexpr Colour kWhite{255, 255, 255};
constexpr Colour kBorder{226, 229, 235};
constexpr Colour kRed{255, 0, 0}, kGreen{0, 255, 0}, kBlue{0, 0, 255}, kYellow{255, 255, 0};
constexpr Colour kFieldOfPlaceholder{18, 25, 36};
constexpr Colour kBarOfPlaceholder{236, 165, 62};

// A picture in memory that can be painted on and looked at.
class Picture {
public:
    Picture(int width, int height) : width_(width), height_(height), dc_(CreateCompatibleDC(nullptr)) {
        BITMAPINFO format{};
        format.bmiHeader.biSize = sizeof format.bmiHeader;
        format.bmiHeader.biWidth = width;
        format.bmiHeader.biHeight = -height;
        format.bmiHeader.biPlanes = 1;
        format.bmiHeader.biBitCount = 32;
        bitmap_.reset(CreateDIBSection(dc_.get(), &format, DIB_RGB_COLORS, &bits_, nullptr, 0));
        if (!dc_ || !bitmap_)
            failSetUp("picture");
        old_ = SelectObject(dc_.get(), bitmap_.get());
    }
    ~Picture() { SelectObject(dc_.get(), old_); }
    Picture(const Picture&) = delete;
    Picture& operator=(const Picture&) = delete;

    HDC dc() const { return dc_.get(); }
    SIZE size() const { return {width_, height_}; }
    Colour at(int x, int y) const {
        GdiFlush();
        std::uint8_t bgra[4];
        std::memcpy(bgra, static_cast<const std::byte*>(bits_) + (std::size_t{4} * width() * y) + 4 * x, 4);
        return {bgra[2], bgra[1], bgra[0]};
    }
    // The smallest rectangle that holds every pixel from the row `top` on which is not `background`.
    RECT inkOn(Colour background, int top = 0) const {
        RECT ink{width_, height_, -1, -1};
        for (int y = top; y < height_; ++y) {
            for (int x = 0; x < width_; ++x) {
                if (at(x, y) == background)
                    continue;
                ink = {std::min<LONG>(ink.left, x), std::min<LONG>(ink.top, y), std::max<LONG>(ink.right, x),
                       std::max<LONG>(ink.bottom, y)};
            }
        }
        return ink;
    }
    bool has(Colour colour) const {
        for (int y = 0; y < height_; ++y) {
            for (int x = 0; x < width_; ++x) {
                if (at(x, y) == colour)
                    return true;
            }
        }
        return false;
    }

private:
    std::size_t width() const { return static_cast<std::size_t>(width_); }

    const int width_;
    const int height_;
    UniqueMemoryDc dc_;
    UniqueBitmap bitmap_;
    void* bits_ = nullptr;
    HGDIOBJ old_ = nullptr;
};

// Red and green above, blue and yellow below.
std::vector<std::byte> quarters() {
    std::vector<std::byte> frame(kFrameBytes);
    for (std::size_t y = 0; y < 720; ++y) {
        for (std::size_t x = 0; x < 1280; ++x) {
            const Colour above = x < 640 ? kRed : kGreen;
            const Colour below = x < 640 ? kBlue : kYellow;
            const Colour& colour = y < 360 ? above : below;
            std::byte* const pixel = frame.data() + (y * 1280 + x) * 4;
            pixel[0] = std::byte{colour.blue};
            pixel[1] = std::byte{colour.green};
            pixel[2] = std::byte{colour.red};
            pixel[3] = std::byte{255};
        }
    }
    return frame;
}

WindowState stateOf(Panel panel) {
    WindowState state;
    state.clientWidth = 980;
    state.clientHeight = 720;
    state.panel = panel;
    return state;
}

WindowView withoutLabels(WindowView view) {
    view.labels.clear();
    return view;
}

class PainterAt : public testing::TestWithParam<int> {
protected:
    int px(int length) const { return MulDiv(length, GetParam(), 96); }
    void paint(const WindowView& view, const std::byte* frame = nullptr) {
        painter.paint(picture.dc(), picture.size(), GetParam(), view, frame);
    }
    // Of a label below the header
    RECT inkOf(const Label& label) {
        WindowView view;
        view.labels.push_back(label);
        paint(view);
        return picture.inkOn(kBackground, px(kHeaderHeight));
    }
    // Of the point in design units
    Colour at(int x, int y) const { return picture.at(px(x), px(y)); }

    const Painter painter{test::TestWindow::module()};
    Picture picture{px(980), px(720)};
};
INSTANTIATE_TEST_SUITE_P(Dpi, PainterAt, testing::Values(96, 144));

TEST_P(PainterAt, FillsHeaderAndBackground) {
    paint({});
    for (const int x : {0, px(500), px(980) - 1}) {
        EXPECT_EQ(picture.at(x, 0), kWhite);
        EXPECT_EQ(picture.at(x, px(86) - 1), kWhite);
        EXPECT_EQ(picture.at(x, px(86)), kBackground);
        EXPECT_EQ(picture.at(x, px(720) - 1), kBackground);
    }
}

TEST_P(PainterAt, PaintsOverWhateverWasThere) {
    RECT all{0, 0, px(980), px(720)};
    const UniqueBrush red(CreateSolidBrush(RGB(255, 0, 0)));
    FillRect(picture.dc(), &all, red.get());
    paint(composeView(stateOf(Panel::kDiagnostics)));
    EXPECT_FALSE(picture.has(kRed));
}

TEST_P(PainterAt, DrawsACardWithItsBorder) {
    paint(withoutLabels(composeView(stateOf(Panel::kSettings))));
    const int left = px(28), top = px(158), right = px(28 + 924), bottom = px(158 + 518);
    EXPECT_EQ(at(500, 400), kWhite);
    EXPECT_EQ(picture.at(px(500), top), kBorder);
    EXPECT_EQ(picture.at(px(500), bottom - 1), kBorder);
    EXPECT_EQ(picture.at(left, px(400)), kBorder);
    EXPECT_EQ(picture.at(right - 1, px(400)), kBorder);
    // One pixel wide at every scale
    EXPECT_EQ(picture.at(px(500), top + 1), kWhite);
    EXPECT_EQ(picture.at(left + 1, px(400)), kWhite);
    EXPECT_EQ(picture.at(px(500), top - 1), kBackground);
    EXPECT_EQ(picture.at(left - 1, px(400)), kBackground);
    EXPECT_EQ(picture.at(right, px(400)), kBackground);
    EXPECT_EQ(picture.at(px(500), bottom), kBackground);
}

TEST_P(PainterAt, RoundsTheBorderButNotTheFill) {
    paint(withoutLabels(composeView(stateOf(Panel::kSettings))));
    const int left = px(28), top = px(158);
    EXPECT_EQ(picture.at(left, top), kWhite);
    // The straight part begins where the corner's half ellipse ends.
    EXPECT_EQ(picture.at(left + px(14) / 2 + 1, top), kBorder);
    EXPECT_EQ(picture.at(left, top + px(14) / 2 + 1), kBorder);
    EXPECT_EQ(picture.at(left + 1, top), kWhite);
    EXPECT_EQ(picture.at(left, top + 1), kWhite);
}

TEST_P(PainterAt, ShowsTheFrameUprightAndInItsColours) {
    const std::vector<std::byte> frame = quarters();
    paint(withoutLabels(composeView(stateOf(Panel::kCamera))), frame.data());
    const int left = px(204), right = left + px(572) - 1, top = px(266), bottom = top + px(321) - 1;
    EXPECT_EQ(picture.at(left, top), kRed);
    EXPECT_EQ(picture.at(right, top), kGreen);
    EXPECT_EQ(picture.at(left, bottom), kBlue);
    EXPECT_EQ(picture.at(right, bottom), kYellow);
    // Nothing around it
    EXPECT_EQ(picture.at(left - 1, top), kWhite);
    EXPECT_EQ(picture.at(right + 1, bottom), kWhite);
    EXPECT_EQ(picture.at(left, top - 1), kWhite);
    EXPECT_EQ(picture.at(right, bottom + 1), kWhite);
}

TEST_P(PainterAt, ShowsThePlaceholderInItsColours) {
    std::vector<std::byte> frame;
    fillPlaceholderFrame(frame);
    paint(withoutLabels(composeView(stateOf(Panel::kCamera))), frame.data());
    EXPECT_EQ(at(210, 270), kFieldOfPlaceholder);
    EXPECT_EQ(at(770, 580), kFieldOfPlaceholder);
    EXPECT_EQ(at(210, 266 + 161), kFieldOfPlaceholder);
    EXPECT_EQ(at(490, 266 + 161), kBarOfPlaceholder);
    EXPECT_EQ(at(490, 266 + 140), kFieldOfPlaceholder);
    EXPECT_EQ(at(490, 266 + 180), kFieldOfPlaceholder);
}

TEST_P(PainterAt, DrawsNoPreviewWithoutRoom) {
    const std::vector<std::byte> frame = quarters();
    WindowView view;
    for (const PreviewPlace& place : {PreviewPlace{40, 0, 0}, PreviewPlace{40, -36, -20}}) {
        view.preview = {place, true};
        paint(view, frame.data());
        for (const Colour& colour : {kRed, kGreen, kBlue, kYellow})
            EXPECT_FALSE(picture.has(colour)) << colour;
    }
}

// --- Labels ---

constexpr Colour kInk{200, 0, 0};

Label labelOf(std::wstring_view text, int width = 300, int size = 20) {
    return {50, 200, width, size, Weight::kBold, kInk, std::wstring(text)};
}

TEST_P(PainterAt, WritesALabelInItsColourWithinItsLine) {
    const RECT ink = inkOf(labelOf(L"Ao vivo"));
    EXPECT_TRUE(picture.has(kInk));
    EXPECT_GE(ink.left, px(50) - 1);
    EXPECT_LE(ink.left, px(56));
    EXPECT_GE(ink.top, px(200));
    EXPECT_LT(ink.bottom, px(232));
    // Letters of 20 units are neither half nor twice as high.
    EXPECT_GT(ink.bottom - ink.top, px(9));
    EXPECT_LT(ink.bottom - ink.top, px(24));
}

TEST_P(PainterAt, CutsALabelThatDoesNotFit) {
    EXPECT_LE(inkOf(labelOf(std::wstring(200, L'W'), 100)).right, px(150));
}

TEST_P(PainterAt, WritesAnAmpersandAsItIs) {
    EXPECT_GT(inkOf(labelOf(L"&x")).right, inkOf(labelOf(L"x")).right + px(5));
}

// --- Tabs ---

class TabAt : public testing::TestWithParam<int> {
protected:
    TabAt() { SetWindowTextW(window.handle(), L"Câmera"); }

    void draw(Picture& picture, TabState state, UINT itemState = 0) {
        const UniqueFont font(CreateFontW(-MulDiv(17, GetParam(), 96), 0, 0, 0, FW_NORMAL, FALSE, FALSE,
                                          FALSE, DEFAULT_CHARSET, OUT_DEFAULT_PRECIS, CLIP_DEFAULT_PRECIS,
                                          NONANTIALIASED_QUALITY, DEFAULT_PITCH, kUiFontName));
        DRAWITEMSTRUCT item{};
        item.CtlType = ODT_BUTTON;
        item.hwndItem = window.handle();
        item.hDC = picture.dc();
        item.rcItem = {0, 0, picture.size().cx, picture.size().cy};
        item.itemState = itemState;
        drawTab(item, state, font.get());
    }
    Picture blank() const { return Picture(MulDiv(150, GetParam(), 96), MulDiv(38, GetParam(), 96)); }

    test::TestWindow window;
};
INSTANTIATE_TEST_SUITE_P(Dpi, TabAt, testing::Values(96, 144));

TEST_P(TabAt, SelectedIsWhiteOnDark) {
    Picture tab = blank();
    draw(tab, TabState::kSelected);
    EXPECT_EQ(tab.at(0, 0), (Colour{65, 41, 78}));
    EXPECT_EQ(tab.at(tab.size().cx - 1, tab.size().cy - 1), (Colour{65, 41, 78}));
    EXPECT_TRUE(tab.has(kWhite));
}

TEST_P(TabAt, UnselectedIsDarkOnLight) {
    Picture tab = blank();
    draw(tab, TabState::kUnselected);
    EXPECT_EQ(tab.at(0, 0), (Colour{245, 246, 249}));
    EXPECT_TRUE(tab.has({69, 65, 77}));
    EXPECT_FALSE(tab.has(kWhite));
}

TEST_P(TabAt, HasItsTextInTheMiddle) {
    Picture tab = blank();
    draw(tab, TabState::kUnselected);
    const RECT ink = tab.inkOn({245, 246, 249});
    ASSERT_GE(ink.right, 0);
    EXPECT_NEAR(ink.left + ink.right, tab.size().cx, 6);
    // The circumflex hangs above the middle of a line of text; there is no more to be said of its height.
    EXPECT_NEAR(ink.top + ink.bottom, tab.size().cy, 12);
}

TEST_P(TabAt, WithoutATextIsPlain) {
    SetWindowTextW(window.handle(), L"");
    Picture tab = blank();
    draw(tab, TabState::kSelected);
    EXPECT_LT(tab.inkOn({65, 41, 78}).right, 0);
}

TEST_P(TabAt, WithTheFocusHasARectangleWithinItsEdge) {
    SetWindowTextW(window.handle(), L"");
    Picture tab = blank();
    draw(tab, TabState::kUnselected, ODS_FOCUS);
    const RECT ink = tab.inkOn({245, 246, 249});
    constexpr int inset = 3;  // at every scale
    // Every other pixel of the rectangle is drawn.
    EXPECT_NEAR(ink.left, inset, 1);
    EXPECT_NEAR(ink.top, inset, 1);
    EXPECT_NEAR(ink.right, tab.size().cx - 1 - inset, 1);
    EXPECT_NEAR(ink.bottom, tab.size().cy - 1 - inset, 1);
    EXPECT_EQ(tab.at(tab.size().cx / 2, tab.size().cy / 2), (Colour{245, 246, 249}));
}

TEST_P(TabAt, WithoutTheFocusHasNone) {
    SetWindowTextW(window.handle(), L"");
    Picture tab = blank();
    draw(tab, TabState::kUnselected, ODS_SELECTED);
    EXPECT_LT(tab.inkOn({245, 246, 249}).right, 0);
}

// --- What painting leaves behind ---

TEST(GdiCount, CountsWhatIsMadeAndWhatIsFreed) {
    const std::size_t before = test::countGdiObjects(GetCurrentProcess());
    ASSERT_GT(before, 0u);
    {
        std::vector<UniqueBrush> brushes;
        for (BYTE shade = 0; shade < 10; ++shade)
            brushes.emplace_back(CreateSolidBrush(RGB(shade, 1, 2)));
        EXPECT_EQ(test::countGdiObjects(GetCurrentProcess()), before + 10);
    }
    EXPECT_EQ(test::countGdiObjects(GetCurrentProcess()), before);
}

TEST(Painter, LeavesNoGdiObjectBehind) {
    const Painter painter(test::TestWindow::module());
    const Picture picture(980, 720);
    const std::vector<std::byte> frame = quarters();
    const auto paintOnce = [&](Panel panel) {
        painter.paint(picture.dc(), picture.size(), 96, composeView(stateOf(panel)), frame.data());
    };
    const Panel panels[] = {Panel::kCamera, Panel::kSettings, Panel::kDiagnostics};
    for (const Panel panel : panels)
        paintOnce(panel);  // what GDI makes once, it has made now
    const std::size_t before = test::countGdiObjects(GetCurrentProcess());
    for (int round = 0; round < 500; ++round)
        paintOnce(panels[round % 3]);
    EXPECT_EQ(test::countGdiObjects(GetCurrentProcess()), before);
}

TEST(Painter, GivesBackItsOwnBrushesAndBitmap) {
    const std::size_t before = test::countGdiObjects(GetCurrentProcess());
    { const Painter painter(test::TestWindow::module()); }
    EXPECT_EQ(test::countGdiObjects(GetCurrentProcess()), before);
}

TEST(Painter, OffersItsBrushesInTheirColours) {
    const Painter painter(test::TestWindow::module());
    LOGBRUSH brush{};
    ASSERT_NE(GetObjectW(painter.whiteBrush(), sizeof brush, &brush), 0);
    EXPECT_EQ(brush.lbColor, RGB(255, 255, 255));
    ASSERT_NE(GetObjectW(painter.windowBrush(), sizeof brush, &brush), 0);
    EXPECT_EQ(brush.lbColor, RGB(247, 248, 250));
}

}  // namespace
}  // namespace vextra
