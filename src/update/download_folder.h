// How the files of a download are called. Pure.
#pragma once

#include <string_view>

namespace vextra {

// Until it is verified; then it has the name that it has on the server.
inline constexpr std::wstring_view kUnfinishedFileName = L"Setup.download";

// Whether a folder is called as that of a download: a GUID in braces, in either case.
bool isDownloadFolderName(std::wstring_view name);

}  // namespace vextra
