// The program that the harness's own test runs through the launcher: each sub-command shows one thing.

#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "base/text.h"
#include "base/unique_win.h"

using vextra::UniqueFile;
using vextra::UniqueHandle;

namespace {

constexpr DWORD kLongSleepMs = 60'000;
constexpr DWORD kJobClosePatienceMs = 5'000;
constexpr int kExitUsage = 100;
constexpr int kExitProbeFailed = 101;

using Arguments = std::vector<std::wstring>;

void print(std::wstring_view text) {
    std::printf("%s\n", vextra::utf8FromWide(text).c_str());
}

int failLastError(const char* what) {
    std::fprintf(stderr, "launcher-probe: %s: error %lu\n", what, GetLastError());
    return kExitProbeFailed;
}

int showElevation(const Arguments&) {
    UniqueHandle token;
    TOKEN_ELEVATION elevation{};
    DWORD size = 0;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.put()) ||
        !GetTokenInformation(token.get(), TokenElevation, &elevation, sizeof(elevation), &size)) {
        return failLastError("TokenElevation");
    }
    std::printf("%lu\n", elevation.TokenIsElevated);
    return 0;
}

int showArguments(const Arguments& arguments) {
    for (const std::wstring& argument : arguments) {
        print(argument);
    }
    return 0;
}

int showVariable(const Arguments& arguments) {
    wchar_t value[1024];
    const DWORD units =
        GetEnvironmentVariableW(arguments.at(0).c_str(), value, static_cast<DWORD>(std::size(value)));
    if (units == 0 || units >= std::size(value)) {
        return failLastError("GetEnvironmentVariable");
    }
    print(value);
    return 0;
}

int showDirectory(const Arguments&) {
    wchar_t directory[MAX_PATH];
    if (GetCurrentDirectoryW(MAX_PATH, directory) == 0) {
        return failLastError("GetCurrentDirectory");
    }
    print(directory);
    return 0;
}

int copyInput(const Arguments&) {
    char buffer[4096];
    size_t bytes = 0;
    while ((bytes = std::fread(buffer, 1, sizeof(buffer), stdin)) > 0) {
        std::fwrite(buffer, 1, bytes, stdout);
    }
    return 0;
}

int growStack(int depth) {
    volatile char page[4096];
    page[0] = static_cast<char>(depth);
    return depth < 0 ? 0 : growStack(depth + 1) + page[0];
}

int crash(const Arguments& arguments) {
    const std::wstring& how = arguments.at(0);
    // As GoogleTest does while its tests run.
    if (const wchar_t* file = _wgetenv(L"TEST_PREMATURE_EXIT_FILE")) {
        const UniqueFile unfinished(CreateFileW(file, GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr));
    }
    if (how == L"access") {
        volatile int* volatile nowhere = nullptr;
        *nowhere = 1;
    } else if (how == L"abort") {
        std::abort();
    } else if (how == L"stack") {
        return growStack(0);
    } else if (how == L"exception") {
        throw std::runtime_error("not to be caught");
    } else if (how == L"trap") {
        __builtin_trap();
    } else if (how == L"exit") {
        std::exit(0);
    }
    return kExitUsage;
}

int exitWith(const Arguments& arguments) {
    ExitProcess(std::wcstoul(arguments.at(0).c_str(), nullptr, 0));
}

// The probe itself, once more; answers its process, or nothing.
UniqueHandle startSelf(std::wstring_view command, const UniqueHandle& job) {
    wchar_t path[MAX_PATH];
    if (GetModuleFileNameW(nullptr, path, MAX_PATH) == 0) {
        return {};
    }
    std::wstring line = L'"' + std::wstring(path) + L"\" " + std::wstring(command);
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION started{};
    if (!CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, CREATE_SUSPENDED, nullptr, nullptr,
                        &startup, &started)) {
        return {};
    }
    UniqueHandle process(started.hProcess);
    const UniqueHandle thread(started.hThread);
    if ((job && !AssignProcessToJobObject(job.get(), process.get())) ||
        ResumeThread(thread.get()) == static_cast<DWORD>(-1)) {
        TerminateProcess(process.get(), kExitProbeFailed);
        return {};
    }
    return process;
}

// What matters in the end: tests start the broker, and the broker starts decoders.
int showChildElevation(const Arguments&) {
    const UniqueHandle child = startSelf(L"elevation", {});
    DWORD exitCode = 0;
    if (!child || WaitForSingleObject(child.get(), INFINITE) != WAIT_OBJECT_0 ||
        !GetExitCodeProcess(child.get(), &exitCode)) {
        return failLastError("child");
    }
    return static_cast<int>(exitCode);
}

int sleepLong(const Arguments&) {
    Sleep(kLongSleepMs);
    return 0;
}

// A child that only the launcher's job holds.
int leaveChild(const Arguments&) {
    return startSelf(L"sleep", {}) ? 0 : failLastError("child");
}

int leaveChildAndSleep(const Arguments& arguments) {
    const int failure = leaveChild(arguments);
    return failure != 0 ? failure : sleepLong(arguments);
}

// A program under test keeps its own children in a job of its own, inside the launcher's.
int closeOwnJob(const Arguments&) {
    UniqueHandle job(CreateJobObjectW(nullptr, nullptr));
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    if (!job ||
        !SetInformationJobObject(job.get(), JobObjectExtendedLimitInformation, &limits, sizeof(limits))) {
        return failLastError("job");
    }
    const UniqueHandle child = startSelf(L"sleep", job);
    if (!child) {
        return failLastError("child in its own job");
    }
    job.reset();
    if (WaitForSingleObject(child.get(), kJobClosePatienceMs) != WAIT_OBJECT_0) {
        std::fprintf(stderr, "launcher-probe: the child outlived its job\n");
        return kExitProbeFailed;
    }
    return 0;
}

int showWindowForAMoment(const Arguments&) {
    const HWND window = CreateWindowExW(0, L"STATIC", L"probe", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 10, 10, 200,
                                        100, nullptr, nullptr, nullptr, nullptr);
    if (!window) {
        return failLastError("CreateWindow");
    }
    DestroyWindow(window);
    return 0;
}

struct Command {
    std::wstring_view name;
    size_t leastArguments;
    int (*run)(const Arguments& arguments);
};

constexpr Command kCommands[] = {
    {L"arguments", 0, showArguments},
    {L"child-elevation", 0, showChildElevation},
    {L"close-own-job", 0, closeOwnJob},
    {L"copy-input", 0, copyInput},
    {L"crash", 1, crash},
    {L"directory", 0, showDirectory},
    {L"elevation", 0, showElevation},
    {L"exit", 1, exitWith},
    {L"leave-child", 0, leaveChild},
    {L"leave-child-and-sleep", 0, leaveChildAndSleep},
    {L"sleep", 0, sleepLong},
    {L"variable", 1, showVariable},
    {L"window", 0, showWindowForAMoment},
};

}  // namespace

int wmain(int argc, wchar_t** argv) {
    // The harness compares bytes.
    _setmode(_fileno(stdin), _O_BINARY);
    _setmode(_fileno(stdout), _O_BINARY);
    const Arguments all(argv + 1, argv + argc);
    for (const Command& command : kCommands) {
        if (!all.empty() && all[0] == command.name && all.size() > command.leastArguments) {
            return command.run(Arguments(all.begin() + 1, all.end()));
        }
    }
    return kExitUsage;
}
