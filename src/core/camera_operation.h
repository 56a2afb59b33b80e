// What a maintenance command does with the virtual camera, in which order, and what it reports. Pure: the
// calls themselves come in as callables.
#pragma once

#include <cstdint>
#include <functional>

#include "core/command_line.h"
#include "diag/event_codes.h"

namespace vextra {

// All are called on the thread of operateCamera. Results are HRESULTs: negative is failure.
struct CameraDoors {
    std::function<std::int32_t()> startMediaFoundation;
    std::function<void()> stopMediaFoundation;  // only after a good start-up

    std::function<std::int32_t()> create;      // from here on there is a camera object, when it succeeded
    std::function<std::int32_t()> start;       // also registers the camera
    std::function<std::int32_t()> remove;      // also when it is not registered: the system's to judge
    std::function<std::int32_t()> recordLink;  // reads the camera's symbolic link and writes it to its file
    std::function<void()> discard;             // shuts the camera object down and releases it

    std::function<void(EventCode, std::int32_t)> log;
};

// Registers, resets or removes the camera, as the mode says. The last call's result, clean-up aside; it
// decides the exit code.
std::int32_t operateCamera(RunMode mode, const CameraDoors& doors);

}  // namespace vextra
