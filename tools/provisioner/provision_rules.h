// What a provisioned machine looks like, and how the provisioner is asked for it. Pure.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vextra {

enum class DemandWriters {
    kServicesOnly = 1,  // as it must be where people work
    kServicesAndOwner,  // for trials: the owner's own programs may hold leases
};

enum class ProvisionCommand { kProvision = 1, kRemove, kStatus };

struct ProvisionOptions {
    ProvisionCommand command = ProvisionCommand::kProvision;
    DemandWriters demandWriters = DemandWriters::kServicesOnly;
    std::wstring ownerSid;    // empty: the registered owner, or else the current user
    std::wstring installDir;  // empty: where this program lies
};

// Nothing when the line makes no sense. `arguments` are those after the program's name.
std::optional<ProvisionOptions> parseProvisionOptions(std::span<const wchar_t* const> arguments);

extern const wchar_t kProvisionUsage[];

// The SID becomes part of a path and of access lists: digits and single dashes only, beyond what the broker
// asks.
bool isOwnerSidText(std::wstring_view sid);

// An account of Microsoft Entra ID, which the broker does not take for an owner either: it is refused in
// words of its own, for its user has done nothing wrong.
bool isEntraIdSid(std::wstring_view sid);

// "C:\..." as Windows itself would write it, for the broker compares texts: no "/", no "." or ".." parts,
// nothing empty, no backslash at the end.
bool isPlainAbsoluteFolder(std::wstring_view folder);

// The installation that a program in its `tools`, `bin` or `beta-bin` folder belongs to.
std::wstring installRootOfTool(std::wstring_view executablePath);

enum class SharedObjectKind { kFolder = 1, kFile };

struct SharedObject {
    SharedObjectKind kind = SharedObjectKind::kFolder;
    std::wstring path;
    std::uint32_t sizeBytes = 0;  // of a file
    std::wstring sddl;            // its owner and protected access list
};

// The three folders from the outside in, then the two files. `bridgePath` is <program data>\...\latest.frame.
std::vector<SharedObject> sharedObjects(std::wstring_view bridgePath, std::wstring_view ownerSid,
                                        DemandWriters demandWriters);

}  // namespace vextra
