// Libraries of Windows that not every Windows has: looked for at run time, so that their absence is a result
// code and not a program that does not start.
#pragma once

#include <windows.h>

namespace vextra {

// From the system folder only. Null on failure; GetLastError tells why. Never unloaded: a library's worker
// threads may outlive its last call.
inline HMODULE loadSystemLibrary(const wchar_t* name) {
    return LoadLibraryExW(name, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
}

// Null when the library was not loaded or lacks the function; GetLastError tells which. `Function` is a
// function's type.
template <typename Function>
Function* entryPoint(HMODULE library, const char* name) {
    if (library == nullptr)
        return nullptr;
    return reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(library, name)));
}

}  // namespace vextra
