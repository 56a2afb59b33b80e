// The least that could do what the idle broker does, to be measured beside it: a hidden window with a 200 ms
// timer, and a thread that looks at one event and waits 50 ms for another. Its memory is what the system asks
// of any window program, and the thread switches of one of its passes are the measure for the broker's.
//
//   bench-idle-reference SECONDS
//
// Prints `passes_per_second=N.NN` when it ends.

#include <windows.h>

#include <cstdio>
#include <cwchar>
#include <thread>

#include "base/unique_win.h"

namespace vextra {
namespace {

constexpr UINT kTimerMs = 200;
constexpr DWORD kPassMs = 50;
constexpr UINT_PTR kTimerId = 1;

int run(unsigned long seconds) {
    const HWND window = CreateWindowExW(0, L"STATIC", L"", WS_OVERLAPPEDWINDOW, 0, 0, 100, 100, nullptr,
                                        nullptr, nullptr, nullptr);
    const UniqueHandle stopSignal(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    const UniqueHandle wakeEvent(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    if (window == nullptr || !stopSignal || !wakeEvent ||
        SetTimer(window, kTimerId, kTimerMs, nullptr) == 0) {
        std::fprintf(stderr, "bench-idle-reference: set-up failed: error %lu\n", GetLastError());
        return 1;
    }
    const ULONGLONG startMs = GetTickCount64();
    const ULONGLONG endMs = startMs + seconds * 1000ull;
    unsigned long passes = 0;
    std::thread waiter([&] {
        for (; GetTickCount64() < endMs; ++passes) {
            WaitForSingleObject(stopSignal.get(), 0);
            WaitForSingleObject(wakeEvent.get(), kPassMs);
        }
    });
    MSG message{};
    while (GetTickCount64() < endMs && GetMessageW(&message, nullptr, 0, 0) > 0)
        DispatchMessageW(&message);
    waiter.join();
    const auto elapsedMs = static_cast<double>(GetTickCount64() - startMs);
    std::printf("passes_per_second=%.2f\n", 1000.0 * static_cast<double>(passes) / elapsedMs);
    return 0;
}

}  // namespace
}  // namespace vextra

int wmain(int count, wchar_t** arguments) {
    const unsigned long seconds = count == 2 ? std::wcstoul(arguments[1], nullptr, 10) : 0;
    if (seconds == 0) {
        std::fputs("usage: bench-idle-reference SECONDS\n", stderr);
        return 2;
    }
    return vextra::run(seconds);
}
