// Brings the signed installer to this machine: into a folder of its own under the user's local application
// data, hashed while it arrives, and under its final name only when every byte is the announced one.
#pragma once

#include <atomic>
#include <cstdint>

#include "update/channel.h"
#include "update/manifest.h"
#include "update/update_channel.h"

namespace vextra {

// On a worker thread; blocks for up to five minutes and one step, and for about one step once `cancel` is
// set: it is looked at between the steps and after everything that arrives. What was begun and not finished
// leaves nothing behind, unless the process ends; the next download removes that, and what earlier ones
// brought.
DownloadResult downloadInstaller(const UpdateManifest& manifest, const UpdateChannelIdentity& channel,
                                 const std::atomic<bool>& cancel,
                                 std::atomic<std::uint32_t>& progressPercent);

}  // namespace vextra
