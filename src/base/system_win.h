// What the system says of this process and its surroundings, and the few ways of asking that several rooms
// share. Safe on any thread.
#pragma once

#include <windows.h>

#include <cstdint>
#include <optional>
#include <string>

#include "base/unique_win.h"

namespace vextra {

// The longest path, and the longest value of an environment variable, with its terminator.
constexpr DWORD kMaxSystemTextUnits = 32'768;

// Nothing when the variable does not exist or is empty.
std::optional<std::wstring> environmentVariable(const wchar_t* name);

// The file of a library of this process, or of its program (null); empty on failure.
std::wstring modulePath(HMODULE module);

// By the system's own table of letters, as it compares file names.
bool equalsIgnoringCase(const std::wstring& a, const std::wstring& b);

// --- Who this process is ---

// The string SID of the user in the process token; empty on failure.
std::wstring currentUserSidString();

// True when the token is elevated, and also when that cannot be read: the safe side of every check.
bool isElevatedOrUnknown();

// The terminal-services session of a process; nothing when it cannot be read.
std::optional<std::uint32_t> sessionOfProcess(std::uint32_t processId);

// --- Files and their rights ---

// A security descriptor from its text form (SDDL); invalid on failure, and GetLastError tells why.
UniqueLocalMemory descriptorFromSddl(const std::wstring& sddl);

// Neither a folder nor a link: the verdict on a file that was opened without following links.
constexpr bool isPlainFile(DWORD attributes) {
    return (attributes & (FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_DIRECTORY)) == 0;
}

struct PlainFile {
    UniqueFile file;
    std::uint64_t sizeBytes = 0;  // when it was opened

    explicit operator bool() const { return static_cast<bool>(file); }
};
// Opens a file that exists, without following a link at its end. Invalid unless it is a plain file.
PlainFile openPlainFile(const std::wstring& path, DWORD access, DWORD share);

// --- Libraries that not every Windows has ---

// Looked for at run time, so that their absence is a result code and not a program that does not start. From
// the system folder only. Null on failure; GetLastError tells why. Never unloaded: a library's worker threads
// may outlive its last call.
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
