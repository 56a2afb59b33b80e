// Every control of the main window: its number, kind and text, in the order in which Tab visits them. Pure.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace vextra {

// The numbers are an interface: tests, scripts and assistive tools address controls by them.
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

struct Control {
    ControlId id;
    ControlKind kind;
    std::wstring_view text;
    // What a screen reader says of it; empty: its text. The labels of the fields are painted, not controls.
    std::wstring_view accessibleName;
};

inline constexpr std::wstring_view kAutomaticOffText = L"Suspender automático";
inline constexpr std::wstring_view kAutomaticOnText = L"Ativar automático";
inline constexpr std::wstring_view kPauseText = L"Pausar produtor";
inline constexpr std::wstring_view kContinueText = L"Retomar produtor";
inline constexpr std::wstring_view kPreviewBeginText = L"Testar prévia por 60s";
inline constexpr std::wstring_view kPreviewEndText = L"Encerrar prévia manual";
inline constexpr std::wstring_view kRevealText = L"Revelar URL";
inline constexpr std::wstring_view kHideText = L"Ocultar URL";

// Painted above the fields, and their accessible names.
inline constexpr std::wstring_view kSourceHeading = L"Fonte de vídeo";
inline constexpr std::wstring_view kDirectIpLabel = L"IPv4 da câmera (protegido)";
inline constexpr std::wstring_view kStreamLabel = L"Stream";
inline constexpr std::wstring_view kDirectUserLabel = L"Usuário RTSP próprio";
inline constexpr std::wstring_view kDirectPasswordLabel = L"Senha RTSP (não usa credenciais HTTP)";
inline constexpr std::wstring_view kCustomUrlLabel = L"URL completa • http / https / rtsp / rtsps";
inline constexpr std::wstring_view kTransportLabel = L"Transporte (somente RTSP)";
inline constexpr std::wstring_view kDecoderLabel = L"Decoder solicitado";
inline constexpr std::wstring_view kLatencyLabel = L"Latência GStreamer (0–5000ms)";
inline constexpr std::wstring_view kDeadlineLabel = L"Prazo 1º frame (1000–30000ms)";
inline constexpr std::wstring_view kManifestLabel = L"Manifesto de atualização MF";

inline constexpr std::array<Control, 30> kControls{{
    {kIdTabCamera, ControlKind::kTab, L"Câmera", {}},
    {kIdTabSettings, ControlKind::kTab, L"Configurações", {}},
    {kIdTabDiagnostics, ControlKind::kTab, L"Diagnóstico", {}},
    {kIdAutomatic, ControlKind::kButton, kAutomaticOffText, {}},
    {kIdPreview, ControlKind::kButton, kPreviewBeginText, {}},
    {kIdPause, ControlKind::kButton, kPauseText, {}},
    {kIdSource, ControlKind::kList, {}, kSourceHeading},
    {kIdDirectIp, ControlKind::kSecretEdit, {}, kDirectIpLabel},
    {kIdStream, ControlKind::kList, {}, kStreamLabel},
    {kIdDirectUser, ControlKind::kEdit, {}, kDirectUserLabel},
    {kIdDirectPassword, ControlKind::kSecretEdit, {}, kDirectPasswordLabel},
    {kIdCustomUrl, ControlKind::kSecretEdit, {}, kCustomUrlLabel},
    {kIdRevealUrl, ControlKind::kButton, kRevealText, {}},
    {kIdTransport, ControlKind::kList, {}, kTransportLabel},
    {kIdDecoder, ControlKind::kList, {}, kDecoderLabel},
    {kIdAdvanced, ControlKind::kFoldButton, L"Avançado: latência / prazo", {}},
    {kIdLatency, ControlKind::kNumberEdit, {}, kLatencyLabel},
    {kIdDeadline, ControlKind::kNumberEdit, {}, kDeadlineLabel},
    {kIdManifestUrl, ControlKind::kSecretEdit, {}, kManifestLabel},
    {kIdUpdateDisabled, ControlKind::kCheckBox, L"Desativar update", {}},
    {kIdReload, ControlKind::kButton, L"Recarregar salvo", {}},
    {kIdApply, ControlKind::kDefaultButton, L"Salvar / aplicar", {}},
    {kIdUpdateNote, ControlKind::kStatic, L"Verificação automática ao iniciar • canal MF beta", {}},
    {kIdDownloadUpdate, ControlKind::kButton, L"Baixar atualização", {}},
    {kIdLogs, ControlKind::kLogView, {}, L"Diagnóstico e eventos sanitizados"},
    {kIdRefreshLogs, ControlKind::kButton, L"Atualizar logs", {}},
    {kIdCopyReport, ControlKind::kButton, L"Copiar diagnóstico", {}},
    {kIdCheckUpdate, ControlKind::kButton, L"Verificar atualização", {}},
    {kIdRepair, ControlKind::kButton, L"Reparar instalação MF", {}},
    {kIdStatusLine, ControlKind::kStatusLine, L"Conexão sob demanda. Nenhuma reunião será interrompida.", {}},
}};

}  // namespace vextra
