// The running broker's window as a user has it: fields to type into, buttons to press, texts to read. All
// from another process, by control number.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "broker_run_win.h"
#include "ui/controls.h"

namespace vextra::test {

class BrokerWindow {
public:
    explicit BrokerWindow(BrokerRun& broker) : broker_(broker) {}

    HWND handle() const { return broker_.window(); }
    HWND control(ControlId id) const { return GetDlgItem(handle(), id); }

    std::wstring text(ControlId id) const;
    void type(ControlId id, const std::wstring& text) const;  // in place of what is there
    void choose(ControlId list, int index) const;             // as with the mouse: the window hears of it
    int chosen(ControlId list) const;
    void check(ControlId box, bool on) const;
    bool checked(ControlId box) const;
    bool masked(ControlId field) const;
    bool visible(ControlId id) const { return IsWindowVisible(control(id)) != FALSE; }
    bool enabled(ControlId id) const { return IsWindowEnabled(control(id)) != FALSE; }
    RECT place(ControlId id) const;  // in the client area

    // Returns when the button's work is done.
    void press(ControlId id) const { SendMessageW(handle(), WM_COMMAND, id, 0); }
    // For work that opens a box or a menu.
    void pressAndGoOn(ControlId id) const { PostMessageW(handle(), WM_COMMAND, id, 0); }

    bool waitForStatus(std::wstring_view text, std::uint32_t timeoutMs = 5000) const;
    // What the diagnostics view says behind "Entrada: " now; asks for a new view first.
    std::wstring statusLabel() const;
    bool waitForLabel(std::wstring_view label, std::uint32_t timeoutMs = 5000) const;

    // A message box of the broker's, or its menu; null after the time.
    HWND waitForBox(std::uint32_t timeoutMs = 5000) const;
    HWND waitForMenu(std::uint32_t timeoutMs = 5000) const;
    static std::wstring boxText(HWND box);

    // The control that has the keyboard.
    ControlId focused() const;
    bool focus(ControlId id) const;   // false when it did not take the keyboard
    void key(WORD virtualKey) const;  // to whoever has the keyboard

private:
    HWND waitForWindowOfClass(const wchar_t* windowClass, std::uint32_t timeoutMs) const;

    BrokerRun& broker_;
};

std::wstring windowText(HWND window);
// Every window of the session, children included.
std::vector<HWND> allWindows();

}  // namespace vextra::test
