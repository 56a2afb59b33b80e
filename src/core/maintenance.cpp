#include "core/maintenance.h"

#include "core/session_presence.h"

namespace vextra {

bool mayMaintain(const MaintenanceCaller& caller) {
    return isInteractiveSession(caller.session) && !caller.elevatedOrUnknown && !caller.userSid.empty() &&
           caller.userSid == caller.ownerSid;
}

}  // namespace vextra
