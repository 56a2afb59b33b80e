#include "ui/main_window_win.h"

#include <wtsapi32.h>

#include <algorithm>
#include <string>
#include <utility>

#include "base/text.h"
#include "core/instance_win.h"
#include "core/window_messages_win.h"
#include "update/update_doors_win.h"

namespace vextra {
namespace {

constexpr WORD kIconResource = 1;
constexpr UINT_PTR kTimerId = 1;
constexpr UINT kTimerMs = 200;
constexpr Tick kIdleReadyMs = 500;

}  // namespace

MainWindow::MainWindow(HINSTANCE instance, MainWindowSetup setup)
    : instance_(instance),
      shared_(*setup.shared),
      log_(*setup.log),
      wakeEvent_(setup.wakeEvent),
      supervisor_(*setup.supervisor),
      dataFolder_(std::move(setup.dataFolder)),
      channel_(*setup.channel),
      defaultManifestUrl_(widenedAscii(defaultManifestUrl(channel_))),
      taskbarCreated_(RegisterWindowMessageW(L"TaskbarCreated")),
      painter_(instance),
      tray_(*setup.log),
      panel_(setup.firstPanel) {}

MainWindow::~MainWindow() {
    if (window_ != nullptr)
        quitBroker();
}

bool MainWindow::create() {
    WNDCLASSEXW windowClass{};
    windowClass.cbSize = sizeof windowClass;
    windowClass.lpfnWndProc = &MainWindow::windowProcedure;
    windowClass.hInstance = instance_;
    windowClass.hIcon = LoadIconW(instance_, MAKEINTRESOURCEW(kIconResource));
    windowClass.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    windowClass.lpszClassName = kMainWindowClass;
    if (RegisterClassExW(&windowClass) == 0)
        return false;

    // Its place and its size are found in its creation, when it has a screen.
    if (CreateWindowExW(0, kMainWindowClass, kWindowTitle, kMainWindowStyle, 0, 0, 0, 0, nullptr, nullptr,
                        instance_, this) == nullptr)
        window_ = nullptr;
    return window_ != nullptr;
}

void MainWindow::startClock(std::uint32_t testSeconds) {
    startTick_ = GetTickCount64();
    testSeconds_ = testSeconds;
}

void MainWindow::showWithoutActivating() {
    if (IsIconic(window_))
        ShowWindow(window_, SW_SHOWNOACTIVATE);
    followScreen();  // it may have changed, or gone, while the window was hidden
    // A maximised or arranged window stays so. ShowWindow would make it small, and the process that started
    // this one has a say in its first call. Above the windows of others it rises by the right to the
    // foreground (SetWindowPos, remarks), which a second start of the broker and a click on the icon bring
    // along.
    SetWindowPos(window_, HWND_TOP, 0, 0, 0, 0, SWP_SHOWWINDOW | SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE);
}

void MainWindow::runMessageLoop() {
    MSG message{};
    while (GetMessageW(&message, nullptr, 0, 0) > 0) {
        if (window_ != nullptr && (turnsPanel(message) || IsDialogMessageW(window_, &message)))
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
        tray_.addAgain(trayImage(), currentStatusLabel());
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
        case WM_QUERYENDSESSION: onSessionEndAsked(); return TRUE;
        case WM_ENDSESSION:
            if (wParam != FALSE)
                quitBroker();
            else
                onSessionEndCalledOff();
            return 0;
        case WM_DPICHANGED: onDpiChanged(HIWORD(wParam), reinterpret_cast<const RECT*>(lParam)); return 0;
        case WM_GETDPISCALEDSIZE:
            return onGetDpiScaledSize(static_cast<int>(wParam), reinterpret_cast<SIZE*>(lParam)) ? TRUE
                                                                                                 : FALSE;
        case WM_ENTERSIZEMOVE: drag_ = Drag::kRunning; break;
        case WM_EXITSIZEMOVE: onDropped(); break;
        case WM_GETMINMAXINFO: {
            const PixelSize least = leastWindowSize(screen_);
            reinterpret_cast<MINMAXINFO*>(lParam)->ptMinTrackSize = {least.width, least.height};
            return 0;
        }
        case WM_SIZE:
            if (wParam != SIZE_MINIMIZED)
                layoutControls();
            return 0;
        case WM_ERASEBKGND: return TRUE;  // painting covers everything, hence no flicker
        case WM_PAINT: paintWindow(); return 0;
        case WM_PRINTCLIENT: {  // themed buttons ask for what they lie on
            RECT client{};
            GetClientRect(window_, &client);
            paintTo(reinterpret_cast<HDC>(wParam), {client.right, client.bottom});
            return 0;
        }
        case WM_SHOWWINDOW:
            if (wParam == FALSE)
                settingsPanel_.hideUrl();
            break;
        case WM_CTLCOLORSTATIC:
        case WM_CTLCOLOREDIT:
        case WM_CTLCOLORBTN:
            return onControlColour(reinterpret_cast<HDC>(wParam), reinterpret_cast<HWND>(lParam));
        case WM_DRAWITEM: onDrawItem(*reinterpret_cast<const DRAWITEMSTRUCT*>(lParam)); return TRUE;
        case DM_GETDEFID: return keys_.defaultButton(panel_);
        case WM_NEXTDLGCTL: WindowKeys::moveFocus(window_, wParam, lParam); return 0;
        case WM_SETFOCUS: keys_.giveFocusBack(panel_); return 0;
        case WM_ACTIVATE:
            if (LOWORD(wParam) == WA_INACTIVE)
                keys_.keepFocus(window_);
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
    takeScreen(screenOfWindow(static_cast<int>(GetDpiForWindow(window_))));
    spoken_.begin(panel_, defaultManifestUrl_);
    noteSession(SessionNews::kNone);
    update_.emplace(channel_, systemUpdateDoors(window_, channel_), updateDoors());
    settingsPanel_.fillLists();
    settingsPanel_.fill(formFromSettings(settingsNow(shared_)));
    refreshButtons(GetTickCount64());
    placedOn_ = screen_;
    moveTo(firstWindowPlace(screen_));
    layoutControls();
    // Without it no news would ever be shown, nor a broker with a limit end.
    if (SetTimer(window_, kTimerId, kTimerMs, nullptr) == 0)
        return false;
    tray_.add(window_, trayImage(), currentStatusLabel());
    registerForSession();
    log_.write(sessionNotified_ ? EventCode::kSessionNotifyRegistered : EventCode::kSessionNotifyFailed);
    return true;
}

void MainWindow::registerForSession() {
    sessionNotified_ = WTSRegisterSessionNotification(window_, NOTIFY_FOR_THIS_SESSION) != FALSE;
}

// In the size that the taskbar has on its own screen.
UniqueIcon MainWindow::trayImage() const {
    const HWND taskbar = FindWindowW(L"Shell_TrayWnd", nullptr);
    const UINT dpi = taskbar != nullptr ? GetDpiForWindow(taskbar) : static_cast<UINT>(screen_.dpi);
    return UniqueIcon(static_cast<HICON>(LoadImageW(instance_, MAKEINTRESOURCEW(kIconResource), IMAGE_ICON,
                                                    GetSystemMetricsForDpi(SM_CXSMICON, dpi),
                                                    GetSystemMetricsForDpi(SM_CYSMICON, dpi), 0)));
}

void MainWindow::onTimer() {
    const Tick now = GetTickCount64();
    sampleFrameRate(now);
    const bool active = shared_.active;
    if (active != laidOutActive_)
        layoutControls();
    startSupervisorAgain();
    refreshButtons(now);
    showUpdateProgress();
    refreshFailureReason();
    if (IsWindowVisible(window_)) {
        // When all messages of a change have come, whichever they were.
        followScreen();
        spoken_.describeCamera(windowState({}));
        InvalidateRect(window_, nullptr, FALSE);
    }
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
    if (!rate_.look(shared_.frameCounter, now))
        return;
    tray_.refresh(currentStatusLabel());
    // What the system refused at a busy log-on.
    tray_.addIfAbsent(currentStatusLabel());
    if (!sessionNotified_) {
        registerForSession();
        if (sessionNotified_) {
            log_.write(EventCode::kSessionNotifyRegistered);
            noteSession(SessionNews::kNone);  // whatever was missed until now
        }
    }
    if (IsWindowVisible(window_))
        spoken_.describeFigures(windowState({}));
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

void MainWindow::refreshFailureReason() {
    if (!renewFailureReason(shared_, failureReason_))
        return;
    reasonTip_.show(window_, controls_[kIdStatusLine], failureReason_, scaled(kWindowMinWidth));
    spoken_.describeFailure(failureReason_);
}

void MainWindow::onStatusChanged() {
    if (controls_.setText(kIdStatusLine, statusTextNow(shared_)) && IsWindowVisible(window_))
        spoken_.announceStatus();
    InvalidateRect(window_, nullptr, FALSE);
}

void MainWindow::onSessionChange(WPARAM reason) {
    switch (reason) {
        case WTS_CONSOLE_DISCONNECT:
        case WTS_REMOTE_DISCONNECT: onSessionLeft(SessionNews::kDisconnected); break;
        case WTS_SESSION_LOCK: onSessionLeft(SessionNews::kLocked); break;
        case WTS_CONSOLE_CONNECT:
        case WTS_REMOTE_CONNECT: onSessionBack(SessionNews::kConnected); break;
        case WTS_SESSION_UNLOCK: onSessionBack(SessionNews::kUnlocked); break;
        default: break;
    }
}

void MainWindow::onSessionLeft(SessionNews news) {
    noteSession(news);
    suspendForPrivacy();
    log_.write(EventCode::kSessionPrivateFallback);
}

void MainWindow::onSessionBack(SessionNews news) {
    if (noteSession(news) != 0)
        return;
    send(SupervisorCommand::kResume);
    log_.write(EventCode::kSessionOwnResume);
}

// A machine that wakes is usually still locked.
void MainWindow::onPowerBroadcast(WPARAM event) {
    if (event == PBT_APMSUSPEND)
        suspendForPrivacy();
    else if (event == PBT_APMRESUMESUSPEND || event == PBT_APMRESUMEAUTOMATIC) {
        if (noteSession(SessionNews::kNone) == 0)
            send(SupervisorCommand::kResume);
    }
}

std::uint32_t MainWindow::noteSession(SessionNews news) {
    const SessionAnswer answer = needsAnswer(news) ? askAboutSession() : SessionAnswer{};
    return shared_.sessionAway = sessionAwayAfter(shared_.sessionAway, news, answer);
}

// The Supervisor ends at the question already: the system gives little time after it.
void MainWindow::onSessionEndAsked() {
    startsAgain_ = false;
    if (!pausedBeforeEnd_)
        pausedBeforeEnd_ = shared_.paused;
    send(SupervisorCommand::kQuit);
}

void MainWindow::onSessionEndCalledOff() {
    startsAgain_ = pausedBeforeEnd_.has_value();
    startSupervisorAgain();
}

// The old one may still be ending its decoder, which takes seconds at worst: it is looked at with each tick
// of the timer. What it cleared at its end and the user had switched off is put back.
void MainWindow::startSupervisorAgain() {
    if (!startsAgain_ || !supervisor_.waitForEnd(0))
        return;
    // Left by a second question about the session's end, which was called off with the first.
    auto quit = SupervisorCommand::kQuit;
    shared_.mailbox.compare_exchange_strong(quit, SupervisorCommand::kNone);
    shared_.paused = *pausedBeforeEnd_;
    if (!supervisor_.start(window_))
        return;
    startsAgain_ = false;
    pausedBeforeEnd_.reset();
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
    spoken_.end();
    DestroyWindow(window_);
}

// --- How it looks ---

void MainWindow::rebuildFont() {
    font_.reset(CreateFontW(scaled(kUiFontHeight), 0, 0, 0, FW_NORMAL, FALSE, FALSE, FALSE, DEFAULT_CHARSET,
                            OUT_DEFAULT_PRECIS, CLIP_DEFAULT_PRECIS, CLEARTYPE_QUALITY,
                            DEFAULT_PITCH | FF_DONTCARE, kUiFontName));
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
    spoken_.describeSource(input.selectedSource);
    InvalidateRect(window_, nullptr, FALSE);
}

WindowState MainWindow::windowState(SIZE clientPixels) const {
    WindowState state{statusNow(shared_, GetTickCount64())};
    state.clientWidth = designFromPixels(clientPixels.cx, dpi_);
    state.clientHeight = designFromPixels(clientPixels.cy, dpi_);
    state.panel = panel_;
    state.active = shared_.active;
    state.paused = shared_.paused;
    state.frameCounter = shared_.frameCounter;
    state.reconnects = shared_.reconnects;
    state.effectiveBackend = shared_.effectiveBackend;
    state.observedFps = rate_.perSecond();
    state.configuredSource = sourceNow(shared_);
    state.selectedSource = settingsPanel_.selectedSource();
    state.advancedShown = settingsPanel_.advancedShown();
    state.defaultManifestUrl = defaultManifestUrl_;
    return state;
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
            paintTo(memory.get(), size);
            BitBlt(dc, 0, 0, size.cx, size.cy, memory.get(), 0, 0, SRCCOPY);
        }
    }
    EndPaint(window_, &paint);
}

void MainWindow::paintTo(HDC dc, SIZE clientPixels) {
    const WindowView view = composeView(windowState(clientPixels));
    const std::byte* frame = view.preview ? picture_.pixelsFor(*view.preview, shared_) : nullptr;
    const int before = SaveDC(dc);
    painter_.paint(dc, clientPixels, dpi_, view, frame);
    RestoreDC(dc, before);
}

LRESULT MainWindow::onControlColour(HDC dc, HWND control) const {
    SetTextColor(dc, colorRef(colours::kControlText));
    SetBkColor(dc, colorRef(colours::kWhite));
    // The corners of a button show what it lies on: on the camera panel that is no card.
    const int id = GetDlgCtrlID(control);
    const bool onWindow = std::any_of(kControls.begin(), kControls.end(), [id](const Control& row) {
        return row.id == id && (row.shown == Shown::kCamera || row.shown == Shown::kCameraInEpisode);
    });
    return reinterpret_cast<LRESULT>(onWindow ? painter_.windowBrush() : painter_.whiteBrush());
}

void MainWindow::onDrawItem(const DRAWITEMSTRUCT& item) const {
    const bool selected = item.CtlID == tabOf(panel_);
    drawTab(item, selected ? TabState::kSelected : TabState::kUnselected, font_.get());
}

// --- How keys move in it ---

bool MainWindow::turnsPanel(const MSG& message) {
    const std::optional<Panel> panel = WindowKeys::panelAskedFor(message, window_, panel_);
    if (!panel)
        return false;
    selectPanel(*panel);
    SetFocus(controls_[tabOf(*panel)]);
    return true;
}

}  // namespace vextra
