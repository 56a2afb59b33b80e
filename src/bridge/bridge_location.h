// Where the two shared files lie, and which paths and accounts are trusted. A program that could redirect
// these files could feed pictures into every meeting, so nothing is followed but what an installer with
// administrative rights wrote into the machine-wide key, and only where it matches what is derived here.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/product.h"

namespace vextra {

// --- Rules ---

// The form of a SID that may own a bridge: 9 to 184 characters, beginning with "S-1-5-21-" (a user of this
// machine or a domain). Whether the numbers make sense is for ConvertStringSidToSidW to say.
bool isOwnerSidForm(std::wstring_view sid);

// <programData>\Vextra\CameraVirtualMFBeta\<ownerSid>\latest.frame
std::wstring deriveBridgePath(std::wstring_view programData, std::wstring_view ownerSid);

// demand.bin in the folder of the bridge; empty when the path has no backslash.
std::wstring deriveDemandPath(std::wstring_view bridgePath);

// Every folder on the way to a file, outermost first: what stands before each backslash at position 3 or
// later.
std::vector<std::wstring> parentFolders(std::wstring_view path);

// The accounts that may write the demand file: LocalService and LocalSystem, under which media sources run.
bool isMediaSourceAccount(std::wstring_view sid);

// --- Doors ---
// No state: every call reads the system afresh, so that a repair takes effect at the next open. Safe on any
// thread. Failure is always the empty string or false, without a message.

inline constexpr wchar_t kOwnerSidValue[] = L"OwnerSid";
inline constexpr wchar_t kBridgePathValue[] = L"BridgePath";
inline constexpr wchar_t kDemandPathValue[] = L"DemandPath";
inline constexpr wchar_t kInstallDirValue[] = L"InstallDir";
inline constexpr wchar_t kBrokerRegistryKey[] = L"SOFTWARE\\" VEXTRA_FOLDER_W;

// A REG_SZ value of the broker's key in the 64-bit view of HKEY_LOCAL_MACHINE; at most 1023 characters.
std::wstring readBrokerRegistryValue(const wchar_t* name);

std::wstring resolveBridgePath();
std::wstring resolveDemandPath();

// True when every folder on the way exists and none is a junction or symbolic link.
bool parentChainIsPlain(std::wstring_view path);

// True when this process may publish frames: not elevated, and run by the user for whom the bridge was made.
bool mayWriteBridge();

// True when the registered owner is the user of this process; a missing value differs.
bool ownerIsCurrentUser();

}  // namespace vextra
