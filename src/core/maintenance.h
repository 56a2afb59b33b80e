// The commands that the camera's owner runs, by hand or through Setup: they do their work and exit. No
// window, no Supervisor.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "core/command_line.h"
#include "diag/event_codes.h"
#include "diag/event_log.h"

namespace vextra {

// --- Rule: who may ---

// Who asks, as read from the system.
struct MaintenanceCaller {
    std::optional<std::uint32_t> session;  // nothing: unknown
    bool elevatedOrUnknown = true;
    std::wstring_view userSid;
    std::wstring_view ownerSid;  // empty: not registered
};

// Maintenance is for the bridge's owner in an interactive session, never elevated.
bool mayMaintain(const MaintenanceCaller& caller);

// --- Rule: the camera ---

// All are called on the thread of operateCamera. Results are HRESULTs: negative is failure.
struct CameraDoors {
    std::function<std::int32_t()> startMediaFoundation;
    std::function<void()> stopMediaFoundation;  // only after a good start-up

    std::function<std::int32_t()> create;  // from here on there is a camera object, when it succeeded
    std::function<std::int32_t()> start;   // also registers the camera
    std::function<std::int32_t()> remove;  // also when it is not registered: the system's to judge
    std::function<bool()> recordLink;      // reads the camera's symbolic link and writes it to its file
    std::function<void()> discard;         // shuts the camera object down and releases it

    std::function<void(EventCode, std::int32_t)> log;
};

// Registers, resets or removes the camera, as the mode says. Whether the last call succeeded, clean-up aside;
// that decides the exit code.
bool operateCamera(RunMode mode, const CameraDoors& doors);

// --- Door ---

// Runs the maintenance mode of the options; events go to <dataFolder>\maintenance.log, the link of a camera
// that was registered to link-1.txt among the outputs. Main thread.
ExitCode runMaintenance(const CommandLine& options, const std::wstring& dataFolder, EventLog& log);

}  // namespace vextra
