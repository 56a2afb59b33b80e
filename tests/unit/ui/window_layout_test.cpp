#include "ui/window_layout.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <set>
#include <string>

namespace vextra {
namespace {

struct Place {
    int x, y, width, height;
};
using Places = std::map<int, Place>;

// The lengths as the designer wrote them down, w and h being the client area in design units.

Places everywhere(int w, int h) {
    return {
        {300, {28, 102, 150, 38}},
        {301, {186, 102, 190, 38}},
        {302, {384, 102, 210, 38}},
        {340, {28, h - 28, w - 56, 26}},
    };
}

Places onCamera(int w, int h, bool episodeActive) {
    Places places{
        {100, {w - 262, 164, 234, 38}},
        {105, {w - 262, 210, 234, 34}},
    };
    if (episodeActive)
        places[101] = {28, h - 88, 170, 32};
    return places;
}

Places onSettings(int w, int h, SourceKind source, bool advanced) {
    Places places{
        {104, {52, 211, w - 104, 180}},    {315, {52, 427, 175, 160}},    {316, {247, 427, 235, 160}},
        {325, {502, 427, w - 554, 32}},    {319, {52, 565, w - 290, 30}}, {320, {w - 218, 565, 166, 30}},
        {322, {w - 248, h - 96, 196, 38}}, {323, {52, h - 96, 190, 38}},
    };
    const int t = (w - 120) / 3;
    if (source == SourceKind::kDirectCamera) {
        places[310] = {52, 289, t, 32};
        places[311] = {t + 60, 289, t, 160};
        places[313] = {52, 358, t, 32};
        places[314] = {t + 60, 358, w - t - 112, 32};
    }
    if (source == SourceKind::kCustomUrl) {
        places[312] = {52, 289, w - 232, 32};
        places[321] = {w - 168, 289, 116, 32};
    }
    if (advanced) {
        places[317] = {52, 496, 175, 30};
        places[318] = {247, 496, 235, 30};
    }
    return places;
}

Places onDiagnostics(int w, int h) {
    return {
        {341, {52, 305, w - 104, 42}},     {335, {52, 355, 300, 34}},     {330, {52, 401, w - 104, h - 511}},
        {331, {52, h - 88, 158, 32}},      {332, {222, h - 88, 184, 32}}, {333, {418, h - 88, 190, 32}},
        {334, {w - 252, h - 88, 200, 32}},
    };
}

int scale(int length, int by, int from) {
    return static_cast<int>(std::lround(static_cast<double>(length) * by / from));
}

std::map<int, PixelRect> expectedPlaces(const LayoutInput& input) {
    const int w = scale(input.clientWidthPixels, 96, input.dpi);
    const int h = scale(input.clientHeightPixels, 96, input.dpi);
    Places places = everywhere(w, h);
    switch (input.panel) {
        case Panel::kCamera: places.merge(onCamera(w, h, input.episodeActive)); break;
        case Panel::kSettings:
            places.merge(onSettings(w, h, input.selectedSource, input.advancedShown));
            break;
        case Panel::kDiagnostics: places.merge(onDiagnostics(w, h)); break;
    }
    std::map<int, PixelRect> pixels;
    for (const auto& [id, place] : places) {
        pixels[id] = {scale(place.x, input.dpi, 96), scale(place.y, input.dpi, 96),
                      std::max(0, scale(place.width, input.dpi, 96)),
                      std::max(0, scale(place.height, input.dpi, 96))};
    }
    return pixels;
}

std::map<int, PixelRect> placedOf(const LayoutInput& input) {
    std::map<int, PixelRect> places;
    for (const PlacedControl& control : placeControls(input))
        EXPECT_TRUE(places.emplace(control.id, control.place).second) << "twice: " << control.id;
    return places;
}

std::string sentence(const LayoutInput& input) {
    return "panel " + std::to_string(static_cast<int>(input.panel)) + ", source " +
           std::to_string(static_cast<int>(input.selectedSource)) + (input.episodeActive ? ", active" : "") +
           (input.advancedShown ? ", advanced" : "") + ", " + std::to_string(input.clientWidthPixels) +
           " x " + std::to_string(input.clientHeightPixels) + " at " + std::to_string(input.dpi);
}

std::string printed(const PixelRect& place) {
    return std::to_string(place.left) + "," + std::to_string(place.top) + " " + std::to_string(place.width) +
           " x " + std::to_string(place.height);
}

void expectPlaces(const LayoutInput& input) {
    SCOPED_TRACE(sentence(input));
    const std::map<int, PixelRect> expected = expectedPlaces(input);
    const std::map<int, PixelRect> placed = placedOf(input);
    for (const auto& [id, place] : expected) {
        const auto at = placed.find(id);
        ASSERT_NE(at, placed.end()) << id << " is missing";
        EXPECT_EQ(printed(at->second), printed(place)) << id;
    }
    for (const auto& [id, place] : placed)
        EXPECT_TRUE(expected.contains(id)) << id << " does not belong here";
}

// Every panel with everything that its layout depends on.
template <typename Check>
void forEveryState(LayoutInput input, const Check& check) {
    for (const Panel panel : {Panel::kCamera, Panel::kSettings, Panel::kDiagnostics}) {
        for (const auto& source : kSourceKinds) {
            for (int flags = 0; flags < 4; ++flags) {
                input.panel = panel;
                input.selectedSource = source.value;
                input.episodeActive = (flags & 1) != 0;
                input.advancedShown = (flags & 2) != 0;
                check(input);
            }
        }
    }
}

struct Client {
    int width, height;
};
constexpr Client kStart{980, 720};
constexpr Client kLeast{864, 706};  // what a frame leaves of the smallest window

class LayoutAt : public testing::TestWithParam<int> {
protected:
    // The client area in design units at the scale of the test.
    void expectLayout(Client client) const {
        LayoutInput input;
        input.dpi = GetParam();
        input.clientWidthPixels = scale(client.width, GetParam(), 96);
        input.clientHeightPixels = scale(client.height, GetParam(), 96);
        forEveryState(input, expectPlaces);
    }
};

TEST_P(LayoutAt, StartPutsEveryControlWhereItBelongs) {
    expectLayout(kStart);
}

TEST_P(LayoutAt, TheLeastSizePutsEveryControlWhereItBelongs) {
    expectLayout(kLeast);
}

TEST_P(LayoutAt, TheSizeOfAScreenPutsEveryControlWhereItBelongs) {
    expectLayout({1920, 1080});
}

TEST_P(LayoutAt, AWidthThatIsNoMultipleOfThreeRoundsTheFieldsDown) {
    expectLayout({901, 720});
    expectLayout({902, 720});
}

TEST_P(LayoutAt, LessHeightThanThePreviewNeedsPutsEveryControlWhereItBelongs) {
    expectLayout({980, 457});
    expectLayout({980, 100});
}

TEST_P(LayoutAt, AnySizeInPixelsPutsEveryControlWhereItBelongs) {
    for (const Client& pixels :
         {Client{1001, 733}, Client{1279, 767}, Client{1919, 1079}, Client{2561, 1437}})
        forEveryState({pixels.width, pixels.height, GetParam()}, expectPlaces);
}

TEST_P(LayoutAt, AWindowTooSmallForItsControlsHasNoNegativeSide) {
    for (const Client& pixels : {Client{0, 0}, Client{1, 1}, Client{160, 28}, Client{400, 300}}) {
        forEveryState({pixels.width, pixels.height, GetParam()}, [](const LayoutInput& input) {
            for (const auto& [id, place] : placedOf(input)) {
                EXPECT_GE(place.width, 0) << id << " with " << sentence(input);
                EXPECT_GE(place.height, 0) << id << " with " << sentence(input);
            }
        });
    }
}

INSTANTIATE_TEST_SUITE_P(Dpi, LayoutAt, testing::Values(96, 120, 144, 192));

// --- What is there at all, said once more in words ---

std::set<int> shown(Panel panel, SourceKind source, bool episodeActive, bool advanced) {
    std::set<int> ids;
    for (const PlacedControl& control :
         placeControls({kStart.width, kStart.height, 96, panel, source, episodeActive, advanced}))
        ids.insert(control.id);
    return ids;
}

TEST(CameraPanel, OffersThePauseOnlyWhileSomebodyWatches) {
    EXPECT_EQ(shown(Panel::kCamera, SourceKind::kDirectCamera, false, true),
              (std::set{100, 105, 300, 301, 302, 340}));
    EXPECT_EQ(shown(Panel::kCamera, SourceKind::kCustomUrl, true, true),
              (std::set{100, 101, 105, 300, 301, 302, 340}));
}

TEST(SettingsPanel, ShowsTheFieldsOfTheSelectedSourceOnly) {
    const std::set<int> always{104, 300, 301, 302, 315, 316, 319, 320, 322, 323, 325, 340};
    const auto fieldsOf = [&](SourceKind source) {
        std::set<int> ids = shown(Panel::kSettings, source, true, false);
        for (const int id : always)
            EXPECT_EQ(ids.erase(id), 1u) << id;
        return ids;
    };
    EXPECT_EQ(fieldsOf(SourceKind::kInternalProfile), std::set<int>{});
    EXPECT_EQ(fieldsOf(SourceKind::kDirectCamera), (std::set{310, 311, 313, 314}));
    EXPECT_EQ(fieldsOf(SourceKind::kCustomUrl), (std::set{312, 321}));
    EXPECT_EQ(fieldsOf(SourceKind::kSyntheticTest), std::set<int>{});
}

TEST(SettingsPanel, HidesLatencyAndDeadlineUntilAskedFor) {
    const std::set<int> plain = shown(Panel::kSettings, SourceKind::kSyntheticTest, false, false);
    std::set<int> advanced = shown(Panel::kSettings, SourceKind::kSyntheticTest, false, true);
    EXPECT_FALSE(plain.contains(317) || plain.contains(318));
    EXPECT_EQ(advanced.erase(317) + advanced.erase(318), 2u);
    EXPECT_EQ(plain, advanced);
}

TEST(DiagnosticsPanel, IsTheSameWhateverTheSource) {
    const std::set<int> expected{300, 301, 302, 330, 331, 332, 333, 334, 335, 340, 341};
    for (const auto& source : kSourceKinds)
        EXPECT_EQ(shown(Panel::kDiagnostics, source.value, true, true), expected);
}

TEST(DirectCameraFields, AreAThirdOfTheCardWide) {
    EXPECT_EQ(directFieldWidth(900), 260);
    const LayoutInput input{900, 720, 96, Panel::kSettings, SourceKind::kDirectCamera, false, false};
    const std::map<int, PixelRect> places = placedOf(input);
    EXPECT_EQ(places.at(310).width, 260);
    EXPECT_EQ(places.at(311).left, 320);
    EXPECT_EQ(places.at(314).width, 528);
}

// --- The preview ---

void expectPreview(Client client, int x, int width, int height) {
    const PreviewPlace place = placePreview(client.width, client.height);
    EXPECT_EQ(place.x, x) << client.width << " x " << client.height;
    EXPECT_EQ(place.width, width) << client.width << " x " << client.height;
    EXPECT_EQ(place.height, height) << client.width << " x " << client.height;
}

TEST(Preview, TakesTheHeightThatIsLeft) {
    expectPreview({980, 720}, 204, 572, 321);
    expectPreview({1920, 1080}, 354, 1212, 681);
    expectPreview({864, 706}, 158, 547, 307);
}

TEST(Preview, KeepsALeastSizeInAVeryShortWindow) {
    expectPreview({980, 459}, 436, 108, 60);
    for (const int height : {458, 457, 398, 100, 1, 0})
        expectPreview({980, height}, 437, 106, 59);
}

TEST(Preview, LeavesAMarginInAVeryNarrowWindow) {
    expectPreview({500, 720}, 40, 420, 236);
    expectPreview({652, 720}, 40, 572, 321);
    expectPreview({651, 720}, 40, 571, 321);
    expectPreview({96, 720}, 40, 16, 9);
}

TEST(Preview, StartsBelowTheStatus) {
    EXPECT_EQ(kPreviewTop, 266);
}

TEST(Window, StartsAndShrinksToThePublishedSizes) {
    EXPECT_EQ(kWindowWidth, 980);
    EXPECT_EQ(kWindowHeight, 720);
    EXPECT_EQ(kWindowMinWidth, 880);
    EXPECT_EQ(kWindowMinHeight, 745);
}

}  // namespace
}  // namespace vextra
