// Demand, refusals and frames.
#include "supervisor_world.h"
#include "ui/preview_picture.h"

namespace vextra {
namespace {

// --- Demand ---

TEST_F(SupervisorTest, IdleItOnlyCountsLeases) {
    EXPECT_EQ(world.pass(supervisor), NextPass::kIdleWait);
    EXPECT_EQ(world.starts, 0);
    EXPECT_TRUE(world.published.empty());
    EXPECT_TRUE(world.log.empty());
    EXPECT_TRUE(world.texts.empty());
}

TEST_F(SupervisorTest, PublishesTheCountThatItSawEvenWhenUnknown) {
    world.leases = -1;
    world.pass(supervisor);
    EXPECT_EQ(world.shared.leaseCount, -1);
}

TEST_F(SupervisorTest, UnknownDemandStartsNothing) {
    world.leases = -1;
    EXPECT_EQ(world.pass(supervisor), NextPass::kIdleWait);
    EXPECT_FALSE(world.shared.active);
}

TEST_F(SupervisorTest, ALeaseOpensTheBridgeAsFallbackAndStartsTheProducer) {
    world.steady = 0;
    world.leases = 1;
    EXPECT_EQ(world.pass(supervisor), NextPass::kActiveWait);
    EXPECT_TRUE(world.shared.active);
    EXPECT_TRUE(world.bridgeOpen);
    EXPECT_EQ(world.starts, 1);
    EXPECT_EQ(world.shared.generation, 1u);
    EXPECT_EQ(world.status(), BrokerStatus::kConnecting);
    ASSERT_EQ(world.published.size(), 2u);  // at demand begin, and when the producer has started
    EXPECT_EQ(world.published[0].state, BridgeState::kFallback);
    EXPECT_EQ(world.published[1].state, BridgeState::kFallback);
    EXPECT_EQ(world.countLogged(EventCode::kDemandBegin), 1u);
    EXPECT_EQ(world.lastText(), L"Captura ativa: conectando produtor automático...");
}

TEST_F(SupervisorTest, ThePreviewIsDemandWithoutALease) {
    world.shared.previewDeadline = world.now + kManualPreviewMs;
    world.pass(supervisor);
    EXPECT_TRUE(world.producerRuns);
}

TEST_F(SupervisorTest, APreviewWhoseDeadlineIsNowIsOver) {
    world.shared.previewDeadline = world.now;
    world.pass(supervisor);
    EXPECT_FALSE(world.shared.active);
}

TEST_F(SupervisorTest, TheSourceIsOpenedAsTheSettingsNameIt) {
    world.useSource(SourceKind::kCustomUrl);
    world.leases = 1;
    world.pass(supervisor);
    EXPECT_FALSE(world.startedTest);
    EXPECT_FALSE(world.shared.testPattern);
    EXPECT_EQ(world.startedUrl, L"rtsp://camera/live");
}

TEST_F(SupervisorTest, SettingsChangedDuringAnEpisodeCountFromTheNextOne) {
    goLive();
    world.useSource(SourceKind::kCustomUrl);
    world.steady = -1;
    passUntilReconnects(1);
    world.steady = 0;
    world.passUntil(supervisor, world.now + 1100);
    EXPECT_EQ(world.starts, 2);
    EXPECT_TRUE(world.startedTest);
}

TEST_F(SupervisorTest, TheProducerStops500MsAfterTheLastLease) {
    goLive();
    world.leases = 0;
    const Tick released = world.now;
    world.passUntil(supervisor, released + 500);
    EXPECT_TRUE(world.producerRuns);
    world.pass(supervisor);
    EXPECT_FALSE(world.producerRuns);
    EXPECT_FALSE(world.shared.active);
    EXPECT_FALSE(world.bridgeOpen);
    EXPECT_EQ(world.lastState(), BridgeState::kStopped);
    EXPECT_EQ(world.status(), BrokerStatus::kIdle);
    EXPECT_EQ(world.shared.effectiveBackend, EffectiveBackend::kNone);
    EXPECT_EQ(world.shared.lastFrameTick, 0u);
    EXPECT_EQ(world.lastText(),
              L"Automático: aguardando aplicativo. Dispositivo persistente; FFmpeg parado.");
    ASSERT_GE(world.log.size(), 2u);
    EXPECT_EQ(world.log[world.log.size() - 2].code, EventCode::kStopComplete);
    EXPECT_EQ(world.log.back().code, EventCode::kLastDemandReleased);
}

TEST_F(SupervisorTest, FramesGoOnDuringTheGrace) {
    goLive();
    const std::uint64_t before = world.shared.frameCounter;
    world.leases = 0;
    world.pass(supervisor);
    EXPECT_EQ(world.shared.frameCounter, before + 1);
}

TEST_F(SupervisorTest, ALeaseThatComesBackWithinTheGraceKeepsTheProducer) {
    goLive();
    world.leases = 0;
    world.passUntil(supervisor, world.now + 495);
    world.leases = 1;
    world.passUntil(supervisor, world.now + 2000);
    EXPECT_EQ(world.shared.generation, 1u);
    EXPECT_EQ(world.countLogged(EventCode::kStopComplete), 0u);
}

TEST_F(SupervisorTest, TheGraceStartsAnewAfterEachLease) {
    goLive();
    world.leases = 0;
    world.passUntil(supervisor, world.now + 400);
    world.leases = 1;
    world.pass(supervisor);
    world.leases = 0;
    world.passUntil(supervisor, world.now + 400);
    EXPECT_TRUE(world.producerRuns);
}

TEST_F(SupervisorTest, DemandThatTurnsUnknownEndsTheEpisodeLikeNoDemand) {
    goLive();
    world.leases = -1;
    world.passUntil(supervisor, world.now + 600);
    EXPECT_FALSE(world.shared.active);
}

// --- Refusals: repeated on every pass without a wait, on purpose ---

struct Refusal {
    const char* name;
    void (*arrange)(World&);
    bool mediaFoundation;
    const wchar_t* text;
    int event;  // an EventCode, or 0 for none
    std::int32_t value;
};

class RefusalTest : public testing::TestWithParam<Refusal> {};

TEST_P(RefusalTest, IsShownLoggedAndRepeatedWithoutAWait) {
    World world;
    GetParam().arrange(world);
    Supervisor supervisor = world.make(GetParam().mediaFoundation);
    world.leases = 1;
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(world.pass(supervisor), NextPass::kAtOnce);
    EXPECT_FALSE(world.shared.active);
    EXPECT_FALSE(world.bridgeOpen);
    EXPECT_EQ(world.starts, 0);
    EXPECT_TRUE(world.published.empty());
    EXPECT_EQ(world.lastText(), GetParam().text);
    ASSERT_EQ(world.log.size(), GetParam().event == 0 ? 0u : 3u);
    for (const Logged& line : world.log) {
        EXPECT_EQ(static_cast<int>(line.code), GetParam().event);
        EXPECT_EQ(line.value, GetParam().value);
    }
}

TEST_P(RefusalTest, EndsWithTheDemand) {
    World world;
    GetParam().arrange(world);
    Supervisor supervisor = world.make(GetParam().mediaFoundation);
    world.leases = 1;
    world.pass(supervisor);
    world.leases = 0;
    EXPECT_EQ(world.pass(supervisor), NextPass::kIdleWait);
}

TEST_P(RefusalTest, StillTakesQuit) {
    World world;
    GetParam().arrange(world);
    Supervisor supervisor = world.make(GetParam().mediaFoundation);
    world.leases = 1;
    world.pass(supervisor);
    EXPECT_EQ(world.command(supervisor, SupervisorCommand::kQuit), NextPass::kNever);
}

INSTANTIATE_TEST_SUITE_P(
    Supervisor, RefusalTest,
    testing::Values(Refusal{"NoMediaFoundation", [](World&) {}, false,
                            L"Media Foundation indisponível neste Windows.", 0, 0},
                    Refusal{"ForeignAccount", [](World& world) { world.accountTrusted = false; }, true,
                            L"Instale para esta conta e execute sem privilégios de administrador.",
                            static_cast<int>(EventCode::kOwnerOrElevationBlock), kResultAccessDenied},
                    Refusal{"NoBridge", [](World& world) { world.bridgeOpens = false; }, true,
                            L"Componente/bridge não instalado ou ACL inválida. Execute o Setup.exe offline.",
                            static_cast<int>(EventCode::kBridgeOpenFailed), 0},
                    Refusal{"NoSource", [](World& world) { world.useSource(SourceKind::kInternalProfile); },
                            true, L"Fonte ausente/inválida. Abra Configurações e salve uma fonte válida.", 0,
                            0}),
    [](const auto& instance) { return std::string(instance.param.name); });

TEST_F(SupervisorTest, ARepairedRefusalBeginsTheEpisode) {
    world.bridgeOpens = false;
    world.leases = 1;
    world.pass(supervisor);
    world.bridgeOpens = true;
    EXPECT_EQ(world.pass(supervisor), NextPass::kActiveWait);
}

// --- Frames ---

TEST_F(SupervisorTest, ACompleteFrameIsPublishedLiveWithTheNextNumber) {
    goLive();
    ASSERT_FALSE(world.published.empty());
    EXPECT_EQ(world.published.back().state, BridgeState::kLive);
    EXPECT_TRUE(world.published.back().pixels);
    EXPECT_EQ(world.published.back().counter, 1u);
    EXPECT_EQ(world.shared.frameCounter, 1u);
    EXPECT_NE(world.shared.lastFrameTick, 0u);
}

TEST_F(SupervisorTest, PiecesOfAnySizeAreJoinedByCountAlone) {
    world.leases = 1;
    world.script = {1, kFrameBytes - 2, 0, 1};
    for (int i = 0; i < 3; ++i)
        world.pass(supervisor);
    EXPECT_EQ(world.shared.frameCounter, 0u);
    world.pass(supervisor);
    EXPECT_EQ(world.shared.frameCounter, 1u);
}

TEST_F(SupervisorTest, NeverReadsBeyondTheFrameUnderWay) {
    world.leases = 1;
    world.script = {10, kFrameBytes, 10};  // the fake gives at most what is asked for
    world.pass(supervisor);
    world.pass(supervisor);
    EXPECT_EQ(world.shared.frameCounter, 1u);
    world.pass(supervisor);
    EXPECT_EQ(world.shared.frameCounter, 1u);
}

TEST_F(SupervisorTest, HalfAFrameIsDroppedWithItsProducer) {
    world.leases = 1;
    world.script = {kFrameBytes / 2, -1};
    world.pass(supervisor);
    world.pass(supervisor);
    world.steady = 0;
    world.passUntil(supervisor, world.now + 1100);
    ASSERT_EQ(world.starts, 2);
    world.script = {kFrameBytes / 2};
    world.pass(supervisor);
    EXPECT_EQ(world.shared.frameCounter, 0u);
}

TEST_F(SupervisorTest, TheFirstFrameOfEachGenerationIsLogged) {
    goLive();
    world.pass(supervisor);
    EXPECT_EQ(world.countLogged(EventCode::kFirstFrame), 1u);
    world.script = {-1};
    passUntilReconnects(1);
    world.passUntil(supervisor, world.now + 1100);
    EXPECT_EQ(world.shared.generation, 2u);
    EXPECT_EQ(world.countLogged(EventCode::kFirstFrame), 2u);
}

TEST_F(SupervisorTest, EverySixteenthFrameReportsBeginningWithTheFirst) {
    goLive();
    for (int frame = 2; frame <= 33; ++frame)
        world.pass(supervisor);
    ASSERT_EQ(world.shared.frameCounter, 33u);
    EXPECT_EQ(world.countLogged(EventCode::kProducerFrameLive), 3u);  // 1, 17, 33
    EXPECT_EQ(world.lastText(), L"Teste local ao vivo — FFmpeg lavfi → bridge → Media Foundation.");
}

TEST_F(SupervisorTest, ANetworkSourceReportsAsTheSelectedSource) {
    world.useSource(SourceKind::kCustomUrl);
    goLive();
    EXPECT_EQ(world.lastText(), L"Fonte selecionada ao vivo — produtor → bridge → Media Foundation.");
}

TEST_F(SupervisorTest, TheFrameIsCopiedForThePreviewPicture) {
    fillPlaceholderFrame(world.shared.previewFrame);
    goLive();
    EXPECT_EQ(world.shared.previewFrame,
              std::vector<std::byte>(kFrameBytes));  // the fake writes nothing: zeros
}

TEST_F(SupervisorTest, AGoodFrameClearsTheError) {
    world.leases = 1;
    world.script = {-1};
    world.pass(supervisor);
    EXPECT_EQ(world.shared.lastError, kResultProducerStalled);
    world.passUntil(supervisor, world.now + 1100);
    EXPECT_EQ(world.shared.lastError, 0);
}

TEST_F(SupervisorTest, FrameNumbersGoOnAcrossEpisodes) {
    goLive();
    world.leases = 0;
    world.passUntil(supervisor, world.now + 600);
    const std::uint64_t before = world.shared.frameCounter;
    goLive();
    EXPECT_EQ(world.published.back().counter, before + 1);
}

// --- Evidence ---

TEST(SupervisorEvidence, EveryFrameIsHandedOverWithItsNumberAndTick) {
    World world;
    SharedStatus& shared = world.shared;
    std::vector<std::pair<std::uint64_t, Tick>> seen;
    SupervisorDoors doors{
        .now = [&] { return world.now; },
        .countLeases = [] { return 1; },
        .takeStopSignal = [] { return false; },
        .accountMayPublish = [] { return true; },
        .showStatus = [](std::wstring_view) {},
        .askWindowToQuit = [] {},
        .log = [](EventCode, std::int32_t) {},
        .openBridge = [] { return true; },
        .publish = [](const std::byte*, BridgeState, std::uint64_t) {},
        .closeBridge = [] {},
        .startProducer = [](bool, std::wstring_view, const BrokerSettings&) { return true; },
        .readProducer = [](std::byte*,
                           std::uint32_t capacity) { return static_cast<std::int32_t>(capacity); },
        .stopProducer = [] {},
        .keepPreview = [](const std::byte*) {},
        .recordEvidence =
            [&](const std::byte*, std::uint64_t number, Tick tick) {
                seen.push_back({number, tick});
            },
    };
    Supervisor supervisor(shared, std::move(doors), true);
    supervisor.runPass();
    world.now += 62;
    supervisor.runPass();
    EXPECT_EQ(seen, (std::vector<std::pair<std::uint64_t, Tick>>{{1, 1'000'000}, {2, 1'000'062}}));
}

}  // namespace
}  // namespace vextra
