// The installer's part on a machine or in a Wine prefix. Every function reads and names the system as it is
// now; one thread at a time. Texts are for the administrator.
#pragma once

#include <string>
#include <vector>

#include "provisioner/provision_rules.h"

namespace vextra {

struct ProvisionReport {
    std::vector<std::wstring> lines;  // what was done or found
    std::wstring trouble;             // what stopped it, or what is wrong; empty: all is well

    bool ok() const { return trouble.empty(); }
};

struct ProvisionPlan {
    std::wstring ownerSid;
    std::wstring installDir;
    DemandWriters demandWriters = DemandWriters::kServicesOnly;
};

// Creates what is missing, corrects access lists and values, and leaves the rest alone. Whatever is in the
// place of an object and is not that object (a link, a folder, another size, another account's) is a refusal.
ProvisionReport provision(const ProvisionPlan& plan);

// Deletes the files, the folders and keys that are empty then, and the values, if they name this owner.
// Refuses before it deletes anything if a file is in use or is not what provision() makes.
ProvisionReport removeProvision(const std::wstring& ownerSid);

// Writes nothing.
ProvisionReport describeProvision(const std::wstring& ownerSid);

// False under Wine, which accepts access lists for files and forgets them: they are neither judged nor do
// they protect anything there.
bool accessListsAreKept();

}  // namespace vextra
