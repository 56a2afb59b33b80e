// Keeps one hidden window until the test session ends: under Wine the first window of a session starts the
// desktop, and without a keeper every test that shows a window would pay for that again. Prints "ready" once
// it stands.

#include <windows.h>

#include <cstdio>

int wmain() {
    if (!CreateWindowExW(0, L"STATIC", L"", WS_POPUP, 0, 0, 1, 1, nullptr, nullptr, nullptr, nullptr)) {
        std::fprintf(stderr, "window-keeper: no window: error %lu\n", GetLastError());
        return 1;
    }
    std::puts("ready");
    std::fflush(stdout);
    MSG message{};
    while (GetMessageW(&message, nullptr, 0, 0) > 0) {
        DispatchMessageW(&message);
    }
    return 0;
}
