// What ./dev test starts for the tests that need more than the build: named by variables of the environment.
#pragma once

#include <windows.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

namespace vextra::test {

inline std::optional<std::wstring> variable(const wchar_t* name) {
    std::vector<wchar_t> value(32'768);
    const DWORD length = GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size()));
    if (length == 0)
        return std::nullopt;
    return std::wstring(value.data(), length);
}

// A path of the host is a path of Wine's drive Z.
inline std::wstring windowsPath(std::wstring path) {
    if (!path.starts_with(L'/'))
        return path;
    std::ranges::replace(path, L'/', L'\\');
    return L"Z:" + path;
}

}  // namespace vextra::test
