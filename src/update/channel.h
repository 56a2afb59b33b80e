// Whom the broker trusts for updates: one origin and one key, both fixed when the program is compiled. No
// file and no setting can name another. Pure.
#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "base/product.h"
#include "update/strict_url.h"

namespace vextra {

// A P-256 point: X, then Y, 32 bytes each, big-endian (SEC 1, without the leading 0x04).
using EcPoint = std::array<std::byte, 64>;

// Whether the text is an origin and nothing more: "https://host" or "https://host:port". In small letters,
// for it is compared byte by byte.
constexpr bool isChannelOrigin(std::string_view text) {
    return isStrictHttpsUrl(text) &&
           text.find_first_of("/?", detail::kScheme.size()) == std::string_view::npos &&
           std::ranges::none_of(text, [](char c) { return c != asciiLowered(c); });
}

struct UpdateChannelIdentity {
    std::string origin;  // see isChannelOrigin
    EcPoint publicKey{};
};

inline constexpr std::string_view kChannelApp = VEXTRA_PROGRAM;
inline constexpr std::string_view kChannelName = "beta";
inline constexpr std::string_view kChannelPath = "/camera-virtual-vextra-mf/";  // behind the origin
inline constexpr std::string_view kManifestFileName = "beta.json";
inline constexpr std::string_view kInstallerFileName = "Setup.exe";
inline constexpr std::string_view kSignatureSuffix = ".sig.json";

// The identity of this build: VEXTRA_UPDATE_ORIGIN and VEXTRA_CHANNEL_PUBLIC_KEY of the CMake cache.
const UpdateChannelIdentity& builtInChannel();

// Where the manifest lies unless the settings name another place.
inline std::string defaultManifestUrl(const UpdateChannelIdentity& channel) {
    return channel.origin + std::string(kChannelPath) + std::string(kManifestFileName);
}

}  // namespace vextra
