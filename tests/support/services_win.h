// What ./dev test starts for the tests that need more than the build: named by variables of the environment.
#pragma once

#include <windows.h>

#include <optional>
#include <string>
#include <vector>

#include "windows_path.h"

namespace vextra::test {

inline std::optional<std::wstring> variable(const wchar_t* name) {
    std::vector<wchar_t> value(32'768);
    const DWORD length = GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size()));
    if (length == 0 || length >= value.size())
        return std::nullopt;
    return std::wstring(value.data(), length);
}

}  // namespace vextra::test
