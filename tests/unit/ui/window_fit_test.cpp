#include "ui/window_fit.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "ui/window_layout.h"

namespace vextra {

void PrintTo(const PixelBounds& bounds, std::ostream* out) {
    *out << bounds.left << "," << bounds.top << " to " << bounds.right << "," << bounds.bottom;
}
void PrintTo(const PixelSize& size, std::ostream* out) {
    *out << size.width << " x " << size.height;
}

namespace {

// Frames as Windows 11 makes them, give or take a pixel.
FrameWidths frameAt(int dpi) {
    switch (dpi) {
        case 96: return {8, 31, 8, 8};
        case 120: return {9, 38, 9, 9};
        case 144: return {11, 45, 11, 11};
        case 168: return {12, 52, 12, 12};
        default: return {13, 58, 13, 13};
    }
}

// A screen with a taskbar of 48 design units below.
Screen screenOf(int width, int height, int dpi, int left = 0, int top = 0) {
    return {dpi, {left, top, left + width, top + height - pixelsFromDesign(48, dpi)}, frameAt(dpi)};
}

bool contains(const PixelBounds& outer, const PixelBounds& inner) {
    return inner.left >= outer.left && inner.top >= outer.top && inner.right <= outer.right &&
           inner.bottom <= outer.bottom;
}

// Where the window's controls are on the screen.
std::vector<std::pair<ControlId, PixelBounds>> controlsOnScreen(const Screen& screen,
                                                                const PixelBounds& window, Panel panel,
                                                                SourceKind source) {
    LayoutInput input;
    input.clientWidthPixels = window.width() - screen.frame.across();
    input.clientHeightPixels = window.height() - screen.frame.upright();
    input.dpi = layoutDpi(screen);
    input.panel = panel;
    input.selectedSource = source;
    input.episodeActive = true;
    input.advancedShown = true;
    std::vector<std::pair<ControlId, PixelBounds>> controls;
    for (const PlacedControl& control : placeControls(input)) {
        const int left = window.left + screen.frame.left + control.place.left;
        const int top = window.top + screen.frame.top + control.place.top;
        controls.push_back({control.id, {left, top, left + control.place.width, top + control.place.height}});
    }
    return controls;
}

struct Fit {
    int width, height, dpi;  // of the screen
    int layoutDpi;
};

void PrintTo(const Fit& fit, std::ostream* out) {
    *out << fit.width << " x " << fit.height << " at " << fit.dpi << " DPI";
}

class WindowOnScreen : public testing::TestWithParam<Fit> {
protected:
    const Screen screen = screenOf(GetParam().width, GetParam().height, GetParam().dpi);
    const PixelBounds window = firstWindowPlace(screen);
};

TEST_P(WindowOnScreen, IsLaidOutAtTheLargestScaleThatFits) {
    EXPECT_EQ(layoutDpi(screen), GetParam().layoutDpi);
}

TEST_P(WindowOnScreen, LiesInTheWorkAreaAtFirst) {
    EXPECT_TRUE(contains(screen.workArea, window)) << testing::PrintToString(window);
}

TEST_P(WindowOnScreen, ShowsEveryControlAtFirst) {
    for (const Panel panel : {Panel::kCamera, Panel::kSettings, Panel::kDiagnostics}) {
        for (const SourceKind source : {SourceKind::kDirectCamera, SourceKind::kCustomUrl}) {
            for (const auto& [id, place] : controlsOnScreen(screen, window, panel, source))
                EXPECT_TRUE(contains(screen.workArea, place)) << id << ": " << testing::PrintToString(place);
        }
    }
}

TEST_P(WindowOnScreen, KeepsEveryControlVisibleWhenItIsMadeAsSmallAsItGets) {
    const PixelSize least = leastWindowSize(screen);
    const PixelBounds smallest{0, 0, least.width, least.height};
    EXPECT_TRUE(contains(screen.workArea, smallest)) << testing::PrintToString(smallest);
    for (const Panel panel : {Panel::kCamera, Panel::kSettings, Panel::kDiagnostics}) {
        for (const auto& [id, place] : controlsOnScreen(screen, smallest, panel, SourceKind::kDirectCamera)) {
            EXPECT_TRUE(contains(smallest, place)) << id << ": " << testing::PrintToString(place);
            EXPECT_GT(place.width(), 0) << id;
            EXPECT_GT(place.height(), 0) << id;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Common, WindowOnScreen,
                         testing::Values(Fit{1280, 720, 96, 86}, Fit{1366, 768, 96, 92},
                                         Fit{1366, 768, 120, 89}, Fit{1366, 768, 144, 87},
                                         Fit{1920, 1080, 120, 120}, Fit{1920, 1080, 144, 129},
                                         Fit{1920, 1080, 168, 126}, Fit{1920, 1080, 192, 124},
                                         Fit{1440, 900, 96, 96}, Fit{1920, 1200, 144, 144},
                                         Fit{3840, 2160, 192, 192}));

// --- Where everything fits, the design holds ---

TEST(WindowFit, LeavesALargeScreenTheDesignedPlaceAndSizes) {
    const Screen screen = screenOf(1920, 1080, 96);
    EXPECT_EQ(firstWindowPlace(screen), (PixelBounds{100, 60, 100 + 980 + 16, 60 + 720 + 39}));
    EXPECT_EQ(leastWindowSize(screen), (PixelSize{880, 745}));
}

TEST(WindowFit, ScalesTheDesignedSizesAndNotThePlaceWithTheDpi) {
    const Screen screen = screenOf(3840, 2160, 144);
    EXPECT_EQ(firstWindowPlace(screen), (PixelBounds{100, 60, 100 + 1470 + 22, 60 + 1080 + 56}));
    EXPECT_EQ(leastWindowSize(screen), (PixelSize{1320, 1118}));
}

TEST(WindowFit, MovesAWindowThatFitsOnlyFurtherUp) {
    // 1080 + 56 are less than the 1128 that there are, but not below 60.
    EXPECT_EQ(firstWindowPlace(screenOf(1920, 1200, 144)), (PixelBounds{100, 0, 1592, 1128}));
    EXPECT_EQ(firstWindowPlace(screenOf(1440, 900, 96)), (PixelBounds{100, 60, 1096, 819}));
    EXPECT_EQ(firstWindowPlace(screenOf(1280, 860, 96)), (PixelBounds{100, 53, 1096, 812}));
}

TEST(WindowFit, RespectsATaskbarAtTheTopAndAtTheLeft) {
    Screen screen = screenOf(1920, 1080, 96);
    screen.workArea = {120, 70, 1920, 1080};
    EXPECT_EQ(firstWindowPlace(screen), (PixelBounds{120, 70, 1116, 829}));
}

// --- Screens that are too small for anything ---

TEST(WindowFit, NeverGoesBelowSixTenthsOfTheScale) {
    EXPECT_EQ(layoutDpi(screenOf(640, 480, 96)), 58);
    EXPECT_EQ(layoutDpi(screenOf(640, 480, 120)), 72);
}

TEST(WindowFit, FillsAScreenThatIsTooSmallEvenSo) {
    const Screen screen = screenOf(640, 400, 96);
    EXPECT_EQ(firstWindowPlace(screen), (PixelBounds{32, 0, 640, 352}));
    EXPECT_EQ(leastWindowSize(screen), (PixelSize{538, 352})) << "864 x 58 / 96 + 16";
}

// --- Another screen, or another work area ---

const Screen kLarge = screenOf(1920, 1080, 96);
const Screen kSmallBeside = screenOf(1366, 768, 96, 1920);

TEST(WindowFit, LeavesAWindowAloneThatFitsWhereItCame) {
    const PixelBounds window{2000, 100, 2900, 845};
    const Screen beside = screenOf(1920, 1080, 96, 1920);
    EXPECT_EQ(windowPlaceOn(beside, kLarge, window), window);
}

TEST(WindowFit, ShrinksAWindowWithItsContentsOnASmallerScreen) {
    const PixelBounds came{2400, 300, 2400 + 996, 300 + 759};
    const PixelBounds placed = windowPlaceOn(kSmallBeside, kLarge, came);
    EXPECT_EQ(placed.width(), 980 * 92 / 96 + 16) << "the contents at 92 of 96 parts";
    EXPECT_EQ(placed.height(), 720) << "all the work area's";
    EXPECT_TRUE(contains(kSmallBeside.workArea, placed)) << testing::PrintToString(placed);
}

TEST(WindowFit, GrowsAgainToWhatALargeScreenWants) {
    const PixelBounds placed = windowPlaceOn(kLarge, kSmallBeside, {300, 200, 300 + 844, 200 + 716});
    EXPECT_GE(placed.width(), leastWindowSize(kLarge).width);
    EXPECT_GE(placed.height(), leastWindowSize(kLarge).height);
    EXPECT_TRUE(contains(kLarge.workArea, placed)) << testing::PrintToString(placed);
}

TEST(WindowFit, NeverPlacesAWindowBelowItsLeastSize) {
    const PixelBounds placed = windowPlaceOn(kLarge, kSmallBeside, {1800, 900, 2500, 1400});
    EXPECT_EQ(placed, (PixelBounds{1040, 287, 1920, 1032}));
}

TEST(WindowFit, MovesAWindowBackIntoAWorkAreaThatShrank) {
    Screen shrunk = kLarge;
    shrunk.workArea.bottom = 900;
    EXPECT_EQ(windowPlaceOn(shrunk, kLarge, {100, 200, 1196, 959}), (PixelBounds{100, 141, 1196, 900}));
}

TEST(WindowFit, LeavesAWindowHalfOutsideWhereItsUserPutIt) {
    Screen shrunk = kLarge;
    shrunk.workArea.bottom = 1000;
    const PixelBounds halfOutside{1500, 100, 2596, 859};
    EXPECT_EQ(windowPlaceOn(shrunk, kLarge, halfOutside), halfOutside);
}

TEST(WindowFit, FetchesAWindowFromAScreenThatIsGone) {
    const PixelBounds onTheOther{2100, 100, 3196, 859};
    const PixelBounds placed = windowPlaceOn(kLarge, screenOf(1920, 1080, 96, 1920), onTheOther);
    EXPECT_TRUE(contains(kLarge.workArea, placed)) << testing::PrintToString(placed);
    EXPECT_EQ(placed.width(), onTheOther.width());
}

// The system lets what it arranged at an edge reach beyond it by the invisible border.
TEST(WindowFit, LeavesAnArrangedWindowAlone) {
    Screen other = kLarge;
    other.workArea.bottom = 1030;
    const PixelBounds leftHalf{-8, 0, 968, 1030 + 8};
    EXPECT_EQ(windowPlaceOn(other, kLarge, leftHalf), leftHalf);
    EXPECT_EQ(windowPlaceForDpi(other, kLarge, leftHalf, leftHalf), leftHalf);
    EXPECT_EQ(windowPlaceAfterDrop(other, leftHalf), leftHalf);
}

// --- Another DPI ---

TEST(WindowFit, LeavesTheSizeForAnotherDpiToTheSystemWhereNothingIsTooSmall) {
    EXPECT_FALSE(windowSizeForDpi(screenOf(3840, 2160, 144), kLarge, {1096, 759}));
}

TEST(WindowFit, KeepsTheContentsForAnotherDpiOfASmallScreen) {
    const auto size = windowSizeForDpi(screenOf(1920, 1080, 144), kLarge, {900 + 16, 706 + 39});
    ASSERT_TRUE(size);
    EXPECT_EQ(*size, (PixelSize{mulDiv(900, 129, 96) + 22, mulDiv(706, 129, 96) + 56}));
}

TEST(WindowFit, TakesTheSuggestedPlaceForAnotherDpiWhereItFits) {
    const PixelBounds suggested{20, 30, 1520, 1230};
    EXPECT_EQ(windowPlaceForDpi(screenOf(2048, 1400, 144), kLarge, {20, 30, 1020, 830}, suggested),
              suggested);
}

TEST(WindowFit, MovesTheSuggestedPlaceIntoTheWorkArea) {
    const Screen scaled = screenOf(1920, 1080, 144);
    const PixelBounds placed = windowPlaceForDpi(scaled, kLarge, {100, 60, 1196, 819}, {100, 60, 1440, 1068});
    EXPECT_EQ(placed, (PixelBounds{100, 0, 1440, 1008}));
}

TEST(WindowFit, LeavesAWindowHalfOutsideForAnotherDpiToo) {
    const PixelBounds suggested{1500, 100, 2996, 1180};
    EXPECT_EQ(windowPlaceForDpi(screenOf(2560, 1440, 144), screenOf(2560, 1440, 96), {2000, 100, 2996, 859},
                                suggested),
              suggested);
}

TEST(WindowFit, LeavesADroppedWindowHalfOutsideUnlessItIsTooLarge) {
    const PixelBounds halfOutside{1500, 700, 2500, 1459};
    EXPECT_EQ(windowPlaceAfterDrop(kLarge, halfOutside), halfOutside);
    const PixelBounds placed = windowPlaceAfterDrop(kLarge, {1500, 700, 2500, 1900});
    EXPECT_TRUE(contains(kLarge.workArea, placed)) << testing::PrintToString(placed);
}

// --- Two screens ---

const Screen kPairs[] = {screenOf(1920, 1080, 96),  screenOf(1366, 768, 96),   screenOf(1280, 720, 96),
                         screenOf(1366, 768, 144),  screenOf(1920, 1080, 144), screenOf(1920, 1080, 192),
                         screenOf(3840, 2160, 144), screenOf(3840, 2160, 192)};

Screen movedRight(Screen screen, int by) {
    screen.workArea.left += by;
    screen.workArea.right += by;
    return screen;
}

// Whichever of two screens a window came to: it stays there, for all of it lies on it, and a second look at
// the screen changes nothing.
TEST(WindowFit, NeverSendsAWindowBackToTheScreenThatItCameFrom) {
    for (const Screen& left : kPairs) {
        for (const Screen& second : kPairs) {
            const Screen right = movedRight(second, left.workArea.right);
            const PixelBounds whole = firstWindowPlace(left);
            const int overTheEdge = right.workArea.left - whole.width() / 3;
            const PixelBounds straddling{overTheEdge, whole.top, overTheEdge + whole.width(), whole.bottom};
            const PixelBounds placed = windowPlaceOn(right, left, straddling);
            if (placed != straddling) {
                EXPECT_TRUE(contains(right.workArea, placed)) << testing::PrintToString(placed);
            }
            EXPECT_EQ(windowPlaceOn(right, right, placed), placed);
        }
    }
}

// A window that is dragged over the edge and back, however often, neither grows nor shrinks.
TEST(WindowFit, HasASizeOfItsOwnOnEachOfTwoScreens) {
    for (const Screen& here : kPairs) {
        for (const Screen& there : kPairs) {
            PixelSize size = leastWindowSize(here);
            const auto cross = [&size](const Screen& to, const Screen& from) {
                size = windowSizeForDpi(to, from, size)
                           .value_or(PixelSize{mulDiv(size.width, to.dpi, from.dpi),
                                               mulDiv(size.height, to.dpi, from.dpi)});
            };
            cross(there, here);
            cross(here, there);
            const PixelSize once = size;
            for (int i = 0; i < 20; ++i) {
                cross(there, here);
                cross(here, there);
            }
            EXPECT_LE(std::abs(size.width - once.width), 1);
            EXPECT_LE(std::abs(size.height - once.height), 1);
        }
    }
}

}  // namespace
}  // namespace vextra
