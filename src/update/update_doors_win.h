// The doors of the update channel that need nothing but the system.
#pragma once

#include <windows.h>

#include <atomic>

#include "update/channel.h"
#include "update/update_channel.h"

namespace vextra {

// The check itself, with the real network and the real signature. On a worker thread; a check that is
// cancelled ends with its current step, and says that it reached nothing.
UpdateCheckResult checkForUpdate(UpdateCheckRequest request, const UpdateChannelIdentity& channel,
                                 const std::atomic<bool>& cancel);

// Fills now, ask, openInstaller, runCheck and download; the other doors are the window's to fill. `owner` is
// the window over which boxes stand; `channel` is borrowed.
UpdateChannelDoors systemUpdateDoors(HWND owner, const UpdateChannelIdentity& channel);

}  // namespace vextra
