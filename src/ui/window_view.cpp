#include "ui/window_view.h"

#include <cwchar>
#include <utility>

#include "base/product.h"

namespace vextra {
namespace {

constexpr std::wstring_view kBackendKey = L"Prévia do produtor • backend: ";
constexpr std::wstring_view kEffectiveBackendKey = L"Backend efetivo: ";
constexpr std::wstring_view kLeaseNote =
    L"Leases não são contagem de aplicativos. Latência ponta a ponta não medida.";

std::wstring figuresLine(const SpokenFigures& figures, std::wstring_view separator) {
    wchar_t fps[160];
    std::swprintf(fps, std::size(fps), L"%.1f", figures.fps);
    std::wstring line = std::wstring(fps) + L" fps observados";
    line.append(separator) += std::to_wstring(figures.frames) + L" frames";
    line.append(separator) += std::to_wstring(figures.reconnects) + L" reconexões";
    line.append(separator) += std::to_wstring(figures.leases) + L" leases MF";
    return line;
}

class Composer {
public:
    explicit Composer(const WindowState& state)
        : state_(state), w_(state.clientWidth), h_(state.clientHeight) {}

    WindowView compose() {
        label(w_ - 274, 24, 246, 18, Weight::kBold, colours::kTitle, L"Câmera Virtual • MF");
        label(w_ - 274, 50, 246, 14, Weight::kNormal, colours::kVersion, VEXTRA_VERSION_W L"  /  Windows 11");
        switch (state_.panel) {
            case Panel::kCamera: camera(); break;
            case Panel::kSettings: settings(); break;
            case Panel::kDiagnostics: diagnostics(); break;
        }
        return std::move(view_);
    }

private:
    void label(int x, int y, int width, int size, Weight weight, Colour colour, std::wstring_view text) {
        view_.labels.push_back({x, y, width, size, weight, colour, std::wstring(text)});
    }
    void hint(int x, int y, int width, int size, std::wstring_view text) {
        label(x, y, width, size, Weight::kNormal, colours::kHint, text);
    }
    void bodyCard() { view_.cards.push_back({28, 158, w_ - 56, h_ - 202}); }

    bool previewIsLive() const {
        return state_.active && !state_.paused && frameIsRecent(state_.lastFrameTick, state_.now);
    }

    void camera() {
        label(28, 166, w_ - 318, 27, Weight::kBold, colours::kHeading, L"Pronta para suas reuniões");
        label(28, 207, w_ - 318, 17, Weight::kBold,
              state_.status == BrokerStatus::kLive ? colours::kStatusLive : colours::kStatus,
              statusLabel(state_));
        const PreviewPlace place = placePreview(w_, h_);
        const bool live = previewIsLive();
        view_.cards.push_back({28, 252, w_ - 56, place.height + 28});
        view_.preview = {place, live};
        if (!live) {
            label(place.x + 20, place.height / 2 + 243, place.width - 40, 19, Weight::kBold,
                  colours::kOverPreview, L"AGUARDANDO IMAGEM • FALLBACK LOCAL");
        }
        label(28, h_ - 110, w_ - 56, 17, Weight::kBold, colours::kSourceLine,
              protectedSourceLabel(state_.configuredSource));
        label(state_.active ? 214 : 28, h_ - 84, w_ - 242, 15, Weight::kNormal, colours::kBackendLine,
              std::wstring(kBackendKey) + std::wstring(backendLabel(state_.effectiveBackend)));
        label(28, h_ - 48, w_ - 56, 14, Weight::kNormal, colours::kFooter,
              L"Câmera persistente • conexão só por demanda • alvo 1280 × 720 / 16 fps");
    }

    void settings() {
        bodyCard();
        label(52, 171, w_ - 104, 21, Weight::kBold, colours::kHeading, kSourceHeading);
        fieldLabels();
        const std::wstring_view source = sourceHint(state_.selectedSource);
        if (state_.selectedSource == SourceKind::kCustomUrl)
            hint(52, 339, w_ - 104, 15, source);
        else if (!source.empty())
            hint(52, 269, w_ - 104, 16, source);
        hint(260, h_ - 93, w_ - 532, 14, L"DPAPI por usuário • backup protegido");
    }

    void fieldLabels() {
        const LayoutInput input{.clientWidthPixels = w_,  // at this DPI a pixel is a design unit
                                .clientHeightPixels = h_,
                                .dpi = kDesignDpi,
                                .panel = state_.panel,
                                .selectedSource = state_.selectedSource,
                                .episodeActive = state_.active,
                                .advancedShown = state_.advancedShown};
        for (const PlacedLabel& field : placeLabels(input)) {
            if (field.id == kIdManifestUrl)
                hint(field.x, field.y, field.width, field.size,
                     std::wstring(field.text) + L" • " + emptyManifestHint(state_.defaultManifestUrl));
            else
                label(field.x, field.y, field.width, field.size, Weight::kNormal, colours::kFieldLabel,
                      field.text);
        }
    }

    void diagnostics() {
        bodyCard();
        label(52, 176, w_ - 104, 23, Weight::kBold, colours::kHeading, L"Diagnóstico / manutenção");
        const SpokenFigures figures = spokenFigures(state_);
        std::wstring line(figures.status);
        line += L"  •  ";
        line += kEffectiveBackendKey;
        line += figures.backend;
        label(52, 218, w_ - 104, 17, Weight::kBold, colours::kDiagnosticsStatus, line);
        label(52, 255, w_ - 104, 16, Weight::kNormal, colours::kFigures, figuresLine(figures, L"   |   "));
        label(52, 282, w_ - 104, 14, Weight::kNormal, colours::kNote, kLeaseNote);
    }

    const WindowState& state_;
    const int w_;
    const int h_;
    WindowView view_;
};

}  // namespace

WindowView composeView(const WindowState& state) {
    return Composer(state).compose();
}

SpokenCamera spokenCamera(const WindowState& state) {
    return {statusLabel(state), protectedSourceLabel(state.configuredSource),
            backendLabel(state.effectiveBackend)};
}

std::wstring textOf(const SpokenCamera& camera) {
    std::wstring text(camera.status);
    for (const std::wstring_view part :
         {std::wstring_view(L". "), camera.source, std::wstring_view(L". "), kBackendKey, camera.backend})
        text += part;
    return text;
}

SpokenFigures spokenFigures(const WindowState& state) {
    return {statusLabel(state), backendLabel(state.effectiveBackend),
            state.observedFps,  state.frameCounter,
            state.reconnects,   state.leaseCount};
}

std::wstring textOf(const SpokenFigures& figures) {
    std::wstring text(figures.status);
    text += L". ";
    text += kEffectiveBackendKey;
    text += figures.backend;
    text += L". ";
    text += figuresLine(figures, L", ");
    text += L". ";
    text += kLeaseNote;
    return text;
}

std::wstring_view sourceHint(SourceKind selected) {
    switch (selected) {
        case SourceKind::kInternalProfile:
            return L"Perfil interno migrado sem alterar a alpha. Endereço e credenciais protegidos.";
        case SourceKind::kDirectCamera: break;  // every field has its label
        case SourceKind::kCustomUrl:
            return L"Mascarada por padrão. O endereço não aparece em logs ou diagnósticos.";
        case SourceKind::kSyntheticTest: return L"Padrão sintético local: diagnóstico sem conexão de rede.";
    }
    return {};
}

std::wstring emptyManifestHint(std::wstring_view defaultUrl) {
    return L"vazio usa " + std::wstring(defaultUrl);
}

}  // namespace vextra
