#include <windows.h>

#include "base/text.h"
#include "config/legacy_import.h"

namespace vextra {
namespace {

constexpr DWORD kMaxTransportUnits = 15;

SecretText readVariable(const wchar_t* name) {
    SecretText buffer = SecretText::ofZeros(kMaxUrlUnits);
    const DWORD length = GetEnvironmentVariableW(name, buffer.data(), kMaxUrlUnits + 1);
    // A value that does not fit gives the room that it would need, which is more than there is.
    return SecretText(length <= kMaxUrlUnits ? buffer.view().substr(0, length) : std::wstring_view{});
}

}  // namespace

bool importLegacyEnvironment(BrokerSettings& settings) {
    return importLegacyVariables(readVariable, settings);
}

void readPrivateProfile(const std::wstring& legacyFolder, BrokerSettings& settings) {
    const std::wstring path = legacyFolder + L"\\source.private.ini";

    // Room for one unit more than is accepted: what does not fit is told from what just fits, and refused.
    SecretText url = SecretText::ofZeros(kMaxUrlUnits + 2);
    const DWORD length = GetPrivateProfileStringW(L"source", L"url", L"", url.data(),
                                                  static_cast<DWORD>(url.size()), path.c_str());
    settings.profileUrl.assign(length <= kMaxUrlUnits ? url.view().substr(0, length) : std::wstring_view{});

    wchar_t transport[kMaxTransportUnits + 1];
    GetPrivateProfileStringW(L"source", L"transport", L"tcp", transport, ARRAYSIZE(transport), path.c_str());
    settings.rtspUdp = std::wstring_view(transport) == L"udp";
}

}  // namespace vextra
