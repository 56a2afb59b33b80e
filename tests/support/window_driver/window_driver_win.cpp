// Drives the running broker's window as its words say, one after the other:
//
//   press ID          as a click on the control would
//   choose ID INDEX   an entry of a drop-down list, counted from 0
//   type ID TEXT      in place of what the field holds
//   size W H          of the whole window, in pixels; the smallest there is takes any less
//   close             as with the cross in its corner
//   wait MS
//
// Ends with 1 when there is no such window or control, with 2 when a word is not understood.
#include <windows.h>

#include <cstdio>
#include <cwchar>
#include <string>

#include "core/instance_win.h"

namespace {

constexpr DWORD kPatienceMs = 20'000;

HWND waitForWindow() {
    for (DWORD waitedMs = 0; waitedMs < kPatienceMs; waitedMs += 50) {
        if (const HWND window = FindWindowW(vextra::kMainWindowClass, nullptr); window != nullptr)
            return window;
        Sleep(50);
    }
    return nullptr;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    const HWND window = waitForWindow();
    if (window == nullptr)
        return 1;
    int at = 1;
    const auto next = [&] { return at < argc ? argv[at++] : L""; };
    const auto number = [&] { return static_cast<int>(std::wcstol(next(), nullptr, 10)); };
    while (at < argc) {
        const std::wstring verb = next();
        if (verb == L"wait") {
            Sleep(static_cast<DWORD>(number()));
            continue;
        }
        if (verb == L"close") {
            SendMessageW(window, WM_CLOSE, 0, 0);
            continue;
        }
        const int first = number();
        if (verb == L"size") {
            SetWindowPos(window, nullptr, 0, 0, first, number(), SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
            continue;
        }
        const HWND control = GetDlgItem(window, first);
        const auto id = static_cast<WPARAM>(first);
        if (verb == L"press") {
            SendMessageW(window, WM_COMMAND, id, 0);
        } else if (control == nullptr) {
            return 1;
        } else if (verb == L"choose") {
            SendMessageW(control, CB_SETCURSEL, static_cast<WPARAM>(number()), 0);
            SendMessageW(window, WM_COMMAND, MAKEWPARAM(id, CBN_SELCHANGE),
                         reinterpret_cast<LPARAM>(control));
        } else if (verb == L"type") {
            SendMessageW(control, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(next()));
        } else {
            std::fprintf(stderr, "not understood: %ls\n", verb.c_str());
            return 2;
        }
    }
    return 0;
}
