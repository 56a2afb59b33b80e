// How keys move in the main window: which control has the keyboard, what Enter presses, what Ctrl+Tab turns.
// UI thread only.
#pragma once

#include <windows.h>

#include <optional>

#include "ui/control_set_win.h"

namespace vextra {

class WindowKeys {
public:
    explicit WindowKeys(const ControlSet& controls) : controls_(controls) {}

    // When another window becomes active, and when this one is active again: the control that had the
    // keyboard gets it back. Where that one cannot take it any more, the tab of `panel` does.
    void keepFocus(HWND window);
    void giveFocusBack(Panel panel) const;

    // The answer to DM_GETDEFID.
    LRESULT defaultButton(Panel panel) const;
    // What WM_NEXTDLGCTL asks for.
    static void moveFocus(HWND window, WPARAM wParam, LPARAM lParam);
    // Which panel Ctrl+Tab or Ctrl+Shift+Tab asks for, wherever in the window the keyboard is; nothing: the
    // message is neither.
    static std::optional<Panel> panelAskedFor(const MSG& message, HWND window, Panel shown);

private:
    const ControlSet& controls_;
    HWND last_ = nullptr;  // of the controls, while another window is active
};

}  // namespace vextra
