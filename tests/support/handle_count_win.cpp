#include "handle_count_win.h"

#include <algorithm>
#include <span>
#include <vector>

#include "base/handle_win.h"

namespace vextra::test {

std::uint32_t handleCount(DWORD processId) {
    const UniqueHandle process(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, processId));
    DWORD count = 0;
    if (!process || (GetProcessHandleCount(process.get(), &count) && count != 0))
        return count;
    // Wine answers 0 there, but has the list of all handles of all processes.
    struct Entry {
        void* object;
        ULONG_PTR processId;
        ULONG_PTR handle;
        ULONG access;
        USHORT trace;
        USHORT type;
        ULONG attributes;
        ULONG reserved;
    };
    constexpr ULONG kSystemExtendedHandleInformation = 64;
    using Query = LONG(WINAPI*)(ULONG, void*, ULONG, ULONG*);
    const auto query = reinterpret_cast<Query>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQuerySystemInformation")));
    std::vector<ULONG_PTR> words(1 << 18);
    ULONG bytes = 0;
    if (query == nullptr || query(kSystemExtendedHandleInformation, words.data(),
                                  static_cast<ULONG>(words.size() * sizeof words[0]), &bytes) != 0)
        return 0;
    const std::span entries(reinterpret_cast<const Entry*>(words.data() + 2), words[0]);
    return static_cast<std::uint32_t>(std::ranges::count(entries, ULONG_PTR{processId}, &Entry::processId));
}

}  // namespace vextra::test
