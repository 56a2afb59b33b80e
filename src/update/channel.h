// Whom the broker trusts for updates: one origin and one key, both fixed when the program is compiled. No
// file and no setting can name another. Usable at compile time. Pure.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "base/pem.h"
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
inline constexpr std::string_view kChannelFolder = "camera-virtual-vextra-mf";  // at the origin's root
inline constexpr std::string_view kManifestFileName = "beta.json";
inline constexpr std::string_view kInstallerFileName = "Setup.exe";
inline constexpr std::string_view kSignatureSuffix = ".sig.json";

// The identity of this build: VEXTRA_UPDATE_ORIGIN and VEXTRA_CHANNEL_PUBLIC_KEY of the CMake cache.
const UpdateChannelIdentity& builtInChannel();

inline std::string channelBase(const UpdateChannelIdentity& channel) {
    return channel.origin + "/" + std::string(kChannelFolder) + "/";
}

// Where the manifest lies unless the settings name another place.
inline std::string defaultManifestUrl(const UpdateChannelIdentity& channel) {
    return channelBase(channel) + std::string(kManifestFileName);
}

// --- The key as publishers hand it over ---

inline constexpr std::string_view kPublicKeyLabel = "PUBLIC KEY";

template <typename... Byte>
constexpr std::array<std::byte, sizeof...(Byte)> bytesOf(Byte... bytes) {
    return {static_cast<std::byte>(bytes)...};
}

// What stands before the coordinates in a SubjectPublicKeyInfo of an uncompressed P-256 key (RFC 5480): the
// algorithm id-ecPublicKey, the curve prime256v1, and the point's leading 0x04.
inline constexpr auto kPublicKeyPrefix =
    bytesOf(0x30, 0x59, 0x30, 0x13, 0x06, 0x07, 0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x02, 0x01, 0x06, 0x08, 0x2A,
            0x86, 0x48, 0xCE, 0x3D, 0x03, 0x01, 0x07, 0x03, 0x42, 0x00, 0x04);

// Nothing unless the text is one PEM block with an uncompressed P-256 public key.
constexpr std::optional<EcPoint> publicKeyFromPem(std::string_view pem) {
    const auto info = decodePem<kPublicKeyPrefix.size() + EcPoint{}.size()>(pem, kPublicKeyLabel);
    if (!info || !std::equal(kPublicKeyPrefix.begin(), kPublicKeyPrefix.end(), info->begin()))
        return std::nullopt;
    EcPoint point{};
    std::copy(info->begin() + kPublicKeyPrefix.size(), info->end(), point.begin());
    return point;
}

}  // namespace vextra
