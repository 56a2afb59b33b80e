// settings-saver.exe FOLDER NUMBER STEP: saves the record of that number, and dies on the way: before the
// first file operation (step 1), after it (2), and so on; 0: not at all. Exit code 0: saved, 1: not saved,
// 77: died. settings-saver.exe FOLDER endless: saves the records 1 and 2 in turn until it is killed.
#include <windows.h>

#include <cwchar>

#include "config/save_faults.h"
#include "config/settings_store.h"
#include "settings_saver/saver_records.h"

namespace {

constexpr UINT kDied = 77;

unsigned stepsLeft = 0;

}  // namespace

void vextra::betweenSaveSteps() {
    if (stepsLeft == 0)
        return;
    if (--stepsLeft == 0)
        TerminateProcess(GetCurrentProcess(), kDied);  // nothing is closed, flushed or undone
}

int wmain(int argc, wchar_t** argv) {
    using namespace vextra;
    if (argc == 3 && std::wcscmp(argv[2], L"endless") == 0) {
        for (unsigned i = 0;; ++i) {
            if (!saveSettings(argv[1], test::numberedRecord(1 + i % 2)))
                return 1;
        }
    }
    if (argc != 4)
        return 2;
    stepsLeft = static_cast<unsigned>(std::wcstoul(argv[3], nullptr, 10));
    const auto number = static_cast<unsigned>(std::wcstoul(argv[2], nullptr, 10));
    return saveSettings(argv[1], test::numberedRecord(number)) ? 0 : 1;
}
