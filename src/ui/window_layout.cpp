#include "ui/window_layout.h"

#include <algorithm>

namespace vextra {
namespace {

// A length that depends on the client width W, its height H and the field width T.
struct Length {
    int fixed = 0;
    int perW = 0;
    int perH = 0;
    int perT = 0;
};
struct Basis {
    int w = 0;
    int h = 0;
    int t = 0;

    int operator()(const Length& length) const {
        return length.fixed + length.perW * w + length.perH * h + length.perT * t;
    }
};
constexpr Length fixed(int units) {
    return {units, 0, 0, 0};
}
constexpr Length W(int plus) {
    return {plus, 1, 0, 0};
}
constexpr Length H(int plus) {
    return {plus, 0, 1, 0};
}
constexpr Length T(int plus) {
    return {plus, 0, 0, 1};
}
constexpr Length kRestBesideT{-112, 1, 0, -1};

enum class Shown {
    kOnEveryPanel = 1,
    kCamera,
    kEpisode,
    kSettings,
    kDirect,
    kCustom,
    kAdvanced,
    kDiagnostics
};

struct Row {
    ControlId id{};
    Shown shown = Shown::kOnEveryPanel;
    Length x, y, width, height;
};

constexpr Row kRows[] = {
    {kIdTabCamera, Shown::kOnEveryPanel, fixed(28), fixed(102), fixed(150), fixed(38)},
    {kIdTabSettings, Shown::kOnEveryPanel, fixed(186), fixed(102), fixed(190), fixed(38)},
    {kIdTabDiagnostics, Shown::kOnEveryPanel, fixed(384), fixed(102), fixed(210), fixed(38)},
    {kIdStatusLine, Shown::kOnEveryPanel, fixed(28), H(-28), W(-56), fixed(26)},

    {kIdAutomatic, Shown::kCamera, W(-262), fixed(164), fixed(234), fixed(38)},
    {kIdPreview, Shown::kCamera, W(-262), fixed(210), fixed(234), fixed(34)},
    {kIdPause, Shown::kEpisode, fixed(28), H(-88), fixed(170), fixed(32)},

    {kIdSource, Shown::kSettings, fixed(52), fixed(211), W(-104), fixed(180)},
    {kIdDirectIp, Shown::kDirect, fixed(52), fixed(289), T(0), fixed(32)},
    {kIdStream, Shown::kDirect, T(60), fixed(289), T(0), fixed(160)},
    {kIdDirectUser, Shown::kDirect, fixed(52), fixed(358), T(0), fixed(32)},
    {kIdDirectPassword, Shown::kDirect, T(60), fixed(358), kRestBesideT, fixed(32)},
    {kIdCustomUrl, Shown::kCustom, fixed(52), fixed(289), W(-232), fixed(32)},
    {kIdRevealUrl, Shown::kCustom, W(-168), fixed(289), fixed(116), fixed(32)},
    {kIdTransport, Shown::kSettings, fixed(52), fixed(427), fixed(175), fixed(160)},
    {kIdDecoder, Shown::kSettings, fixed(247), fixed(427), fixed(235), fixed(160)},
    {kIdAdvanced, Shown::kSettings, fixed(502), fixed(427), W(-554), fixed(32)},
    {kIdLatency, Shown::kAdvanced, fixed(52), fixed(496), fixed(175), fixed(30)},
    {kIdDeadline, Shown::kAdvanced, fixed(247), fixed(496), fixed(235), fixed(30)},
    {kIdManifestUrl, Shown::kSettings, fixed(52), fixed(565), W(-290), fixed(30)},
    {kIdUpdateDisabled, Shown::kSettings, W(-218), fixed(565), fixed(166), fixed(30)},
    {kIdApply, Shown::kSettings, W(-248), H(-96), fixed(196), fixed(38)},
    {kIdReload, Shown::kSettings, fixed(52), H(-96), fixed(190), fixed(38)},

    {kIdUpdateNote, Shown::kDiagnostics, fixed(52), fixed(305), W(-104), fixed(42)},
    {kIdDownloadUpdate, Shown::kDiagnostics, fixed(52), fixed(355), fixed(300), fixed(34)},
    {kIdLogs, Shown::kDiagnostics, fixed(52), fixed(401), W(-104), H(-511)},
    {kIdRefreshLogs, Shown::kDiagnostics, fixed(52), H(-88), fixed(158), fixed(32)},
    {kIdCopyReport, Shown::kDiagnostics, fixed(222), H(-88), fixed(184), fixed(32)},
    {kIdCheckUpdate, Shown::kDiagnostics, fixed(418), H(-88), fixed(190), fixed(32)},
    {kIdRepair, Shown::kDiagnostics, W(-252), H(-88), fixed(200), fixed(32)},
};

bool isShown(Shown shown, const LayoutInput& input) {
    const bool settings = input.panel == Panel::kSettings;
    switch (shown) {
        case Shown::kOnEveryPanel: return true;
        case Shown::kCamera: return input.panel == Panel::kCamera;
        case Shown::kEpisode: return input.panel == Panel::kCamera && input.episodeActive;
        case Shown::kSettings: return settings;
        case Shown::kDirect: return settings && input.selectedSource == SourceKind::kDirectCamera;
        case Shown::kCustom: return settings && input.selectedSource == SourceKind::kCustomUrl;
        case Shown::kAdvanced: return settings && input.advancedShown;
        case Shown::kDiagnostics: return input.panel == Panel::kDiagnostics;
    }
    return false;
}

}  // namespace

std::vector<PlacedControl> placeControls(const LayoutInput& input) {
    Basis basis;
    basis.w = designFromPixels(input.clientWidthPixels, input.dpi);
    basis.h = designFromPixels(input.clientHeightPixels, input.dpi);
    basis.t = directFieldWidth(basis.w);
    const auto pixels = [&](const Length& length) { return pixelsFromDesign(basis(length), input.dpi); };

    std::vector<PlacedControl> placed;
    placed.reserve(std::size(kRows));
    for (const Row& row : kRows) {
        if (isShown(row.shown, input))
            placed.push_back({row.id,
                              {pixels(row.x), pixels(row.y), std::max(pixels(row.width), 0),
                               std::max(pixels(row.height), 0)}});
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
