// The least that could do the broker's work, to be measured beside it: it starts the same decoder with the
// same command line and the same pipe, waits in blocking reads and copies each frame twice, as the broker
// does into the bridge and into its preview. No clock, no lease, no watchdog, no bridge.
//
//   bench-bare-reader FFMPEG [--url URL] [--transport tcp|udp] [--frames N] [--codes yes]
//
// Without --url the synthetic source; without --frames until it is ended. Prints `first_byte_ms=N.N` and
// `first_frame_ms=N.N`, from the decoder's start to the first byte and to the first whole frame, and
// `frame=N` at every 16th; with --codes instead of these `code=XXXXXXXX` for every frame, the bits of
// picture_code.py in hexadecimal.

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <string>
#include <string_view>
#include <vector>

#include "base/unique_win.h"
#include "bridge/bridge_layout.h"
#include "producers/ffmpeg_command.h"

namespace vextra {
namespace {

constexpr DWORD kPipeBytes = 0x100000;
constexpr unsigned long kReportEveryFrames = 16;

struct Options {
    std::wstring decoder;
    std::wstring url;  // empty: synthetic
    RtspTransport transport = RtspTransport::kTcp;
    unsigned long frames = 0;  // 0: endless
    bool codes = false;
};

int fail(const char* what) {
    std::fprintf(stderr, "bench-bare-reader: %s: error %lu\n", what, GetLastError());
    return 1;
}

bool parse(int count, wchar_t** arguments, Options& out) {
    if (count < 2 || count % 2 != 0)
        return false;
    out.decoder = arguments[1];
    for (int i = 2; i < count; i += 2) {
        const std::wstring_view name = arguments[i];
        if (name == L"--url")
            out.url = arguments[i + 1];
        else if (name == L"--frames")
            out.frames = std::wcstoul(arguments[i + 1], nullptr, 10);
        else if (name == L"--transport")
            out.transport =
                arguments[i + 1] == std::wstring_view(L"udp") ? RtspTransport::kUdp : RtspTransport::kTcp;
        else if (name == L"--codes")
            out.codes = true;
        else
            return false;
    }
    return true;
}

double milliseconds() {
    LARGE_INTEGER frequency{};
    LARGE_INTEGER now{};
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&now);
    return 1000.0 * static_cast<double>(now.QuadPart) / static_cast<double>(frequency.QuadPart);
}

struct Decoder {
    UniqueHandle process;
    UniqueHandle output;
    Decoder() = default;
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;
    ~Decoder() {
        if (process) {
            TerminateProcess(process.get(), 0);
            WaitForSingleObject(process.get(), INFINITE);
        }
    }
    bool start(const Options& options);
};

bool Decoder::start(const Options& options) {
    SECURITY_ATTRIBUTES inheritable{sizeof inheritable, nullptr, TRUE};
    UniqueHandle childOutput;
    if (!CreatePipe(output.put(), childOutput.put(), &inheritable, kPipeBytes) ||
        !SetHandleInformation(output.get(), HANDLE_FLAG_INHERIT, 0))
        return false;
    const UniqueFile nothing(CreateFileW(L"NUL", GENERIC_READ | GENERIC_WRITE,
                                         FILE_SHARE_READ | FILE_SHARE_WRITE, &inheritable, OPEN_EXISTING, 0,
                                         nullptr));
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = nothing.get();
    startup.hStdOutput = childOutput.get();
    startup.hStdError = nothing.get();
    PROCESS_INFORMATION started{};
    SecretText line =
        ffmpegCommandLine(options.decoder, {options.url.empty(), options.url, options.transport});
    if (!CreateProcessW(options.decoder.c_str(), line.data(), nullptr, nullptr, TRUE,
                        CREATE_NO_WINDOW | BELOW_NORMAL_PRIORITY_CLASS, nullptr, nullptr, &startup, &started))
        return false;
    process.reset(started.hProcess);
    CloseHandle(started.hThread);
    return true;
}

// From the byte `filled` to the byte `end`.
bool readBytes(HANDLE pipe, std::vector<std::byte>& frame, DWORD filled, DWORD end) {
    while (filled < end) {
        DWORD taken = 0;
        if (!ReadFile(pipe, frame.data() + filled, end - filled, &taken, nullptr))
            return false;
        filled += taken;
    }
    return true;
}

// Thirty-two cells in the topmost eighteenth of the picture; the green of each one's middle tells.
std::uint32_t codeIn(const std::vector<std::byte>& frame) {
    constexpr std::uint32_t kCells = 32;
    constexpr std::uint32_t kRow = kFrameHeightPx / 18 / 2;
    std::uint32_t code = 0;
    for (std::uint32_t i = 0; i < kCells; ++i) {
        const std::uint32_t x = (2 * i + 1) * kFrameWidthPx / kCells / 2;
        const bool white = std::to_integer<int>(frame[kRow * kFrameStrideBytes + x * 4 + 1]) > 127;
        code = code << 1 | (white ? 1u : 0u);
    }
    return code;
}

int run(const Options& options) {
    std::vector<std::byte> frame(kFrameBytes);
    std::vector<std::byte> firstCopy(kFrameBytes);
    std::vector<std::byte> secondCopy(kFrameBytes);
    Decoder decoder;
    const double startMs = milliseconds();
    if (!decoder.start(options))
        return fail("the decoder could not be started");
    // The first byte apart: what the rest of the first frame takes is the pipe's share.
    DWORD filled = 1;
    if (!readBytes(decoder.output.get(), frame, 0, filled))
        return fail("the decoder ended");
    const double firstByteMs = milliseconds() - startMs;
    unsigned long frames = 0;
    while (options.frames == 0 || frames < options.frames) {
        if (!readBytes(decoder.output.get(), frame, filled, kFrameBytes))
            return fail("the decoder ended");
        filled = 0;
        std::memcpy(firstCopy.data(), frame.data(), kFrameBytes);
        std::memcpy(secondCopy.data(), frame.data(), kFrameBytes);
        if (++frames == 1)
            std::printf("first_byte_ms=%.1f\nfirst_frame_ms=%.1f\n", firstByteMs, milliseconds() - startMs);
        if (options.codes)
            std::printf("code=%08lX\n", static_cast<unsigned long>(codeIn(frame)));
        else if (frames % kReportEveryFrames == 0)
            std::printf("frame=%lu\n", frames);
        std::fflush(stdout);
    }
    // The copies have to be looked at, or the compiler may leave them out.
    return firstCopy == secondCopy ? 0 : fail("the copies differ");
}

}  // namespace
}  // namespace vextra

int wmain(int count, wchar_t** arguments) {
    vextra::Options options;
    if (!vextra::parse(count, arguments, options)) {
        std::fputs(
            "usage: bench-bare-reader FFMPEG [--url URL] [--transport tcp|udp] [--frames N] [--codes yes]\n",
            stderr);
        return 2;
    }
    return vextra::run(options);
}
