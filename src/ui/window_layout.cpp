#include "ui/window_layout.h"

#include <algorithm>

namespace vextra {
namespace {

constexpr int kLabelAbove = 26;

// What the lengths of the table come to, in a client area of this size.
class Measure {
public:
    explicit Measure(const LayoutInput& input)
        : w_(designFromPixels(input.clientWidthPixels, input.dpi)),
          h_(designFromPixels(input.clientHeightPixels, input.dpi)) {}

    int operator()(const Length& length) const {
        return length.fixed + length.perW * w_ + length.perH * h_ + length.perT * directFieldWidth(w_);
    }

private:
    const int w_;
    const int h_;
};

bool isShown(Shown shown, const LayoutInput& input) {
    const bool camera = input.panel == Panel::kCamera;
    const bool settings = input.panel == Panel::kSettings;
    switch (shown) {
        case Shown::kOnEveryPanel: return true;
        case Shown::kCamera: return camera;
        case Shown::kCameraInEpisode: return camera && input.episodeActive;
        case Shown::kSettings: return settings;
        case Shown::kDirectCamera: return settings && input.selectedSource == SourceKind::kDirectCamera;
        case Shown::kCustomUrl: return settings && input.selectedSource == SourceKind::kCustomUrl;
        case Shown::kAdvanced: return settings && input.advancedShown;
        case Shown::kDiagnostics: return input.panel == Panel::kDiagnostics;
    }
    return false;
}

}  // namespace

std::vector<PlacedControl> placeControls(const LayoutInput& input) {
    const Measure measure(input);
    const auto pixels = [&](const Length& length) { return pixelsFromDesign(measure(length), input.dpi); };

    std::vector<PlacedControl> placed;
    placed.reserve(kControls.size());
    for (const Control& control : kControls) {
        const ControlPlace& place = control.place;
        if (isShown(control.shown, input))
            placed.push_back({control.id,
                              {pixels(place.x), pixels(place.y), std::max(pixels(place.width), 0),
                               std::max(pixels(place.height), 0)}});
    }
    return placed;
}

std::vector<PlacedLabel> placeLabels(const LayoutInput& input) {
    const Measure measure(input);
    std::vector<PlacedLabel> placed;
    for (const Control& control : kControls) {
        const FieldLabel& label = control.label;
        if (label.size == 0 || !isShown(control.shown, input))
            continue;
        const int ownWidth = measure(label.width);
        placed.push_back({control.id, label.text, label.size, measure(control.place.x),
                          measure(control.place.y) - kLabelAbove,
                          ownWidth != 0 ? ownWidth : measure(control.place.width)});
    }
    return placed;
}

PreviewPlace placePreview(int clientWidth, int clientHeight) {
    const int available = std::max(clientHeight - 398, 60);
    PreviewPlace place;
    place.width = std::min(available * 16 / 9, clientWidth - 80);
    place.height = place.width * 9 / 16;
    place.x = (clientWidth - place.width) / 2;
    return place;
}

}  // namespace vextra
