// Starting processes where Wine stands in for Windows.
#pragma once

#include <windows.h>

namespace vextra {

inline bool runsUnderWine() {
    return GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
}

// Under load Wine now and then (2 of 5000) lets a new process die before it has come up, and says "internal
// error". That one failure is Wine's, not the tested program's: the start is made once more. `start` returns
// what CreateProcessW returned.
template <typename Start>
bool startProcess(const Start& start) {
    if (start())
        return true;
    return GetLastError() == ERROR_INTERNAL_ERROR && runsUnderWine() && start();
}

}  // namespace vextra
