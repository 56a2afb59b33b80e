// How many handles a process holds: `handles=N`.
//
//   bench-handle-count PROCESS-ID

#include <cstdio>
#include <cwchar>

#include "handle_count_win.h"

int wmain(int count, wchar_t** arguments) {
    const unsigned long processId = count == 2 ? std::wcstoul(arguments[1], nullptr, 10) : 0;
    if (processId == 0) {
        std::fputs("usage: bench-handle-count PROCESS-ID\n", stderr);
        return 2;
    }
    const unsigned long handles = vextra::test::handleCount(processId);
    if (handles == 0) {
        std::fprintf(stderr, "bench-handle-count: the system does not tell the handles of %lu\n", processId);
        return 1;
    }
    std::printf("handles=%lu\n", handles);
    return 0;
}
