// The broker's one window: it turns what the user and the system say into commands for the Supervisor and
// shows what the Supervisor reports. UI thread only.
#pragma once

#include <cstdint>

#include "base/handle_win.h"
#include "base/ticks.h"
#include "core/shared_status.h"
#include "diag/event_log.h"

namespace vextra {

struct FontTraits {
    using Value = HFONT;
    static Value invalid() { return nullptr; }
    static void close(Value value) { DeleteObject(value); }
};
using UniqueFont = Unique<FontTraits>;

inline constexpr wchar_t kWindowTitle[] = L"Câmera Virtual Vextra MF — 0.2.0-beta.5";
inline constexpr wchar_t kBoxTitle[] = L"Camera Virtual Vextra MF 0.2 beta";

class MainWindow {
public:
    MainWindow(SharedStatus& shared, EventLog& log, HANDLE wakeEvent)
        : shared_(shared), log_(log), wakeEvent_(wakeEvent) {}
    MainWindow(const MainWindow&) = delete;
    MainWindow& operator=(const MainWindow&) = delete;

    // Registers the class and creates the window, hidden. False on failure.
    bool create(HINSTANCE instance);
    HWND handle() const { return window_; }

    // From here on the timer counts: `testSeconds` after now the broker quits by itself (0: never).
    void startClock(std::uint32_t testSeconds);

    void showWithoutActivating();

    // Until the window is gone.
    void runMessageLoop();

private:
    static LRESULT CALLBACK windowProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
    LRESULT handleMessage(UINT message, WPARAM wParam, LPARAM lParam);

    void onTimer();
    void onCommand(WORD id);
    void onSessionChange(WPARAM reason);
    void onPowerBroadcast(WPARAM event);
    void onDpiChanged(UINT dpi, const RECT& suggested);
    void onPaint();

    void suspendForPrivacy();
    void toggleAutomatic();
    void togglePreview();
    void quitBroker();

    void send(SupervisorCommand command);
    void rebuildFont();
    int scaled(int designUnits) const {
        return MulDiv(designUnits, static_cast<int>(dpi_), USER_DEFAULT_SCREEN_DPI);
    }

    SharedStatus& shared_;
    EventLog& log_;
    const HANDLE wakeEvent_;
    HWND window_ = nullptr;  // owned by the system; null before creation and after destruction
    UINT dpi_ = USER_DEFAULT_SCREEN_DPI;
    UniqueFont font_;
    bool sessionNotified_ = false;
    bool quitting_ = false;
    Tick startTick_ = 0;  // 0: the clock has not been started
    std::uint32_t testSeconds_ = 0;
    bool idleReadyLogged_ = false;
};

}  // namespace vextra
