// The thread on which the Supervisor lives, with its doors opened to the real system.
#pragma once

#include <string>
#include <thread>

#include "base/handle_win.h"
#include "core/shared_status.h"
#include "diag/event_log.h"

namespace vextra {

// Messages to the main window, all without arguments.
constexpr UINT kMessageStatusChanged = WM_APP;   // the status text changed
constexpr UINT kMessageShowWindow = WM_APP + 1;  // a second start of the broker
constexpr UINT kMessageTray = WM_APP + 2;        // the tray icon's callback
constexpr UINT kMessageStopSignal = WM_APP + 3;  // the stop signal arrived while idle
constexpr UINT kMessageUpdateDone = WM_APP + 4;  // an update check (wParam 1) or download (wParam 2) finished

struct SupervisorThreadSetup {
    SharedStatus* shared = nullptr;  // outlives the thread, as do the log and the handles
    EventLog* log = nullptr;
    HANDLE wakeEvent = nullptr;   // auto-reset
    HANDLE stopSignal = nullptr;  // auto-reset
    HWND window = nullptr;
    std::wstring installRoot;
    std::wstring evidenceFolder;  // empty: off
    std::wstring dataFolder;
};

// Starts the thread, which ends after it took SupervisorCommand::kQuit. Not joinable when the system has no
// thread to give.
std::thread startSupervisorThread(SupervisorThreadSetup setup);

// Puts a command into the mailbox and wakes the Supervisor. Any thread.
void sendCommand(SharedStatus& shared, HANDLE wakeEvent, SupervisorCommand command);

// Replaces the status line; `window` hears of it only when the text really changed, so that a refusal that is
// repeated without a pause does not flood its queue. Any thread.
void showStatusText(SharedStatus& shared, HWND window, std::wstring_view text);

}  // namespace vextra
