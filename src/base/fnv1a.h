// 64-bit FNV-1a, the hash of frames in evidence runs (parameters: draft-eastlake-fnv).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace vextra {

constexpr std::uint64_t fnv1a64(std::span<const std::byte> bytes) {
    std::uint64_t hash = 0xcbf29ce484222325u;
    for (const std::byte byte : bytes) {
        hash ^= static_cast<std::uint64_t>(byte);
        hash *= 0x100000001b3u;
    }
    return hash;
}

}  // namespace vextra
