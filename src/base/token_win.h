// Who this process is. Safe on any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace vextra {

// The string SID of the user in the process token; empty on failure.
std::wstring currentUserSidString();

// True when the token is elevated, and also when that cannot be read: the safe side of every check.
bool isElevatedOrUnknown();

// The terminal-services session of a process; nothing when it cannot be read.
std::optional<std::uint32_t> sessionOfProcess(std::uint32_t processId);

}  // namespace vextra
