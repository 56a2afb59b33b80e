#include "core/maintenance.h"

namespace vextra {

bool mayMaintain(const MaintenanceCaller& caller) {
    const bool interactive = caller.session.has_value() && *caller.session != 0;
    return interactive && !caller.elevatedOrUnknown && !caller.userSid.empty() &&
           caller.userSid == caller.ownerSid;
}

}  // namespace vextra
