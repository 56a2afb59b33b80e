// Records for the tests of all that handles one: a field that is added here is in those tests too.
#pragma once

#include "config/settings.h"
#include "config/settings_record.h"

namespace vextra::test {

// Accepted by validateSettings; no field has its default, and no two texts are alike.
inline BrokerSettings everySetting() {
    BrokerSettings settings;
    settings.source = SourceKind::kCustomUrl;
    settings.stream = 2;
    settings.decoder = DecoderBackend::kAutomatic;
    settings.latencyMs = 123;
    settings.firstFrameDeadlineMs = 4567;
    settings.rtspUdp = true;
    settings.updateDisabled = true;
    settings.profileUrl.assign(L"rtsp://profile/1");
    settings.directIp.assign(L"192.0.2.9");
    settings.directUser.assign(L"usuário");
    settings.directPassword.assign(L"señha & €");
    settings.customUrl.assign(L"rtsps://custom/2?é");
    settings.updateManifestUrl.assign(L"https://manifest/3");
    return settings;
}

// In every field; settings_record_test.cpp shows that each has a place of its own in the bytes.
inline bool sameSettings(const BrokerSettings& a, const BrokerSettings& b) {
    return serializeSettings(a) == serializeSettings(b);
}

}  // namespace vextra::test
