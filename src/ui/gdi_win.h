// Owners for what GDI and the window manager hand out.
#pragma once

#include "base/unique_win.h"

namespace vextra {

template <typename Object>
struct GdiObjectTraits {
    using Value = Object;
    static Value invalid() { return nullptr; }
    static void close(Value value) { DeleteObject(value); }
};
struct MemoryDcTraits {
    using Value = HDC;
    static Value invalid() { return nullptr; }
    static void close(Value value) { DeleteDC(value); }
};
struct IconTraits {
    using Value = HICON;
    static Value invalid() { return nullptr; }
    static void close(Value value) { DestroyIcon(value); }
};
struct MenuTraits {
    using Value = HMENU;
    static Value invalid() { return nullptr; }
    static void close(Value value) { DestroyMenu(value); }
};

using UniqueFont = Unique<GdiObjectTraits<HFONT>>;
using UniqueBrush = Unique<GdiObjectTraits<HBRUSH>>;
using UniquePen = Unique<GdiObjectTraits<HPEN>>;
using UniqueBitmap = Unique<GdiObjectTraits<HBITMAP>>;
using UniqueMemoryDc = Unique<MemoryDcTraits>;  // CreateCompatibleDC
using UniqueIcon = Unique<IconTraits>;          // LoadImage without LR_SHARED
using UniqueMenu = Unique<MenuTraits>;          // CreatePopupMenu

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
