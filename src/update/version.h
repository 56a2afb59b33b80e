// Versions as Semantic Versioning 2.0.0 has them, with limits: 128 bytes, and numbers of 32 bits in the core.
// Pure.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/product.h"

namespace vextra {

inline constexpr std::string_view kBrokerVersion = VEXTRA_VERSION;

struct Version {
    std::array<std::uint32_t, 3> core{};  // major, minor, patch
    std::vector<std::string> preRelease;  // identifiers; empty: a release
    // The build part has to be well formed but is not kept, for it never affects the order.
};

std::optional<Version> parseVersion(std::string_view text);

// -1, 0 or 1 as `a` ranks below, with or above `b`; nothing when either is no version.
std::optional<int> compareVersions(std::string_view a, std::string_view b);

}  // namespace vextra
