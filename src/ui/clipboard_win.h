// Text for other programs. UI thread only.
#pragma once

#include <windows.h>

#include <string>

namespace vextra {

// False, with the clipboard as it was, when there is no memory or another program holds it for more than 0.1
// s.
bool copyToClipboard(HWND owner, const std::wstring& text);

}  // namespace vextra
