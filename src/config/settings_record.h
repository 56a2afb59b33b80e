// The settings as one run of bytes: what lies encrypted in the settings file. Pure. docs/settings-format.md
// has the layout.
#pragma once

#include <cstddef>
#include <optional>
#include <span>

#include "base/secret.h"
#include "config/settings.h"

namespace vextra {

SecretBytes serializeSettings(const BrokerSettings& settings);

// Nothing unless every byte is accounted for: magic and version, numbers in range, flags of 0 or 1, strings
// of at most 8192 units without a zero unit, and no byte after the last one. Addresses and credentials are
// not judged.
std::optional<BrokerSettings> parseSettings(std::span<const std::byte> bytes);

}  // namespace vextra
