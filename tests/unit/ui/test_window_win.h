// A window on the test's own thread that a door may fill, and that counts what reaches it. It stays hidden.
#pragma once

#include <windows.h>

#include <map>

#include "broker_fixture_win.h"

namespace vextra::test {

class TestWindow {
public:
    static constexpr int kWidth = 1000, kHeight = 760;

    TestWindow() {
        static const ATOM windowClass = registerClass();
        window_ = CreateWindowExW(0, MAKEINTATOM(windowClass), L"", WS_POPUP | WS_CLIPCHILDREN, 0, 0, kWidth,
                                  kHeight, nullptr, nullptr, module(), this);
        if (window_ == nullptr)
            failSetUp("window");
    }
    ~TestWindow() { DestroyWindow(window_); }
    TestWindow(const TestWindow&) = delete;
    TestWindow& operator=(const TestWindow&) = delete;

    static HINSTANCE module() { return GetModuleHandleW(nullptr); }
    HWND handle() const { return window_; }
    int messages(UINT message) { return counts_[message]; }

private:
    static ATOM registerClass() {
        WNDCLASSW windowClass{};
        windowClass.lpfnWndProc = &procedure;
        windowClass.hInstance = module();
        windowClass.lpszClassName = L"VextraTestWindow";
        return RegisterClassW(&windowClass);
    }
    static LRESULT CALLBACK procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
        if (message == WM_NCCREATE) {
            const auto& creation = *reinterpret_cast<const CREATESTRUCTW*>(lParam);
            SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(creation.lpCreateParams));
        }
        if (auto* const self = reinterpret_cast<TestWindow*>(GetWindowLongPtrW(window, GWLP_USERDATA)))
            ++self->counts_[message];
        // A close that got here is counted, not followed.
        return message == WM_CLOSE ? 0 : DefWindowProcW(window, message, wParam, lParam);
    }

    HWND window_ = nullptr;
    std::map<UINT, int> counts_;
};

}  // namespace vextra::test
