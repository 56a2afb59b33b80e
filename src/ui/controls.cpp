#include "ui/controls.h"

namespace vextra {
namespace {

constexpr Length operator+(const Length& a, const Length& b) {
    return {a.fixed + b.fixed, a.perW + b.perW, a.perH + b.perH, a.perT + b.perT};
}
constexpr Length operator-(const Length& a, const Length& b) {
    return {a.fixed - b.fixed, a.perW - b.perW, a.perH - b.perH, a.perT - b.perT};
}
constexpr Length W{0, 1, 0, 0}, H{0, 0, 1, 0}, T{0, 0, 0, 1};

using Kind = ControlKind;

constexpr Control titled(ControlId id, Kind kind, std::wstring_view text, Shown shown, ControlPlace place) {
    return {id, kind, text, shown, place, {}};
}
constexpr Control labelled(ControlId id, Kind kind, FieldLabel label, Shown shown, ControlPlace place) {
    return {id, kind, {}, shown, place, label};
}

// Number, kind, text or label {text, size of its letters, width}, when it is shown, place {x, y, width,
// height}.
constexpr Control kRows[] = {
    titled(kIdTabCamera, Kind::kTab, L"Câmera", Shown::kOnEveryPanel, {28, 102, 150, 38}),
    titled(kIdTabSettings, Kind::kTab, L"Configurações", Shown::kOnEveryPanel, {186, 102, 190, 38}),
    titled(kIdTabDiagnostics, Kind::kTab, L"Diagnóstico", Shown::kOnEveryPanel, {384, 102, 210, 38}),

    titled(kIdAutomatic, Kind::kButton, kAutomaticOffText, Shown::kCamera, {W - 262, 164, 234, 38}),
    titled(kIdPreview, Kind::kButton, kPreviewBeginText, Shown::kCamera, {W - 262, 210, 234, 34}),
    titled(kIdPause, Kind::kButton, kPauseText, Shown::kCameraInEpisode, {28, H - 88, 170, 32}),

    labelled(kIdSource, Kind::kList, {kSourceHeading}, Shown::kSettings, {52, 211, W - 104, 180}),
    labelled(kIdDirectIp, Kind::kSecretEdit, {L"IPv4 da câmera (protegido)", 15}, Shown::kDirectCamera,
             {52, 289, T, 32}),
    labelled(kIdStream, Kind::kList, {L"Stream", 15}, Shown::kDirectCamera, {T + 60, 289, T, 160}),
    labelled(kIdDirectUser, Kind::kEdit, {L"Usuário RTSP próprio", 15}, Shown::kDirectCamera,
             {52, 358, T, 32}),
    labelled(kIdDirectPassword, Kind::kSecretEdit, {L"Senha RTSP (não usa credenciais HTTP)", 15},
             Shown::kDirectCamera, {T + 60, 358, W - T - 112, 32}),
    labelled(kIdCustomUrl, Kind::kSecretEdit, {L"URL completa • http / https / rtsp / rtsps", 15, W - 104},
             Shown::kCustomUrl, {52, 289, W - 232, 32}),
    titled(kIdRevealUrl, Kind::kButton, kRevealText, Shown::kCustomUrl, {W - 168, 289, 116, 32}),
    labelled(kIdTransport, Kind::kList, {L"Transporte (somente RTSP)", 14}, Shown::kSettings,
             {52, 427, 175, 160}),
    labelled(kIdDecoder, Kind::kList, {L"Decoder solicitado", 15}, Shown::kSettings, {247, 427, 235, 160}),
    titled(kIdAdvanced, Kind::kFoldButton, L"Avançado: latência / prazo", Shown::kSettings,
           {502, 427, W - 554, 32}),
    labelled(kIdLatency, Kind::kNumberEdit, {L"Latência GStreamer (0–5000ms)", 13}, Shown::kAdvanced,
             {52, 496, 175, 30}),
    labelled(kIdDeadline, Kind::kNumberEdit, {L"Prazo 1º frame (1000–30000ms)", 13}, Shown::kAdvanced,
             {247, 496, 235, 30}),
    labelled(kIdManifestUrl, Kind::kSecretEdit, {L"Manifesto de atualização MF", 15, W - 104},
             Shown::kSettings, {52, 565, W - 290, 30}),
    titled(kIdUpdateDisabled, Kind::kCheckBox, L"Desativar update", Shown::kSettings,
           {W - 218, 565, 166, 30}),
    titled(kIdReload, Kind::kButton, L"Recarregar salvo", Shown::kSettings, {52, H - 96, 190, 38}),
    titled(kIdApply, Kind::kDefaultButton, L"Salvar / aplicar", Shown::kSettings, {W - 248, H - 96, 196, 38}),

    titled(kIdUpdateNote, Kind::kStatic, L"Verificação automática ao iniciar • canal MF beta",
           Shown::kDiagnostics, {52, 305, W - 104, 42}),
    titled(kIdDownloadUpdate, Kind::kButton, L"Baixar atualização", Shown::kDiagnostics, {52, 355, 300, 34}),
    labelled(kIdLogs, Kind::kLogView, {L"Diagnóstico e eventos sanitizados"}, Shown::kDiagnostics,
             {52, 401, W - 104, H - 511}),
    titled(kIdRefreshLogs, Kind::kButton, L"Atualizar logs", Shown::kDiagnostics, {52, H - 88, 158, 32}),
    titled(kIdCopyReport, Kind::kButton, L"Copiar diagnóstico", Shown::kDiagnostics, {222, H - 88, 184, 32}),
    titled(kIdCheckUpdate, Kind::kButton, L"Verificar atualização", Shown::kDiagnostics,
           {418, H - 88, 190, 32}),
    titled(kIdRepair, Kind::kButton, L"Reparar instalação MF", Shown::kDiagnostics,
           {W - 252, H - 88, 200, 32}),

    titled(kIdStatusLine, Kind::kStatusLine, L"Conexão sob demanda. Nenhuma reunião será interrompida.",
           Shown::kOnEveryPanel, {28, H - 28, W - 56, 26}),
};

}  // namespace

constinit const std::span<const Control> kControls{kRows};

}  // namespace vextra
