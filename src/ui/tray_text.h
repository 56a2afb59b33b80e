// What the notification-area icon says and offers. Pure.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "ui/controls.h"

namespace vextra {

constexpr std::size_t kTrayTipUnits = 127;  // of the shell's field, without its terminator

// `text` if it fits into `units` UTF-16 units, else its beginning and an ellipsis; never half a character.
std::wstring cutWithEllipsis(std::wstring_view text, std::size_t units);

std::wstring trayTip(std::wstring_view statusLabel);

struct TrayMenuLine {
    ControlId command = {};  // without one the line is greyed
    std::wstring text;       // empty: a separator
};

std::vector<TrayMenuLine> trayMenu(std::wstring_view statusLabel, bool paused);

}  // namespace vextra
