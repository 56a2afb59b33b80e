#include "ui/labels.h"

#include "bridge/bridge_layout.h"

namespace vextra {

StatusView statusNow(const SharedStatus& shared, Tick now) {
    return {.status = shared.status,
            .leaseCount = shared.leaseCount,
            .lastFrameTick = shared.lastFrameTick,
            .now = now};
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

std::wstring_view backendLabel(EffectiveBackend backend) {
    switch (backend) {
        case EffectiveBackend::kGstreamer: return L"GStreamer";
        case EffectiveBackend::kFfmpeg: return L"FFmpeg";
        case EffectiveBackend::kNone: break;
    }
    return L"Nenhum";
}

std::wstring_view reportBackendLabel(EffectiveBackend backend) {
    switch (backend) {
        case EffectiveBackend::kGstreamer:
        case EffectiveBackend::kFfmpeg: return backendLabel(backend);
        case EffectiveBackend::kNone: break;
    }
    return L"Nenhum • ocioso";
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
