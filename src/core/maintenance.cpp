#include "core/maintenance.h"

#include "core/session_presence.h"

namespace vextra {
namespace {

constexpr bool succeeded(std::int32_t result) {
    return result >= 0;
}

std::int32_t resetCamera(const CameraDoors& doors) {
    std::int32_t result = doors.remove();
    if (succeeded(result))
        result = doors.start();
    doors.log(EventCode::kCameraReset, result);
    return result;
}

// Whoever registers the camera is told its link as well: success without the file would be half of it.
std::int32_t registerCamera(const CameraDoors& doors) {
    const std::int32_t result = doors.start();
    doors.log(EventCode::kCameraRegistered, result);
    return succeeded(result) ? doors.recordLink() : result;
}

std::int32_t removeCamera(const CameraDoors& doors) {
    const std::int32_t result = doors.remove();
    doors.log(EventCode::kCameraRemoved, result);
    return result;
}

std::int32_t operateCreated(RunMode mode, const CameraDoors& doors) {
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

std::int32_t operateCamera(RunMode mode, const CameraDoors& doors) {
    const std::int32_t started = doors.startMediaFoundation();
    std::int32_t result = succeeded(started) ? doors.create() : started;
    // Also for a failed start-up: whatever kept the camera from being made, its code is in the log.
    doors.log(EventCode::kCameraCreated, result);
    if (succeeded(result)) {
        result = operateCreated(mode, doors);
        doors.discard();
    }
    if (succeeded(started))
        doors.stopMediaFoundation();
    return result;
}

}  // namespace vextra
