// The last look at the downloaded installer, and its start.
#pragma once

#include <windows.h>

#include <string>

#include "update/channel.h"
#include "update/manifest.h"

namespace vextra {

// True when the open file is byte for byte the one that the manifest announces. Reads from the file's current
// position, which has to be its beginning.
bool isAnnouncedInstaller(HANDLE file, const UpdateManifest& manifest);

// Checks manifest and file once more and starts the installer, as a wizard of its own: nobody waits for it.
// The file cannot be changed between the check and the start; a folder above it still can be exchanged by the
// user's own programs. False when it was not started, also because the user did not let it. Window's thread;
// the system may show its own boxes over `owner`.
bool openVerifiedInstaller(HWND owner, const UpdateManifest& manifest, const std::wstring& path,
                           const UpdateChannelIdentity& channel);

}  // namespace vextra
