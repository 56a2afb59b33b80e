// Where everything in the main window is, as a function of its size, its DPI and what it shows. Lengths are
// design units (ui/design_units.h) unless a name says pixels. Pure.
#pragma once

#include <string_view>
#include <vector>

#include "config/settings.h"
#include "ui/controls.h"
#include "ui/design_units.h"

namespace vextra {

enum class Panel : std::uint8_t { kCamera = 0, kSettings = 1, kDiagnostics = 2 };

constexpr ControlId tabOf(Panel panel) {
    return static_cast<ControlId>(kIdTabCamera + static_cast<int>(panel));
}

// After the last comes the first.
constexpr Panel panelAfter(Panel panel) {
    return static_cast<Panel>((static_cast<int>(panel) + 1) % 3);
}
constexpr Panel panelBefore(Panel panel) {
    return panelAfter(panelAfter(panel));
}

struct PixelRect {
    int left = 0;
    int top = 0;
    int width = 0;
    int height = 0;

    bool operator==(const PixelRect&) const = default;
};

struct LayoutInput {
    int clientWidthPixels = 0;
    int clientHeightPixels = 0;
    int dpi = kDesignDpi;
    Panel panel = Panel::kCamera;
    SourceKind selectedSource = SourceKind::kInternalProfile;  // of the source list, saved or not
    bool episodeActive = false;                                // a demand episode is under way
    bool advancedShown = false;
};

struct PlacedControl {
    ControlId id{};
    PixelRect place;  // of a drop-down list: with its open list; no side is ever negative
};

// The controls that are visible; all others are hidden.
std::vector<PlacedControl> placeControls(const LayoutInput& input);

// The label of a control that is visible, above it.
struct PlacedLabel {
    ControlId id{};
    std::wstring_view text;
    int size = 0;  // height of a character
    int x = 0;
    int y = 0;
    int width = 0;
};
std::vector<PlacedLabel> placeLabels(const LayoutInput& input);

// A third of the settings card, the width of a field of the direct camera.
constexpr int directFieldWidth(int clientWidth) {
    return (clientWidth - 120) / 3;
}

// The live picture, in the frame's own 16:9.
struct PreviewPlace {
    int x = 0;
    int width = 0;
    int height = 0;
};
constexpr int kPreviewTop = 266;
PreviewPlace placePreview(int clientWidth, int clientHeight);

constexpr int kWindowWidth = 980, kWindowHeight = 720;        // client area at the start
constexpr int kWindowMinWidth = 880, kWindowMinHeight = 745;  // of the whole window
// What that leaves to the client area within the usual frame, and what the panels need.
constexpr int kLeastClientWidth = 864, kLeastClientHeight = 706;
constexpr int kUiFontHeight = 17;
constexpr int kClosedListHeight = 32;  // as the fields next to them

}  // namespace vextra
