#include "ui/window_keys_win.h"

namespace vextra {
namespace {

bool canTakeFocus(HWND control) {
    return control != nullptr && IsWindowVisible(control) && IsWindowEnabled(control);
}

}  // namespace

void WindowKeys::keepFocus(HWND window) {
    if (IsChild(window, GetFocus()))
        last_ = GetFocus();
}

void WindowKeys::giveFocusBack(Panel panel) const {
    SetFocus(canTakeFocus(last_) ? last_ : controls_[tabOf(panel)]);
}

// Enter presses the button that has the focus; a tab would not count as one by itself. From a field of the
// settings panel it saves. The other panels have no default.
LRESULT WindowKeys::defaultButton(Panel panel) const {
    const HWND focused = GetFocus();
    for (const Control& control : kControls) {
        const bool button = control.kind == ControlKind::kTab || control.kind == ControlKind::kButton ||
                            control.kind == ControlKind::kFoldButton;
        if (button && controls_[control.id] == focused)
            return MAKELRESULT(control.id, DC_HASDEFID);
    }
    return panel == Panel::kSettings ? MAKELRESULT(kIdApply, DC_HASDEFID) : 0;
}

void WindowKeys::moveFocus(HWND window, WPARAM wParam, LPARAM lParam) {
    const bool isControl = LOWORD(lParam) != 0;
    const HWND next = isControl ? reinterpret_cast<HWND>(wParam)
                                : GetNextDlgTabItem(window, GetFocus(), wParam != 0 ? TRUE : FALSE);
    if (next != nullptr && IsChild(window, next))
        SetFocus(next);
}

std::optional<Panel> WindowKeys::panelAskedFor(const MSG& message, HWND window, Panel shown) {
    const auto held = [](int key) { return GetKeyState(key) < 0; };
    if (message.message != WM_KEYDOWN || message.wParam != VK_TAB || !held(VK_CONTROL) || held(VK_MENU) ||
        !(message.hwnd == window || IsChild(window, message.hwnd)))
        return std::nullopt;
    return held(VK_SHIFT) ? panelBefore(shown) : panelAfter(shown);
}

}  // namespace vextra
