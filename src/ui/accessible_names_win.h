// Names for controls whose labels are painted: a screen reader would find none (Dynamic Annotation,
// https://learn.microsoft.com/windows/win32/winauto/dynamic-annotation-api).
#pragma once

#include <string_view>

#include "base/com_win.h"

struct IAccPropServices;

namespace vextra {

// UI thread, in an apartment of COM's that outlives this. A system without the service leaves the controls
// nameless.
class AccessibleNames {
public:
    AccessibleNames();
    ~AccessibleNames();

    // False when the name was not taken. It lasts as long as the control.
    bool set(HWND control, std::wstring_view name) const;
    // For the same controls, before they are destroyed.
    void clear(HWND control) const;

private:
    UniqueCom<IAccPropServices> services_;
};

}  // namespace vextra
