#include "ui/tool_tip_win.h"

#include <commctrl.h>

namespace vextra {
namespace {

HWND makeToolTip(HWND window) {
    INITCOMMONCONTROLSEX classes{sizeof classes, ICC_BAR_CLASSES};
    InitCommonControlsEx(&classes);
    return CreateWindowExW(WS_EX_TOPMOST, TOOLTIPS_CLASSW, nullptr, WS_POPUP | TTS_ALWAYSTIP | TTS_NOPREFIX,
                           CW_USEDEFAULT, CW_USEDEFAULT, CW_USEDEFAULT, CW_USEDEFAULT, window, nullptr,
                           nullptr, nullptr);
}

}  // namespace

void ToolTip::show(HWND window, HWND control, const std::wstring& text, int widthPixels) {
    if (tip_ == nullptr && text.empty())
        return;
    if (tip_ == nullptr)
        tip_ = makeToolTip(window);
    TTTOOLINFOW tool{};
    tool.cbSize = TTTOOLINFOW_V2_SIZE;  // that every version of the library takes
    tool.uFlags = TTF_IDISHWND | TTF_SUBCLASS;
    tool.hwnd = window;
    tool.uId = reinterpret_cast<UINT_PTR>(control);
    SendMessageW(tip_, TTM_DELTOOLW, 0, reinterpret_cast<LPARAM>(&tool));
    if (text.empty())
        return;
    // The control copies the text; a width makes it break lines.
    tool.lpszText = const_cast<wchar_t*>(text.c_str());
    SendMessageW(tip_, TTM_SETMAXTIPWIDTH, 0, widthPixels);
    SendMessageW(tip_, TTM_ADDTOOLW, 0, reinterpret_cast<LPARAM>(&tool));
}

}  // namespace vextra
