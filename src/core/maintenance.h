// The commands that an installer or an administrator runs: they do their work and exit. No window, no
// Supervisor.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "core/command_line.h"
#include "core/exit_code.h"
#include "diag/event_log.h"

namespace vextra {

// --- Rule ---

// Who asks, as read from the system.
struct MaintenanceCaller {
    std::optional<std::uint32_t> session;  // nothing: unknown
    bool elevatedOrUnknown = true;
    std::wstring_view userSid;
    std::wstring_view ownerSid;  // empty: not registered
};

// Maintenance is for the bridge's owner in an interactive session, never elevated.
bool mayMaintain(const MaintenanceCaller& caller);

// --- Door ---

// Runs the maintenance mode of the options; events go to <dataFolder>\maintenance.log, the link of a camera
// that was registered to link-1.txt among the outputs. Main thread.
ExitCode runMaintenance(const CommandLine& options, const std::wstring& dataFolder, EventLog& log);

}  // namespace vextra
