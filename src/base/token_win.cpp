#include "base/token_win.h"

#include <windows.h>

#include <sddl.h>

#include "base/unique_win.h"

namespace vextra {
namespace {

UniqueHandle openOwnToken() {
    UniqueHandle token;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.put()))
        return {};
    return token;
}

}  // namespace

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

}  // namespace vextra
