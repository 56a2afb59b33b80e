#include "broker_window_win.h"

#include <gtest/gtest.h>

namespace vextra::test {

std::wstring windowText(HWND window) {
    std::wstring text(static_cast<std::size_t>(SendMessageW(window, WM_GETTEXTLENGTH, 0, 0)) + 1, L'\0');
    const auto length = SendMessageW(window, WM_GETTEXT, text.size(), reinterpret_cast<LPARAM>(text.data()));
    text.resize(static_cast<std::size_t>(length));
    return text;
}

std::vector<HWND> allWindows() {
    std::vector<HWND> windows;
    const auto add = [](HWND window, LPARAM list) -> BOOL {
        reinterpret_cast<std::vector<HWND>*>(list)->push_back(window);
        return TRUE;
    };
    EnumWindows(add, reinterpret_cast<LPARAM>(&windows));
    const std::vector<HWND> tops = windows;
    for (const HWND top : tops)
        EnumChildWindows(top, add, reinterpret_cast<LPARAM>(&windows));
    return windows;
}

std::wstring BrokerWindow::text(ControlId id) const {
    return windowText(control(id));
}

void BrokerWindow::type(ControlId id, const std::wstring& text) const {
    SendMessageW(control(id), WM_SETTEXT, 0, reinterpret_cast<LPARAM>(text.c_str()));
}

void BrokerWindow::choose(ControlId list, int index) const {
    SendMessageW(control(list), CB_SETCURSEL, static_cast<WPARAM>(index), 0);
    SendMessageW(handle(), WM_COMMAND, MAKEWPARAM(list, CBN_SELCHANGE),
                 reinterpret_cast<LPARAM>(control(list)));
}

int BrokerWindow::chosen(ControlId list) const {
    return static_cast<int>(SendMessageW(control(list), CB_GETCURSEL, 0, 0));
}

void BrokerWindow::check(ControlId box, bool on) const {
    SendMessageW(control(box), BM_SETCHECK, on ? BST_CHECKED : BST_UNCHECKED, 0);
}

bool BrokerWindow::checked(ControlId box) const {
    return SendMessageW(control(box), BM_GETCHECK, 0, 0) == BST_CHECKED;
}

bool BrokerWindow::masked(ControlId field) const {
    return SendMessageW(control(field), EM_GETPASSWORDCHAR, 0, 0) == 0x25CF;
}

RECT BrokerWindow::place(ControlId id) const {
    RECT place{};
    GetWindowRect(control(id), &place);
    MapWindowPoints(nullptr, handle(), reinterpret_cast<POINT*>(&place), 2);
    return place;
}

POINT BrokerWindow::onScreen(ControlId id, POINT at) const {
    RECT frame{};
    GetWindowRect(control(id), &frame);
    return {frame.left + at.x, frame.top + at.y};
}

// The system asks first whose the point is, and then the control whether it is a part of its face.
std::optional<LPARAM> BrokerWindow::aim(ControlId id, POINT at) const {
    const POINT screen = onScreen(id, at);
    POINT inWindow = screen, inControl = screen;
    ScreenToClient(handle(), &inWindow);
    ScreenToClient(control(id), &inControl);
    const bool reached =
        visible(id) && enabled(id) &&
        ChildWindowFromPointEx(handle(), inWindow, CWP_SKIPINVISIBLE | CWP_SKIPDISABLED) == control(id) &&
        SendMessageW(control(id), WM_NCHITTEST, 0, MAKELPARAM(screen.x, screen.y)) == HTCLIENT;
    if (reached)
        return MAKELPARAM(inControl.x, inControl.y);
    ADD_FAILURE() << "the mouse does not reach control " << id << " at " << at.x << "," << at.y
                  << (visible(id) ? "" : ": hidden") << (enabled(id) ? "" : ": disabled");
    return std::nullopt;
}

void BrokerWindow::click(ControlId id, POINT at) const {
    const std::optional<LPARAM> place = aim(id, at);
    if (!place)
        return;
    SendMessageW(control(id), WM_LBUTTONDOWN, MK_LBUTTON, *place);
    SendMessageW(control(id), WM_LBUTTONUP, 0, *place);
}

POINT BrokerWindow::middle(ControlId id) const {
    const RECT area = place(id);
    return {(area.right - area.left) / 2, (area.bottom - area.top) / 2};
}

void BrokerWindow::press(ControlId id) const {
    click(id, middle(id));
}

void BrokerWindow::pressOn(ControlId tab, ControlId id) const {
    press(tab);
    press(id);
}

void BrokerWindow::pressAndGoOn(ControlId id) const {
    const std::optional<LPARAM> place = aim(id, middle(id));
    if (!place)
        return;
    PostMessageW(control(id), WM_LBUTTONDOWN, MK_LBUTTON, *place);
    PostMessageW(control(id), WM_LBUTTONUP, 0, *place);
}

bool BrokerWindow::clickForReal(ControlId id, POINT at) const {
    SetForegroundWindow(handle());
    SetWindowPos(handle(), HWND_TOPMOST, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE);
    const POINT screen = onScreen(id, at);
    if (!SetCursorPos(screen.x, screen.y) || GetAncestor(WindowFromPoint(screen), GA_ROOT) != handle())
        return false;
    INPUT inputs[2]{};
    inputs[0].type = inputs[1].type = INPUT_MOUSE;
    inputs[0].mi.dwFlags = MOUSEEVENTF_LEFTDOWN;
    inputs[1].mi.dwFlags = MOUSEEVENTF_LEFTUP;
    return SendInput(2, inputs, sizeof inputs[0]) == 2;
}

COLORREF BrokerWindow::pixel(POINT at) const {
    const HDC dc = GetDC(handle());
    const COLORREF colour = GetPixel(dc, at.x, at.y);
    ReleaseDC(handle(), dc);
    return colour;
}

bool BrokerWindow::waitForStatus(std::wstring_view text, std::uint32_t timeoutMs) const {
    return waitUntil([&] { return this->text(kIdStatusLine) == text; }, timeoutMs);
}

std::wstring BrokerWindow::statusLabel() const {
    command(kIdRefreshLogs);
    const std::wstring view = text(kIdLogs);
    constexpr std::wstring_view kKey = L"Entrada: ";
    const std::size_t at = view.find(kKey);
    if (at == std::wstring::npos)
        return {};
    const std::size_t begin = at + kKey.size();
    return view.substr(begin, view.find(L'\r', begin) - begin);
}

bool BrokerWindow::waitForLabel(std::wstring_view label, std::uint32_t timeoutMs) const {
    return waitUntil([&] { return statusLabel() == label; }, timeoutMs);
}

HWND BrokerWindow::waitForWindowOfClass(const wchar_t* windowClass, std::uint32_t timeoutMs) const {
    HWND found = nullptr;
    waitUntil(
        [&] {
            found = nullptr;
            while ((found = FindWindowExW(nullptr, found, windowClass, nullptr)) != nullptr) {
                DWORD owner = 0;
                GetWindowThreadProcessId(found, &owner);
                if (owner == broker_.processId() && IsWindowVisible(found))
                    return true;
            }
            return false;
        },
        timeoutMs);
    return found;
}

HWND BrokerWindow::waitForBox(std::uint32_t timeoutMs) const {
    return waitForWindowOfClass(L"#32770", timeoutMs);
}

HWND BrokerWindow::waitForMenu(std::uint32_t timeoutMs) const {
    return waitForWindowOfClass(L"#32768", timeoutMs);
}

std::wstring BrokerWindow::boxText(HWND box) {
    constexpr int kMessageText = 0xFFFF;  // as USER32 numbers the static of a message box
    return windowText(GetDlgItem(box, kMessageText));
}

ControlId BrokerWindow::focused() const {
    GUITHREADINFO info{};
    info.cbSize = sizeof info;
    GetGUIThreadInfo(GetWindowThreadProcessId(handle(), nullptr), &info);
    return static_cast<ControlId>(GetDlgCtrlID(info.hwndFocus));
}

bool BrokerWindow::focus(ControlId id) const {
    SetForegroundWindow(handle());
    PostMessageW(handle(), WM_NEXTDLGCTL, reinterpret_cast<WPARAM>(control(id)), TRUE);
    return waitUntil([&] { return focused() == id; }, 2000);
}

void BrokerWindow::key(WORD virtualKey) const {
    const HWND target = control(focused());
    PostMessageW(target != nullptr ? target : handle(), WM_KEYDOWN, virtualKey, 1);
    PostMessageW(target != nullptr ? target : handle(), WM_KEYUP, virtualKey,
                 static_cast<LPARAM>(0xC0000001));
}

bool BrokerWindow::keyForReal(WORD virtualKey, const std::vector<WORD>& held) {
    std::vector<INPUT> inputs;
    const auto add = [&](WORD each, DWORD flags) {
        INPUT& input = inputs.emplace_back();
        input.type = INPUT_KEYBOARD;
        input.ki.wVk = each;
        input.ki.dwFlags = flags;
    };
    for (const WORD each : held)
        add(each, 0);
    add(virtualKey, 0);
    add(virtualKey, KEYEVENTF_KEYUP);
    for (const WORD each : held)
        add(each, KEYEVENTF_KEYUP);
    return SendInput(static_cast<UINT>(inputs.size()), inputs.data(), sizeof inputs[0]) == inputs.size();
}

}  // namespace vextra::test
