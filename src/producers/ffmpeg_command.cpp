#include "producers/ffmpeg_command.h"

#include "base/text.h"

namespace vextra {
namespace {

bool isRtsp(std::wstring_view url) {
    const auto beginsWith = [&](std::wstring_view scheme) {
        return equalsIgnoringAsciiCase(url.substr(0, scheme.size()), scheme);
    };
    return beginsWith(L"rtsp://") || beginsWith(L"rtsps://");
}

}  // namespace

void appendQuotedArgument(std::wstring_view argument, SecretText& commandLine) {
    commandLine.append(L'"');
    std::size_t backslashes = 0;
    const auto appendBackslashes = [&](std::size_t count) {
        for (; count > 0; --count)
            commandLine.append(L'\\');
    };
    for (const wchar_t unit : argument) {
        if (unit == L'\\') {
            ++backslashes;
            continue;
        }
        appendBackslashes(unit == L'"' ? backslashes * 2 + 1 : backslashes);
        backslashes = 0;
        commandLine.append(unit);
    }
    appendBackslashes(backslashes * 2);
    commandLine.append(L'"');
}

SecretText ffmpegCommandLine(std::wstring_view executable, const FfmpegInput& input) {
    SecretText line;
    line.reserve(executable.size() + input.url.size() * 2 + 512);
    appendQuotedArgument(executable, line);
    line.append(L" -hide_banner -loglevel error -nostdin -threads 2 ");
    if (input.syntheticTest) {
        line.append(L"-re -f lavfi -i testsrc2=size=1280x720:rate=16 ");
    } else {
        if (isRtsp(input.url)) {
            line.append(L"-rtsp_transport ");
            line.append(input.transport == RtspTransport::kUdp ? L"udp " : L"tcp ");
        }
        line.append(L"-rw_timeout 5000000 -i ");  // microseconds: a silent source ends the decoder after 5 s
        appendQuotedArgument(input.url, line);
        line.append(L' ');
    }
    // Letterboxed into the one frame shape, 16 frames a second, pictures only.
    line.append(
        L"-an -sn -dn -vf scale=1280:720:force_original_aspect_ratio=decrease,"
        L"pad=1280:720:(ow-iw)/2:(oh-ih)/2,fps=16 -pix_fmt bgra -threads 2 -filter_threads 1 -f rawvideo "
        L"pipe:1");
    return line;
}

}  // namespace vextra
