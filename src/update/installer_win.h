// Brings the signed installer to this machine, and starts it: into a folder of its own under the user's local
// application data, hashed while it arrives, and under its final name only when every byte is the announced
// one.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

#include "base/sha256.h"
#include "update/channel.h"
#include "update/manifest.h"
#include "update/update_channel.h"

namespace vextra {

// On a worker thread; blocks for up to five minutes and one step, and for about one step once `cancel` is
// set: it is looked at between the steps and after everything that arrives. Of what was begun and not
// finished nothing is left, unless the process ends; the next download removes that, and what earlier ones
// brought.
DownloadResult downloadInstaller(const UpdateManifest& manifest, const UpdateChannelIdentity& channel,
                                 const std::atomic<bool>& cancel,
                                 std::atomic<std::uint32_t>& progressPercent);

// --- The last look at it, and its start ---

// Both read an open file from its current position, which has to be its beginning.
// Nothing when the file cannot be read to its end.
std::optional<Sha256Digest> sha256OfFile(HANDLE file);
// True when the file is byte for byte the one that the manifest announces.
bool isAnnouncedInstaller(HANDLE file, const UpdateManifest& manifest);

// Checks manifest and file once more and starts the installer, as a wizard of its own that the broker does
// not wait for. The file cannot be changed between the check and the start; a folder above it still can be
// exchanged by the user's own programs. False when it was not started, also because the user did not let it.
// Window's thread; the system may show its own boxes over `owner`.
bool openVerifiedInstaller(HWND owner, const UpdateManifest& manifest, const std::wstring& path,
                           const UpdateChannelIdentity& channel);

}  // namespace vextra
