// settings-saver.exe FOLDER NUMBER MOMENT: saves the record of that number, and dies on the way. The moments
// are counted from 1: before each call that touches a file, in the middle of a write, and after each call
// that renames or deletes; 0: not at all. Exit code 0: saved, 1: not saved, 77: died. settings-saver.exe
// FOLDER endless: saves the records 1 and 2 in turn until it is killed.
#include <windows.h>

#include <cwchar>

#include "config/settings_store.h"
#include "import_swap_win.h"
#include "settings_saver/saver_records.h"

namespace {

using vextra::test::ImportSwap;
using vextra::test::realFunction;

constexpr UINT kDied = 77;

unsigned momentsLeft = 0;               // 0: none at which to die
HANDLE written = INVALID_HANDLE_VALUE;  // the file that the save has created

void moment() {
    if (momentsLeft == 0)
        return;
    if (--momentsLeft == 0)
        TerminateProcess(GetCurrentProcess(), kDied);  // nothing is closed, flushed or undone
}

BOOL andThen(BOOL result) {
    moment();
    return result;
}

HANDLE WINAPI create(LPCWSTR path, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security,
                     DWORD disposition, DWORD flags, HANDLE like) {
    moment();
    written = realFunction<decltype(CreateFileW)>("CreateFileW")(path, access, share, security, disposition,
                                                                 flags, like);
    return written;
}
BOOL WINAPI write(HANDLE file, LPCVOID bytes, DWORD size, DWORD* taken, OVERLAPPED* overlapped) {
    const auto real = realFunction<decltype(WriteFile)>("WriteFile");
    const DWORD half = size / 2;
    DWORD rest = 0;
    moment();
    if (!real(file, bytes, half, taken, overlapped))
        return FALSE;
    moment();
    const BOOL whole = real(file, static_cast<const BYTE*>(bytes) + half, size - half, &rest, overlapped);
    *taken += rest;
    return whole;
}
BOOL WINAPI flush(HANDLE file) {
    moment();
    return realFunction<decltype(FlushFileBuffers)>("FlushFileBuffers")(file);
}
BOOL WINAPI close(HANDLE handle) {
    if (handle == written)  // others are no files
        moment();
    return realFunction<decltype(CloseHandle)>("CloseHandle")(handle);
}
BOOL WINAPI replace(LPCWSTR replaced, LPCWSTR replacement, LPCWSTR backup, DWORD flags, LPVOID exclude,
                    LPVOID reserved) {
    moment();
    return andThen(realFunction<decltype(ReplaceFileW)>("ReplaceFileW")(replaced, replacement, backup, flags,
                                                                        exclude, reserved));
}
BOOL WINAPI move(LPCWSTR from, LPCWSTR to, DWORD flags) {
    moment();
    return andThen(realFunction<decltype(MoveFileExW)>("MoveFileExW")(from, to, flags));
}
BOOL WINAPI remove(LPCWSTR path) {
    moment();
    return andThen(realFunction<decltype(DeleteFileW)>("DeleteFileW")(path));
}

bool saveAndDie(const wchar_t* folder, unsigned number, unsigned dieAt) {
    const ImportSwap<decltype(CreateFileW)> creating("CreateFileW", create);
    const ImportSwap<decltype(WriteFile)> writing("WriteFile", write);
    const ImportSwap<decltype(FlushFileBuffers)> flushing("FlushFileBuffers", flush);
    const ImportSwap<decltype(CloseHandle)> closing("CloseHandle", close);
    const ImportSwap<decltype(ReplaceFileW)> replacing("ReplaceFileW", replace);
    const ImportSwap<decltype(MoveFileExW)> moving("MoveFileExW", move);
    const ImportSwap<decltype(DeleteFileW)> removing("DeleteFileW", remove);
    momentsLeft = dieAt;
    const bool saved = vextra::saveSettings(folder, vextra::test::numberedRecord(number));
    momentsLeft = 0;
    return saved;
}

}  // namespace

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
    const auto number = static_cast<unsigned>(std::wcstoul(argv[2], nullptr, 10));
    const auto dieAt = static_cast<unsigned>(std::wcstoul(argv[3], nullptr, 10));
    return saveAndDie(argv[1], number, dieAt) ? 0 : 1;
}
