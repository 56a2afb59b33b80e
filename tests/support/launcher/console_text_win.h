// How the programs of the test harness write text for the host that reads their output.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>

inline std::string toUtf8(std::wstring_view text) {
    const int units = static_cast<int>(text.size());
    const int bytes = WideCharToMultiByte(CP_UTF8, 0, text.data(), units, nullptr, 0, nullptr, nullptr);
    std::string utf8(static_cast<size_t>(bytes), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), units, utf8.data(), bytes, nullptr, nullptr);
    return utf8;
}
