// Runs one Windows program the way a test needs it and reports its end truthfully:
//
//   test-launcher.exe [--elevated] [--test] [--env NAME=VALUE]... [--cwd DIR] -- PROGRAM [ARGUMENT]...
//
// - The program and everything it starts are unelevated, although Wine makes every process elevated.
// - It lives in a kill-on-close job: when the launcher goes, however it goes, all of that goes too.
// - Its 32-bit exit code becomes one of the 8 bits that a host sees, so that a crash can never be mistaken
// for
//   one of the program's own codes (0xC0000005 cut to 8 bits would be 5).
// - A check that ended any of the programs of a checked build counts as a crash, also when the test did not
//   mind.

#include <windows.h>

#include <cstdio>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/text.h"
#include "base/unique_win.h"
#include "start_process_win.h"
#include "trap_report/trap_report.h"

using vextra::UniqueFile;
using vextra::UniqueHandle;

namespace {

constexpr DWORD kLargestPassedCode = 119;
constexpr int kExitCrashed = 120;
constexpr int kExitUnmappable = 121;
constexpr int kExitLauncherFailed = 122;

// A test program reports passed or failed; any other code, abort's 3 above all, is an end it did not choose.
constexpr DWORD kLargestTestVerdict = 1;

enum class Rights { kUnelevated, kElevated };
enum class ExitCodes { kAnyUpTo119, kTestVerdict };

struct Options {
    Rights rights = Rights::kUnelevated;
    ExitCodes exitCodes = ExitCodes::kAnyUpTo119;
    std::wstring workingDirectory;  // empty: the launcher's own
    std::vector<std::wstring> environment;
    std::vector<std::wstring> command;
};

int fail(std::wstring_view what) {
    std::fprintf(stderr, "test-launcher: %s\n", vextra::utf8FromWide(what).c_str());
    return kExitLauncherFailed;
}

int failLastError(std::wstring_view what) {
    const DWORD error = GetLastError();
    return fail(std::wstring(what) + L": error " + std::to_wstring(error));
}

std::optional<Options> parse(const std::vector<std::wstring>& arguments) {
    Options options;
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::wstring& argument = arguments[i];
        const bool hasValue = i + 1 < arguments.size();
        if (argument == L"--") {
            options.command.assign(arguments.begin() + static_cast<std::ptrdiff_t>(i) + 1, arguments.end());
            break;
        }
        if (argument == L"--elevated") {
            options.rights = Rights::kElevated;
        } else if (argument == L"--test") {
            options.exitCodes = ExitCodes::kTestVerdict;
        } else if (argument == L"--env" && hasValue && arguments[i + 1].find(L'=', 1) != std::wstring::npos) {
            options.environment.push_back(arguments[++i]);
        } else if (argument == L"--cwd" && hasValue) {
            options.workingDirectory = arguments[++i];
        } else {
            return std::nullopt;
        }
    }
    if (options.command.empty()) {
        return std::nullopt;
    }
    return options;
}

// Quotes so that both the C runtime and CommandLineToArgvW give the argument back: backslashes count only in
// front of a quotation mark.
std::wstring quoted(const std::wstring& argument) {
    if (!argument.empty() && argument.find_first_of(L" \t\n\v\"") == std::wstring::npos) {
        return argument;
    }
    std::wstring text = L"\"";
    size_t backslashes = 0;
    for (const wchar_t unit : argument) {
        if (unit == L'"') {
            text.append(backslashes + 1, L'\\');
        }
        backslashes = unit == L'\\' ? backslashes + 1 : 0;
        text += unit;
    }
    text.append(backslashes, L'\\');
    text += L'"';
    return text;
}

std::wstring commandLine(const std::vector<std::wstring>& command) {
    // The program's own name is parsed without escapes, and no file name holds a quotation mark.
    std::wstring line = L"\"" + command.front() + L"\"";
    for (size_t i = 1; i < command.size(); ++i) {
        line += L' ' + quoted(command[i]);
    }
    return line;
}

bool isElevated() {
    UniqueHandle token;
    TOKEN_ELEVATION elevation{};
    DWORD size = 0;
    return OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.put()) &&
           GetTokenInformation(token.get(), TokenElevation, &elevation, sizeof(elevation), &size) &&
           elevation.TokenIsElevated != 0;
}

// The unelevated half of this elevated process's token. Under Wine it can start a process; Windows hands out
// a copy that cannot, except to the system itself.
UniqueHandle unelevatedToken() {
    UniqueHandle own;
    TOKEN_LINKED_TOKEN linked{};
    DWORD size = 0;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY | TOKEN_DUPLICATE, own.put()) ||
        !GetTokenInformation(own.get(), TokenLinkedToken, &linked, sizeof(linked), &size)) {
        return {};
    }
    const UniqueHandle other(linked.LinkedToken);
    UniqueHandle primary;
    if (!DuplicateTokenEx(other.get(), MAXIMUM_ALLOWED, nullptr, SecurityImpersonation, TokenPrimary,
                          primary.put())) {
        return {};
    }
    return primary;
}

UniqueHandle makeKillOnCloseJob() {
    UniqueHandle job(CreateJobObjectW(nullptr, nullptr));
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    if (job &&
        !SetInformationJobObject(job.get(), JobObjectExtendedLimitInformation, &limits, sizeof(limits))) {
        job.reset();
    }
    return job;
}

const wchar_t* crashName(DWORD exitCode) {
    struct Name {
        DWORD code;
        const wchar_t* text;
    };
    static constexpr Name kNames[] = {
        {0x80000003, L" (breakpoint)"},
        {0xC0000005, L" (access violation)"},
        {0xC000001D, L" (illegal instruction)"},
        {0xC0000094, L" (integer division by zero)"},
        {0xC00000FD, L" (stack overflow)"},
        {0xC0000135, L" (library not found)"},
        {0xC0000139, L" (entry point not found)"},
        {0xC000013A, L" (Ctrl+C)"},
        {0xC0000374, L" (heap corruption)"},
        {0xC0000409, L" (fail fast)"},
        {0x20474343, L" (C++ exception)"},
        {0xE06D7363, L" (C++ exception)"},
    };
    for (const Name& name : kNames) {
        if (name.code == exitCode) {
            return name.text;
        }
    }
    return L"";
}

// Both warning and error statuses end a process when no handler takes them; so do the codes that compilers
// raise for a C++ exception.
bool looksLikeCrash(DWORD exitCode) {
    return exitCode >= 0x80000000 || *crashName(exitCode) != L'\0';
}

int hostExitCode(DWORD exitCode, const Options& options) {
    const DWORD largest =
        options.exitCodes == ExitCodes::kTestVerdict ? kLargestTestVerdict : kLargestPassedCode;
    if (exitCode <= largest) {
        return static_cast<int>(exitCode);
    }
    const std::string program = vextra::utf8FromWide(options.command.front());
    if (looksLikeCrash(exitCode)) {
        std::fprintf(stderr, "test-launcher: %s crashed: 0x%08lX%s\n", program.c_str(), exitCode,
                     vextra::utf8FromWide(crashName(exitCode)).c_str());
        return kExitCrashed;
    }
    if (options.exitCodes == ExitCodes::kTestVerdict) {
        std::fprintf(stderr, "test-launcher: %s crashed: it ended with %lu%s, a test ends with 0 or 1\n",
                     program.c_str(), exitCode, exitCode == 3 ? " (abort)" : "");
        return kExitCrashed;
    }
    std::fprintf(stderr, "test-launcher: %s ended with %lu, which a host exit status cannot hold\n",
                 program.c_str(), exitCode);
    return kExitUnmappable;
}

std::wstring ownTemporaryFile(std::wstring_view name) {
    wchar_t folder[MAX_PATH + 1];
    const DWORD units = GetTempPathW(static_cast<DWORD>(std::size(folder)), folder);
    return std::wstring(folder, units).append(name) + std::to_wstring(GetCurrentProcessId());
}

// GoogleTest makes this file when it starts and removes it when all tests are over. What is left of it tells
// of a program that ended in between with 0: by exit in a test, or under Wine by a stack overflow that leaves
// too little stack to report it.
std::wstring unfinishedTestFile() {
    return ownTemporaryFile(L"unfinished-test-");
}

// Says what programs of a checked build wrote when a check ended them. True: there was something.
bool passOnTrapReports(const std::wstring& path) {
    UniqueFile file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                OPEN_EXISTING, 0, nullptr));
    if (!file) {
        return false;
    }
    char text[4096];
    for (DWORD size = 0; ReadFile(file.get(), text, sizeof(text), &size, nullptr) && size > 0;) {
        std::fwrite(text, 1, size, stderr);
    }
    file.reset();
    DeleteFileW(path.c_str());
    return true;
}

int run(const Options& options) {
    const std::wstring trapReports = ownTemporaryFile(L"trap-report-");
    DeleteFileW(trapReports.c_str());
    SetEnvironmentVariableW(vextra::test::kTrapReportVariable, trapReports.c_str());
    const std::wstring unfinished = unfinishedTestFile();
    if (options.exitCodes == ExitCodes::kTestVerdict) {
        DeleteFileW(unfinished.c_str());
        SetEnvironmentVariableW(L"TEST_PREMATURE_EXIT_FILE", unfinished.c_str());
    }
    for (const std::wstring& entry : options.environment) {
        const size_t equals = entry.find(L'=', 1);
        if (!SetEnvironmentVariableW(entry.substr(0, equals).c_str(), entry.c_str() + equals + 1)) {
            return failLastError(L"cannot set " + entry);
        }
    }

    const bool elevated = isElevated();
    if (options.rights == Rights::kElevated && !elevated) {
        return fail(L"--elevated needs an elevated launcher");
    }
    UniqueHandle token;
    if (options.rights == Rights::kUnelevated && elevated) {
        token = unelevatedToken();
        if (!token) {
            return failLastError(L"no unelevated token to run with; start the tests unelevated");
        }
    }

    // Inherited by the program, on Windows: a crash ends it at once, without a dialog that would wait for an
    // answer.
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);

    const UniqueHandle job = makeKillOnCloseJob();
    if (!job) {
        return failLastError(L"cannot make a job");
    }

    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    startup.hStdOutput = GetStdHandle(STD_OUTPUT_HANDLE);
    startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    std::wstring line = commandLine(options.command);
    const wchar_t* directory = options.workingDirectory.empty() ? nullptr : options.workingDirectory.c_str();
    PROCESS_INFORMATION started{};
    const bool ok = vextra::startProcess([&] {
        return token ? CreateProcessAsUserW(token.get(), nullptr, line.data(), nullptr, nullptr, TRUE,
                                            CREATE_SUSPENDED, nullptr, directory, &startup, &started)
                     : CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, CREATE_SUSPENDED, nullptr,
                                      directory, &startup, &started);
    });
    if (!ok) {
        return failLastError(L"cannot start " + options.command.front());
    }
    const UniqueHandle process(started.hProcess);
    const UniqueHandle thread(started.hThread);
    if (!AssignProcessToJobObject(job.get(), process.get())) {
        const int code = failLastError(L"cannot put the program into its job");
        TerminateProcess(process.get(), kExitLauncherFailed);
        return code;
    }
    if (ResumeThread(thread.get()) == static_cast<DWORD>(-1)) {
        return failLastError(L"cannot resume the program");
    }

    DWORD exitCode = 0;
    if (WaitForSingleObject(process.get(), INFINITE) != WAIT_OBJECT_0 ||
        !GetExitCodeProcess(process.get(), &exitCode)) {
        return failLastError(L"cannot wait for the program");
    }
    const bool trapped = passOnTrapReports(trapReports);
    const int code = hostExitCode(exitCode, options);
    if (options.exitCodes == ExitCodes::kTestVerdict && DeleteFileW(unfinished.c_str()) && code == 0) {
        std::fprintf(stderr, "test-launcher: %s crashed: it ended with 0 before its tests were over\n",
                     vextra::utf8FromWide(options.command.front()).c_str());
        return kExitCrashed;
    }
    return trapped ? kExitCrashed : code;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    const std::optional<Options> options = parse(std::vector<std::wstring>(argv + 1, argv + argc));
    if (!options) {
        return fail(
            L"usage: test-launcher.exe [--elevated] [--test] [--env NAME=VALUE]... [--cwd DIR] -- PROGRAM "
            L"[ARGUMENT]...");
    }
    return run(*options);
}
