// What every test of the running broker's window begins with.
#pragma once

#include <windows.h>

#include "broker_test_win.h"
#include "broker_window_win.h"
#include "core/window_messages_win.h"

namespace vextra::test {

// What the user works with meanwhile: a window of another program, over all of the screen.
class UsersWindow {
public:
    UsersWindow()
        : window_(CreateWindowExW(0, L"STATIC", L"", WS_POPUP | WS_VISIBLE, 0, 0,
                                  GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN), nullptr,
                                  nullptr, nullptr, nullptr)) {
        SetForegroundWindow(window_);
    }
    ~UsersWindow() { DestroyWindow(window_); }
    UsersWindow(const UsersWindow&) = delete;
    UsersWindow& operator=(const UsersWindow&) = delete;

    bool hasTheKeyboard() const { return GetForegroundWindow() == window_; }
    bool isAbove(HWND other) const {
        HWND each = GetTopWindow(nullptr);
        while (each != nullptr && each != window_ && each != other)
            each = GetWindow(each, GW_HWNDNEXT);
        return each == window_;
    }

private:
    const HWND window_;
};

class WindowTest : public BrokerTest {
protected:
    WindowTest() { decoder().behave("frames=endless\nframesPerSecond=16"); }

    void start(const std::wstring& options = L"--test-pattern") {
        broker().start(options);
        // The check for updates at the start has its own say in the status line.
        ASSERT_TRUE(broker().waitForEvent("MF_UPDATE_CHECK_COMPLETED", 20'000));
    }
    void goLive() {
        viewer().takeLease();
        ASSERT_TRUE(viewer().waitForState(BridgeState::kLive));
    }
    void pause() {
        ASSERT_TRUE(waitUntil([&] { return window.visible(kIdPause); }, 2000));
        window.press(kIdPause);
    }
    bool isShown() const { return IsWindowVisible(window.handle()) != FALSE; }
    void close() { SendMessageW(window.handle(), WM_CLOSE, 0, 0); }

    const BrokerWindow window{broker()};
};

}  // namespace vextra::test
