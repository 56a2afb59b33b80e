#include "gdi_count_win.h"

#include <winternl.h>

#include <algorithm>
#include <cstdint>
#include <vector>

namespace vextra::test {
namespace {

// One GDI handle as the table behind the process environment block holds it.
struct GdiHandleEntry {
    std::uint64_t object;
    std::uint32_t owner;
    std::uint16_t unique;
    std::uint8_t type;  // 0: free
    std::uint8_t flags;
    std::uint64_t userPointer;
};
static_assert(sizeof(GdiHandleEntry) == 24 && offsetof(GdiHandleEntry, type) == 14);

constexpr std::size_t kTableEntries = 16'384;     // of Wine's table, which is a process's own
constexpr std::uintptr_t kTablePointerAt = 0xF8;  // in the environment block of a 64-bit process

std::uintptr_t environmentBlockOf(HANDLE process) {
    using Query = LONG(WINAPI*)(HANDLE, ULONG, void*, ULONG, ULONG*);
    const auto query = reinterpret_cast<Query>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQueryInformationProcess")));
    PROCESS_BASIC_INFORMATION basic{};
    if (query == nullptr || query(process, ProcessBasicInformation, &basic, sizeof basic, nullptr) != 0)
        return 0;
    return reinterpret_cast<std::uintptr_t>(basic.PebBaseAddress);
}

bool readMemory(HANDLE process, std::uintptr_t from, void* to, std::size_t bytes) {
    SIZE_T read = 0;
    return ReadProcessMemory(process, reinterpret_cast<const void*>(from), to, bytes, &read) && read == bytes;
}

}  // namespace

std::size_t countGdiObjects(HANDLE process) {
    if (const DWORD count = GetGuiResources(process, GR_GDIOBJECTS); count != 0)
        return count;
    // Wine answers 0 there, but has the table of handles that older systems shared with every process.
    const std::uintptr_t block = environmentBlockOf(process);
    std::uintptr_t table = 0;
    if (block == 0 || !readMemory(process, block + kTablePointerAt, &table, sizeof table) || table == 0)
        return 0;
    std::vector<GdiHandleEntry> entries(kTableEntries);
    if (!readMemory(process, table, entries.data(), entries.size() * sizeof entries[0]))
        return 0;
    return static_cast<std::size_t>(
        std::ranges::count_if(entries, [](const GdiHandleEntry& entry) { return entry.type != 0; }));
}

}  // namespace vextra::test
