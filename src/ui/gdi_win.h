// Owners for what GDI and the window manager hand out.
#pragma once

#include "base/unique_win.h"

namespace vextra {

using UniqueFont = Unique<HFONT, &DeleteObject>;
using UniqueBrush = Unique<HBRUSH, &DeleteObject>;
using UniquePen = Unique<HPEN, &DeleteObject>;
using UniqueBitmap = Unique<HBITMAP, &DeleteObject>;
using UniqueMemoryDc = Unique<HDC, &DeleteDC>;   // CreateCompatibleDC
using UniqueIcon = Unique<HICON, &DestroyIcon>;  // LoadImage without LR_SHARED
using UniqueMenu = Unique<HMENU, &DestroyMenu>;  // CreatePopupMenu

// Keeps an object selected into a device context as long as it lives.
class Selection {
public:
    Selection(HDC dc, HGDIOBJ object) : dc_(dc), old_(SelectObject(dc, object)) {}
    ~Selection() { SelectObject(dc_, old_); }
    Selection(const Selection&) = delete;
    Selection& operator=(const Selection&) = delete;

private:
    const HDC dc_;
    const HGDIOBJ old_;
};

}  // namespace vextra
