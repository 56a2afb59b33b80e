#include <windows.h>

#include <sddl.h>

#include "base/system_win.h"
#include "base/unique_win.h"
#include "bridge/bridge_location.h"

namespace vextra {
namespace {

bool isSid(const std::wstring& text) {
    UniqueLocalMemory sid;
    return ConvertStringSidToSidW(text.c_str(), sid.put()) != FALSE;
}

}  // namespace

std::wstring readBrokerRegistryValue(const wchar_t* name) {
    wchar_t text[1024];
    DWORD bytes = sizeof text;
    if (RegGetValueW(HKEY_LOCAL_MACHINE, kBrokerRegistryKey, name, RRF_RT_REG_SZ | RRF_SUBKEY_WOW6464KEY,
                     nullptr, text, &bytes) != ERROR_SUCCESS)
        return {};
    return text;
}

std::wstring resolveBridgePath() {
    const std::wstring owner = readBrokerRegistryValue(kOwnerSidValue);
    if (!isOwnerSidForm(owner) || !isSid(owner))
        return {};
    const std::optional<std::wstring> programData = environmentVariable(L"ProgramData");
    if (!programData)
        return {};
    std::wstring derived = deriveBridgePath(*programData, owner);
    if (!equalsIgnoringCase(derived, readBrokerRegistryValue(kBridgePathValue)))
        return {};
    return derived;
}

std::wstring resolveDemandPath() {
    std::wstring derived = deriveDemandPath(resolveBridgePath());
    if (derived.empty() || !equalsIgnoringCase(derived, readBrokerRegistryValue(kDemandPathValue)))
        return {};
    return derived;
}

bool parentChainIsPlain(std::wstring_view path) {
    for (const std::wstring& folder : parentFolders(path)) {
        const DWORD attributes = GetFileAttributesW(folder.c_str());
        if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0)
            return false;
    }
    return true;
}

bool ownerIsCurrentUser() {
    const std::wstring user = currentUserSidString();
    return !user.empty() && user == readBrokerRegistryValue(kOwnerSidValue);
}

bool mayWriteBridge() {
    return !isElevatedOrUnknown() && ownerIsCurrentUser();
}

}  // namespace vextra
