// What the Supervisor does when frames stop coming.
#include "supervisor_world.h"

namespace vextra {
namespace {

// --- Why GStreamer failed ---

class FailureReasonTest : public SupervisorTest {
protected:
    FailureReasonTest() {
        world.useSource(SourceKind::kCustomUrl);
        world.gstreamerInstalled = true;
        world.shared.settings.decoder = DecoderBackend::kGstreamer;
        world.leases = 1;
    }
    std::wstring reason() { return failureReasonNow(world.shared); }
};

TEST_F(FailureReasonTest, StandsUntilTheNextLiveFrame) {
    world.steady = 0;
    world.pass(supervisor);
    replaceFailureReason(world.shared, L"A origem GStreamer terminou.");
    world.script = {-1};
    world.pass(supervisor);
    world.passUntil(supervisor, world.now + 1500);
    ASSERT_EQ(world.starts, 2);
    EXPECT_EQ(reason(), L"A origem GStreamer terminou.");
    world.script = {kFrameBytes};
    world.pass(supervisor);
    EXPECT_EQ(reason(), L"");
}

TEST_F(FailureReasonTest, OfAPipelineThatNeverShowsAnythingIsThatTheCodecMayBeMissing) {
    world.steady = 0;
    passUntilReconnects(1);
    EXPECT_EQ(reason(), L"GStreamer disponível (codec da origem ainda depende do runtime).");
}

TEST_F(FailureReasonTest, ThatThePipelineGaveIsKept) {
    world.steady = 0;
    world.pass(supervisor);
    replaceFailureReason(world.shared, L"Falha na origem GStreamer; endereço omitido.");
    passUntilReconnects(2);
    EXPECT_EQ(reason(), L"Falha na origem GStreamer; endereço omitido.");
}

TEST_F(FailureReasonTest, IsNotMadeUpForAStreamThatWasLive) {
    goLive();
    world.steady = 0;
    passUntilReconnects(1);
    EXPECT_EQ(reason(), L"");
}

TEST_F(FailureReasonTest, IsNotMadeUpForFfmpeg) {
    world.shared.settings.decoder = DecoderBackend::kFfmpeg;
    world.steady = 0;
    passUntilReconnects(1);
    EXPECT_EQ(reason(), L"");
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
    EXPECT_EQ(waitBeforeNextStart(), 1000u);
}

TEST_F(SupervisorTest, ThirtyOneGoodFramesDoNot) {
    world.leases = 1;
    world.script = {-1};
    passUntilReconnects(1);
    while (world.shared.frameCounter < 31)
        world.pass(supervisor);
    world.script = {-1};
    passUntilReconnects(2);
    EXPECT_EQ(waitBeforeNextStart(), 2000u);
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
    EXPECT_EQ(waitBeforeNextStart(), 2000u);
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

TEST_F(SupervisorTest, AutomaticWithoutGstreamerHasNothingToFallBackFrom) {
    world.useSource(SourceKind::kCustomUrl);
    world.shared.settings.decoder = DecoderBackend::kAutomatic;
    goLive();
    world.script = {-1};
    passUntilReconnects(1);
    EXPECT_EQ(world.countLogged(EventCode::kAutoGstreamerFallback), 0u);
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

}  // namespace
}  // namespace vextra
