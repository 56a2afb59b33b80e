// What the system says of sleep, session and their end, in the order in which it says it; the messages are
// sent by the test.
#include <windows.h>

#include <wtsapi32.h>

#include "demand_test_win.h"
#include "ui/controls.h"
#include "ui/tray_text.h"

namespace vextra::test {
namespace {

class SystemNews : public DemandTest {
protected:
    void say(WPARAM reason) { SendMessageW(broker().window(), WM_WTSSESSION_CHANGE, reason, 1); }
    void power(WPARAM event) {
        EXPECT_EQ(SendMessageW(broker().window(), WM_POWERBROADCAST, event, 0), TRUE);
    }
    bool staysWithoutPicture() {
        const std::uint64_t frames = viewer().header().frameCounter;
        Sleep(700);
        return viewer().header().frameCounter == frames &&
               state() != static_cast<std::uint32_t>(BridgeState::kLive);
    }
};
using ReleaseSystemNews = SystemNews;

class PowerSleep : public SystemNews, public testing::WithParamInterface<WPARAM> {};
INSTANTIATE_TEST_SUITE_P(AndWaking, PowerSleep, testing::Values(PBT_APMRESUMEAUTOMATIC, PBT_APMRESUMESUSPEND),
                         [](const auto& each) {
                             return each.param == PBT_APMRESUMEAUTOMATIC ? "ByItself" : "ByTheUser";
                         });

TEST_P(PowerSleep, ShowsFallbackAndWakingOpensANewGeneration) {
    goLive();
    power(PBT_APMSUSPEND);
    ASSERT_TRUE(viewer().waitForState(BridgeState::kFallback));
    power(GetParam());
    EXPECT_TRUE(viewer().waitForState(BridgeState::kLive));
    EXPECT_TRUE(decoderHasStarted(2));
}

TEST_F(ReleaseSystemNews, TheSecondMessageOfOneWakingIsNoFailure) {
    goLive();
    for (const WPARAM event : {PBT_APMSUSPEND, PBT_APMRESUMEAUTOMATIC, PBT_APMRESUMESUSPEND})
        power(event);
    EXPECT_TRUE(viewer().waitForState(BridgeState::kLive));
    EXPECT_EQ(broker().countEvents("PRODUCER_RECONNECT_FALLBACK"), 0u);
}

TEST_F(ReleaseSystemNews, APreviewInAMeetingIsNoFailureOfItsPicture) {
    goLive();
    broker().command(kIdPreview);
    ASSERT_TRUE(broker().waitForEvent("POWER_RESUME_RECOVER"));
    EXPECT_TRUE(viewer().waitForState(BridgeState::kLive));
    EXPECT_EQ(broker().countEvents("PRODUCER_RECONNECT_FALLBACK"), 0u);
}

TEST_F(ReleaseSystemNews, ALockedSessionShowsFallbackAndEndsThePreview) {
    startWithTestPattern();
    broker().command(kIdPreview);
    ASSERT_TRUE(viewer().waitForState(BridgeState::kLive));
    say(WTS_SESSION_LOCK);
    EXPECT_TRUE(viewer().waitForState(BridgeState::kStopped, 3000));
    EXPECT_EQ(broker().countEvents("SESSION_PRIVATE_FALLBACK"), 1u);
}

struct SessionMessages {
    const char* name;
    WPARAM leave;
    WPARAM comeBack;
};
class ReleaseSessionLeft : public SystemNews, public testing::WithParamInterface<SessionMessages> {};
INSTANTIATE_TEST_SUITE_P(
    By, ReleaseSessionLeft,
    testing::Values(SessionMessages{"Lock", WTS_SESSION_LOCK, WTS_SESSION_UNLOCK},
                    SessionMessages{"ConsoleDisconnect", WTS_CONSOLE_DISCONNECT, WTS_CONSOLE_CONNECT},
                    SessionMessages{"RemoteDisconnect", WTS_REMOTE_DISCONNECT, WTS_REMOTE_CONNECT}),
    [](const auto& each) { return each.param.name; });

TEST_P(ReleaseSessionLeft, ShowsFallbackUntilTheUserIsBack) {
    goLive();
    say(GetParam().leave);
    ASSERT_TRUE(viewer().waitForState(BridgeState::kFallback));
    EXPECT_EQ(broker().countEvents("SESSION_PRIVATE_FALLBACK"), 1u);
    EXPECT_TRUE(staysWithoutPicture());
    say(GetParam().comeBack);
    EXPECT_TRUE(viewer().waitForState(BridgeState::kLive));
    EXPECT_EQ(broker().countEvents("SESSION_OWN_RESUME"), 1u);
}

TEST_P(ReleaseSessionLeft, ALeaseThatIsTakenMeanwhileGetsNoPicture) {
    startWithTestPattern();
    say(GetParam().leave);
    viewer().takeLease();
    ASSERT_TRUE(broker().waitForEvent("DEMAND_BEGIN_DEVICE_UNCHANGED"));
    EXPECT_TRUE(staysWithoutPicture());
    EXPECT_FALSE(decoderHasStarted());
    say(GetParam().comeBack);
    EXPECT_TRUE(viewer().waitForState(BridgeState::kLive));
}

TEST_P(ReleaseSessionLeft, WakingBringsNoPicture) {
    goLive();
    say(GetParam().leave);
    ASSERT_TRUE(viewer().waitForState(BridgeState::kFallback));
    for (const WPARAM event : {PBT_APMSUSPEND, PBT_APMRESUMEAUTOMATIC, PBT_APMRESUMESUSPEND})
        power(event);
    EXPECT_TRUE(staysWithoutPicture());
    EXPECT_EQ(broker().countEvents("POWER_RESUME_RECOVER"), 0u);
}

TEST_F(ReleaseSystemNews, ConnectingALockedSessionBringsNoPicture) {
    goLive();
    for (const WPARAM reason : {WTS_SESSION_LOCK, WTS_REMOTE_DISCONNECT, WTS_REMOTE_CONNECT})
        say(reason);
    EXPECT_TRUE(staysWithoutPicture());
    say(WTS_SESSION_UNLOCK);
    EXPECT_TRUE(viewer().waitForState(BridgeState::kLive));
    EXPECT_EQ(broker().countEvents("SESSION_OWN_RESUME"), 1u);
}

TEST_F(ReleaseSystemNews, UnlockingEndsSuspendedAutomatic) {
    goLive();
    broker().command(kIdAutomatic);
    ASSERT_TRUE(viewer().waitForState(BridgeState::kStopped));
    say(WTS_SESSION_LOCK);
    say(WTS_SESSION_UNLOCK);
    EXPECT_TRUE(viewer().waitForState(BridgeState::kLive));
}

TEST_F(ReleaseSystemNews, OtherNewsOfTheSessionChangesNothing) {
    goLive();
    say(WTS_SESSION_REMOTE_CONTROL);
    EXPECT_TRUE(viewer().waitForFrameAfter(viewer().header().frameCounter + 16, 3000));
    EXPECT_EQ(state(), static_cast<std::uint32_t>(BridgeState::kLive));
    EXPECT_EQ(broker().countEvents("SESSION_PRIVATE_FALLBACK") + broker().countEvents("SESSION_OWN_RESUME"),
              0u);
}

TEST_F(ReleaseSystemNews, TheEndOfTheSessionStopsTheDecoderAndTheBroker) {
    goLive();
    EXPECT_EQ(SendMessageW(broker().window(), WM_QUERYENDSESSION, 0, 0), TRUE);
    EXPECT_TRUE(viewer().waitForState(BridgeState::kStopped));
    PostMessageW(broker().window(), WM_ENDSESSION, TRUE, 0);
    EXPECT_EQ(broker().waitForExit(5000), 0u);
}

// As Windows sends it: a question, and in the end that nothing comes of it.
class ReleaseSessionEndCalledOff : public SystemNews {
protected:
    void ask() { EXPECT_EQ(SendMessageW(broker().window(), WM_QUERYENDSESSION, 0, 0), TRUE); }
    void callOff() { SendMessageW(broker().window(), WM_ENDSESSION, FALSE, 0); }
};

TEST_F(ReleaseSessionEndCalledOff, BringsThePictureBack) {
    goLive();
    const std::uint64_t frames = viewer().header().frameCounter;
    ask();
    ASSERT_TRUE(viewer().waitForState(BridgeState::kStopped));
    callOff();
    ASSERT_TRUE(viewer().waitForState(BridgeState::kLive));
    EXPECT_GT(viewer().header().frameCounter, frames);  // the numbers go on
    EXPECT_EQ(broker().countEvents("MF_STARTUP"), 2u);
}

TEST_F(ReleaseSessionEndCalledOff, AtOnceBringsThePictureBackToo) {
    goLive();
    ask();
    callOff();
    EXPECT_TRUE(waitUntil([&] { return decoderHasStarted(2); }, 5000));
    EXPECT_TRUE(viewer().waitForState(BridgeState::kLive));
}

TEST_F(ReleaseSessionEndCalledOff, AfterASecondQuestionBringsThePictureBackToo) {
    goLive();
    ask();
    ASSERT_TRUE(viewer().waitForState(BridgeState::kStopped));
    ask();
    callOff();
    EXPECT_TRUE(viewer().waitForState(BridgeState::kLive));
}

TEST_F(ReleaseSessionEndCalledOff, LeavesAutomaticOffThatTheUserSwitchedOff) {
    goLive();
    broker().command(kIdAutomatic);
    ASSERT_TRUE(viewer().waitForState(BridgeState::kStopped));
    ask();
    callOff();
    ASSERT_TRUE(waitUntil([&] { return broker().countEvents("MF_STARTUP") == 2; }, 5000));
    Sleep(700);
    EXPECT_EQ(state(), static_cast<std::uint32_t>(BridgeState::kStopped));
    broker().command(kIdAutomatic);
    EXPECT_TRUE(viewer().waitForState(BridgeState::kLive));
}

TEST_F(ReleaseSessionEndCalledOff, LeavesAProducerOffThatTheUserPaused) {
    goLive();
    broker().command(kIdPause);
    ASSERT_TRUE(viewer().waitForState(BridgeState::kPaused));
    ask();
    callOff();
    ASSERT_TRUE(waitUntil([&] { return broker().countEvents("MF_STARTUP") == 2; }, 5000));
    Sleep(700);
    EXPECT_EQ(state(), static_cast<std::uint32_t>(BridgeState::kStopped));
}

TEST_F(ReleaseSessionEndCalledOff, LeavesABrokerThatEndsWhenItIsAsked) {
    goLive();
    ask();
    callOff();
    ASSERT_TRUE(waitUntil([&] { return broker().countEvents("MF_STARTUP") == 2; }, 5000));
    viewer().releaseLease();
    ASSERT_TRUE(viewer().waitForState(BridgeState::kStopped));
    broker().command(kIdTrayQuit);
    EXPECT_EQ(broker().waitForExit(5000), 0u);
}

TEST_F(ReleaseSessionEndCalledOff, WithoutAQuestionChangesNothing) {
    goLive();
    callOff();
    EXPECT_TRUE(viewer().waitForFrameAfter(viewer().header().frameCounter + 16, 3000));
    EXPECT_EQ(broker().countEvents("MF_STARTUP"), 1u);
}

}  // namespace
}  // namespace vextra::test
