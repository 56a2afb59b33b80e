// How the files of a download are called. Pure.
#pragma once

#include <string_view>

#include "base/text.h"

namespace vextra {

// Until it is verified; then it has the name that it has on the server.
inline constexpr std::wstring_view kUnfinishedFileName = L"Setup.download";

// Whether a folder is called as that of a download: a GUID in braces, in either case.
constexpr bool isDownloadFolderName(std::wstring_view name) {
    constexpr std::wstring_view kShape = L"{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}";
    if (name.size() != kShape.size())
        return false;
    for (std::size_t i = 0; i < kShape.size(); ++i) {
        if (kShape[i] == L'x' ? hexDigitValue(name[i]) < 0 : name[i] != kShape[i])
            return false;
    }
    return true;
}

}  // namespace vextra
