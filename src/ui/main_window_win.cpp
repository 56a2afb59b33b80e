#include "ui/main_window.h"

#include <wtsapi32.h>

#include <string>
#include <utility>

#include "base/ascii.h"
#include "core/instance_win.h"
#include "core/supervisor_thread_win.h"

namespace vextra {
namespace {

constexpr WORD kIconResource = 1;
constexpr UINT_PTR kTimerId = 1;
constexpr UINT kTimerMs = 200;
constexpr Tick kIdleReadyMs = 500;
constexpr Tick kRateSampleMs = 1000;
constexpr POINT kFirstPosition{100, 60};
// Beyond what Windows offers; anything else in a message is not a DPI.
constexpr int kMinDpi = 48, kMaxDpi = 960;

}  // namespace

MainWindow::MainWindow(HINSTANCE instance, MainWindowSetup setup)
    : instance_(instance),
      shared_(*setup.shared),
      log_(*setup.log),
      wakeEvent_(setup.wakeEvent),
      dataFolder_(std::move(setup.dataFolder)),
      channel_(*setup.channel),
      defaultManifestUrl_(widenedAscii(defaultManifestUrl(channel_))),
      taskbarCreated_(RegisterWindowMessageW(L"TaskbarCreated")),
      painter_(instance),
      tray_(*setup.log),
      panel_(setup.firstPanel) {}

bool MainWindow::create() {
    dpi_ = static_cast<int>(GetDpiForSystem());
    rebuildFont();

    WNDCLASSEXW windowClass{};
    windowClass.cbSize = sizeof windowClass;
    windowClass.lpfnWndProc = &MainWindow::windowProcedure;
    windowClass.hInstance = instance_;
    windowClass.hIcon = LoadIconW(instance_, MAKEINTRESOURCEW(kIconResource));
    windowClass.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    windowClass.lpszClassName = kMainWindowClass;
    if (RegisterClassExW(&windowClass) == 0)
        return false;

    constexpr DWORD kStyle = WS_OVERLAPPEDWINDOW | WS_CLIPCHILDREN;
    RECT frame{0, 0, scaled(kWindowWidth), scaled(kWindowHeight)};
    AdjustWindowRectExForDpi(&frame, kStyle, FALSE, 0, static_cast<UINT>(dpi_));
    return CreateWindowExW(0, kMainWindowClass, kWindowTitle, kStyle, kFirstPosition.x, kFirstPosition.y,
                           frame.right - frame.left, frame.bottom - frame.top, nullptr, nullptr, instance_,
                           this) != nullptr;
}

void MainWindow::startClock(std::uint32_t testSeconds) {
    startTick_ = GetTickCount64();
    testSeconds_ = testSeconds;
}

void MainWindow::showWithoutActivating() {
    ShowWindow(window_, SW_SHOWNOACTIVATE);
    // Also one that was open already, behind others.
    SetWindowPos(window_, HWND_TOP, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE);
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

bool MainWindow::joinUpdateWorker(std::uint32_t limitMs) {
    return !update_ || update_->shutDown(limitMs);
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
    if (message == taskbarCreated_ && taskbarCreated_ != 0) {
        tray_.add(window_, trayImage(), currentStatusLabel());
        return 0;
    }
    switch (message) {
        case WM_CREATE: return onCreate() ? 0 : -1;
        case WM_TIMER: onTimer(); return 0;
        case WM_COMMAND: onCommand(LOWORD(wParam), HIWORD(wParam)); return 0;
        case kMessageStatusChanged: onStatusChanged(); return 0;
        case kMessageShowWindow: openFromTray(); return 0;
        case kMessageTray: onTray(LOWORD(lParam)); return 0;
        case kMessageUpdateDone: update_->handleCompletion(wParam); return 0;
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
        case WM_DPICHANGED: onDpiChanged(HIWORD(wParam), reinterpret_cast<const RECT*>(lParam)); return 0;
        case WM_GETMINMAXINFO:
            reinterpret_cast<MINMAXINFO*>(lParam)->ptMinTrackSize = {scaled(kWindowMinWidth),
                                                                     scaled(kWindowMinHeight)};
            return 0;
        case WM_SIZE:
            if (wParam != SIZE_MINIMIZED)
                layoutControls();
            return 0;
        case WM_ERASEBKGND: return TRUE;  // painting covers everything, hence no flicker
        case WM_PAINT: paintWindow(); return 0;
        case WM_CTLCOLORSTATIC:
        case WM_CTLCOLOREDIT:
        case WM_CTLCOLORBTN:
            return onControlColour(reinterpret_cast<HDC>(wParam), reinterpret_cast<HWND>(lParam));
        case WM_DRAWITEM: onDrawItem(*reinterpret_cast<const DRAWITEMSTRUCT*>(lParam)); return TRUE;
        case DM_GETDEFID: return defaultButton();
        case WM_NEXTDLGCTL: moveFocus(wParam, lParam); return 0;
        case WM_SETFOCUS:
            SetFocus(lastFocus_ != nullptr && IsWindowVisible(lastFocus_) ? lastFocus_
                                                                          : controls_[tabOf(panel_)]);
            return 0;
        case WM_ACTIVATE:
            if (LOWORD(wParam) == WA_INACTIVE && IsChild(window_, GetFocus()))
                lastFocus_ = GetFocus();
            break;
        case WM_CLOSE: onClose(); return 0;
        case WM_DESTROY:
            window_ = nullptr;
            PostQuitMessage(0);
            return 0;
    }
    return DefWindowProcW(window_, message, wParam, lParam);
}

bool MainWindow::onCreate() {
    if (!controls_.create(window_, instance_))
        return false;
    controls_.setFont(font_.get());
    for (const Control& control : kControls) {
        if (!control.accessibleName.empty())
            accessibleNames_.set(controls_[control.id], control.accessibleName);
    }
    update_.emplace(channel_, updateDoors());
    settingsPanel_.fillLists();
    settingsPanel_.fill(formFromSettings(settingsInEffect()));
    refreshButtons(GetTickCount64());
    SetTimer(window_, kTimerId, kTimerMs, nullptr);
    layoutControls();
    tray_.add(window_, trayImage(), currentStatusLabel());
    sessionNotified_ = WTSRegisterSessionNotification(window_, NOTIFY_FOR_THIS_SESSION) != FALSE;
    log_.write(sessionNotified_ ? EventCode::kSessionNotifyRegistered : EventCode::kSessionNotifyFailed);
    return true;
}

// LoadImage keeps the shared icon until the program ends.
HICON MainWindow::trayImage() const {
    return static_cast<HICON>(LoadImageW(instance_, MAKEINTRESOURCEW(kIconResource), IMAGE_ICON,
                                         GetSystemMetricsForDpi(SM_CXSMICON, static_cast<UINT>(dpi_)),
                                         GetSystemMetricsForDpi(SM_CYSMICON, static_cast<UINT>(dpi_)),
                                         LR_SHARED));
}

void MainWindow::onTimer() {
    const Tick now = GetTickCount64();
    sampleFrameRate(now);
    const bool active = shared_.active;
    if (active != laidOutActive_)
        layoutControls();
    refreshButtons(now);
    if (IsWindowVisible(window_))
        InvalidateRect(window_, nullptr, FALSE);
    if (startTick_ == 0)
        return;
    const Tick sinceStartMs = now - startTick_;
    if (!idleReadyLogged_ && sinceStartMs >= kIdleReadyMs) {
        idleReadyLogged_ = true;
        log_.write(EventCode::kAutomaticIdleReady);
        update_->startCheck(CheckKind::kStartup);
    }
    if (testSeconds_ != 0 && sinceStartMs >= Tick{testSeconds_} * 1000)
        quitBroker();
}

void MainWindow::sampleFrameRate(Tick now) {
    const std::uint64_t frames = shared_.frameCounter;
    if (rateTick_ != 0) {
        const Tick elapsedMs = now - rateTick_;
        if (elapsedMs < kRateSampleMs)
            return;
        observedFps_ = static_cast<double>(frames - rateFrames_) * 1000 / static_cast<double>(elapsedMs);
        tray_.refresh(currentStatusLabel());
    }
    rateTick_ = now;
    rateFrames_ = frames;
}

void MainWindow::refreshButtons(Tick now) {
    const bool paused = shared_.paused;
    const bool previewRuns = shared_.previewRuns(now);
    controls_.setText(kIdAutomatic, paused ? kAutomaticOnText : kAutomaticOffText);
    controls_.setText(kIdPause, paused ? kContinueText : kPauseText);
    controls_.setText(kIdPreview, previewRuns ? kPreviewEndText : kPreviewBeginText);
    controls_.setEnabled(kIdApply, !shared_.active && shared_.leaseCount == 0 && !previewRuns);
    refreshUpdateButtons();
}

void MainWindow::onStatusChanged() {
    controls_.setText(kIdStatusLine, statusTextNow(shared_));
    InvalidateRect(window_, nullptr, FALSE);
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

void MainWindow::onClose() {
    shared_.previewDeadline = 0;
    if (!tray_.present()) {
        showStatus(L"Bandeja indisponível. Use Sair para encerrar com segurança.");
        return;
    }
    ShowWindow(window_, SW_HIDE);
    tray_.refresh(currentStatusLabel(), &kStillRunningNotice);
    log_.write(EventCode::kUiHideTray);
}

void MainWindow::quitBroker() {
    if (quitting_)
        return;
    quitting_ = true;
    shared_.previewDeadline = 0;
    if (sessionNotified_)
        WTSUnRegisterSessionNotification(window_);
    tray_.remove();
    update_->beginShutdown();
    send(SupervisorCommand::kQuit);
    for (const Control& control : kControls) {
        if (!control.accessibleName.empty())
            accessibleNames_.clear(controls_[control.id]);
    }
    DestroyWindow(window_);
}

// --- How it looks ---

void MainWindow::rebuildFont() {
    font_.reset(CreateFontW(scaled(kUiFontHeight), 0, 0, 0, FW_NORMAL, FALSE, FALSE, FALSE, DEFAULT_CHARSET,
                            OUT_DEFAULT_PRECIS, CLIP_DEFAULT_PRECIS, CLEARTYPE_QUALITY,
                            DEFAULT_PITCH | FF_DONTCARE, kUiFontName));
}

void MainWindow::onDpiChanged(int dpi, const RECT* suggested) {
    if (dpi < kMinDpi || dpi > kMaxDpi || suggested == nullptr)
        return;
    dpi_ = dpi;
    SetWindowPos(window_, nullptr, suggested->left, suggested->top, suggested->right - suggested->left,
                 suggested->bottom - suggested->top, SWP_NOZORDER | SWP_NOACTIVATE);
    const UniqueFont old(font_.release());  // in use until the controls have the new one
    rebuildFont();
    controls_.setFont(font_.get());
    layoutControls();
    log_.write(EventCode::kDpiChanged);
}

void MainWindow::layoutControls() {
    laidOutActive_ = shared_.active;
    RECT client{};
    GetClientRect(window_, &client);
    LayoutInput input;
    input.clientWidthPixels = client.right;
    input.clientHeightPixels = client.bottom;
    input.dpi = dpi_;
    input.panel = panel_;
    input.selectedSource = settingsPanel_.selectedSource();
    input.episodeActive = laidOutActive_;
    input.advancedShown = settingsPanel_.advancedShown();
    controls_.apply(placeControls(input), tabOf(panel_));
    InvalidateRect(window_, nullptr, FALSE);
}

WindowState MainWindow::windowState(SIZE clientPixels) const {
    WindowState state;
    state.clientWidth = designFromPixels(clientPixels.cx, dpi_);
    state.clientHeight = designFromPixels(clientPixels.cy, dpi_);
    state.panel = panel_;
    state.now = GetTickCount64();
    state.status = static_cast<BrokerStatus>(shared_.status.load());
    state.leaseCount = shared_.leaseCount;
    state.active = shared_.active;
    state.paused = shared_.paused;
    state.lastFrameTick = shared_.lastFrameTick;
    state.frameCounter = shared_.frameCounter;
    state.reconnects = shared_.reconnects;
    state.effectiveBackend = shared_.effectiveBackend;
    state.observedFps = observedFps_;
    state.configuredSource = sourceInEffect();
    state.selectedSource = settingsPanel_.selectedSource();
    state.advancedShown = settingsPanel_.advancedShown();
    state.defaultManifestUrl = defaultManifestUrl_;
    return state;
}

// The newest frame, or the picture that stands for none.
const std::byte* MainWindow::pictureToShow(bool live) {
    if (live) {
        copyPreviewFrame(shared_, picture_);
        pictureIsPlaceholder_ = false;
    } else if (!pictureIsPlaceholder_) {
        fillPlaceholderFrame(picture_);
        pictureIsPlaceholder_ = true;
    }
    return picture_.data();
}

void MainWindow::paintWindow() {
    PAINTSTRUCT paint{};
    const HDC dc = BeginPaint(window_, &paint);
    RECT client{};
    GetClientRect(window_, &client);
    if (client.right >= 1 && client.bottom >= 1) {
        const SIZE size{client.right, client.bottom};
        const UniqueMemoryDc memory(CreateCompatibleDC(dc));
        const UniqueBitmap bitmap(CreateCompatibleBitmap(dc, size.cx, size.cy));
        if (memory && bitmap) {
            const Selection selected(memory.get(), bitmap.get());
            const WindowView view = composeView(windowState(size));
            const std::byte* frame = view.preview ? pictureToShow(view.preview->live) : nullptr;
            painter_.paint(memory.get(), size, dpi_, view, frame);
            BitBlt(dc, 0, 0, size.cx, size.cy, memory.get(), 0, 0, SRCCOPY);
        }
    }
    EndPaint(window_, &paint);
}

LRESULT MainWindow::onControlColour(HDC dc, HWND control) const {
    SetTextColor(dc, colorRef(colours::kControlText));
    SetBkColor(dc, colorRef(colours::kWhite));
    // The corners of a button show what it lies on.
    const int id = GetDlgCtrlID(control);
    const bool onWindow = id == kIdAutomatic || id == kIdPreview || id == kIdPause;
    return reinterpret_cast<LRESULT>(onWindow ? painter_.windowBrush() : painter_.whiteBrush());
}

void MainWindow::onDrawItem(const DRAWITEMSTRUCT& item) const {
    const bool selected = item.CtlID == tabOf(panel_);
    drawTab(item, selected ? TabState::kSelected : TabState::kUnselected, font_.get(), dpi_);
}

// --- How keys move in it ---

// Enter presses the button that has the focus; a tab would not count as one by itself. From a field of the
// settings panel it saves. The other panels have no default.
LRESULT MainWindow::defaultButton() const {
    const HWND focused = GetFocus();
    for (const Control& control : kControls) {
        const bool button = control.kind == ControlKind::kTab || control.kind == ControlKind::kButton;
        if (button && controls_[control.id] == focused)
            return MAKELRESULT(control.id, DC_HASDEFID);
    }
    return panel_ == Panel::kSettings ? MAKELRESULT(kIdApply, DC_HASDEFID) : 0;
}

void MainWindow::moveFocus(WPARAM wParam, LPARAM lParam) {
    const bool isControl = LOWORD(lParam) != 0;
    const HWND next = isControl ? reinterpret_cast<HWND>(wParam)
                                : GetNextDlgTabItem(window_, GetFocus(), wParam != 0 ? TRUE : FALSE);
    if (next != nullptr && IsChild(window_, next))
        SetFocus(next);
}

}  // namespace vextra
