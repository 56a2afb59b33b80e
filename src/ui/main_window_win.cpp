#include <windows.h>

#include <wtsapi32.h>

#include <algorithm>
#include <string>

#include "bridge/bridge_layout.h"
#include "core/instance_win.h"
#include "core/supervisor_thread_win.h"
#include "ui/main_window.h"

namespace vextra {
namespace {

constexpr UINT_PTR kTimerId = 1;
constexpr UINT kTimerMs = 200;
constexpr Tick kIdleReadyMs = 500;

// Command ids of the buttons and of the tray menu.
constexpr WORD kIdAutomatic = 100;
constexpr WORD kIdPause = 101;
constexpr WORD kIdPreview = 105;
constexpr WORD kIdTrayShow = 200;
constexpr WORD kIdTrayAutomatic = 201;
constexpr WORD kIdTrayQuit = 202;

// Design units of 1/96 inch.
constexpr SIZE kClientSize{980, 720};
constexpr SIZE kMinimumSize{880, 745};
constexpr POINT kFirstPosition{100, 60};
constexpr int kFontHeight = 17;
constexpr int kMargin = 16;
constexpr int kLineHeight = 26;

}  // namespace

bool MainWindow::create(HINSTANCE instance) {
    dpi_ = GetDpiForSystem();
    rebuildFont();

    WNDCLASSEXW windowClass{};
    windowClass.cbSize = sizeof windowClass;
    windowClass.lpfnWndProc = &MainWindow::windowProcedure;
    windowClass.hInstance = instance;
    windowClass.hIcon = LoadIconW(instance, MAKEINTRESOURCEW(1));
    windowClass.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    windowClass.hbrBackground = static_cast<HBRUSH>(GetStockObject(WHITE_BRUSH));
    windowClass.lpszClassName = kMainWindowClass;
    if (RegisterClassExW(&windowClass) == 0)
        return false;

    constexpr DWORD kStyle = WS_OVERLAPPEDWINDOW | WS_CLIPCHILDREN;
    RECT frame{0, 0, scaled(kClientSize.cx), scaled(kClientSize.cy)};
    AdjustWindowRectExForDpi(&frame, kStyle, FALSE, 0, dpi_);
    return CreateWindowExW(0, kMainWindowClass, kWindowTitle, kStyle, kFirstPosition.x, kFirstPosition.y,
                           frame.right - frame.left, frame.bottom - frame.top, nullptr, nullptr, instance,
                           this) != nullptr;
}

void MainWindow::startClock(std::uint32_t testSeconds) {
    startTick_ = GetTickCount64();
    testSeconds_ = testSeconds;
}

void MainWindow::showWithoutActivating() {
    ShowWindow(window_, SW_SHOWNOACTIVATE);
}

void MainWindow::runMessageLoop() {
    MSG message{};
    while (GetMessageW(&message, nullptr, 0, 0) > 0) {
        if (window_ != nullptr && IsDialogMessageW(window_, &message))
            continue;
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
}

LRESULT CALLBACK MainWindow::windowProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_NCCREATE) {
        const auto* creation = reinterpret_cast<const CREATESTRUCTW*>(lParam);
        auto* created = static_cast<MainWindow*>(creation->lpCreateParams);
        created->window_ = window;
        SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(created));
    }
    auto* self = reinterpret_cast<MainWindow*>(GetWindowLongPtrW(window, GWLP_USERDATA));
    return self != nullptr && self->window_ != nullptr ? self->handleMessage(message, wParam, lParam)
                                                       : DefWindowProcW(window, message, wParam, lParam);
}

LRESULT MainWindow::handleMessage(UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
        case WM_CREATE:
            SetTimer(window_, kTimerId, kTimerMs, nullptr);
            sessionNotified_ = WTSRegisterSessionNotification(window_, NOTIFY_FOR_THIS_SESSION) != FALSE;
            log_.write(sessionNotified_ ? EventCode::kSessionNotifyRegistered
                                        : EventCode::kSessionNotifyFailed);
            return 0;
        case WM_TIMER: onTimer(); return 0;
        case WM_COMMAND: onCommand(LOWORD(wParam)); return 0;
        case kMessageStatusChanged: InvalidateRect(window_, nullptr, FALSE); return 0;
        case kMessageShowWindow:
            showWithoutActivating();
            log_.write(EventCode::kUiShow);
            return 0;
        case kMessageStopSignal:
            // Asked while idle; demand that came since then goes first.
            if (shared_.leaseCount == 0 && !shared_.previewRuns(GetTickCount64()))
                quitBroker();
            return 0;
        case WM_WTSSESSION_CHANGE: onSessionChange(wParam); return 0;
        case WM_POWERBROADCAST: onPowerBroadcast(wParam); return TRUE;
        case WM_QUERYENDSESSION:
            // The Supervisor ends at the question already. Should another program veto the end of the
            // session, the broker serves no picture until it is started again.
            send(SupervisorCommand::kQuit);
            return TRUE;
        case WM_ENDSESSION:
            if (wParam != FALSE)
                quitBroker();
            return 0;
        case WM_DPICHANGED: onDpiChanged(HIWORD(wParam), *reinterpret_cast<const RECT*>(lParam)); return 0;
        case WM_GETMINMAXINFO:
            reinterpret_cast<MINMAXINFO*>(lParam)->ptMinTrackSize = {scaled(kMinimumSize.cx),
                                                                     scaled(kMinimumSize.cy)};
            return 0;
        case WM_SIZE: InvalidateRect(window_, nullptr, TRUE); return 0;
        case WM_PAINT: onPaint(); return 0;
        case WM_CLOSE: quitBroker(); return 0;  // there is no tray icon yet to go on living in
        case WM_DESTROY:
            window_ = nullptr;
            PostQuitMessage(0);
            return 0;
    }
    return DefWindowProcW(window_, message, wParam, lParam);
}

void MainWindow::onTimer() {
    if (IsWindowVisible(window_))
        InvalidateRect(window_, nullptr, FALSE);
    if (startTick_ == 0)
        return;
    const Tick sinceStartMs = GetTickCount64() - startTick_;
    if (!idleReadyLogged_ && sinceStartMs >= kIdleReadyMs) {
        idleReadyLogged_ = true;
        log_.write(EventCode::kAutomaticIdleReady);
    }
    if (testSeconds_ != 0 && sinceStartMs >= Tick{testSeconds_} * 1000)
        quitBroker();
}

void MainWindow::onCommand(WORD id) {
    switch (id) {
        case kIdAutomatic:
        case kIdTrayAutomatic: toggleAutomatic(); break;
        case kIdPause: send(SupervisorCommand::kTogglePause); break;
        case kIdPreview: togglePreview(); break;
        case kIdTrayShow:
            showWithoutActivating();
            log_.write(EventCode::kUiShow);
            break;
        case kIdTrayQuit: quitBroker(); break;
        default: break;
    }
}

void MainWindow::onSessionChange(WPARAM reason) {
    switch (reason) {
        case WTS_CONSOLE_DISCONNECT:
        case WTS_REMOTE_DISCONNECT:
        case WTS_SESSION_LOCK:
            suspendForPrivacy();
            log_.write(EventCode::kSessionPrivateFallback);
            break;
        case WTS_CONSOLE_CONNECT:
        case WTS_REMOTE_CONNECT:
        case WTS_SESSION_UNLOCK:
            send(SupervisorCommand::kResume);
            log_.write(EventCode::kSessionOwnResume);
            break;
        default: break;
    }
}

void MainWindow::onPowerBroadcast(WPARAM event) {
    if (event == PBT_APMSUSPEND)
        suspendForPrivacy();
    else if (event == PBT_APMRESUMESUSPEND || event == PBT_APMRESUMEAUTOMATIC)
        send(SupervisorCommand::kResume);
}

void MainWindow::suspendForPrivacy() {
    shared_.previewDeadline = 0;
    send(SupervisorCommand::kSuspend);
}

void MainWindow::toggleAutomatic() {
    if (shared_.paused) {
        send(SupervisorCommand::kResume);
        return;
    }
    shared_.previewDeadline = 0;
    send(SupervisorCommand::kStopAndSuspend);
}

void MainWindow::togglePreview() {
    const Tick now = GetTickCount64();
    if (!shared_.previewRuns(now)) {
        shared_.previewDeadline = now + kManualPreviewMs;
        send(SupervisorCommand::kResume);
        log_.write(EventCode::kManualPreviewBegin);
        return;
    }
    shared_.previewDeadline = 0;
    showStatusText(shared_, window_, L"Prévia manual encerrada. Captura externa, se existente, permanece.");
    log_.write(EventCode::kManualPreviewRelease);
}

void MainWindow::quitBroker() {
    if (quitting_)
        return;
    quitting_ = true;
    shared_.previewDeadline = 0;
    if (sessionNotified_)
        WTSUnRegisterSessionNotification(window_);
    send(SupervisorCommand::kQuit);
    DestroyWindow(window_);
}

void MainWindow::send(SupervisorCommand command) {
    sendCommand(shared_, wakeEvent_, command);
}

void MainWindow::rebuildFont() {
    font_.reset(CreateFontW(scaled(kFontHeight), 0, 0, 0, FW_NORMAL, FALSE, FALSE, FALSE, DEFAULT_CHARSET,
                            OUT_DEFAULT_PRECIS, CLIP_DEFAULT_PRECIS, CLEARTYPE_QUALITY,
                            DEFAULT_PITCH | FF_DONTCARE, L"Segoe UI"));
}

void MainWindow::onDpiChanged(UINT dpi, const RECT& suggested) {
    dpi_ = dpi;
    rebuildFont();
    SetWindowPos(window_, nullptr, suggested.left, suggested.top, suggested.right - suggested.left,
                 suggested.bottom - suggested.top, SWP_NOZORDER | SWP_NOACTIVATE);
    log_.write(EventCode::kDpiChanged);
}

// The state in two lines, and the newest frame below them.
void MainWindow::onPaint() {
    PAINTSTRUCT paint{};
    const HDC dc = BeginPaint(window_, &paint);
    RECT client{};
    GetClientRect(window_, &client);
    const int margin = scaled(kMargin);
    const int line = scaled(kLineHeight);

    const HGDIOBJ oldFont = SelectObject(dc, font_.get());
    SetBkColor(dc, RGB(255, 255, 255));
    const auto drawLine = [&](int top, std::wstring_view text) {
        RECT row{margin, top, client.right - margin, top + line};
        ExtTextOutW(dc, row.left, row.top, ETO_OPAQUE | ETO_CLIPPED, &row, text.data(),
                    static_cast<UINT>(text.size()), nullptr);
    };
    drawLine(margin, statusLabel({static_cast<BrokerStatus>(shared_.status.load()), shared_.leaseCount,
                                  shared_.lastFrameTick, GetTickCount64()}));
    const std::lock_guard guard(shared_.statusLock);
    drawLine(margin + line, shared_.statusText);
    SelectObject(dc, oldFont);

    const int top = margin + 2 * line + margin;
    const int width = client.right - 2 * margin;
    const int height = client.bottom - top - margin;
    if (width > 0 && height > 0) {
        const int fitWidth = std::min(width, MulDiv(height, kFrameWidthPx, kFrameHeightPx));
        BITMAPINFO format{};
        format.bmiHeader.biSize = sizeof format.bmiHeader;
        format.bmiHeader.biWidth = kFrameWidthPx;
        format.bmiHeader.biHeight = -static_cast<LONG>(kFrameHeightPx);  // top row first
        format.bmiHeader.biPlanes = 1;
        format.bmiHeader.biBitCount = 32;
        format.bmiHeader.biCompression = BI_RGB;
        SetStretchBltMode(dc, COLORONCOLOR);
        StretchDIBits(dc, margin, top, fitWidth, MulDiv(fitWidth, kFrameHeightPx, kFrameWidthPx), 0, 0,
                      kFrameWidthPx, kFrameHeightPx, shared_.previewFrame.data(), &format, DIB_RGB_COLORS,
                      SRCCOPY);
    }
    EndPaint(window_, &paint);
}

}  // namespace vextra
