// stub-decoder.exe stands in for deps\ffmpeg.exe and shows the faults that the real one cannot be made to
// show. It looks into its own folder only, so that it can be told something else between two starts of a
// running broker, and installs beside one another never meet.
//
// Every start writes what it saw to `start-1.record`, `start-2.record` and so on, in one piece: a record that
// is not empty is whole. UTF-8 lines `key=value`:
//
//   pid, start, commandLine, argument0, argument1 ... (as CommandLineToArgvW splits them), workingDirectory,
//   priorityClass (0x...), errorMode (of the process, as it was started), standardInput, standardOutput,
//   standardError (nul, pipe, disk, other, none), inJob (0, 1: some job, not necessarily the broker's),
//   probeSet (0, 1; with probeEvent), sleeperPid (with startSleeper)
//
// How it behaves is told by `stub-decoder.txt`, lines `key=value`, all optional:
//
//   delayMs=N         waits so long before its first frame
//   frames=N|endless  whole frames to write; every byte of frame n (0, 1, ...) is n & 0xFF
//   tailBytes=N       and then so many bytes of one more frame
//   framesPerSecond=N paces the frames; 0, the default: as fast as they are taken
//   pieceBytes=N,N... writes in pieces of these sizes, again and again; the default is a frame a piece
//   errorBytes=N      writes so much to standard error before each frame, and waits until it is taken
//   then=X            exit (default) | hang | close: gives up its standard output, and hangs
//   exitCode=N        of then=exit and of failFirst
//   failFirst=N       the first N starts exit at once
//   startSleeper=1    starts, first of all, a process that only sleeps
//   probeEvent=N      sets the event with this handle value, should it have been inherited
//
// It is a program without a console: Wine gives a console program a helper process that inherits its pipes
// and keeps them open, so that then=close could not be seen.
//
// What it cannot read it refuses: exit code 97, and `error=` in the record. Whatever hangs ends by itself
// after ten minutes, should its test not end it.

#include <windows.h>

#include <shellapi.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/text.h"
#include "base/unique_win.h"
#include "bridge/bridge_layout.h"

namespace vextra {
namespace {

constexpr DWORD kLongestHangMs = 600'000;
constexpr UINT kExitRefused = 97;
constexpr UINT kExitHungTooLong = 98;
constexpr UINT kExitWriteFailed = 99;
constexpr std::uint32_t kEndless = std::numeric_limits<std::uint32_t>::max();
constexpr wchar_t kSleeperArgument[] = L"sleep";

enum class Ending { kExit = 1, kHang, kCloseOutput };

struct Behaviour {
    std::uint32_t delayMs = 0;
    std::uint32_t frames = 0;
    std::uint32_t tailBytes = 0;
    std::uint32_t framesPerSecond = 0;
    std::vector<std::uint32_t> pieceBytes{kFrameBytes};
    std::uint32_t errorBytes = 0;
    Ending ending = Ending::kExit;
    std::uint32_t exitCode = 0;
    std::uint32_t failFirst = 0;
    std::uint32_t startSleeper = 0;
    std::uint32_t probeEvent = 0;
    std::string error;  // the line that could not be read
};

std::wstring ownPath() {
    std::vector<wchar_t> path(32'768);
    return {path.data(), GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()))};
}

std::wstring besideUs(std::wstring_view name) {
    std::wstring path = ownPath();
    path.resize(path.rfind(L'\\') + 1);
    return path.append(name);
}

// ---- behaviour ----

bool readNumber(std::string_view text, std::uint32_t& out) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), out);
    return error == std::errc() && end == text.data() + text.size();
}

bool readPieces(std::string_view text, std::vector<std::uint32_t>& out) {
    out.clear();
    while (true) {
        const std::size_t comma = std::min(text.find(','), text.size());
        std::uint32_t bytes = 0;
        if (!readNumber(text.substr(0, comma), bytes) || bytes == 0)
            return false;
        out.push_back(bytes);
        if (comma == text.size())
            return true;
        text.remove_prefix(comma + 1);
    }
}

bool readEnding(std::string_view text, Ending& out) {
    constexpr std::pair<std::string_view, Ending> kEndings[] = {
        {"exit", Ending::kExit}, {"hang", Ending::kHang}, {"close", Ending::kCloseOutput}};
    for (const auto& [word, ending] : kEndings) {
        if (text == word) {
            out = ending;
            return true;
        }
    }
    return false;
}

bool readLine(std::string_view line, Behaviour& out) {
    constexpr std::pair<std::string_view, std::uint32_t Behaviour::*> kNumbers[] = {
        {"delayMs", &Behaviour::delayMs},       {"frames", &Behaviour::frames},
        {"tailBytes", &Behaviour::tailBytes},   {"framesPerSecond", &Behaviour::framesPerSecond},
        {"errorBytes", &Behaviour::errorBytes}, {"exitCode", &Behaviour::exitCode},
        {"failFirst", &Behaviour::failFirst},   {"startSleeper", &Behaviour::startSleeper},
        {"probeEvent", &Behaviour::probeEvent},
    };
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos)
        return false;
    const std::string_view key = line.substr(0, equals);
    const std::string_view value = line.substr(equals + 1);
    if (key == "pieceBytes")
        return readPieces(value, out.pieceBytes);
    if (key == "then")
        return readEnding(value, out.ending);
    if (key == "frames" && value == "endless") {
        out.frames = kEndless;
        return true;
    }
    for (const auto& [name, member] : kNumbers) {
        if (key == name)
            return readNumber(value, out.*member);
    }
    return false;
}

Behaviour readBehaviour() {
    const UniqueFile file(CreateFileW(besideUs(L"stub-decoder.txt").c_str(), GENERIC_READ,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                      OPEN_EXISTING, 0, nullptr));
    Behaviour behaviour;
    if (!file)
        return behaviour;
    char text[4096];
    DWORD bytes = 0;
    if (!ReadFile(file.get(), text, sizeof text, &bytes, nullptr) || bytes == sizeof text) {
        behaviour.error = "stub-decoder.txt cannot be read";
        return behaviour;
    }
    std::string_view rest(text, bytes);
    while (!rest.empty()) {
        std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        if (line.ends_with('\r'))
            line.remove_suffix(1);
        if (!line.empty() && !readLine(line, behaviour))
            behaviour.error = line;
    }
    return behaviour;
}

// ---- record ----

// The record of this start, not yet written, and its number.
struct NumberedRecord {
    UniqueFile file;
    std::uint32_t number = 1;
};

// The decoder that creates the file has the number, however many start at once.
NumberedRecord claimRecord() {
    NumberedRecord record;
    for (;; ++record.number) {
        const std::wstring name = L"start-" + std::to_wstring(record.number) + L".record";
        record.file.reset(CreateFileW(besideUs(name).c_str(), GENERIC_WRITE,
                                      FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr, CREATE_NEW, 0, nullptr));
        if (record.file || GetLastError() != ERROR_FILE_EXISTS)
            return record;
    }
}

const char* kindOfStandardHandle(DWORD which) {
    const HANDLE handle = GetStdHandle(which);
    DWORD consoleMode = 0;
    if (handle == nullptr || handle == INVALID_HANDLE_VALUE)
        return "none";
    switch (GetFileType(handle)) {
        case FILE_TYPE_PIPE: return "pipe";
        case FILE_TYPE_DISK: return "disk";
        case FILE_TYPE_CHAR: return GetConsoleMode(handle, &consoleMode) ? "other" : "nul";
        default: return "other";
    }
}

class RecordText {
public:
    void add(std::string_view key, std::string_view value) {
        text_.append(key).append("=").append(value).append("\n");
    }
    void add(std::string_view key, std::uint32_t value) { add(key, std::to_string(value)); }
    void writeTo(HANDLE file) const {
        DWORD written = 0;
        WriteFile(file, text_.data(), static_cast<DWORD>(text_.size()), &written, nullptr);
    }

private:
    std::string text_;
};

void addArguments(RecordText& text) {
    int count = 0;
    const UniqueLocalMemory owner(CommandLineToArgvW(GetCommandLineW(), &count));
    const auto* arguments = static_cast<const wchar_t* const*>(owner.get());
    for (int i = 0; i < count; ++i)
        text.add("argument" + std::to_string(i), utf8FromWide(arguments[i]));
}

void addSurroundings(RecordText& text) {
    std::vector<wchar_t> directory(32'768);
    text.add("workingDirectory",
             utf8FromWide({directory.data(),
                           GetCurrentDirectoryW(static_cast<DWORD>(directory.size()), directory.data())}));
    char priorityClass[16];
    std::snprintf(priorityClass, sizeof priorityClass, "0x%lX", GetPriorityClass(GetCurrentProcess()));
    text.add("priorityClass", priorityClass);
    text.add("errorMode", GetErrorMode());
    text.add("standardInput", kindOfStandardHandle(STD_INPUT_HANDLE));
    text.add("standardOutput", kindOfStandardHandle(STD_OUTPUT_HANDLE));
    text.add("standardError", kindOfStandardHandle(STD_ERROR_HANDLE));
    BOOL inJob = FALSE;
    IsProcessInJob(GetCurrentProcess(), nullptr, &inJob);
    text.add("inJob", inJob ? 1u : 0u);
}

// Answers its process id, 0 when it could not be started.
std::uint32_t startSleeper() {
    std::wstring commandLine = L"\"" + ownPath() + L"\" " + kSleeperArgument;
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION sleeper{};
    if (!CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr,
                        nullptr, &startup, &sleeper))
        return 0;
    const UniqueHandle process(sleeper.hProcess);
    const UniqueHandle thread(sleeper.hThread);
    return sleeper.dwProcessId;
}

void writeRecord(const NumberedRecord& record, const Behaviour& behaviour) {
    RecordText text;
    text.add("pid", GetCurrentProcessId());
    text.add("start", record.number);
    text.add("commandLine", utf8FromWide(GetCommandLineW()));
    addArguments(text);
    addSurroundings(text);
    if (behaviour.probeEvent != 0)
        text.add("probeSet", SetEvent(ULongToHandle(behaviour.probeEvent)) ? 1u : 0u);
    if (behaviour.startSleeper != 0)
        text.add("sleeperPid", startSleeper());
    if (!behaviour.error.empty())
        text.add("error", behaviour.error);
    text.writeTo(record.file.get());
}

// ---- frames ----

[[noreturn]] void hang() {
    Sleep(kLongestHangMs);
    ExitProcess(kExitHungTooLong);
}

void writeAll(HANDLE pipe, const std::byte* bytes, std::uint32_t count) {
    while (count > 0) {
        DWORD written = 0;
        if (!WriteFile(pipe, bytes, count, &written, nullptr))
            ExitProcess(kExitWriteFailed);
        bytes += written;
        count -= written;
    }
}

// Cuts what is written into the pieces asked for. The cut runs on from one frame to the next: a piece ends
// with the frame only when nothing of its size is left.
class PieceWriter {
public:
    explicit PieceWriter(const std::vector<std::uint32_t>& pieceBytes) : pieceBytes_(pieceBytes) {}

    void write(const std::byte* bytes, std::uint32_t count) {
        const HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE);
        while (count > 0) {
            const std::uint32_t piece = std::min(count, pieceBytes_[next_++ % pieceBytes_.size()]);
            writeAll(output, bytes, piece);
            bytes += piece;
            count -= piece;
        }
    }

private:
    const std::vector<std::uint32_t>& pieceBytes_;
    std::size_t next_ = 0;
};

void sleepUntil(ULONGLONG tickMs) {
    const ULONGLONG now = GetTickCount64();
    if (tickMs > now)
        Sleep(static_cast<DWORD>(tickMs - now));
}

void writeFrames(const Behaviour& behaviour) {
    Sleep(behaviour.delayMs);
    PieceWriter pieces(behaviour.pieceBytes);
    std::vector<std::byte> frame(kFrameBytes);
    const std::vector<std::byte> complaint(behaviour.errorBytes, std::byte{'!'});
    const ULONGLONG firstMs = GetTickCount64();
    std::uint32_t n = 0;
    const auto fillFrame = [&] { std::fill(frame.begin(), frame.end(), static_cast<std::byte>(n & 0xFF)); };
    for (; behaviour.frames == kEndless || n < behaviour.frames; ++n) {
        writeAll(GetStdHandle(STD_ERROR_HANDLE), complaint.data(), behaviour.errorBytes);
        fillFrame();
        if (behaviour.framesPerSecond != 0)
            sleepUntil(firstMs + n * 1000ull / behaviour.framesPerSecond);
        pieces.write(frame.data(), kFrameBytes);
    }
    fillFrame();
    pieces.write(frame.data(), std::min(behaviour.tailBytes, kFrameBytes));
}

UINT run() {
    const Behaviour behaviour = readBehaviour();
    std::uint32_t start = 0;
    {
        const NumberedRecord record = claimRecord();
        if (!record.file)
            return kExitRefused;
        writeRecord(record, behaviour);
        start = record.number;
    }
    if (!behaviour.error.empty())
        return kExitRefused;
    if (start <= behaviour.failFirst)
        return behaviour.exitCode;
    writeFrames(behaviour);
    if (behaviour.ending == Ending::kExit)
        return behaviour.exitCode;
    if (behaviour.ending == Ending::kCloseOutput)
        CloseHandle(GetStdHandle(STD_OUTPUT_HANDLE));
    hang();
}

}  // namespace
}  // namespace vextra

int wmain(int argc, wchar_t** argv) {
    if (argc == 2 && std::wstring_view(argv[1]) == vextra::kSleeperArgument)
        vextra::hang();
    ExitProcess(vextra::run());
}
