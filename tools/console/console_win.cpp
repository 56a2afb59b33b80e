#include "console/console_win.h"

#include "base/text.h"

namespace vextra {

void printLine(ConsoleStream stream, std::wstring_view text) {
    const HANDLE handle = GetStdHandle(static_cast<DWORD>(stream));
    const std::wstring line = std::wstring(text) + L"\n";
    DWORD mode = 0;
    DWORD written = 0;
    if (GetConsoleMode(handle, &mode)) {
        WriteConsoleW(handle, line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
        return;
    }
    const std::string bytes = utf8FromWide(line);
    WriteFile(handle, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
}

}  // namespace vextra
