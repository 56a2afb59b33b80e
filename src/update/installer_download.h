// Brings the signed installer to this machine: into a folder of its own under the user's local application
// data, hashed while it arrives, and under its final name only when every byte is the announced one.
#pragma once

#include <atomic>
#include <cstdint>

#include "update/channel.h"
#include "update/manifest.h"
#include "update/update_channel.h"

namespace vextra {

// On a worker thread; blocks for up to five minutes and one operation. `cancel` is looked at before sending,
// after the status and after every piece of 64 KiB. What was begun and not finished leaves nothing behind.
DownloadResult downloadInstaller(const UpdateManifest& manifest, const UpdateChannelIdentity& channel,
                                 const std::atomic<bool>& cancel,
                                 std::atomic<std::uint32_t>& progressPercent);

}  // namespace vextra
