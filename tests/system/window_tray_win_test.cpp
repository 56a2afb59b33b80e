// The running broker's window as it comes and goes: how it is shown and hidden, and its icon in the tray.
#include <windows.h>

#include <shellapi.h>

#include <algorithm>
#include <thread>

#include "window_test_win.h"

namespace vextra::test {
namespace {

// A taskbar of the test's own, before the shell's: it takes no icon.
class TaskbarThatRefuses {
public:
    TaskbarThatRefuses() {
        ready_.reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
        thread_ = std::thread([this] {
            WNDCLASSW windowClass{};
            windowClass.lpfnWndProc = &answerNothing;
            windowClass.hInstance = GetModuleHandleW(nullptr);
            windowClass.lpszClassName = L"Shell_TrayWnd";
            RegisterClassW(&windowClass);
            const HWND window = CreateWindowExW(WS_EX_TOOLWINDOW, windowClass.lpszClassName, L"", WS_POPUP, 0,
                                                0, 1, 1, nullptr, nullptr, windowClass.hInstance, nullptr);
            threadId_ = GetCurrentThreadId();
            SetEvent(ready_.get());
            for (MSG message{}; GetMessageW(&message, nullptr, 0, 0) > 0;)
                DispatchMessageW(&message);
            DestroyWindow(window);
        });
        WaitForSingleObject(ready_.get(), INFINITE);
    }
    ~TaskbarThatRefuses() {
        PostThreadMessageW(threadId_, WM_QUIT, 0, 0);
        thread_.join();
    }
    TaskbarThatRefuses(const TaskbarThatRefuses&) = delete;
    TaskbarThatRefuses& operator=(const TaskbarThatRefuses&) = delete;

private:
    static LRESULT CALLBACK answerNothing(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
        return message == WM_COPYDATA ? FALSE : DefWindowProcW(window, message, wParam, lParam);
    }

    UniqueHandle ready_;
    DWORD threadId_ = 0;  // written before `ready_` is set
    std::thread thread_;
};

class ReleaseWindowAndTray : public WindowTest {
protected:
    void tray(UINT mouseMessage) {
        PostMessageW(window.handle(), kMessageTray, 1, static_cast<LPARAM>(mouseMessage));
    }
    void announceTaskbar() { SendMessageW(window.handle(), RegisterWindowMessageW(L"TaskbarCreated"), 0, 0); }
    // As the shell would when it loses the icon.
    void takeIconAway() {
        NOTIFYICONDATAW record{};
        record.cbSize = sizeof record;
        record.hWnd = window.handle();
        record.uID = 1;
        ASSERT_TRUE(Shell_NotifyIconW(NIM_DELETE, &record));
    }
};

// --- Shown ---

TEST_F(ReleaseWindowAndTray, OpensAtItsPlaceAndLeavesTheKeyboardToOthers) {
    const UsersWindow users;
    ASSERT_TRUE(users.hasTheKeyboard());
    start();
    RECT frame{};
    GetWindowRect(window.handle(), &frame);
    EXPECT_EQ(frame.left, 100);
    EXPECT_EQ(frame.top, 60);
    constexpr LONG_PTR kStyle = WS_OVERLAPPEDWINDOW | WS_CLIPCHILDREN | WS_VISIBLE;
    EXPECT_EQ(GetWindowLongPtrW(window.handle(), GWL_STYLE) & kStyle, kStyle);
    EXPECT_TRUE(users.hasTheKeyboard());
    EXPECT_FALSE(users.isAbove(window.handle()));
}

// --- The tray ---

TEST_F(ReleaseWindowAndTray, HidesInTheTrayWhenItIsClosed) {
    start();
    close();
    EXPECT_FALSE(isShown());
    EXPECT_TRUE(broker().runs());
    EXPECT_TRUE(broker().waitForEvent("UI_HIDE_TRAY_ACTIVE"));
}

TEST_F(ReleaseWindowAndTray, EndsThePreviewWhenItIsClosed) {
    start();
    window.press(kIdPreview);
    ASSERT_TRUE(viewer().waitForState(BridgeState::kLive));
    close();
    EXPECT_TRUE(viewer().waitForState(BridgeState::kStopped));
}

TEST_F(ReleaseWindowAndTray, KeepsAMeetingGoingWhenItIsClosed) {
    start();
    goLive();
    close();
    const std::uint64_t frames = viewer().header().frameCounter;
    EXPECT_TRUE(viewer().waitForFrameAfter(frames + 16));
}

TEST_F(ReleaseWindowAndTray, ComesBackByAClickOnTheTrayIcon) {
    start();
    for (const UINT click : {WM_LBUTTONUP, WM_LBUTTONDBLCLK}) {
        close();
        tray(click);
        EXPECT_TRUE(waitUntil([&] { return isShown(); }, 2000)) << click;
    }
    EXPECT_TRUE(waitUntil([&] { return broker().countEvents("UI_SHOW_IDEMPOTENT") == 2; }, 2000));
}

TEST_F(ReleaseWindowAndTray, ComesBackByAClickOnTheShellsOwnIcon) {
    start();
    close();
    // Wine draws the tray itself where the desktop has none: a window for each icon.
    const std::vector<HWND> windows = allWindows();
    const auto icon = std::find_if(windows.begin(), windows.end(), [](HWND candidate) {
        wchar_t name[64]{};
        GetClassNameW(candidate, name, 64);
        return std::wstring_view(name) == L"__winex11_tray_icon";
    });
    if (icon == windows.end())
        GTEST_SKIP() << "the shell's tray icons cannot be reached by messages: click it by hand";
    PostMessageW(*icon, WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(5, 5));
    PostMessageW(*icon, WM_LBUTTONUP, 0, MAKELPARAM(5, 5));
    EXPECT_TRUE(waitUntil([&] { return isShown(); }, 3000));
}

TEST_F(ReleaseWindowAndTray, ComesBackMaximisedWhenItWasClosedSo) {
    start();
    ShowWindow(window.handle(), SW_MAXIMIZE);
    close();
    ASSERT_FALSE(isShown());
    tray(WM_LBUTTONUP);
    ASSERT_TRUE(broker().waitForEvent("UI_SHOW_IDEMPOTENT"));
    EXPECT_TRUE(isShown());
    EXPECT_TRUE(IsZoomed(window.handle()));
}

TEST_F(ReleaseWindowAndTray, StaysMaximisedWhenItIsAskedForWhileItIsOpen) {
    start();
    ShowWindow(window.handle(), SW_MAXIMIZE);
    for (const UINT click : {WM_LBUTTONUP, WM_LBUTTONDBLCLK})
        SendMessageW(window.handle(), kMessageTray, 1, static_cast<LPARAM>(click));
    EXPECT_EQ(broker().runToEnd(L""), 2u);
    EXPECT_TRUE(waitUntil([&] { return broker().countEvents("UI_SHOW_IDEMPOTENT") == 3; }, 2000));
    EXPECT_TRUE(IsZoomed(window.handle()));
}

// --- A second start ---

TEST_F(ReleaseWindowAndTray, RisesAboveOthersByASecondStartWithoutTheKeyboard) {
    start();
    const UsersWindow users;
    ASSERT_TRUE(users.isAbove(window.handle()));
    EXPECT_EQ(broker().runToEnd(L""), 2u);
    EXPECT_TRUE(waitUntil([&] { return !users.isAbove(window.handle()); }, 2000));
    EXPECT_TRUE(users.hasTheKeyboard());
}

TEST_F(ReleaseWindowAndTray, IsRestoredByASecondStartWithoutTheKeyboard) {
    start();
    ShowWindow(window.handle(), SW_MINIMIZE);
    ASSERT_TRUE(IsIconic(window.handle()));
    const UsersWindow users;
    EXPECT_EQ(broker().runToEnd(L""), 2u);
    EXPECT_TRUE(waitUntil([&] { return !IsIconic(window.handle()); }, 2000));
    EXPECT_TRUE(waitUntil([&] { return !users.isAbove(window.handle()); }, 2000));
    EXPECT_TRUE(users.hasTheKeyboard());
}

// --- The menu of the icon ---

TEST_F(ReleaseWindowAndTray, SwitchesAutomaticOffAndOnFromTheTraysMenu) {
    start();
    window.press(kIdPreview);
    ASSERT_TRUE(viewer().waitForState(BridgeState::kLive));
    broker().command(kIdTrayAutomatic);
    EXPECT_TRUE(viewer().waitForState(BridgeState::kStopped));
    EXPECT_TRUE(waitUntil([&] { return window.text(kIdAutomatic) == L"Ativar automático"; }, 2000));
    EXPECT_EQ(window.text(kIdPreview), L"Testar prévia por 60s") << "the preview is over";
    broker().command(kIdTrayAutomatic);
    EXPECT_TRUE(waitUntil([&] { return window.text(kIdAutomatic) == L"Suspender automático"; }, 2000));
}

TEST_F(ReleaseWindowAndTray, ChecksForUpdatesFromTheTraysMenu) {
    start();
    broker().command(kIdTrayCheckUpdate);
    EXPECT_TRUE(waitUntil([&] { return broker().countEvents("MF_UPDATE_CHECK_COMPLETED") == 2; }, 20'000));
}

TEST_F(ReleaseWindowAndTray, IsShownOrEndedFromTheTraysMenu) {
    start();
    close();
    tray(WM_RBUTTONUP);
    ASSERT_NE(window.waitForMenu(), nullptr);
    for (int line = 0; line < 3; ++line)  // two greyed ones, then the first that does something
        PostMessageW(window.handle(), WM_KEYDOWN, VK_DOWN, 1);
    PostMessageW(window.handle(), WM_KEYDOWN, VK_RETURN, 1);
    ASSERT_TRUE(waitUntil([&] { return isShown(); }, 3000)) << "Abrir Vextra";
    tray(WM_CONTEXTMENU);
    ASSERT_NE(window.waitForMenu(), nullptr);
    PostMessageW(window.handle(), WM_KEYDOWN, VK_UP, 1);  // the last line
    PostMessageW(window.handle(), WM_KEYDOWN, VK_RETURN, 1);
    EXPECT_EQ(broker().waitForExit(8000), 0u) << "Sair do broker";
    EXPECT_EQ(broker().countEvents("TRAY_REMOVE"), 1u);
}

// --- The icon ---

TEST_F(ReleaseWindowAndTray, StaysOpenWhereThereIsNoTray) {
    start();
    takeIconAway();
    const TaskbarThatRefuses taskbar;
    announceTaskbar();
    ASSERT_EQ(broker().countEvents("TRAY_ADD_FAILED"), 1u);
    close();
    EXPECT_TRUE(isShown());
    EXPECT_TRUE(window.waitForStatus(L"Bandeja indisponível. Use Sair para encerrar com segurança."));
    EXPECT_EQ(broker().countEvents("UI_HIDE_TRAY_ACTIVE"), 0u);
}

// As at a log-on under load: the taskbar was announced long ago and is too busy to answer.
TEST_F(ReleaseWindowAndTray, TriesAgainWhereItsIconWasRefused) {
    {
        const TaskbarThatRefuses taskbar;
        start();
        ASSERT_EQ(broker().countEvents("TRAY_ADD_FAILED"), 1u);
        Sleep(2500);
        EXPECT_EQ(broker().countEvents("TRAY_ADD_FAILED"), 1u) << "once, however often it is tried";
    }
    ASSERT_TRUE(broker().waitForEvent("TRAY_ADD_OK", 2500));
    close();
    EXPECT_FALSE(isShown());
}

// The shell announces itself also when the main monitor's scale has changed, and the icon is there all the
// time.
TEST_F(ReleaseWindowAndTray, HidesInATrayThatWasAnnouncedTwice) {
    start();
    announceTaskbar();
    close();
    EXPECT_FALSE(isShown());
    EXPECT_TRUE(broker().waitForEvent("UI_HIDE_TRAY_ACTIVE"));
    EXPECT_EQ(broker().countEvents("TRAY_ADD_OK"), 2u);
    EXPECT_EQ(broker().countEvents("TRAY_ADD_FAILED"), 0u);
}

TEST_F(ReleaseWindowAndTray, PutsItsIconIntoANewTaskbar) {
    start();
    takeIconAway();
    announceTaskbar();
    ASSERT_EQ(broker().countEvents("TRAY_ADD_OK"), 2u);
    takeIconAway();  // it was there
    announceTaskbar();
    close();
    EXPECT_FALSE(isShown());
}

}  // namespace
}  // namespace vextra::test
