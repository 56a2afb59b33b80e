#include <windows.h>

#include "base/system_win.h"
#include "bridge/bridge_location.h"
#include "bridge/bridge_protocol.h"
#include "bridge/demand_channel.h"

namespace vextra {

bool DemandChannel::open(FileAccess access) {
    close();
    access_ = access;
    if (access == FileAccess::kReadWrite && !isMediaSourceAccount(currentUserSidString()))
        return false;
    file_ = SharedFile::open(resolveDemandPath(), kDemandFileBytes, access);
    return static_cast<bool>(file_);
}

std::int32_t DemandChannel::activeLeases() {
    if (!file_ && !open(FileAccess::kReadOnly))
        return -1;
    return countFreshLeases(*view(), GetTickCount64());
}

void DemandChannel::close() {
    const bool holdsSlot = heldSlot >= 0 && heldSlot < static_cast<std::int32_t>(kLeaseSlots);
    if (access_ == FileAccess::kReadWrite && file_ && holdsSlot)
        releaseLease(view()->slots[heldSlot], heldLeaseId);
    file_ = {};
    heldSlot = -1;
}

std::int32_t countLeasesOnce() {
    DemandChannel channel;
    return channel.activeLeases();
}

}  // namespace vextra
