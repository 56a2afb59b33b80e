// A library that no program should load: where one does, "<this file>.loaded" lies next to it.
#include <windows.h>

#include <string>
#include <vector>

#include "base/unique_win.h"

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, void*) {
    if (reason != DLL_PROCESS_ATTACH)
        return TRUE;
    std::vector<wchar_t> path(32'768);  // the longest path there is
    const DWORD length = GetModuleFileNameW(instance, path.data(), static_cast<DWORD>(path.size()));
    const std::wstring mark = std::wstring(path.data(), length) + L".loaded";
    const vextra::UniqueFile file(
        CreateFileW(mark.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    return TRUE;
}
