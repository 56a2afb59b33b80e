// The records that settings-saver.exe saves. No two share a field that may differ, and they are of unequal
// length: a mixture of two is none of them.
#pragma once

#include <string>

#include "config/settings.h"

namespace vextra::test {

inline BrokerSettings numberedRecord(unsigned number) {
    const std::wstring tail(100 + 2000 * static_cast<std::size_t>(number % 2),
                            static_cast<wchar_t>(L'a' + number % 26));
    BrokerSettings settings;
    settings.source = SourceKind::kCustomUrl;
    settings.stream = 1 + number % 2;
    settings.latencyMs = 100 + number;
    settings.firstFrameDeadlineMs = 2000 + number;
    settings.rtspUdp = number % 2 == 1;
    settings.profileUrl.assign(L"rtsp://profile/" + tail);
    settings.directUser.assign(L"user" + std::to_wstring(number));
    settings.directPassword.assign(L"password" + std::to_wstring(number));
    settings.customUrl.assign(L"rtsp://custom/" + tail);
    settings.updateManifestUrl.assign(L"https://manifest/" + std::to_wstring(number));
    return settings;
}

}  // namespace vextra::test
