// What the notification-area icon says and offers. Pure.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vextra {

constexpr std::size_t kTrayTipUnits = 127;  // of the shell's field, without its terminator

// `text` if it fits into `units` UTF-16 units, else its beginning and an ellipsis; never half a character.
std::wstring cutWithEllipsis(std::wstring_view text, std::size_t units);

std::wstring trayTip(std::wstring_view statusLabel);

// Commands to the window, by numbers that no control has.
enum TrayCommand : std::uint16_t {
    kIdTrayShow = 200,
    kIdTrayAutomatic = 201,
    kIdTrayQuit = 202,
    kIdTrayCheckUpdate = 203,
};

enum class TrayLineKind {
    kCommand = 1,
    kGreyed,  // only to be read
    kSeparator,
};

struct TrayMenuLine {
    TrayLineKind kind{};
    std::wstring text;      // of all but a separator
    TrayCommand command{};  // of a command
};

std::vector<TrayMenuLine> trayMenu(std::wstring_view statusLabel, bool paused);

}  // namespace vextra
