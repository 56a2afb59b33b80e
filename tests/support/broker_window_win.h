// The running broker's window as a user has it: fields to type into, buttons to press, texts to read. All
// from another process, by control number.
#pragma once

#include <windows.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "broker_run_win.h"
#include "ui/controls.h"
#include "ui/tray_text.h"

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

    // With the mouse, in the middle of a button. Fails the test where a user could not: the button is hidden,
    // disabled or covered. Returns when its work is done.
    void press(ControlId id) const;
    // The same on another panel, whose tab is pressed first.
    void pressOn(ControlId tab, ControlId id) const;
    // For work that opens a box or a menu.
    void pressAndGoOn(ControlId id) const;
    // The same at a point of any control, in pixels from its upper left corner.
    void click(ControlId id, POINT at) const;
    // With the mouse that the whole session shares, which goes there; the window comes to the front first.
    // False where something else lies in front of it.
    bool clickForReal(ControlId id, POINT at) const;
    // A command of the tray's menu, or one that no person could give.
    void command(WORD id) const { SendMessageW(handle(), WM_COMMAND, id, 0); }
    void commandAndGoOn(WORD id) const { PostMessageW(handle(), WM_COMMAND, id, 0); }

    // What stands on the screen at a point of the client area.
    COLORREF pixel(POINT at) const;

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
    void key(WORD virtualKey) const;  // to the control that has the keyboard
    // With the keyboard that the whole session shares, while `held` are down too.
    static bool keyForReal(WORD virtualKey, const std::vector<WORD>& held);

private:
    POINT onScreen(ControlId id, POINT at) const;
    POINT middle(ControlId id) const;
    // Where the control's mouse messages have the point; nothing, and a failure, where a click misses it.
    std::optional<LPARAM> aim(ControlId id, POINT at) const;
    HWND waitForWindowOfClass(const wchar_t* windowClass, std::uint32_t timeoutMs) const;

    BrokerRun& broker_;
};

std::wstring windowText(HWND window);
// Every window of the session, children included.
std::vector<HWND> allWindows();

}  // namespace vextra::test
