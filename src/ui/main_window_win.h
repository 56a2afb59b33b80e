// The broker's one window: it turns what the user and the system say into commands for the Supervisor and
// shows what the Supervisor reports. UI thread only.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "base/product.h"
#include "base/system_types.h"
#include "base/unique_win.h"
#include "core/session_presence.h"
#include "core/shared_status.h"
#include "core/supervisor_thread_win.h"
#include "diag/event_log.h"
#include "ui/control_set_win.h"
#include "ui/frame_rate.h"
#include "ui/painter_win.h"
#include "ui/preview_picture.h"
#include "ui/settings_panel_win.h"
#include "ui/spoken_window_win.h"
#include "ui/tool_tip_win.h"
#include "ui/tray_icon_win.h"
#include "ui/window_fit.h"
#include "ui/window_keys_win.h"
#include "ui/window_view.h"
#include "update/channel.h"
#include "update/update_channel.h"

namespace vextra {

inline constexpr wchar_t kWindowTitle[] = VEXTRA_TITLE_W L" — " VEXTRA_VERSION_W;
inline constexpr DWORD kMainWindowStyle = WS_OVERLAPPEDWINDOW | WS_CLIPCHILDREN;
inline constexpr wchar_t kBoxTitle[] = VEXTRA_CAMERA_NAME_W;

// What is pointed at outlives the window.
struct MainWindowSetup {
    SharedStatus* shared = nullptr;
    EventLog* log = nullptr;
    HANDLE wakeEvent = nullptr;
    SupervisorThread* supervisor = nullptr;  // started again when an end of the session is called off
    std::wstring dataFolder;                 // of the settings
    const UpdateChannelIdentity* channel = nullptr;
    Panel firstPanel = Panel::kCamera;
};

class MainWindow {
public:
    MainWindow(HINSTANCE instance, MainWindowSetup setup);
    ~MainWindow();  // with the window and the icon, where they are still there
    MainWindow(const MainWindow&) = delete;
    MainWindow& operator=(const MainWindow&) = delete;

    // Registers the class and creates the window, hidden. False on failure.
    bool create();
    HWND handle() const { return window_; }

    // From here on the timer counts: `testSeconds` after now the broker quits by itself (0: never).
    void startClock(std::uint32_t testSeconds);

    void showWithoutActivating();

    // Until the window is gone.
    void runMessageLoop();

    // After the loop: waits for a check or a download that is still under way, which was told to end. False
    // when it did not within the limit; then this object may not be destroyed any more.
    bool joinUpdateWorker(std::uint32_t limitMs);

private:
    static LRESULT CALLBACK windowProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
    LRESULT handleMessage(UINT message, WPARAM wParam, LPARAM lParam);

    bool onCreate();
    void onTimer();
    void onStatusChanged();
    void onDrawItem(const DRAWITEMSTRUCT& item) const;
    UniqueIcon trayImage() const;
    void registerForSession();
    void onCommand(WORD id, WORD notification);
    void onTray(UINT mouseMessage);
    void onSessionChange(WPARAM reason);
    void onSessionLeft(SessionNews news);
    void onSessionBack(SessionNews news);
    void onPowerBroadcast(WPARAM event);
    void onSessionEndAsked();
    void onSessionEndCalledOff();
    void onClose();
    LRESULT onControlColour(HDC dc, HWND control) const;
    bool turnsPanel(const MSG& message);  // true: the message was for that

    // The screen (main_window_screen_win.cpp)
    Screen screenOfWindow(int dpi) const;
    void takeScreen(const Screen& screen);
    // Looks whether the window is on another screen or the screen has changed, and fits the window to it.
    void followScreen();
    bool onGetDpiScaledSize(int dpi, SIZE* size) const;
    void onDpiChanged(int dpi, const RECT* suggested);
    void onDropped();
    PixelBounds bounds() const;
    void moveTo(const PixelBounds& place);

    void layoutControls();
    void paintWindow();
    void paintTo(HDC dc, SIZE clientPixels);
    WindowState windowState(SIZE clientPixels) const;
    void sampleFrameRate(Tick now);
    void refreshButtons(Tick now);
    void refreshFailureReason();
    void showUpdateProgress();

    void selectPanel(Panel panel);
    void showTrayMenu();
    void openFromTray();
    void toggleAutomatic();
    void togglePreview();
    void suspendForPrivacy();
    std::uint32_t noteSession(SessionNews news);  // SharedStatus::sessionAway after it
    void startSupervisorAgain();
    void applySettingsFromPanel();
    void reloadSettingsIntoPanel();
    void refreshLogs();
    void copyReport();
    void repair();
    void quitBroker();

    UpdateWindowDoors updateDoors();
    void refreshUpdateButtons();

    std::wstring report() const;
    CameraUse cameraUse() const;
    std::wstring_view currentStatusLabel() const;
    void showStatus(std::wstring_view text);
    void send(SupervisorCommand command);
    void rebuildFont();
    int scaled(int designUnits) const { return pixelsFromDesign(designUnits, dpi_); }

    const HINSTANCE instance_;
    SharedStatus& shared_;
    EventLog& log_;
    const HANDLE wakeEvent_;
    SupervisorThread& supervisor_;
    const std::wstring dataFolder_;
    const UpdateChannelIdentity& channel_;
    const std::wstring defaultManifestUrl_;
    const ComApartment apartment_{COINIT_APARTMENTTHREADED};
    const UINT taskbarCreated_;  // registered message: the shell was started anew; 0, as WM_NULL, where there
                                 // is none

    HWND window_ = nullptr;  // owned by the system; null before creation and after destruction
    Screen screen_;          // as it was last seen
    Screen placedOn_;        // for which the window was last given its place
    int dpi_ = kDesignDpi;   // of all that is in the window: layoutDpi(screen_)
    enum class Drag { kNone = 1, kRunning, kToAnotherDpi };
    Drag drag_ = Drag::kNone;  // by the user, of the window or of its edge
    UniqueFont font_;
    Painter painter_;
    ControlSet controls_;
    SettingsPanel settingsPanel_{controls_};
    SpokenWindow spoken_{controls_};
    WindowKeys keys_{controls_};
    ToolTip reasonTip_;           // of the status line
    std::wstring failureReason_;  // that it shows
    TrayIcon tray_;
    std::optional<UpdateChannel> update_;  // as soon as there is a window
    Panel panel_;
    bool sessionNotified_ = false;
    bool quitting_ = false;

    // An end of the session that was asked about: what the user had switched off by then.
    std::optional<bool> pausedBeforeEnd_;
    bool startsAgain_ = false;  // it was called off, and the Supervisor is still to be started again

    PreviewPicture picture_;
    FrameRate rate_;
    bool laidOutActive_ = false;  // as the timer last saw it

    Tick startTick_ = 0;  // 0: the clock has not been started
    std::uint32_t testSeconds_ = 0;
    bool idleReadyLogged_ = false;
};

}  // namespace vextra
