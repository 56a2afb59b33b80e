#include "handle_count_win.h"

#include "base/unique_win.h"

namespace vextra::test {
namespace {

// Wine gives out the lowest value that is free, and no program of the tests holds as many handles at once.
constexpr ULONG_PTR kHandleValues = 2048;
constexpr ULONG_PTR kHandleStep = 4;

bool holds(HANDLE process, HANDLE handle) {
    UniqueHandle copy;
    return DuplicateHandle(process, handle, GetCurrentProcess(), copy.put(), 0, FALSE,
                           DUPLICATE_SAME_ACCESS) != FALSE;
}

}  // namespace

std::uint32_t handleCount(DWORD processId) {
    const UniqueHandle process(
        OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION | PROCESS_DUP_HANDLE, FALSE, processId));
    DWORD count = 0;
    if (!process || (GetProcessHandleCount(process.get(), &count) && count != 0))
        return count;
    // Wine answers 0 there. It has a list of all handles of all processes too (NtQuerySystemInformation), but
    // its server reads past the table of a process that holds none, as one does that has only just come, and
    // ends at times: with it goes every process of the session. So the handles are tried one by one.
    for (ULONG_PTR value = 1; value <= kHandleValues; ++value) {
        if (holds(process.get(), reinterpret_cast<HANDLE>(value * kHandleStep)))
            ++count;
    }
    return count;
}

}  // namespace vextra::test
