// What the update channel has the system do: the clock, boxes, and the channel's work on the real network,
// with real signatures and a real installer.
#pragma once

#include <windows.h>

#include "update/channel.h"
#include "update/update_channel.h"

namespace vextra {

// `owner` is the window over which boxes stand; `channel` is borrowed. A check that is cancelled ends with
// its current step, and says that it reached nothing.
UpdateSystemDoors systemUpdateDoors(HWND owner, const UpdateChannelIdentity& channel);

}  // namespace vextra
