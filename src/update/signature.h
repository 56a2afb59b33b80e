// Who vouches for a manifest: a detached ECDSA signature (P-256, SHA-256) under the channel's key. Any
// thread.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

#include "update/channel.h"

namespace vextra {

// r, then s, 32 bytes each, big-endian; no ASN.1 around them.
using EcSignature = std::array<std::byte, 64>;

// True only for a signature of 128 hexadecimal digits, in either case, that verifies.
bool verifyManifestSignature(std::string_view message, std::string_view signatureHex,
                             const EcPoint& publicKey);

}  // namespace vextra
