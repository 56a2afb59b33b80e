#include "console/console_win.h"

namespace vextra {

std::string toUtf8(std::wstring_view text) {
    const int units = static_cast<int>(text.size());
    const int bytes = WideCharToMultiByte(CP_UTF8, 0, text.data(), units, nullptr, 0, nullptr, nullptr);
    std::string utf8(static_cast<std::size_t>(bytes), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), units, utf8.data(), bytes, nullptr, nullptr);
    return utf8;
}

void printLine(ConsoleStream stream, std::wstring_view text) {
    const HANDLE handle = GetStdHandle(static_cast<DWORD>(stream));
    const std::wstring line = std::wstring(text) + L"\n";
    DWORD mode = 0;
    DWORD written = 0;
    if (GetConsoleMode(handle, &mode)) {
        WriteConsoleW(handle, line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
        return;
    }
    const std::string bytes = toUtf8(line);
    WriteFile(handle, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
}

}  // namespace vextra
