// From the settings panel to the record in effect, and back. A record is in effect only once it is on disk,
// and nothing changes while the camera is in use. Pure; load and save are handed in.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>
#include <type_traits>
#include <vector>

#include "config/camera_use.h"
#include "config/settings.h"
#include "diag/event_codes.h"

namespace vextra {

// The panel as the user left it: a record, and beside it the numbers that are typed.
struct SettingsForm {
    // What has no control, the profile address, is that of the record in effect; the numbers that are typed
    // are read from their texts alone.
    BrokerSettings settings;
    SecretText latencyText;
    SecretText firstFrameDeadlineText;
};

SettingsForm formFromSettings(const BrokerSettings& settings);

// A list of choices counts them from 0, in the order of their numbers; -1 is no selection. It becomes a
// number that no record may hold, and false where the choice is between no and yes.
template <typename Value, std::size_t kCount>
constexpr Value selectedValue(const std::array<NamedChoice<Value>, kCount>& choices, std::int32_t selection) {
    if constexpr (std::is_same_v<Value, bool>)
        return selection == 1;
    else
        return static_cast<Value>(static_cast<std::uint32_t>(choices[0].value) +
                                  static_cast<std::uint32_t>(selection));
}
template <typename Value, std::size_t kCount>
constexpr std::int32_t selectionOf(const std::array<NamedChoice<Value>, kCount>& choices, Value value) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(value) -
                                     static_cast<std::uint32_t>(choices[0].value));
}

// --- "Salvar / aplicar" ---

enum class ApplyOutcome {
    kBlocked = 1,  // the camera is in use, or its use is unknown
    kNotNumbers,   // latency or deadline
    kRejected,     // by validateSettings
    kSaveFailed,
    kApplied,
};

struct ApplyResult {
    ApplyOutcome outcome = ApplyOutcome::kBlocked;
    std::wstring_view message;  // for the user
    BrokerSettings record;      // kApplied: saved, and now to be put in effect; kRejected: what was refused
};

ApplyResult applySettings(const SettingsForm& form, const CameraUse& use,
                          const std::function<bool(const BrokerSettings&)>& save);

struct SettingsEvent {
    EventCode code{};
    std::int32_t value = 0;
};
// What is logged of an attempt, in this order. Of a record only its numbers.
std::vector<SettingsEvent> settingsEvents(const ApplyResult& result);

// --- "Recarregar salvo" ---

struct ReloadResult {
    std::wstring_view message;             // for the user
    std::optional<BrokerSettings> record;  // to be put in effect and shown
};

ReloadResult reloadSettings(const CameraUse& use, const std::function<bool(BrokerSettings&)>& load);

}  // namespace vextra
