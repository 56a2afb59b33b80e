// A text that appears while the mouse rests on a control. UI thread only.
#pragma once

#include <windows.h>

#include <string>

namespace vextra {

class ToolTip {
public:
    // In place of the last text; empty: none. The system's control is made with the first text, and goes with
    // `window`, which `control` is a child of.
    void show(HWND window, HWND control, const std::wstring& text, int widthPixels);

private:
    HWND tip_ = nullptr;
};

}  // namespace vextra
