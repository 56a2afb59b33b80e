// Paths that the host hands to tests.
#pragma once

#include <algorithm>
#include <string>

namespace vextra::test {

// A path of the host is a path of Wine's drive Z.
inline std::wstring windowsPath(std::wstring path) {
    if (!path.starts_with(L'/'))
        return path;
    std::ranges::replace(path, L'/', L'\\');
    return L"Z:" + path;
}

}  // namespace vextra::test
