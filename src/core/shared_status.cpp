#include "core/shared_status.h"

#include "bridge/bridge_layout.h"

namespace vextra {
namespace {

struct Bgra {
    unsigned char b, g, r, a;
};
constexpr Bgra kField{36, 25, 18, 255};
constexpr Bgra kBar{62, 165, 236, 255};
constexpr std::uint32_t kBarLeft = 214, kBarRight = 1065;  // columns, inclusive
constexpr std::uint32_t kBarTop = 345, kBarBottom = 375;   // rows, inclusive

}  // namespace

void fillPlaceholderFrame(std::vector<std::byte>& frame) {
    frame.resize(kFrameBytes);
    std::size_t at = 0;
    for (std::uint32_t y = 0; y < kFrameHeightPx; ++y) {
        for (std::uint32_t x = 0; x < kFrameWidthPx; ++x) {
            const bool bar = x >= kBarLeft && x <= kBarRight && y >= kBarTop && y <= kBarBottom;
            const Bgra& pixel = bar ? kBar : kField;
            frame[at++] = std::byte{pixel.b};
            frame[at++] = std::byte{pixel.g};
            frame[at++] = std::byte{pixel.r};
            frame[at++] = std::byte{pixel.a};
        }
    }
}

void keepPreviewFrame(SharedStatus& shared, const std::byte* pixels) {
    const std::lock_guard guard(shared.statusLock);
    shared.previewFrame.assign(pixels, pixels + kFrameBytes);
}

void copyPreviewFrame(SharedStatus& shared, std::vector<std::byte>& to) {
    const std::lock_guard guard(shared.statusLock);
    to = shared.previewFrame;
}

bool replaceStatusText(SharedStatus& shared, std::wstring_view text) {
    const std::lock_guard guard(shared.statusLock);
    if (shared.statusText == text)
        return false;
    shared.statusText = text;
    return true;
}

std::wstring statusTextNow(SharedStatus& shared) {
    const std::lock_guard guard(shared.statusLock);
    return shared.statusText;
}

void replaceFailureReason(SharedStatus& shared, std::wstring_view reason) {
    const std::lock_guard guard(shared.statusLock);
    shared.failureReason = reason;
}

std::wstring failureReasonNow(SharedStatus& shared) {
    const std::lock_guard guard(shared.statusLock);
    return shared.failureReason;
}

bool renewFailureReason(SharedStatus& shared, std::wstring& known) {
    const std::lock_guard guard(shared.statusLock);
    if (shared.failureReason == known)
        return false;
    known = shared.failureReason;
    return true;
}

BrokerSettings settingsNow(SharedStatus& shared) {
    const std::lock_guard guard(shared.settingsLock);
    return shared.settings;
}

void replaceSettings(SharedStatus& shared, const BrokerSettings& settings) {
    const std::lock_guard guard(shared.settingsLock);
    shared.settings = settings;
}

bool frameIsRecent(Tick lastFrameTick, Tick now) {
    // The Supervisor's clock may be a step ahead of the one that `now` was read from.
    return lastFrameTick != 0 && (now <= lastFrameTick || now - lastFrameTick <= kLiveFreshMs);
}

std::wstring_view statusLabel(const StatusView& view) {
    switch (view.status) {
        case BrokerStatus::kIdle:
            return view.leaseCount < 0 ? L"Indisponível • broker sem canal de demanda"
                                       : L"Automático • aguardando aplicativo";
        case BrokerStatus::kConnecting: return L"Conectando / aguardando imagem";
        case BrokerStatus::kLive:
            return frameIsRecent(view.lastFrameTick, view.now) ? L"Ao vivo • imagem recente"
                                                               : L"Imagem desatualizada • fallback";
        case BrokerStatus::kPaused: return L"Pausada • fallback local";
        case BrokerStatus::kUnavailable: return L"Indisponível • recuperação limitada";
        case BrokerStatus::kSuspended: return L"Suspensa • fallback local";
    }
    return {};
}

std::wstring_view backendLabel(std::uint32_t effectiveBackend) {
    switch (static_cast<EffectiveBackend>(effectiveBackend)) {
        case EffectiveBackend::kGstreamer: return L"GStreamer";
        case EffectiveBackend::kFfmpeg: return L"FFmpeg";
        case EffectiveBackend::kNone: break;
    }
    return L"Nenhum";
}

std::wstring_view reportBackendLabel(std::uint32_t effectiveBackend) {
    const std::wstring_view label = backendLabel(effectiveBackend);
    return label == backendLabel(0) ? L"Nenhum • ocioso" : label;
}

std::wstring_view protectedSourceLabel(SourceKind source) {
    switch (source) {
        case SourceKind::kInternalProfile: return L"Perfil interno Vextra • protegido";
        case SourceKind::kDirectCamera: return L"Câmera direta • IPv4 protegido";
        case SourceKind::kCustomUrl: return L"URL personalizada • endereço protegido";
        case SourceKind::kSyntheticTest: return L"Teste sintético • sem rede";
    }
    return {};
}

}  // namespace vextra
