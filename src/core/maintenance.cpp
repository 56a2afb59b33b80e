#include "core/maintenance.h"

#include "core/session_presence.h"

namespace vextra {
namespace {

constexpr bool succeeded(std::int32_t result) {
    return result >= 0;
}

bool resetCamera(const CameraDoors& doors) {
    std::int32_t result = doors.remove();
    if (succeeded(result))
        result = doors.start();
    doors.log(EventCode::kCameraReset, result);
    return succeeded(result);
}

// The command promises the camera and its link: without the link's file it has failed.
bool registerCamera(const CameraDoors& doors) {
    const std::int32_t result = doors.start();
    doors.log(EventCode::kCameraRegistered, result);
    return succeeded(result) && doors.recordLink();
}

bool removeCamera(const CameraDoors& doors) {
    const std::int32_t result = doors.remove();
    doors.log(EventCode::kCameraRemoved, result);
    return succeeded(result);
}

bool operateCreated(RunMode mode, const CameraDoors& doors) {
    switch (mode) {
        case RunMode::kReset: return resetCamera(doors);
        case RunMode::kRegisterCamera: return registerCamera(doors);
        default: return removeCamera(doors);
    }
}

}  // namespace

bool mayMaintain(const MaintenanceCaller& caller) {
    return isInteractiveSession(caller.session) && !caller.elevatedOrUnknown && !caller.userSid.empty() &&
           caller.userSid == caller.ownerSid;
}

bool operateCamera(RunMode mode, const CameraDoors& doors) {
    const std::int32_t started = doors.startMediaFoundation();
    const std::int32_t created = succeeded(started) ? doors.create() : started;
    // Also for a failed start-up: whatever kept the camera from being made, its code is in the log.
    doors.log(EventCode::kCameraCreated, created);
    bool done = false;
    if (succeeded(created)) {
        done = operateCreated(mode, doors);
        doors.discard();
    }
    if (succeeded(started))
        doors.stopMediaFoundation();
    return done;
}

}  // namespace vextra
