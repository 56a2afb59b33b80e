// The channel's public key as publishers hand it over: the PEM file that OpenSSL and the channel signer
// write. Usable at compile time: the key is read from its file while the broker is built. Pure.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

#include "base/pem.h"
#include "update/channel.h"

namespace vextra {

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
