// What the user, the system and an installer ask of the Supervisor.
#include "supervisor_world.h"

namespace vextra {
namespace {

// --- Commands ---

TEST_F(SupervisorTest, ANewerCommandReplacesOneNotYetTaken) {
    goLive();
    world.shared.mailbox = SupervisorCommand::kQuit;
    EXPECT_EQ(world.command(supervisor, SupervisorCommand::kSuspend), NextPass::kActiveWait);
    EXPECT_EQ(world.status(), BrokerStatus::kSuspended);
    EXPECT_EQ(world.shared.mailbox, SupervisorCommand::kNone);
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

TEST_F(SupervisorTest, ResumeReplacesAProducerThatHasDeliveredInTheSamePass) {
    goLive();
    world.steady = 0;
    world.command(supervisor, SupervisorCommand::kResume);
    EXPECT_EQ(world.starts, 2);
    EXPECT_EQ(world.shared.generation, 2u);
    EXPECT_EQ(world.status(), BrokerStatus::kConnecting);
}

TEST_F(SupervisorTest, ResumeCountsNoFailureOfTheProducerThatItReplaces) {
    goLive();
    world.steady = 0;
    world.command(supervisor, SupervisorCommand::kResume);
    EXPECT_EQ(world.shared.reconnects, 0u);
    EXPECT_EQ(world.shared.lastError, 0);
    EXPECT_EQ(world.countPublished(BridgeState::kUnavailable), 0u);
}

TEST_F(SupervisorTest, ResumeDropsTheHalfFrameOfTheProducerThatItReplaces) {
    goLive();
    world.steady = 0;
    world.script = {kFrameBytes / 2};
    world.pass(supervisor);
    world.command(supervisor, SupervisorCommand::kResume);
    world.script = {kFrameBytes / 2};
    world.pass(supervisor);
    EXPECT_EQ(world.shared.frameCounter, 1u);
}

TEST_F(SupervisorTest, ResumeLeavesAProducerAloneThatIsOnItsWayToItsFirstFrame) {
    world.leases = 1;
    world.steady = 0;
    world.pass(supervisor);
    const Tick started = world.startedAt;
    world.passUntil(supervisor, world.now + 1000);
    world.command(supervisor, SupervisorCommand::kResume);
    EXPECT_EQ(world.starts, 1);
    EXPECT_TRUE(world.producerRuns);
    passUntilReconnects(1);
    EXPECT_EQ(world.now - kActivePassMs, started + world.shared.settings.firstFrameDeadlineMs);
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

// --- The user has left the session ---

TEST_F(SupervisorTest, AnEpisodeBehindTheLockBeginsSuspended) {
    world.shared.sessionAway = kSessionLocked;
    world.leases = 1;
    world.pass(supervisor);
    EXPECT_TRUE(world.shared.active);
    EXPECT_EQ(world.status(), BrokerStatus::kSuspended);
    EXPECT_EQ(world.lastState(), BridgeState::kFallback);
    EXPECT_EQ(world.lastText(), L"Suspenso: dispositivo MF preservado com fallback.");
    EXPECT_EQ(world.countLogged(EventCode::kDemandBegin), 1u);
    EXPECT_EQ(world.countLogged(EventCode::kPowerSuspend), 1u);
}

class AwayTest : public SupervisorTest, public testing::WithParamInterface<std::uint32_t> {};
INSTANTIATE_TEST_SUITE_P(Each, AwayTest,
                         testing::Values(kSessionLocked, kSessionDisconnected,
                                         kSessionLocked | kSessionDisconnected));

TEST_P(AwayTest, NoDecoderIsStarted) {
    world.shared.sessionAway = GetParam();
    world.leases = 1;
    world.passUntil(supervisor, world.now + 60'000);
    EXPECT_EQ(world.starts, 0);
    EXPECT_EQ(world.countLogged(EventCode::kPowerSuspend), 1u);
}

TEST_P(AwayTest, ARunningDecoderEndsAlthoughTheSuspendWasReplacedInTheMailbox) {
    goLive();
    world.shared.sessionAway = GetParam();
    world.pass(supervisor);
    EXPECT_FALSE(world.producerRuns);
    EXPECT_EQ(world.lastState(), BridgeState::kFallback);
}

TEST_P(AwayTest, NoCommandStartsADecoder) {
    using enum SupervisorCommand;
    goLive();
    world.shared.sessionAway = GetParam();
    for (const SupervisorCommand command :
         {kSuspend, kResume, kTogglePause, kTogglePause, kStartNow, kStopAndSuspend, kResume, kStartNow}) {
        world.command(supervisor, command);
        world.pass(supervisor);
        EXPECT_FALSE(world.producerRuns) << static_cast<int>(command);
    }
    EXPECT_EQ(world.starts, 1);
}

TEST_F(SupervisorTest, AResumeOnceSomebodyIsBackStartsAtOnce) {
    world.shared.sessionAway = kSessionLocked;
    world.leases = 1;
    world.pass(supervisor);
    world.shared.sessionAway = 0;
    world.command(supervisor, SupervisorCommand::kResume);
    EXPECT_EQ(world.status(), BrokerStatus::kLive);
    EXPECT_EQ(world.starts, 1);
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

}  // namespace
}  // namespace vextra
