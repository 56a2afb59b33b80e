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
#include "update/version.h"

namespace vextra {

struct UpdateCheckRequest {
    SecretText manifestUrl;  // a setting; it may name a private server
    std::string currentVersion{kBrokerVersion};
    std::uint32_t operationTimeoutMs = 3000;  // of each step on the network: 250 to 10,000
    std::uint32_t totalTimeoutMs = 15'000;    // of each document: the above to 30,000
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
    std::function<std::optional<std::string>(const UpdateCheckRequest&)> fetchJson;  // the URL in manifestUrl
    std::function<bool(std::string_view message, std::string_view signatureHex)> verifySignature;
};

// For the address in the settings, or the channel's own where that is empty.
UpdateCheckRequest updateCheckRequest(SecretText manifestUrl, const UpdateChannelIdentity& channel);

// On a worker thread: it takes as long as the doors do.
UpdateCheckResult runUpdateCheck(UpdateCheckRequest request, const UpdateChannelIdentity& channel,
                                 const UpdateCheckDoors& doors);

}  // namespace vextra
