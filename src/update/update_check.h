// Whether the channel has a newer installer: the whole decision, from the address to the message for the
// user. Pure; the network and the signature come in through the doors.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "base/secret.h"
#include "update/manifest.h"
#include "update/transfer_profile.h"
#include "update/version.h"

namespace vextra {

struct UpdateCheckRequest {
    SecretText manifestUrl;  // a setting; it may name a private server
    std::string currentVersion{kBrokerVersion};
    TransferLimits limits = kJsonLimits;  // of each document: 250 to 10,000 ms; that to 30,000 ms
};

// Numbers of the event log.
enum class UpdateCode : std::uint8_t {
    kNotConfigured = 0,
    kInvalidRequest = 1,
    // 2 is not used.
    kUnreachable = 3,
    kRefused = 4,
    kUpToDate = 5,
    kAvailable = 6,
};

struct UpdateCheckResult {
    UpdateCode code = UpdateCode::kNotConfigured;
    std::wstring message;     // for the user
    UpdateManifest manifest;  // only of kUpToDate and kAvailable, and then with its verified signature
};

struct UpdateCheckDoors {
    std::function<std::optional<std::string>(const SecretText& url, const TransferLimits&)> fetchJson;
    SignatureVerifier verifySignature;
};

// For the address in the settings, or the channel's own where that is empty.
UpdateCheckRequest updateCheckRequest(SecretText manifestUrl, const UpdateChannelIdentity& channel);

// On a worker thread: it takes as long as the doors do.
UpdateCheckResult runUpdateCheck(const UpdateCheckRequest& request, const UpdateChannelIdentity& channel,
                                 const UpdateCheckDoors& doors);

}  // namespace vextra
