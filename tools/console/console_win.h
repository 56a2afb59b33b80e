// Text for people, on a console or redirected into a file or pipe.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>

namespace vextra {

enum class ConsoleStream : DWORD { kOutput = STD_OUTPUT_HANDLE, kError = STD_ERROR_HANDLE };

// Writes the text and a line break: as characters on a console, whatever its code page, and as UTF-8
// elsewhere. Not buffered.
void printLine(ConsoleStream stream, std::wstring_view text);

}  // namespace vextra
