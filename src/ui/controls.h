// Every control of the main window, one row each: its number, kind and text, when it is shown and where, and
// the label above it. In the order in which Tab visits them. Pure.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace vextra {

// The numbers are an interface: tests, scripts and assistive tools address controls by them. Each has its
// row.
enum ControlId : std::uint16_t {
    kIdAutomatic = 100,
    kIdPause = 101,
    kIdSource = 104,
    kIdPreview = 105,
    kIdTabCamera = 300,
    kIdTabSettings = 301,
    kIdTabDiagnostics = 302,
    kIdDirectIp = 310,
    kIdStream = 311,
    kIdCustomUrl = 312,
    kIdDirectUser = 313,
    kIdDirectPassword = 314,
    kIdTransport = 315,
    kIdDecoder = 316,
    kIdLatency = 317,
    kIdDeadline = 318,
    kIdManifestUrl = 319,
    kIdUpdateDisabled = 320,
    kIdRevealUrl = 321,
    kIdApply = 322,
    kIdReload = 323,
    kIdAdvanced = 325,
    kIdLogs = 330,
    kIdRefreshLogs = 331,
    kIdCopyReport = 332,
    kIdCheckUpdate = 333,
    kIdRepair = 334,
    kIdDownloadUpdate = 335,
    kIdStatusLine = 340,
    kIdUpdateNote = 341,
};

enum class ControlKind {
    kTab = 1,  // drawn by the window
    kButton,
    kFoldButton,  // opens and closes a part of its panel
    kDefaultButton,
    kCheckBox,
    kList,  // drop-down
    kEdit,
    kNumberEdit,
    kSecretEdit,  // masked
    kLogView,     // multi-line, read-only
    kStatusLine,  // with a margin and a tooltip
    kStatic,
};

// The panel that a control is on, and what else has to be so.
enum class Shown {
    kOnEveryPanel = 1,
    kCamera,
    kCameraInEpisode,  // a demand episode is under way
    kSettings,
    kDirectCamera,  // on the settings panel, as that source is selected
    kCustomUrl,
    kAdvanced,  // on the settings panel, unfolded
    kDiagnostics,
};

// Design units (ui/design_units.h): a number of them, and multiples of what a window has: the width W and the
// height H of its client area, and the width T of a field of the direct camera.
struct Length {
    constexpr Length(int fixedUnits = 0, int timesW = 0, int timesH = 0, int timesT = 0)
        : fixed(fixedUnits), perW(timesW), perH(timesH), perT(timesT) {}

    int fixed;
    int perW;
    int perH;
    int perT;
};

struct ControlPlace {
    Length x, y, width, height;  // of a list: with its open part
};

// What a control without a text of its own is called. A screen reader says it, and the window paints it above
// the control.
struct FieldLabel {
    std::wstring_view text;
    int size = 0;       // height of a character; 0: it is not painted
    Length width = {};  // 0: as wide as its control
};

struct Control {
    ControlId id{};
    ControlKind kind{};
    std::wstring_view text;
    Shown shown{};
    ControlPlace place;
    FieldLabel label;
};

extern const std::span<const Control> kControls;

inline constexpr std::wstring_view kAutomaticOffText = L"Suspender automático";
inline constexpr std::wstring_view kAutomaticOnText = L"Ativar automático";
inline constexpr std::wstring_view kPauseText = L"Pausar produtor";
inline constexpr std::wstring_view kContinueText = L"Retomar produtor";
inline constexpr std::wstring_view kPreviewBeginText = L"Testar prévia por 60s";
inline constexpr std::wstring_view kPreviewEndText = L"Encerrar prévia manual";
inline constexpr std::wstring_view kRevealText = L"Revelar URL";
inline constexpr std::wstring_view kHideText = L"Ocultar URL";
inline constexpr std::wstring_view kSourceHeading = L"Fonte de vídeo";

}  // namespace vextra
