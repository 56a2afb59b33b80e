// From the settings panel to the record in effect, and back. A record is in effect only once it is on disk,
// and nothing changes while somebody is watching. Pure; the save is handed in.
#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

#include "config/camera_use.h"
#include "config/settings.h"

namespace vextra {

// The panel as the user left it. List selections count from 0; -1 is none. The profile address has no field.
struct SettingsForm {
    std::int32_t source = -1;     // in the order of SourceKind
    std::int32_t stream = -1;     // stream - 1
    std::int32_t transport = -1;  // 1: UDP
    std::int32_t decoder = -1;    // in the order of DecoderBackend
    SecretText directIp;
    SecretText customUrl;
    SecretText directUser;
    SecretText directPassword;
    SecretText latencyMs;             // a decimal number, as typed
    SecretText firstFrameDeadlineMs;  // the same
    SecretText updateManifestUrl;
    bool updateDisabled = false;
};

SettingsForm formFromSettings(const BrokerSettings& settings);

enum class ApplyOutcome {
    kBlocked = 1,  // the camera is in use, or nobody knows
    kNotNumbers,   // latency or deadline
    kRejected,     // by validateSettings
    kSaveFailed,
    kApplied,
};

struct ApplyResult {
    ApplyOutcome outcome = ApplyOutcome::kBlocked;
    std::wstring_view message;  // for the user
    BrokerSettings record;      // kApplied: now in effect; kRejected: what was refused
};

// `current` is left alone: on kApplied the caller puts `record` in its place.
ApplyResult applySettings(const SettingsForm& form, const BrokerSettings& current, const CameraUse& use,
                          const std::function<bool(const BrokerSettings&)>& save);

}  // namespace vextra
