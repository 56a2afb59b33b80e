// The private messages of the main window. Where nothing is said of them, wParam and lParam are 0.
#pragma once

#include <windows.h>

namespace vextra {

constexpr UINT kMessageStatusChanged = WM_APP;   // the status text changed
constexpr UINT kMessageShowWindow = WM_APP + 1;  // a second start of the broker
// From the shell, for the tray icon: wParam is the icon's number, lParam the mouse message.
constexpr UINT kMessageTray = WM_APP + 2;
constexpr UINT kMessageStopSignal = WM_APP + 3;  // the stop signal arrived while idle
constexpr UINT kMessageUpdateDone = WM_APP + 4;  // the update worker is done; wParam is an UpdateCompletion

}  // namespace vextra
