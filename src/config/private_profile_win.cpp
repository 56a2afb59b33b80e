#include <windows.h>

#include "config/private_profile.h"

namespace vextra {
namespace {

constexpr DWORD kMaxTransportUnits = 15;

}  // namespace

void readPrivateProfile(const std::wstring& legacyFolder, BrokerSettings& settings) {
    const std::wstring path = legacyFolder + L"\\source.private.ini";

    // Room for one unit more than is accepted: what does not fit is told from what just fits, and refused.
    SecretText url(std::wstring(kMaxUrlUnits + 2, L'\0'));
    const DWORD length = GetPrivateProfileStringW(L"source", L"url", L"", url.data(),
                                                  static_cast<DWORD>(url.size()), path.c_str());
    settings.profileUrl.assign(length <= kMaxUrlUnits ? url.view().substr(0, length) : std::wstring_view{});

    wchar_t transport[kMaxTransportUnits + 1];
    GetPrivateProfileStringW(L"source", L"transport", L"tcp", transport, ARRAYSIZE(transport), path.c_str());
    settings.rtspUdp = std::wstring_view(transport) == L"udp";
}

}  // namespace vextra
