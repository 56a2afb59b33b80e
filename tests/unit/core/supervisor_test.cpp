#include "core/supervisor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <string>
#include <vector>

#include "base/hresult.h"
#include "producers/backend_choice.h"

namespace vextra {
namespace {

struct Published {
    BridgeState state;
    bool pixels;
    std::uint64_t counter;
};

struct Logged {
    EventCode code;
    std::int32_t value;
};

// A world in which the Supervisor lives: a clock that moves by hand, leases, a bridge that remembers, and a
// producer that does as it is told.
class World {
public:
    World() { useSource(SourceKind::kSyntheticTest); }

    void useSource(SourceKind source) {
        shared.settings.source = source;
        shared.settings.customUrl.assign(L"rtsp://camera/live");
    }

    Supervisor make(bool mediaFoundation = true) {
        return Supervisor(
            shared,
            {
                .now = [this] { return now; },
                .countLeases = [this] { return leases; },
                .takeStopSignal = [this] { return std::exchange(stopSignal, false); },
                .accountMayPublish = [this] { return accountTrusted; },
                .showStatus = [this](std::wstring_view text) { texts.emplace_back(text); },
                .askWindowToQuit = [this] { ++quitRequests; },
                .log =
                    [this](EventCode code, std::int32_t value) {
                        log.push_back({code, value});
                    },
                .openBridge = [this] { return bridgeOpen = bridgeOpens; },
                .publish =
                    [this](const std::byte* pixels, BridgeState state, std::uint64_t counter) {
                        published.push_back({state, pixels != nullptr, counter});
                    },
                .closeBridge = [this] { bridgeOpen = false; },
                .startProducer =
                    [this](bool test, std::wstring_view url, const BrokerSettings& settings) {
                        return startProducer(test, url, settings);
                    },
                .readProducer = [this](std::byte* buffer,
                                       std::uint32_t capacity) { return read(buffer, capacity); },
                .stopProducer = [this] { producerRuns = false; },
                .recordEvidence = nullptr,
            },
            mediaFoundation);
    }

    bool startProducer(bool test, std::wstring_view url, const BrokerSettings& settings) {
        ++starts;
        startedAt = now;
        startedTest = test;
        startedUrl = url;
        startedDecoder = settings.decoder;
        if (!producerStarts)
            return false;
        const bool gstreamer = settings.decoder != DecoderBackend::kFfmpeg && !test && gstreamerInstalled;
        shared.effectiveBackend =
            static_cast<std::uint32_t>(gstreamer ? EffectiveBackend::kGstreamer : EffectiveBackend::kFfmpeg);
        producerRuns = true;
        return true;
    }

    // What the next read gives: from the script, else `steady` bytes.
    std::int32_t read(std::byte*, std::uint32_t capacity) {
        std::int64_t wanted = steady;
        if (!script.empty()) {
            wanted = script.front();
            script.pop_front();
        }
        return static_cast<std::int32_t>(std::min<std::int64_t>(wanted, capacity));
    }

    // One pass, then the wait that it asked for (as long as the real one would last).
    NextPass pass(Supervisor& supervisor) {
        const NextPass next = supervisor.runPass();
        if (next == NextPass::kActiveWait)
            now += kActivePassMs;
        else if (next == NextPass::kIdleWait)
            now += kIdlePassMs;
        return next;
    }
    void passUntil(Supervisor& supervisor, Tick end) {
        while (now < end)
            pass(supervisor);
    }
    NextPass command(Supervisor& supervisor, SupervisorCommand value) {
        shared.mailbox = static_cast<std::uint32_t>(value);
        return pass(supervisor);
    }

    BrokerStatus status() const { return static_cast<BrokerStatus>(shared.status.load()); }
    std::size_t countLogged(EventCode code) const {
        return static_cast<std::size_t>(
            std::count_if(log.begin(), log.end(), [&](const Logged& line) { return line.code == code; }));
    }
    std::size_t countPublished(BridgeState state) const {
        return static_cast<std::size_t>(std::count_if(
            published.begin(), published.end(), [&](const Published& one) { return one.state == state; }));
    }
    std::wstring lastText() const { return texts.empty() ? L"" : texts.back(); }
    BridgeState lastState() const { return published.back().state; }

    SharedStatus shared;
    Tick now = 1'000'000;
    std::int32_t leases = 0;
    bool stopSignal = false;
    bool accountTrusted = true;
    bool bridgeOpens = true;
    bool producerStarts = true;
    bool gstreamerInstalled = false;
    std::int64_t steady = kFrameBytes;  // bytes a read gives when the script is empty; 0 nothing, -1 the end
    std::deque<std::int64_t> script;

    bool bridgeOpen = false;
    bool producerRuns = false;
    int starts = 0;
    Tick startedAt = 0;
    bool startedTest = false;
    std::wstring startedUrl;
    DecoderBackend startedDecoder = DecoderBackend::kFfmpeg;
    int quitRequests = 0;
    std::vector<std::wstring> texts;
    std::vector<Logged> log;
    std::vector<Published> published;
};

class SupervisorTest : public testing::Test {
protected:
    // A lease, a producer and its first frame.
    void goLive() {
        world.leases = 1;
        world.pass(supervisor);
        ASSERT_EQ(world.status(), BrokerStatus::kLive);
    }
    // Until the producer has been given up once more.
    void passUntilReconnects(std::uint32_t count) {
        for (int passes = 0; world.shared.reconnects < count && passes < 100'000; ++passes)
            world.pass(supervisor);
        ASSERT_EQ(world.shared.reconnects, count);
    }

    World world;
    Supervisor supervisor = world.make();
};

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
    EXPECT_EQ(world.shared.effectiveBackend, 0u);
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

// --- The watchdog ---

TEST_F(SupervisorTest, AFrameOf2000MsIsStillLive) {
    goLive();
    world.steady = 0;
    const std::size_t before = world.published.size();
    world.now = world.shared.lastFrameTick + 2000;
    world.pass(supervisor);
    EXPECT_EQ(world.published.size(), before);
}

TEST_F(SupervisorTest, From2001MsOnEveryPassRepublishesFallback) {
    goLive();
    world.steady = 0;
    world.now = world.shared.lastFrameTick + 2001;
    const std::size_t before = world.published.size();
    world.pass(supervisor);
    world.pass(supervisor);
    EXPECT_EQ(world.published.size(), before + 2);
    EXPECT_EQ(world.lastState(), BridgeState::kFallback);
    EXPECT_FALSE(world.published.back().pixels);
    EXPECT_EQ(world.published.back().counter, 1u);
}

TEST_F(SupervisorTest, AFrameOf7000MsOnlyRepublishesFallback) {
    goLive();
    world.steady = 0;
    world.now = world.shared.lastFrameTick + 7000;
    world.pass(supervisor);
    EXPECT_EQ(world.shared.reconnects, 0u);
    EXPECT_EQ(world.lastState(), BridgeState::kFallback);
}

TEST_F(SupervisorTest, AFrameOf7001MsGivesTheProducerUp) {
    goLive();
    world.steady = 0;
    world.now = world.shared.lastFrameTick + 7001;
    world.pass(supervisor);
    EXPECT_EQ(world.shared.reconnects, 1u);
    EXPECT_FALSE(world.producerRuns);
    EXPECT_EQ(world.lastState(), BridgeState::kUnavailable);
    EXPECT_EQ(world.status(), BrokerStatus::kUnavailable);
    EXPECT_EQ(world.shared.lastError, kResultProducerStalled);
    EXPECT_EQ(world.countLogged(EventCode::kProducerReconnect), 1u);
    EXPECT_EQ(world.lastText(), L"Produtor indisponível. MF envia fallback; reconexão automática limitada.");
}

TEST_F(SupervisorTest, TheFirstFrameHasUntilItsDeadline) {
    world.shared.settings.firstFrameDeadlineMs = 3000;
    world.leases = 1;
    world.steady = 0;
    world.pass(supervisor);
    world.now = world.startedAt + 2999;
    world.pass(supervisor);
    EXPECT_EQ(world.shared.reconnects, 0u);
    world.now = world.startedAt + 3000;
    world.pass(supervisor);
    EXPECT_EQ(world.shared.reconnects, 1u);
}

TEST_F(SupervisorTest, AnEndedStreamRecoversAtOnce) {
    goLive();
    world.script = {-1};
    world.pass(supervisor);
    EXPECT_EQ(world.shared.reconnects, 1u);
}

// --- Recovery ---

TEST_F(SupervisorTest, WaitsLongerAfterEachFailureAndGivesUpAfterFive) {
    world.leases = 1;
    world.steady = -1;
    std::vector<Tick> waits;
    for (std::uint32_t failure = 1; failure <= 5; ++failure) {
        passUntilReconnects(failure);
        const Tick lost = world.now - kActivePassMs;
        const int startsBefore = world.starts;
        while (world.starts == startsBefore && world.now < lost + 20'000)
            world.pass(supervisor);
        if (world.starts > startsBefore)
            waits.push_back(world.startedAt - lost);
    }
    EXPECT_EQ(waits, (std::vector<Tick>{1000, 2000, 4000, 8000}));
    EXPECT_EQ(world.starts, 5);
    EXPECT_EQ(world.lastText(),
              L"Recuperação esgotada. MF permanece com fallback. Desligue e ligue para tentar novamente.");
}

TEST(RecoveryDelay, DoublesThreeTimesAndStays) {
    EXPECT_EQ(recoveryDelayMs(0), 1000u);
    EXPECT_EQ(recoveryDelayMs(1), 2000u);
    EXPECT_EQ(recoveryDelayMs(2), 4000u);
    EXPECT_EQ(recoveryDelayMs(3), 8000u);
    EXPECT_EQ(recoveryDelayMs(4), 8000u);
}

TEST_F(SupervisorTest, AFailedStartIsTriedAgainAfter3Seconds) {
    world.producerStarts = false;
    world.leases = 1;
    world.pass(supervisor);
    const Tick first = world.startedAt;
    EXPECT_EQ(world.status(), BrokerStatus::kUnavailable);
    EXPECT_EQ(world.lastState(), BridgeState::kUnavailable);
    EXPECT_EQ(world.shared.lastError, kResultProducerNotStarted);
    EXPECT_EQ(world.lastText(), L"Decoder não iniciou. Recuperação limitada; verifique a instalação.");
    world.passUntil(supervisor, first + 3000);
    EXPECT_EQ(world.starts, 1);
    world.pass(supervisor);
    EXPECT_EQ(world.starts, 2);
}

TEST_F(SupervisorTest, FiveFailedStartsExhaustTheEpisode) {
    world.producerStarts = false;
    world.leases = 1;
    world.passUntil(supervisor, world.now + 60'000);
    EXPECT_EQ(world.starts, 5);
    EXPECT_EQ(world.shared.generation, 0u);
    EXPECT_EQ(world.lastText(), L"Recuperação esgotada. Desligue e ligue para tentar novamente.");
}

TEST_F(SupervisorTest, FailedStartsAndStallsCountTogether) {
    world.leases = 1;
    world.steady = -1;
    passUntilReconnects(3);
    world.producerStarts = false;
    world.passUntil(supervisor, world.now + 60'000);
    EXPECT_EQ(world.starts, 5);
}

TEST_F(SupervisorTest, ThirtyTwoGoodFramesClearTheFailures) {
    world.leases = 1;
    world.script = {-1};
    passUntilReconnects(1);
    while (world.shared.frameCounter < 32)
        world.pass(supervisor);
    world.script = {-1};
    passUntilReconnects(2);
    const Tick lost = world.now - kActivePassMs;
    while (world.starts < 3)
        world.pass(supervisor);
    EXPECT_EQ(world.startedAt - lost, 1000u);
}

TEST_F(SupervisorTest, ThirtyOneGoodFramesDoNot) {
    world.leases = 1;
    world.script = {-1};
    passUntilReconnects(1);
    while (world.shared.frameCounter < 31)
        world.pass(supervisor);
    world.script = {-1};
    passUntilReconnects(2);
    const Tick lost = world.now - kActivePassMs;
    while (world.starts < 3)
        world.pass(supervisor);
    EXPECT_EQ(world.startedAt - lost, 2000u);
}

TEST_F(SupervisorTest, ANewEpisodeStartsWithACleanSlate) {
    world.producerStarts = false;
    world.leases = 1;
    world.passUntil(supervisor, world.now + 60'000);
    world.leases = 0;
    world.passUntil(supervisor, world.now + 600);
    world.leases = 1;
    world.pass(supervisor);
    EXPECT_EQ(world.starts, 6);
}

TEST_F(SupervisorTest, AnExhaustedEpisodeStillEndsWithItsDemand) {
    world.producerStarts = false;
    world.leases = 1;
    world.passUntil(supervisor, world.now + 60'000);
    world.leases = 0;
    world.passUntil(supervisor, world.now + 600);
    EXPECT_FALSE(world.bridgeOpen);
    EXPECT_EQ(world.lastState(), BridgeState::kStopped);
}

TEST_F(SupervisorTest, GoodFramesOfAnEarlierGenerationDoNotCount) {
    goLive();
    while (world.shared.frameCounter < 31)
        world.pass(supervisor);
    world.script = {-1};
    passUntilReconnects(1);
    while (world.shared.frameCounter < 31 + 31)
        world.pass(supervisor);
    world.script = {-1};
    passUntilReconnects(2);
    const Tick lost = world.now - kActivePassMs;
    while (world.starts < 3)
        world.pass(supervisor);
    EXPECT_EQ(world.startedAt - lost, 2000u);
}

// --- Automatic backend ---

TEST_F(SupervisorTest, AutomaticGoesOnWithFfmpegAfterAGstreamerStall) {
    world.useSource(SourceKind::kCustomUrl);
    world.shared.settings.decoder = DecoderBackend::kAutomatic;
    world.gstreamerInstalled = true;
    goLive();
    ASSERT_EQ(world.startedDecoder, DecoderBackend::kAutomatic);
    world.script = {-1};
    passUntilReconnects(1);
    EXPECT_EQ(world.countLogged(EventCode::kAutoGstreamerFallback), 1u);
    world.passUntil(supervisor, world.now + 1100);
    EXPECT_EQ(world.startedDecoder, DecoderBackend::kFfmpeg);
}

TEST_F(SupervisorTest, TheNextEpisodeTriesGstreamerAgain) {
    world.useSource(SourceKind::kCustomUrl);
    world.shared.settings.decoder = DecoderBackend::kAutomatic;
    world.gstreamerInstalled = true;
    goLive();
    world.script = {-1};
    passUntilReconnects(1);
    world.leases = 0;
    world.passUntil(supervisor, world.now + 600);
    goLive();
    EXPECT_EQ(world.startedDecoder, DecoderBackend::kAutomatic);
}

TEST_F(SupervisorTest, GstreamerChosenByTheUserIsNeverReplaced) {
    world.useSource(SourceKind::kCustomUrl);
    world.shared.settings.decoder = DecoderBackend::kGstreamer;
    world.gstreamerInstalled = true;
    goLive();
    world.steady = -1;
    world.passUntil(supervisor, world.now + 60'000);
    EXPECT_EQ(world.starts, 5);
    EXPECT_EQ(world.startedDecoder, DecoderBackend::kGstreamer);
    EXPECT_EQ(world.countLogged(EventCode::kAutoGstreamerFallback), 0u);
}

TEST_F(SupervisorTest, AFailedStartOfAChosenGstreamerSaysSo) {
    world.useSource(SourceKind::kCustomUrl);
    world.shared.settings.decoder = DecoderBackend::kGstreamer;
    world.producerStarts = false;
    world.leases = 1;
    world.pass(supervisor);
    EXPECT_EQ(
        world.lastText(),
        L"GStreamer indisponível ou falhou. Instale runtime x64; FFmpeg não será usado implicitamente.");
}

// --- Commands ---

TEST_F(SupervisorTest, ANewerCommandReplacesOneNotYetTaken) {
    goLive();
    world.shared.mailbox = static_cast<std::uint32_t>(SupervisorCommand::kQuit);
    EXPECT_EQ(world.command(supervisor, SupervisorCommand::kSuspend), NextPass::kActiveWait);
    EXPECT_EQ(world.status(), BrokerStatus::kSuspended);
    EXPECT_EQ(world.shared.mailbox, 0u);
}

TEST_F(SupervisorTest, QuitPublishesStoppedAndEndsTheLoop) {
    goLive();
    EXPECT_EQ(world.command(supervisor, SupervisorCommand::kQuit), NextPass::kNever);
    EXPECT_FALSE(world.producerRuns);
    EXPECT_FALSE(world.bridgeOpen);
    EXPECT_EQ(world.lastState(), BridgeState::kStopped);
    EXPECT_EQ(world.published.back().counter, world.shared.frameCounter);
    EXPECT_EQ(world.log.back().code, EventCode::kStopComplete);
}

TEST_F(SupervisorTest, SuspendStopsTheProducerAndKeepsTheDevice) {
    goLive();
    world.command(supervisor, SupervisorCommand::kSuspend);
    EXPECT_FALSE(world.producerRuns);
    EXPECT_TRUE(world.shared.active);
    EXPECT_EQ(world.lastState(), BridgeState::kFallback);
    EXPECT_EQ(world.status(), BrokerStatus::kSuspended);
    EXPECT_EQ(world.shared.lastFrameTick, 0u);
    EXPECT_EQ(world.lastText(), L"Suspenso: dispositivo MF preservado com fallback.");
    EXPECT_EQ(world.log.back().code, EventCode::kPowerSuspend);
    world.passUntil(supervisor, world.now + 20'000);
    EXPECT_EQ(world.starts, 1);
}

TEST_F(SupervisorTest, SuspendWhileIdleDoesNothing) {
    world.command(supervisor, SupervisorCommand::kSuspend);
    EXPECT_TRUE(world.texts.empty());
    EXPECT_TRUE(world.log.empty());
    EXPECT_TRUE(world.published.empty());
}

TEST_F(SupervisorTest, ResumeAfterSuspendStartsANewProducerInTheSamePass) {
    goLive();
    world.command(supervisor, SupervisorCommand::kSuspend);
    world.command(supervisor, SupervisorCommand::kResume);
    EXPECT_EQ(world.shared.generation, 2u);
    EXPECT_EQ(world.status(), BrokerStatus::kLive);
    EXPECT_EQ(world.countLogged(EventCode::kPowerResume), 1u);
}

TEST_F(SupervisorTest, ResumeShowsThatANewGenerationOpens) {
    world.command(supervisor, SupervisorCommand::kResume);
    EXPECT_EQ(world.lastText(), L"Retomada: abrindo uma nova geração do produtor.");
    EXPECT_EQ(world.log.back().code, EventCode::kPowerResume);
}

TEST_F(SupervisorTest, ResumeGivesUpARunningProducerThatHasNoFrameReady) {
    goLive();
    world.steady = 0;
    world.command(supervisor, SupervisorCommand::kResume);
    EXPECT_EQ(world.shared.reconnects, 1u);
    world.steady = kFrameBytes;
    world.passUntil(supervisor, world.now + 1100);
    EXPECT_EQ(world.shared.generation, 2u);
}

TEST_F(SupervisorTest, ResumeDoesNotAwaitTheNextAttempt) {
    goLive();
    world.script = {-1};
    passUntilReconnects(1);
    world.command(supervisor, SupervisorCommand::kResume);
    EXPECT_EQ(world.starts, 2);
}

TEST_F(SupervisorTest, ResumeEndsExhaustionAndStartsAtOnce) {
    world.producerStarts = false;
    world.leases = 1;
    world.passUntil(supervisor, world.now + 60'000);
    world.producerStarts = true;
    world.command(supervisor, SupervisorCommand::kResume);
    EXPECT_EQ(world.status(), BrokerStatus::kLive);
}

TEST_F(SupervisorTest, StopAndSuspendKeepsDemandFromStartingAnything) {
    goLive();
    world.command(supervisor, SupervisorCommand::kStopAndSuspend);
    EXPECT_FALSE(world.producerRuns);
    EXPECT_FALSE(world.bridgeOpen);
    EXPECT_FALSE(world.shared.active);
    EXPECT_TRUE(world.shared.paused);
    EXPECT_EQ(world.status(), BrokerStatus::kIdle);
    EXPECT_EQ(world.lastState(), BridgeState::kStopped);
    EXPECT_EQ(world.log.back().code, EventCode::kStopComplete);
    world.passUntil(supervisor, world.now + 5000);
    EXPECT_EQ(world.starts, 1);
}

TEST_F(SupervisorTest, ResumeEndsStopAndSuspend) {
    goLive();
    world.command(supervisor, SupervisorCommand::kStopAndSuspend);
    world.command(supervisor, SupervisorCommand::kResume);
    world.pass(supervisor);
    EXPECT_EQ(world.status(), BrokerStatus::kLive);
}

TEST_F(SupervisorTest, PauseKeepsTheBridgeOpenWithThePausedState) {
    goLive();
    world.command(supervisor, SupervisorCommand::kTogglePause);
    EXPECT_TRUE(world.shared.paused);
    EXPECT_TRUE(world.shared.active);
    EXPECT_FALSE(world.producerRuns);
    EXPECT_EQ(world.lastState(), BridgeState::kPaused);
    EXPECT_EQ(world.status(), BrokerStatus::kPaused);
    EXPECT_EQ(world.shared.lastFrameTick, 0u);
    EXPECT_EQ(world.lastText(), L"Produtor pausado. Saída MF permanece disponível com fallback local.");
    EXPECT_EQ(world.log.back().code, EventCode::kProducerPause);
    world.passUntil(supervisor, world.now + 10'000);
    EXPECT_EQ(world.starts, 1);
}

TEST_F(SupervisorTest, ASecondPauseGoesOnWithTheSameDevice) {
    goLive();
    world.command(supervisor, SupervisorCommand::kTogglePause);
    world.steady = 0;
    world.command(supervisor, SupervisorCommand::kTogglePause);
    EXPECT_FALSE(world.shared.paused);
    EXPECT_EQ(world.status(), BrokerStatus::kConnecting);
    EXPECT_EQ(world.lastText(), L"Retomando o mesmo dispositivo MF...");
    EXPECT_EQ(world.countLogged(EventCode::kProducerResume), 1u);
    EXPECT_EQ(world.shared.generation, 2u);
}

TEST_F(SupervisorTest, PauseWhileIdleDoesNothing) {
    world.command(supervisor, SupervisorCommand::kTogglePause);
    EXPECT_FALSE(world.shared.paused);
    EXPECT_TRUE(world.texts.empty());
}

TEST_F(SupervisorTest, APauseEndsWithItsEpisode) {
    goLive();
    world.command(supervisor, SupervisorCommand::kTogglePause);
    world.leases = 0;
    world.passUntil(supervisor, world.now + 600);
    EXPECT_FALSE(world.shared.paused);
    goLive();
}

TEST_F(SupervisorTest, StartNowBeginsTheDemandThatExists) {
    world.leases = 1;
    world.command(supervisor, SupervisorCommand::kStartNow);
    EXPECT_EQ(world.status(), BrokerStatus::kLive);
}

TEST_F(SupervisorTest, StartNowWithoutDemandDoesNothing) {
    EXPECT_EQ(world.command(supervisor, SupervisorCommand::kStartNow), NextPass::kIdleWait);
    EXPECT_FALSE(world.shared.active);
}

TEST_F(SupervisorTest, APassThatTookACommandLeavesDemandBeginToTheNext) {
    world.leases = 1;
    world.command(supervisor, SupervisorCommand::kResume);
    EXPECT_FALSE(world.shared.active);
    world.pass(supervisor);
    EXPECT_TRUE(world.shared.active);
}

// --- The stop signal ---

TEST_F(SupervisorTest, TheStopSignalWhileIdleAsksTheWindowToQuit) {
    world.stopSignal = true;
    world.pass(supervisor);
    EXPECT_EQ(world.quitRequests, 1);
}

TEST_F(SupervisorTest, AStopSignalDuringALeaseIsLost) {
    goLive();
    world.stopSignal = true;
    world.pass(supervisor);
    EXPECT_FALSE(world.stopSignal);
    world.leases = 0;
    world.passUntil(supervisor, world.now + 2000);
    EXPECT_EQ(world.quitRequests, 0);
}

TEST_F(SupervisorTest, AStopSignalWhileDemandIsUnknownIsLost) {
    world.leases = -1;
    world.stopSignal = true;
    world.pass(supervisor);
    world.leases = 0;
    world.pass(supervisor);
    EXPECT_EQ(world.quitRequests, 0);
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
