// decoder-owner.exe INSTALL_ROOT: starts the decoder as the broker does, and then does nothing until it is
// killed.
#include <windows.h>

#include "producers/ffmpeg_process_win.h"

int wmain(int argc, wchar_t** argv) {
    constexpr DWORD kLongestLifeMs = 60'000;
    if (argc != 2)
        return 2;
    const vextra::ProducerReports silence{[](std::wstring_view) {}, [](vextra::EventCode, std::int32_t) {},
                                          [](std::wstring_view) {}};
    vextra::FfmpegProcess decoder(argv[1], silence);
    if (!decoder.start({.syntheticTest = true, .url = {}, .transport = vextra::RtspTransport::kTcp}))
        return 1;
    Sleep(kLongestLifeMs);
    return 3;
}
