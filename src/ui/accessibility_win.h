// What screen readers are told of controls beyond what those say by themselves: their labels are painted, and
// some look like what they are not (Dynamic Annotation,
// https://learn.microsoft.com/windows/win32/winauto/dynamic-annotation-api).
#pragma once

#include <windows.h>

#include <oleacc.h>

#include <string_view>

#include "base/unique_win.h"

namespace vextra {

struct SpokenTab {
    bool selected = false;
    bool focused = false;
};
struct SpokenFold {  // of a button that unfolds a part of its panel
    bool open = false;
    bool focused = false;
};

// UI thread, in an apartment of COM's that outlives this. Each call is false when the system took nothing, as
// one without the service does; what it took lasts until `clear`.
class Accessibility {
public:
    Accessibility();
    ~Accessibility();

    bool setName(HWND control, std::wstring_view name) const;
    bool setDescription(HWND control, std::wstring_view description) const;  // empty: none any more
    bool setTab(HWND control, const SpokenTab& state) const;
    bool setFold(HWND button, const SpokenFold& state) const;
    // Changes of its text are read out as soon as nothing else is.
    bool setPoliteRegion(HWND control) const;
    // All of the above; before the control is destroyed.
    void clear(HWND control) const;

private:
    bool setState(HWND control, long state) const;

    UniqueCom<IAccPropServices> services_;
};

}  // namespace vextra
