#include "base/system_win.h"

#include <sddl.h>

#include <cstddef>
#include <vector>

namespace vextra {
namespace {

UniqueHandle openOwnToken() {
    UniqueHandle token;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.put()))
        return {};
    return token;
}

}  // namespace

std::optional<std::wstring> environmentVariable(const wchar_t* name) {
    std::vector<wchar_t> value(kMaxSystemTextUnits);
    const DWORD length = GetEnvironmentVariableW(name, value.data(), kMaxSystemTextUnits);
    if (length == 0 || length >= kMaxSystemTextUnits)
        return std::nullopt;
    return std::wstring(value.data(), length);
}

std::wstring modulePath(HMODULE module) {
    std::vector<wchar_t> path(kMaxSystemTextUnits);
    return {path.data(), GetModuleFileNameW(module, path.data(), kMaxSystemTextUnits)};
}

bool equalsIgnoringCase(const std::wstring& a, const std::wstring& b) {
    return CompareStringOrdinal(a.data(), static_cast<int>(a.size()), b.data(), static_cast<int>(b.size()),
                                TRUE) == CSTR_EQUAL;
}

std::wstring currentUserSidString() {
    const UniqueHandle token = openOwnToken();
    if (!token)
        return {};
    alignas(TOKEN_USER) std::byte buffer[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
    DWORD written = 0;
    if (!GetTokenInformation(token.get(), TokenUser, buffer, sizeof buffer, &written))
        return {};
    wchar_t* text = nullptr;
    if (!ConvertSidToStringSidW(reinterpret_cast<const TOKEN_USER*>(buffer)->User.Sid, &text))
        return {};
    const UniqueLocalMemory owner(text);
    return text;
}

bool isElevatedOrUnknown() {
    const UniqueHandle token = openOwnToken();
    TOKEN_ELEVATION elevation{};
    DWORD written = 0;
    if (!token || !GetTokenInformation(token.get(), TokenElevation, &elevation, sizeof elevation, &written))
        return true;
    return elevation.TokenIsElevated != 0;
}

std::optional<std::uint32_t> sessionOfProcess(std::uint32_t processId) {
    DWORD session = 0;
    if (!ProcessIdToSessionId(processId, &session))
        return std::nullopt;
    return session;
}

UniqueLocalMemory descriptorFromSddl(const std::wstring& sddl) {
    UniqueLocalMemory descriptor;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl.c_str(), SDDL_REVISION_1, descriptor.put(),
                                                              nullptr))
        return {};
    return descriptor;
}

PlainFile openPlainFile(const std::wstring& path, DWORD access, DWORD share) {
    UniqueFile file(CreateFileW(path.c_str(), access, share, nullptr, OPEN_EXISTING,
                                FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    BY_HANDLE_FILE_INFORMATION information{};
    if (!file || !GetFileInformationByHandle(file.get(), &information) ||
        !isPlainFile(information.dwFileAttributes))
        return {};
    return {std::move(file), (std::uint64_t{information.nFileSizeHigh} << 32) | information.nFileSizeLow};
}

}  // namespace vextra
