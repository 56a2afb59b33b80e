// The child controls of the main window. UI thread only.
#pragma once

#include <windows.h>

#include <string_view>
#include <vector>

#include "base/secret.h"
#include "ui/controls.h"
#include "ui/window_layout.h"

namespace vextra {

class ControlSet {
public:
    // Makes all of kControls, hidden. False when one could not be made.
    bool create(HWND window, HINSTANCE instance);
    HWND operator[](ControlId id) const;

    // With the height of the lists while they are closed, which a font changes.
    void setFont(HFONT font, int closedListPixels);
    // Puts every control where it belongs and hides the rest. A control that stays visible keeps the focus;
    // one that vanishes passes it to `fallback`.
    void apply(const std::vector<PlacedControl>& placed, ControlId fallback);

    // These leave a control alone that is already as wanted, so that a timer may call them.
    bool setText(ControlId id, std::wstring_view text);  // true when it was another
    void setEnabled(ControlId id, bool enabled);

    void scrollToEnd(ControlId id);

    SecretText secretText(ControlId id) const;
    void setSecretText(ControlId id, const SecretText& text);
    int selection(ControlId id) const;  // -1: none
    void select(ControlId id, int index);
    bool checked(ControlId id) const;
    void setChecked(ControlId id, bool checked);
    // Shows bullets in place of what an edit field holds, or the text itself.
    enum class Masking { kMasked = 1, kPlain };
    void setMasking(ControlId id, Masking masking);

private:
    struct Made {
        HWND window = nullptr;
        bool visible = false;
        PixelRect place;
    };

    HWND window_ = nullptr;
    std::vector<Made> made_;  // in the order of kControls
};

}  // namespace vextra
