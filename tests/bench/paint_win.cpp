// What the main window costs to paint, beside a window that does nothing but stretch the same frame; and
// whether its objects are given back. The window is the product's own, with a state that says "live". Prints
// one JSON object.
#include <windows.h>

#include <commctrl.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "bridge/bridge_layout.h"
#include "gdi_count_win.h"
#include "handle_count_win.h"
#include "ui/main_window_win.h"
#include "ui/tray_text.h"

namespace {

using namespace vextra;

constexpr wchar_t kBareClass[] = L"VextraBenchBareStretch";
constexpr int kPaintsPerRound = 20;
constexpr int kRounds = 7;

double nowMs() {
    LARGE_INTEGER frequency{}, now{};
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&now);
    return static_cast<double>(now.QuadPart) * 1000 / static_cast<double>(frequency.QuadPart);
}

// --- The bare equivalent: the preview's rectangle, stretched as the product does, straight onto the window
// ---

struct BareTarget {
    const std::byte* frame = nullptr;
    PreviewPlace place;
};
BareTarget bareTarget;  // read by the window procedure of this one thread

LRESULT CALLBACK bareProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_ERASEBKGND)
        return TRUE;
    if (message != WM_PAINT)
        return DefWindowProcW(window, message, wParam, lParam);
    PAINTSTRUCT paint{};
    const HDC dc = BeginPaint(window, &paint);
    BITMAPINFO format{};
    format.bmiHeader.biSize = sizeof format.bmiHeader;
    format.bmiHeader.biWidth = kFrameWidthPx;
    format.bmiHeader.biHeight = -static_cast<LONG>(kFrameHeightPx);
    format.bmiHeader.biPlanes = 1;
    format.bmiHeader.biBitCount = 32;
    SetStretchBltMode(dc, HALFTONE);
    SetBrushOrgEx(dc, 0, 0, nullptr);
    StretchDIBits(dc, bareTarget.place.x, kPreviewTop, bareTarget.place.width, bareTarget.place.height, 0, 0,
                  kFrameWidthPx, kFrameHeightPx, bareTarget.frame, &format, DIB_RGB_COLORS, SRCCOPY);
    EndPaint(window, &paint);
    return 0;
}

void pumpMessages() {
    MSG message{};
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
}

void paintNow(HWND window) {
    InvalidateRect(window, nullptr, FALSE);
    UpdateWindow(window);
    GdiFlush();
}

double paintsMs(HWND window, int count) {
    const double begin = nowMs();
    for (int i = 0; i < count; ++i)
        paintNow(window);
    return (nowMs() - begin) / count;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

struct Comparison {
    double productMs = 0;
    double bareMs = 0;
};

// In turns, so that whatever else the machine does hits both.
Comparison compare(HWND product, HWND bare) {
    std::vector<double> productRounds, bareRounds;
    paintsMs(product, 3);
    paintsMs(bare, 3);
    for (int round = 0; round < kRounds; ++round) {
        productRounds.push_back(paintsMs(product, kPaintsPerRound));
        bareRounds.push_back(paintsMs(bare, kPaintsPerRound));
    }
    return {median(productRounds), median(bareRounds)};
}

void setClientSize(HWND window, int width, int height) {
    RECT frame{0, 0, width, height};
    AdjustWindowRectEx(&frame, static_cast<DWORD>(GetWindowLongPtrW(window, GWL_STYLE)), FALSE, 0);
    SetWindowPos(window, nullptr, 0, 0, frame.right - frame.left, frame.bottom - frame.top,
                 SWP_NOZORDER | SWP_NOACTIVATE);
    pumpMessages();
    RECT client{};
    GetClientRect(window, &client);
    if (client.right != width || client.bottom != height)
        std::fprintf(stderr, "asked for %dx%d, got %ldx%ld\n", width, height, client.right, client.bottom);
}

// --- Objects ---

struct Held {
    std::size_t gdiObjects = 0;
    std::uint32_t handles = 0;
};
Held held() {
    return {test::countGdiObjects(GetCurrentProcess()), test::handleCount(GetCurrentProcessId())};
}

void switchPanels(HWND window, int times) {
    for (int i = 0; i < times; ++i) {
        SendMessageW(window, WM_COMMAND, static_cast<WPARAM>(kIdTabCamera + i % 3), 0);
        UpdateWindow(window);
    }
    SendMessageW(window, WM_COMMAND, kIdTabCamera, 0);
}

// Up and down again, so that every round ends in the state in which it began.
void changeDpi(HWND window, int pairs) {
    const RECT suggested{0, 0, 1000, 800};
    for (int i = 0; i < pairs; ++i) {
        for (const WORD dpi : {WORD{144}, WORD{96}}) {
            SendMessageW(window, WM_DPICHANGED, MAKEWPARAM(dpi, dpi), reinterpret_cast<LPARAM>(&suggested));
            UpdateWindow(window);
        }
    }
}

// So many paints, a tenth as many panel switches and a hundredth as many changes of DPI.
void work(HWND window, int paints) {
    for (int i = 0; i < paints; ++i)
        paintNow(window);
    switchPanels(window, paints / 10);
    changeDpi(window, paints / 200);
}

// --- Paints of a hidden window ---

int paintsSeen = 0;

LRESULT CALLBACK countPaints(HWND window, UINT message, WPARAM wParam, LPARAM lParam, UINT_PTR, DWORD_PTR) {
    paintsSeen += message == WM_PAINT ? 1 : 0;
    return DefSubclassProc(window, message, wParam, lParam);
}

int paintsWithin(DWORD ms) {
    paintsSeen = 0;
    const ULONGLONG end = GetTickCount64() + ms;
    while (GetTickCount64() < end) {
        pumpMessages();
        MsgWaitForMultipleObjects(0, nullptr, FALSE, 20, QS_ALLINPUT);
    }
    return paintsSeen;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    const bool quick = argc > 1 && std::wcscmp(argv[1], L"--quick") == 0;
    const HINSTANCE instance = GetModuleHandleW(nullptr);
    SharedStatus shared;
    EventLog log(shared.frameCounter);
    const UniqueHandle wakeEvent(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    shared.previewFrame.resize(kFrameBytes);
    for (std::size_t i = 0; i < kFrameBytes; ++i)
        shared.previewFrame[i] = static_cast<std::byte>(i * 2'654'435'761u >> 13);
    shared.active = true;
    shared.status = BrokerStatus::kLive;
    shared.effectiveBackend = EffectiveBackend::kFfmpeg;
    // Always the present, as long as this runs.
    shared.lastFrameTick = GetTickCount64() + 86'400'000;

    const UpdateChannelIdentity channel{"https://bench.invalid", {}};
    SupervisorThread supervisor({});
    MainWindow product(instance,
                       {&shared, &log, wakeEvent.get(), &supervisor, L".", &channel, Panel::kCamera});
    if (!product.create())
        return 1;
    WNDCLASSEXW bareClass{};
    bareClass.cbSize = sizeof bareClass;
    bareClass.lpfnWndProc = &bareProcedure;
    bareClass.hInstance = instance;
    bareClass.lpszClassName = kBareClass;
    RegisterClassExW(&bareClass);
    const HWND bare = CreateWindowExW(0, kBareClass, L"", WS_OVERLAPPEDWINDOW, 0, 0, 100, 100, nullptr,
                                      nullptr, instance, nullptr);
    bareTarget.frame = shared.previewFrame.data();
    ShowWindow(product.handle(), SW_SHOWNOACTIVATE);
    ShowWindow(bare, SW_SHOWNOACTIVATE);
    KillTimer(product.handle(), 1);  // paints of its own would count for the product only

    std::string sizes;
    for (const SIZE size : {SIZE{980, 720}, SIZE{1920, 1080}}) {
        setClientSize(product.handle(), size.cx, size.cy);
        setClientSize(bare, size.cx, size.cy);
        bareTarget.place = placePreview(size.cx, size.cy);
        const Comparison result = compare(product.handle(), bare);
        char text[200];
        std::snprintf(text, sizeof text,
                      "%s{\"width\": %ld, \"height\": %ld, \"productMs\": %.3f, \"bareMs\": %.3f}",
                      sizes.empty() ? "" : ", ", size.cx, size.cy, result.productMs, result.bareMs);
        sizes += text;
    }

    setClientSize(product.handle(), 980, 720);
    const int paints = quick ? 1000 : 10'000;
    // What the system keeps for good, it makes in the first rounds.
    for (int round = 0; round < 4; ++round)
        work(product.handle(), 1000);
    const Held before = held();
    work(product.handle(), paints);
    const Held after = held();

    SetWindowSubclass(product.handle(), &countPaints, 1, 0);
    SetTimer(product.handle(), 1, 200, nullptr);
    const int visiblePaints = paintsWithin(2000);
    SendMessageW(product.handle(), WM_CLOSE, 0, 0);
    const int hiddenPaints = paintsWithin(2000);
    RemoveWindowSubclass(product.handle(), &countPaints, 1);

    std::printf(
        "{\"sizes\": [%s], \"gdiBefore\": %zu, \"gdiAfter\": %zu, \"handlesBefore\": %u, \"handlesAfter\": "
        "%u, "
        "\"paints\": %d, \"visiblePaints\": %d, \"hiddenPaints\": %d}\n",
        sizes.c_str(), before.gdiObjects, after.gdiObjects, before.handles, after.handles, paints,
        visiblePaints, hiddenPaints);
    std::fflush(stdout);
    SendMessageW(product.handle(), WM_COMMAND, kIdTrayQuit, 0);
    return 0;
}
