// What a process holds, once a second for as long as it lives: `handles=N gdi=N`.
//
//   soak-probe PROCESS-ID

#include <windows.h>

#include <cstdio>
#include <cwchar>

#include "base/unique_win.h"
#include "gdi_count_win.h"
#include "handle_count_win.h"

int wmain(int count, wchar_t** arguments) {
    constexpr DWORD kPeriodMs = 1000;
    const unsigned long processId = count == 2 ? std::wcstoul(arguments[1], nullptr, 10) : 0;
    const vextra::UniqueHandle process(
        OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ | SYNCHRONIZE, FALSE, processId));
    if (!process) {
        std::fputs("usage: soak-probe PROCESS-ID\n", stderr);
        return 2;
    }
    while (WaitForSingleObject(process.get(), kPeriodMs) == WAIT_TIMEOUT) {
        const unsigned long handles = vextra::test::handleCount(processId);
        const std::size_t gdiObjects = vextra::test::countGdiObjects(process.get());
        if (std::printf("handles=%lu gdi=%zu\n", handles, gdiObjects) < 0 || std::fflush(stdout) != 0)
            return 1;  // the reader of the pipe has gone
    }
    return 0;
}
