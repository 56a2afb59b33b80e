// Linked into every program of a checked build. Where the compiler's checks trap or the library's assertions
// abort, it says which program that was and where, and ends the program at once: an exception in a window
// procedure may otherwise be swallowed by the system, and abort's exit code is one of the broker's own.
//
// The report is one line, `trap-report: WHAT in PROGRAM at ADDRESS...`: the program's own frames, innermost
// first, as addresses that it was linked at. symbolise.sh turns them into functions and lines. It uses the
// system alone and no heap, for anything else may be what is broken.

#include <windows.h>

#include <csignal>
#include <cstddef>
#include <cstring>
#include <cwchar>
#include <iterator>

#include "trap_report/trap_report.h"

namespace {

constexpr DWORD64 kLinkedAt = 0x140000000;  // where mingw's linker puts 64-bit programs
constexpr int kMostFrames = 16;
constexpr int kMostSteps = 200;  // through a chain of frames that may be damaged
constexpr DWORD kFailFast = 0xC0000409;

class Line {
public:
    void add(const char* text) {
        for (; *text != '\0' && used_ < sizeof text_; ++text)
            text_[used_++] = *text;
    }
    void add(const wchar_t* text) {
        char converted[3 * MAX_PATH] = "?";
        WideCharToMultiByte(CP_UTF8, 0, text, -1, converted, sizeof converted, nullptr, nullptr);
        converted[sizeof converted - 1] = '\0';
        add(converted);
    }
    void addAddress(DWORD64 value) {
        char digits[] = " 0x0000000000000000";
        for (char* digit = digits + std::strlen(digits) - 1; value != 0; value /= 16)
            *digit-- = "0123456789abcdef"[value % 16];
        add(digits);
    }
    // Appends as one write, so that lines of several programs do not mix.
    void write() const {
        wchar_t path[2 * MAX_PATH];
        const DWORD length = GetEnvironmentVariableW(vextra::test::kTrapReportVariable, path,
                                                     static_cast<DWORD>(std::size(path)));
        HANDLE file = INVALID_HANDLE_VALUE;
        if (length > 0 && length < std::size(path))
            file = CreateFileW(path, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                               OPEN_ALWAYS, 0, nullptr);
        if (file == INVALID_HANDLE_VALUE)
            file = GetStdHandle(STD_ERROR_HANDLE);
        DWORD written = 0;
        WriteFile(file, text_, static_cast<DWORD>(used_), &written, nullptr);
    }

private:
    char text_[2048];
    std::size_t used_ = 0;
};

void addFrames(Line& line, CONTEXT context) {
    const auto program = reinterpret_cast<DWORD64>(GetModuleHandleW(nullptr));
    int frames = 0;
    for (int step = 0; step < kMostSteps && frames < kMostFrames && context.Rip != 0; ++step) {
        DWORD64 module = 0;
        const PRUNTIME_FUNCTION function = RtlLookupFunctionEntry(context.Rip, &module, nullptr);
        if (module == program) {
            // A return address may already belong to the next line.
            line.addAddress(context.Rip - (step > 0 ? 1 : 0) - program + kLinkedAt);
            ++frames;
        }
        if (function == nullptr)
            return;
        PVOID handlerData = nullptr;
        DWORD64 frame = 0;
        RtlVirtualUnwind(UNW_FLAG_NHANDLER, module, context.Rip, function, &context, &handlerData, &frame,
                         nullptr);
    }
}

[[noreturn]] void end(const char* what, const CONTEXT& context, DWORD exitCode) {
    wchar_t path[2 * MAX_PATH] = L"?";
    GetModuleFileNameW(nullptr, path, static_cast<DWORD>(std::size(path)) - 1);
    const wchar_t* const slash = std::wcsrchr(path, L'\\');
    Line line;
    line.add("trap-report: ");
    line.add(what);
    line.add(" in ");
    line.add(slash != nullptr ? slash + 1 : path);
    line.add(" at");
    addFrames(line, context);
    line.add("\n");
    line.write();
    TerminateProcess(GetCurrentProcess(), exitCode);
    __builtin_unreachable();
}

// The compiler's checks end in an instruction that is none.
LONG CALLBACK onException(EXCEPTION_POINTERS* exception) {
    if (exception->ExceptionRecord->ExceptionCode == EXCEPTION_ILLEGAL_INSTRUCTION)
        end("undefined behaviour", *exception->ContextRecord, EXCEPTION_ILLEGAL_INSTRUCTION);
    return EXCEPTION_CONTINUE_SEARCH;
}

// The library's assertions say on the standard error what they miss, and abort; so does std::terminate.
void onAbort(int) {
    CONTEXT context;
    RtlCaptureContext(&context);
    end("abort", context, kFailFast);
}

const struct Installation {
    Installation() {
        AddVectoredExceptionHandler(TRUE, &onException);
        std::signal(SIGABRT, &onAbort);
    }
} installation;

}  // namespace
