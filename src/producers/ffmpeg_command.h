// The decoder's fixed command line. Pure.
#pragma once

#include <string_view>

#include "base/secret.h"
#include "producers/backend_choice.h"

namespace vextra {

// What the decoder reads: a network source, or FFmpeg's own moving test picture.
struct FfmpegInput {
    bool syntheticTest = false;
    std::wstring_view url;                          // not used by the synthetic test
    RtspTransport transport = RtspTransport::kTcp;  // likewise
};

// The whole command line, which holds the address and is therefore a secret. A foreign ffmpeg.exe must accept
// exactly this, -rw_timeout for RTSP included (see packaging/ffmpeg).
SecretText ffmpegCommandLine(std::wstring_view executable, const FfmpegInput& input);

// One argument in double quotes, so that the standard parsing of a command line gives it back unchanged: n
// backslashes in front of a quote become 2n + 1, n at the end become 2n.
// (learn.microsoft.com/cpp/c-language/parsing-c-command-line-arguments)
void appendQuotedArgument(std::wstring_view argument, SecretText& commandLine);

}  // namespace vextra
