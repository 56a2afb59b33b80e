#include "ui/window_view.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <string>

#include "base/product.h"

namespace vextra {
namespace {

constexpr Weight kNormal = Weight::kNormal;
constexpr Weight kBold = Weight::kBold;

WindowState stateOf(Panel panel, int width = 980, int height = 720) {
    WindowState state;
    state.clientWidth = width;
    state.clientHeight = height;
    state.panel = panel;
    state.now = 100'000;
    state.defaultManifestUrl = L"https://updates.example/beta.json";
    return state;
}

// An episode is under way, and a frame has just come.
WindowState watching(int width = 980, int height = 720) {
    WindowState state = stateOf(Panel::kCamera, width, height);
    state.status = BrokerStatus::kLive;
    state.active = true;
    state.leaseCount = 1;
    state.lastFrameTick = state.now;
    return state;
}

std::string printed(const Label& label) {
    std::string text;
    for (const wchar_t unit : label.text)
        text += unit < 128 ? static_cast<char>(unit) : '?';
    return "\"" + text + "\" at " + std::to_string(label.x) + "," + std::to_string(label.y) + " w " +
           std::to_string(label.width) + " size " + std::to_string(label.size) + " weight " +
           std::to_string(static_cast<int>(label.weight)) + " colour " + std::to_string(label.colour.red) +
           "," + std::to_string(label.colour.green) + "," + std::to_string(label.colour.blue);
}

std::ptrdiff_t countOf(const std::vector<Label>& labels, const Label& wanted) {
    return std::count_if(labels.begin(), labels.end(), [&](const Label& label) {
        return label.text == wanted.text && printed(label) == printed(wanted);
    });
}

// The title and the version stand on every panel, then come `rest`, each in its own place.
void expectLabels(const WindowState& state, const std::vector<Label>& rest) {
    const int w = state.clientWidth;
    std::vector<Label> expected{
        {w - 274, 24, 246, 18, kBold, {54, 39, 63}, L"Câmera Virtual • MF"},
        {w - 274, 50, 246, 14, kNormal, {96, 98, 110}, VEXTRA_VERSION_W L"  /  Windows 11"},
    };
    expected.insert(expected.end(), rest.begin(), rest.end());
    const std::vector<Label> labels = composeView(state).labels;
    for (const Label& label : expected)
        EXPECT_EQ(countOf(labels, label), 1) << "missing: " << printed(label);
    for (const Label& label : labels)
        EXPECT_EQ(countOf(expected, label), 1) << "unexpected: " << printed(label);
}

void expectCard(const WindowState& state, int x, int y, int width, int height) {
    const std::vector<Card> cards = composeView(state).cards;
    ASSERT_EQ(cards.size(), 1u);
    EXPECT_EQ(cards[0].x, x);
    EXPECT_EQ(cards[0].y, y);
    EXPECT_EQ(cards[0].width, width);
    EXPECT_EQ(cards[0].height, height);
}

bool hasText(const WindowState& state, std::wstring_view text) {
    const std::vector<Label> labels = composeView(state).labels;
    return std::any_of(labels.begin(), labels.end(), [&](const Label& label) { return label.text == text; });
}

// The label at a place, whose text the test is about.
std::wstring textAt(const WindowState& state, int x, int y) {
    for (const Label& label : composeView(state).labels) {
        if (label.x == x && label.y == y)
            return label.text;
    }
    return L"(nothing there)";
}

constexpr std::wstring_view kWaiting = L"AGUARDANDO IMAGEM • FALLBACK LOCAL";
constexpr std::wstring_view kIdleLabel = L"Automático • aguardando aplicativo";

// --- Colours ---

TEST(Colours, AreThePublishedOnes) {
    EXPECT_EQ(colours::kWindow, (Colour{247, 248, 250}));
    EXPECT_EQ(colours::kWhite, (Colour{255, 255, 255}));
    EXPECT_EQ(colours::kCardBorder, (Colour{226, 229, 235}));
    EXPECT_EQ(colours::kControlText, (Colour{39, 36, 46}));
    EXPECT_EQ(colours::kSelectedTab, (Colour{65, 41, 78}));
    EXPECT_EQ(colours::kTab, (Colour{245, 246, 249}));
    EXPECT_EQ(colours::kTabText, (Colour{69, 65, 77}));
    EXPECT_EQ(colours::kTitle, (Colour{54, 39, 63}));
    EXPECT_EQ(colours::kVersion, (Colour{96, 98, 110}));
    EXPECT_EQ(colours::kHeading, (Colour{51, 34, 62}));
    EXPECT_EQ(colours::kStatusLive, (Colour{25, 110, 77}));
    EXPECT_EQ(colours::kStatus, (Colour{92, 87, 105}));
    EXPECT_EQ(colours::kOverPreview, (Colour{250, 238, 214}));
    EXPECT_EQ(colours::kSourceLine, (Colour{57, 49, 68}));
    EXPECT_EQ(colours::kBackendLine, (Colour{97, 97, 109}));
    EXPECT_EQ(colours::kFooter, (Colour{93, 94, 105}));
    EXPECT_EQ(colours::kFieldLabel, (Colour{70, 65, 79}));
    EXPECT_EQ(colours::kHint, (Colour{100, 98, 109}));
    EXPECT_EQ(colours::kDiagnosticsStatus, (Colour{66, 62, 77}));
    EXPECT_EQ(colours::kFigures, (Colour{86, 86, 101}));
    EXPECT_EQ(colours::kNote, (Colour{105, 103, 115}));
}

TEST(Header, HasThePublishedSize) {
    EXPECT_EQ(kHeaderHeight, 86);
    EXPECT_EQ(kBannerX, 28);
    EXPECT_EQ(kBannerY, 18);
    EXPECT_EQ(kBannerWidth, 250);
    EXPECT_EQ(kBannerHeight, 52);
}

// --- Camera panel ---

TEST(CameraView, SaysThatItWaits) {
    for (const auto& [w, h] : {std::pair{980, 720}, {1920, 1080}, {864, 706}}) {
        const WindowState state = stateOf(Panel::kCamera, w, h);
        const int pictureWidth = (h - 398) * 16 / 9;
        const int pictureHeight = pictureWidth * 9 / 16;
        expectLabels(
            state,
            {{28, 166, w - 318, 27, kBold, {51, 34, 62}, L"Pronta para suas reuniões"},
             {28, 207, w - 318, 17, kBold, {92, 87, 105}, std::wstring(kIdleLabel)},
             {(w - pictureWidth) / 2 + 20,
              pictureHeight / 2 + 243,
              pictureWidth - 40,
              19,
              kBold,
              {250, 238, 214},
              std::wstring(kWaiting)},
             {28, h - 110, w - 56, 17, kBold, {57, 49, 68}, L"Perfil interno Vextra • protegido"},
             {28, h - 84, w - 242, 15, kNormal, {97, 97, 109}, L"Prévia do produtor • backend: Nenhum"},
             {28,
              h - 48,
              w - 56,
              14,
              kNormal,
              {93, 94, 105},
              L"Câmera persistente • conexão só por demanda • alvo 1280 × 720 / 16 fps"}});
    }
}

TEST(CameraView, ShowsTheLivePictureWithNothingOverIt) {
    WindowState state = watching();
    state.configuredSource = SourceKind::kDirectCamera;
    state.effectiveBackend = EffectiveBackend::kGstreamer;
    expectLabels(state,
                 {{28, 166, 662, 27, kBold, {51, 34, 62}, L"Pronta para suas reuniões"},
                  {28, 207, 662, 17, kBold, {25, 110, 77}, L"Ao vivo • imagem recente"},
                  {28, 610, 924, 17, kBold, {57, 49, 68}, L"Câmera direta • IPv4 protegido"},
                  {214, 636, 738, 15, kNormal, {97, 97, 109}, L"Prévia do produtor • backend: GStreamer"},
                  {28,
                   672,
                   924,
                   14,
                   kNormal,
                   {93, 94, 105},
                   L"Câmera persistente • conexão só por demanda • alvo 1280 × 720 / 16 fps"}});
}

TEST(CameraView, HasACardAroundThePreview) {
    expectCard(stateOf(Panel::kCamera), 28, 252, 924, 349);
    expectCard(stateOf(Panel::kCamera, 500, 720), 28, 252, 444, 264);
    expectCard(stateOf(Panel::kCamera, 980, 300), 28, 252, 924, 87);
}

// The picture of a window that has none to show, and what is written over it.
void expectPreview(int windowWidth, int windowHeight, const PreviewPlace& place, int overlayX, int overlayY) {
    const WindowState state = stateOf(Panel::kCamera, windowWidth, windowHeight);
    const std::optional<PreviewView> preview = composeView(state).preview;
    ASSERT_TRUE(preview);
    EXPECT_EQ(preview->place.x, place.x);
    EXPECT_EQ(preview->place.width, place.width);
    EXPECT_EQ(preview->place.height, place.height);
    EXPECT_EQ(textAt(state, overlayX, overlayY), kWaiting);
}

TEST(CameraView, PutsThePreviewInTheMiddle) {
    expectPreview(980, 720, {204, 572, 321}, 224, 403);
}

TEST(CameraView, StillHasAPreviewInAVeryShortWindow) {
    expectPreview(980, 457, {437, 106, 59}, 457, 272);
}

TEST(CameraView, LimitsThePreviewInAVeryNarrowWindow) {
    expectPreview(500, 720, {40, 420, 236}, 60, 361);
}

bool isLive(const WindowState& state) {
    const std::optional<PreviewView> preview = composeView(state).preview;
    EXPECT_TRUE(preview);
    // What is written over the picture and which picture it is must not part.
    EXPECT_NE(preview->live, hasText(state, kWaiting));
    return preview->live;
}

TEST(Preview, IsLiveWhileFramesCome) {
    EXPECT_TRUE(isLive(watching()));
}

TEST(Preview, IsLiveUpTo2000MsAfterAFrame) {
    WindowState state = watching();
    state.lastFrameTick = state.now - 2000;
    EXPECT_TRUE(isLive(state));
    state.lastFrameTick = state.now - 2001;
    EXPECT_FALSE(isLive(state));
}

TEST(Preview, IsLiveForAFrameYoungerThanTheClockReading) {
    WindowState state = watching();
    state.lastFrameTick = state.now + 16;
    EXPECT_TRUE(isLive(state));
}

TEST(Preview, IsNotLiveBeforeTheFirstFrame) {
    WindowState state = watching();
    state.lastFrameTick = 0;
    EXPECT_FALSE(isLive(state));
    state.now = 100;
    EXPECT_FALSE(isLive(state));
}

TEST(Preview, IsNotLiveWhilePaused) {
    WindowState state = watching();
    state.paused = true;
    EXPECT_FALSE(isLive(state));
}

TEST(Preview, IsNotLiveWhenNobodyWatches) {
    WindowState state = watching();
    state.active = false;
    EXPECT_FALSE(isLive(state));
}

TEST(Preview, IsLiveWhateverTheStatusSays) {
    WindowState state = watching();
    state.status = BrokerStatus::kConnecting;
    EXPECT_TRUE(isLive(state));
}

TEST(CameraView, ColoursTheStatusByWhetherItIsLive) {
    const struct {
        BrokerStatus status;
        const wchar_t* label;
        Colour colour;
    } kCases[] = {
        {BrokerStatus::kIdle, L"Automático • aguardando aplicativo", {92, 87, 105}},
        {BrokerStatus::kConnecting, L"Conectando / aguardando imagem", {92, 87, 105}},
        {BrokerStatus::kLive, L"Ao vivo • imagem recente", {25, 110, 77}},
        {BrokerStatus::kPaused, L"Pausada • fallback local", {92, 87, 105}},
        {BrokerStatus::kUnavailable, L"Indisponível • recuperação limitada", {92, 87, 105}},
        {BrokerStatus::kSuspended, L"Suspensa • fallback local", {92, 87, 105}},
    };
    WindowState state = watching();
    for (const auto& [status, text, colour] : kCases) {
        state.status = status;
        const std::vector<Label> labels = composeView(state).labels;
        const Label expected{28, 207, 662, 17, kBold, colour, text};
        EXPECT_EQ(countOf(labels, expected), 1) << printed(expected);
    }
}

// The status is Live, only the picture is old.
TEST(CameraView, KeepsTheLiveColourForAnOutdatedPicture) {
    WindowState state = watching();
    state.lastFrameTick = state.now - 2001;
    const std::vector<Label> labels = composeView(state).labels;
    const Label expected{28, 207, 662, 17, kBold, {25, 110, 77}, L"Imagem desatualizada • fallback"};
    EXPECT_EQ(countOf(labels, expected), 1);
}

TEST(CameraView, SaysWhenTheDemandChannelIsMissing) {
    WindowState state = stateOf(Panel::kCamera);
    state.leaseCount = -1;
    EXPECT_EQ(textAt(state, 28, 207), L"Indisponível • broker sem canal de demanda");
}

TEST(CameraView, NamesTheConfiguredSourceNotTheSelectedOne) {
    const std::pair<SourceKind, const wchar_t*> kLines[] = {
        {SourceKind::kInternalProfile, L"Perfil interno Vextra • protegido"},
        {SourceKind::kDirectCamera, L"Câmera direta • IPv4 protegido"},
        {SourceKind::kCustomUrl, L"URL personalizada • endereço protegido"},
        {SourceKind::kSyntheticTest, L"Teste sintético • sem rede"},
    };
    WindowState state = stateOf(Panel::kCamera);
    for (const auto& [source, line] : kLines) {
        state.configuredSource = source;
        state.selectedSource =
            source == SourceKind::kCustomUrl ? SourceKind::kDirectCamera : SourceKind::kCustomUrl;
        EXPECT_EQ(textAt(state, 28, 610), line);
    }
}

TEST(CameraView, NamesTheBackendBesideThePauseButton) {
    const std::pair<EffectiveBackend, const wchar_t*> kLines[] = {
        {EffectiveBackend::kNone, L"Prévia do produtor • backend: Nenhum"},
        {EffectiveBackend::kFfmpeg, L"Prévia do produtor • backend: FFmpeg"},
        {EffectiveBackend::kGstreamer, L"Prévia do produtor • backend: GStreamer"},
        {static_cast<EffectiveBackend>(77), L"Prévia do produtor • backend: Nenhum"},
    };
    WindowState state = stateOf(Panel::kCamera);
    for (const auto& [backend, line] : kLines) {
        state.effectiveBackend = backend;
        state.active = false;
        EXPECT_EQ(textAt(state, 28, 636), line);
        state.active = true;
        EXPECT_EQ(textAt(state, 214, 636), line);
    }
}

// --- Settings panel ---

// What a card of every source has.
std::vector<Label> settingsLabels(int w, int h) {
    return {{52, 171, w - 104, 21, kBold, {51, 34, 62}, L"Fonte de vídeo"},
            {52, 401, 175, 14, kNormal, {70, 65, 79}, L"Transporte (somente RTSP)"},
            {247, 401, 235, 15, kNormal, {70, 65, 79}, L"Decoder solicitado"},
            {52,
             539,
             w - 104,
             15,
             kNormal,
             {100, 98, 109},
             L"Manifesto de atualização MF • vazio usa https://updates.example/beta.json"},
            {260, h - 93, w - 532, 14, kNormal, {100, 98, 109}, L"DPAPI por usuário • backup protegido"}};
}

void expectSettings(SourceKind source, const std::vector<Label>& own, int width = 980, int height = 720) {
    WindowState state = stateOf(Panel::kSettings, width, height);
    state.selectedSource = source;
    std::vector<Label> expected = settingsLabels(width, height);
    expected.insert(expected.end(), own.begin(), own.end());
    expectLabels(state, expected);
}

TEST(SettingsView, OfTheInternalProfileSaysThatItIsProtected) {
    expectSettings(SourceKind::kInternalProfile,
                   {{52,
                     269,
                     876,
                     16,
                     kNormal,
                     {100, 98, 109},
                     L"Perfil interno migrado sem alterar a alpha. Endereço e credenciais protegidos."}});
}

TEST(SettingsView, OfADirectCameraLabelsItsFields) {
    for (const int w : {980, 900, 1537}) {
        const int t = (w - 120) / 3;
        expectSettings(
            SourceKind::kDirectCamera,
            {{52, 263, t, 15, kNormal, {70, 65, 79}, L"IPv4 da câmera (protegido)"},
             {t + 60, 263, t, 15, kNormal, {70, 65, 79}, L"Stream"},
             {52, 332, t, 15, kNormal, {70, 65, 79}, L"Usuário RTSP próprio"},
             {t + 60, 332, w - t - 112, 15, kNormal, {70, 65, 79}, L"Senha RTSP (não usa credenciais HTTP)"}},
            w, 800);
    }
}

TEST(SettingsView, OfACustomUrlSaysThatItIsMasked) {
    expectSettings(SourceKind::kCustomUrl,
                   {{52, 263, 876, 15, kNormal, {70, 65, 79}, L"URL completa • http / https / rtsp / rtsps"},
                    {52,
                     339,
                     876,
                     15,
                     kNormal,
                     {100, 98, 109},
                     L"Mascarada por padrão. O endereço não aparece em logs ou diagnósticos."}});
}

TEST(SettingsView, OfTheSyntheticTestSaysThatItNeedsNoNetwork) {
    expectSettings(SourceKind::kSyntheticTest,
                   {{52,
                     269,
                     876,
                     16,
                     kNormal,
                     {100, 98, 109},
                     L"Padrão sintético local: diagnóstico sem conexão de rede."}});
}

TEST(SettingsView, LabelsTheAdvancedFieldsWhileTheyAreShown) {
    WindowState state = stateOf(Panel::kSettings);
    state.selectedSource = SourceKind::kSyntheticTest;
    state.advancedShown = true;
    std::vector<Label> expected = settingsLabels(980, 720);
    expected.push_back({52,
                        269,
                        876,
                        16,
                        kNormal,
                        {100, 98, 109},
                        L"Padrão sintético local: diagnóstico sem conexão de rede."});
    expected.push_back({52, 470, 175, 13, kNormal, {70, 65, 79}, L"Latência GStreamer (0–5000ms)"});
    expected.push_back({247, 470, 235, 13, kNormal, {70, 65, 79}, L"Prazo 1º frame (1000–30000ms)"});
    expectLabels(state, expected);
}

TEST(SettingsView, FollowsTheListAndNotTheRecordInEffect) {
    WindowState state = stateOf(Panel::kSettings);
    state.configuredSource = SourceKind::kDirectCamera;
    state.selectedSource = SourceKind::kSyntheticTest;
    EXPECT_TRUE(hasText(state, L"Padrão sintético local: diagnóstico sem conexão de rede."));
    EXPECT_FALSE(hasText(state, L"Stream"));
}

TEST(SettingsView, IsOneCardWithoutAPreview) {
    expectCard(stateOf(Panel::kSettings), 28, 158, 924, 518);
    EXPECT_FALSE(composeView(stateOf(Panel::kSettings)).preview);
}

// --- Diagnostics panel ---

TEST(DiagnosticsView, ShowsStateBackendAndFigures) {
    WindowState state = stateOf(Panel::kDiagnostics);
    state.status = BrokerStatus::kLive;
    state.lastFrameTick = state.now - 40;
    state.effectiveBackend = EffectiveBackend::kFfmpeg;
    state.observedFps = 15.96;
    state.frameCounter = 1234;
    state.reconnects = 5;
    state.leaseCount = 2;
    // No live colour here, and a heading of its own.
    expectLabels(
        state,
        {{52, 176, 876, 23, kBold, {51, 34, 62}, L"Diagnóstico / manutenção"},
         {52, 218, 876, 17, kBold, {66, 62, 77}, L"Ao vivo • imagem recente  •  Backend efetivo: FFmpeg"},
         {52,
          255,
          876,
          16,
          kNormal,
          {86, 86, 101},
          L"16.0 fps observados   |   1234 frames   |   5 reconexões   |   2 leases MF"},
         {52,
          282,
          876,
          14,
          kNormal,
          {105, 103, 115},
          L"Leases não são contagem de aplicativos. Latência ponta a ponta não medida."}});
}

TEST(DiagnosticsView, SaysSoWhenNothingRuns) {
    EXPECT_EQ(textAt(stateOf(Panel::kDiagnostics), 52, 218),
              L"Automático • aguardando aplicativo  •  Backend efetivo: Nenhum");
}

std::wstring figuresOf(double fps, std::uint64_t frames, std::uint32_t reconnects, std::int32_t leases) {
    WindowState state = stateOf(Panel::kDiagnostics);
    state.observedFps = fps;
    state.frameCounter = frames;
    state.reconnects = reconnects;
    state.leaseCount = leases;
    return textAt(state, 52, 255);
}

TEST(DiagnosticsView, HasOneDecimalOfTheFrameRate) {
    EXPECT_EQ(figuresOf(0, 0, 0, 0),
              L"0.0 fps observados   |   0 frames   |   0 reconexões   |   0 leases MF");
    EXPECT_EQ(figuresOf(9.94, 0, 0, 0),
              L"9.9 fps observados   |   0 frames   |   0 reconexões   |   0 leases MF");
    EXPECT_EQ(figuresOf(9.96, 0, 0, 0),
              L"10.0 fps observados   |   0 frames   |   0 reconexões   |   0 leases MF");
}

TEST(DiagnosticsView, HoldsTheLargestFigures) {
    EXPECT_EQ(
        figuresOf(1e12, std::numeric_limits<std::uint64_t>::max(), std::numeric_limits<std::uint32_t>::max(),
                  std::numeric_limits<std::int32_t>::max()),
        L"1000000000000.0 fps observados   |   18446744073709551615 frames   |   4294967295 reconexões   |   "
        L"2147483647 leases MF");
}

TEST(DiagnosticsView, ShowsAnUnknownNumberOfLeasesAsItIs) {
    EXPECT_EQ(figuresOf(0, 0, 0, -1),
              L"0.0 fps observados   |   0 frames   |   0 reconexões   |   -1 leases MF");
}

// --- For the ear ---

TEST(Spoken, SaysStateSourceAndBackend) {
    WindowState state = watching();
    state.configuredSource = SourceKind::kDirectCamera;
    state.effectiveBackend = EffectiveBackend::kFfmpeg;
    const std::wstring live = textOf(spokenCamera(state));
    EXPECT_EQ(
        live,
        L"Ao vivo • imagem recente. Câmera direta • IPv4 protegido. Prévia do produtor • backend: FFmpeg");
    state.now += 2001;
    EXPECT_EQ(textOf(spokenCamera(state)),
              L"Imagem desatualizada • fallback. Câmera direta • IPv4 protegido. Prévia do produtor • "
              L"backend: FFmpeg");
}

TEST(Spoken, SaysTheFigures) {
    WindowState state = watching();
    state.effectiveBackend = EffectiveBackend::kGstreamer;
    state.observedFps = 15.96;
    state.frameCounter = 320;
    state.reconnects = 3;
    EXPECT_EQ(textOf(spokenFigures(state)),
              L"Ao vivo • imagem recente. Backend efetivo: GStreamer. 16.0 fps observados, 320 frames, 3 "
              L"reconexões, 1 "
              L"leases MF. Leases não são contagem de aplicativos. Latência ponta a ponta não medida.");
}

TEST(Spoken, DiffersWhereverTheTextWould) {
    const WindowState state = watching();
    const auto differs = [&](auto change) {
        WindowState other = state;
        change(other);
        const bool camera = spokenCamera(other) != spokenCamera(state);
        const bool figures = spokenFigures(other) != spokenFigures(state);
        EXPECT_EQ(camera, textOf(spokenCamera(other)) != textOf(spokenCamera(state)));
        EXPECT_EQ(figures, textOf(spokenFigures(other)) != textOf(spokenFigures(state)));
        return camera || figures;
    };
    EXPECT_TRUE(differs([](WindowState& other) { other.status = BrokerStatus::kPaused; }));
    EXPECT_TRUE(differs([](WindowState& other) { other.configuredSource = SourceKind::kCustomUrl; }));
    EXPECT_TRUE(differs([](WindowState& other) { other.effectiveBackend = EffectiveBackend::kGstreamer; }));
    EXPECT_TRUE(differs([](WindowState& other) { other.observedFps = 15; }));
    EXPECT_TRUE(differs([](WindowState& other) { other.frameCounter = 1; }));
    EXPECT_TRUE(differs([](WindowState& other) { other.reconnects = 1; }));
    EXPECT_TRUE(differs([](WindowState& other) { other.leaseCount = 2; }));
    EXPECT_FALSE(differs([](WindowState& other) { other.now += 1; }));
}

TEST(DiagnosticsView, IsOneCardWithoutAPreview) {
    expectCard(stateOf(Panel::kDiagnostics, 1200, 900), 28, 158, 1144, 698);
    EXPECT_FALSE(composeView(stateOf(Panel::kDiagnostics)).preview);
}

}  // namespace
}  // namespace vextra
