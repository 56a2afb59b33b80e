#include <windows.h>

#include "config/legacy_import.h"
#include "config/private_profile.h"
#include "config/settings_store.h"
#include "config/source_url.h"

namespace vextra {
namespace {

constexpr DWORD kMaxValueUnits = 8192;

SecretText readVariable(const wchar_t* name) {
    SecretText buffer(std::wstring(kMaxValueUnits + 1, L'\0'));
    const DWORD length = GetEnvironmentVariableW(name, buffer.data(), kMaxValueUnits + 1);
    // A value that does not fit gives the room that it would need, which is more than there is.
    return SecretText(length <= kMaxValueUnits ? buffer.view().substr(0, length) : std::wstring_view{});
}

}  // namespace

bool importLegacyEnvironment(BrokerSettings& settings) {
    return importLegacyVariables(readVariable, settings);
}

void migratePrivateProfile(BrokerSettings& settings, const std::wstring& settingsFolder,
                           const std::wstring& legacyFolder) {
    readPrivateProfile(legacyFolder, settings);
    if (isUsableSourceUrl(settings.profileUrl.view()))
        saveSettings(settingsFolder, settings);
}

}  // namespace vextra
