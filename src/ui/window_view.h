// All that the main window paints itself, as a value: cards, labels and the preview. Lengths are design
// units. Pure.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/system_types.h"
#include "ui/labels.h"
#include "ui/window_layout.h"

namespace vextra {

struct Colour {
    std::uint8_t red = 0;
    std::uint8_t green = 0;
    std::uint8_t blue = 0;

    bool operator==(const Colour&) const = default;
};

namespace colours {
inline constexpr Colour kWindow{247, 248, 250};
inline constexpr Colour kWhite{255, 255, 255};  // header band, cards, control background
inline constexpr Colour kCardBorder{226, 229, 235};
inline constexpr Colour kControlText{39, 36, 46};
inline constexpr Colour kFieldBorder{139, 135, 150};  // with the focus: kSelectedTab
inline constexpr Colour kSelectedTab{65, 41, 78};
inline constexpr Colour kTab{245, 246, 249};
inline constexpr Colour kTabText{69, 65, 77};
inline constexpr Colour kTitle{54, 39, 63};
inline constexpr Colour kVersion{96, 98, 110};
inline constexpr Colour kHeading{51, 34, 62};
inline constexpr Colour kStatusLive{25, 110, 77};
inline constexpr Colour kStatus{92, 87, 105};
inline constexpr Colour kOverPreview{250, 238, 214};
inline constexpr Colour kSourceLine{57, 49, 68};
inline constexpr Colour kBackendLine{97, 97, 109};
inline constexpr Colour kFooter{93, 94, 105};
inline constexpr Colour kFieldLabel{70, 65, 79};
inline constexpr Colour kHint{100, 98, 109};
inline constexpr Colour kDiagnosticsStatus{66, 62, 77};
inline constexpr Colour kFigures{86, 86, 101};
inline constexpr Colour kNote{105, 103, 115};
}  // namespace colours

constexpr int kHeaderHeight = 86;
constexpr int kBannerX = 28, kBannerY = 18, kBannerWidth = 250, kBannerHeight = 52;

struct Card {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
};

enum class Weight { kNormal = 400, kBold = 600 };

struct Label {  // one line, cut with an ellipsis where it does not fit
    int x = 0;
    int y = 0;
    int width = 0;
    int size = 0;  // height of a character; the line is 12 higher
    Weight weight = Weight::kNormal;
    Colour colour;
    std::wstring text;
};

struct PreviewView {
    PreviewPlace place;
    bool live = false;  // otherwise the placeholder stands in for the frame
};

// Painted in this order: cards, preview, labels.
struct WindowView {
    std::vector<Card> cards;
    std::optional<PreviewView> preview;
    std::vector<Label> labels;
};

// What the picture depends on, read once per paint.
struct WindowState : StatusView {
    int clientWidth = 0;
    int clientHeight = 0;
    Panel panel = Panel::kCamera;

    // As in SharedStatus
    bool active = false;
    bool paused = false;
    std::uint64_t frameCounter = 0;
    std::uint32_t reconnects = 0;
    EffectiveBackend effectiveBackend = EffectiveBackend::kNone;

    double observedFps = 0;
    SourceKind configuredSource = SourceKind::kInternalProfile;
    SourceKind selectedSource = SourceKind::kInternalProfile;  // of the source list
    bool advancedShown = false;
    std::wstring_view defaultManifestUrl = {};  // of the update channel that this build trusts
};

WindowView composeView(const WindowState& state);

// The same for the ear: what is painted of the camera and of its figures, in whole sentences. The views are
// of literals, so that a state costs nothing to keep and to compare.
struct SpokenCamera {
    std::wstring_view status;
    std::wstring_view source;
    std::wstring_view backend;

    bool operator==(const SpokenCamera&) const = default;
};
SpokenCamera spokenCamera(const WindowState& state);
std::wstring textOf(const SpokenCamera& camera);

struct SpokenFigures {
    std::wstring_view status;
    std::wstring_view backend;
    double fps = 0;
    std::uint64_t frames = 0;
    std::uint32_t reconnects = 0;
    std::int32_t leases = 0;

    bool operator==(const SpokenFigures&) const = default;
};
SpokenFigures spokenFigures(const WindowState& state);
std::wstring textOf(const SpokenFigures& figures);

// What the settings panel says of the selected source, below the list or the one field; empty: nothing.
std::wstring_view sourceHint(SourceKind selected);
// What leaving the manifest's field empty means.
std::wstring emptyManifestHint(std::wstring_view defaultUrl);

}  // namespace vextra
