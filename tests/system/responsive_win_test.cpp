// Whatever the user does with the window, the meeting goes on: frames in the bridge are timed from outside
// while a box, a menu or a drag keeps the window's thread in a loop of its own.
#include <windows.h>

#include <algorithm>

#include "broker_test_win.h"
#include "broker_window_win.h"
#include "core/window_messages_win.h"

namespace vextra::test {
namespace {

constexpr Tick kWatchedMs = 3000;
constexpr Tick kLongestGapMs = 200;

class Responsive : public BrokerTest {
protected:
    Responsive() {
        decoder().behave("frames=endless\nframesPerSecond=16");
        broker().start(L"--test-pattern");
    }

    // The longest time without a new frame, in ms.
    Tick longestGapMs() {
        viewer().takeLease();
        EXPECT_TRUE(viewer().waitForState(BridgeState::kLive));
        const Tick end = GetTickCount64() + kWatchedMs;
        std::uint64_t last = viewer().header().frameCounter;
        Tick lastTick = GetTickCount64(), longest = 0;
        while (GetTickCount64() < end) {
            if (const std::uint64_t now = viewer().header().frameCounter; now != last) {
                longest = std::max(longest, GetTickCount64() - lastTick);
                last = now;
                lastTick = GetTickCount64();
            }
            Sleep(2);
        }
        return std::max(longest, GetTickCount64() - lastTick);
    }

    const BrokerWindow window{broker()};
};
using TimedResponsive = Responsive;
using ReleaseTimedResponsive = Responsive;

TEST_F(ReleaseTimedResponsive, FramesFlowWhileABoxIsOpen) {
    window.press(kIdTabDiagnostics);
    window.pressAndGoOn(kIdRepair);
    const HWND box = window.waitForBox();
    ASSERT_NE(box, nullptr);
    EXPECT_LE(longestGapMs(), kLongestGapMs);
    EXPECT_TRUE(IsWindow(box));
}

TEST_F(ReleaseTimedResponsive, FramesFlowWhileTheTraysMenuIsOpen) {
    PostMessageW(window.handle(), kMessageTray, 1, WM_RBUTTONUP);
    const HWND menu = window.waitForMenu();
    ASSERT_NE(menu, nullptr);
    EXPECT_LE(longestGapMs(), kLongestGapMs);
    EXPECT_TRUE(IsWindow(menu));
}

TEST_F(ReleaseTimedResponsive, FramesFlowWhileTheWindowIsMoved) {
    SetForegroundWindow(window.handle());
    PostMessageW(window.handle(), WM_SYSCOMMAND, SC_MOVE, 0);
    Sleep(300);
    GUITHREADINFO info{};
    info.cbSize = sizeof info;
    ASSERT_TRUE(GetGUIThreadInfo(GetWindowThreadProcessId(window.handle(), nullptr), &info));
    ASSERT_NE(info.flags & GUI_INMOVESIZE, 0u) << "the window is not being moved";
    EXPECT_LE(longestGapMs(), kLongestGapMs);
    PostMessageW(window.handle(), WM_KEYDOWN, VK_ESCAPE, 1);
}

TEST_F(ReleaseTimedResponsive, FramesFlowWhileASourceListIsOpen) {
    window.press(kIdTabSettings);
    SendMessageW(window.control(kIdSource), CB_SHOWDROPDOWN, TRUE, 0);
    EXPECT_LE(longestGapMs(), kLongestGapMs);
}

TEST_F(TimedResponsive, TheWindowAnswersWhileTheDecoderHangs) {
    decoder().behave("frames=0\nthen=hang");
    viewer().takeLease();
    ASSERT_TRUE(waitUntil([&] { return decoderHasStarted(); }, 5000));
    Tick slowest = 0;
    for (int i = 0; i < 50; ++i) {
        const Tick begin = GetTickCount64();
        DWORD_PTR ignored = 0;
        ASSERT_NE(SendMessageTimeoutW(window.handle(), WM_NULL, 0, 0, SMTO_NORMAL, 2000, &ignored), 0);
        slowest = std::max(slowest, GetTickCount64() - begin);
        Sleep(20);
    }
    EXPECT_LE(slowest, kLongestGapMs);
}

}  // namespace
}  // namespace vextra::test
