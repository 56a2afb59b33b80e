// The settings as one run of bytes: what lies encrypted in the settings file. Pure. docs/settings-format.md
// has the layout.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "base/secret.h"
#include "config/settings.h"

namespace vextra {

// Sizes of an encrypted file that is worth reading; the upper one bounds every allocation of a load.
constexpr std::uint32_t kMinSettingsFileBytes = 16;
constexpr std::uint32_t kMaxSettingsFileBytes = 65'536;

// A file, neither folder nor link, of such a size. `attributes` as Windows gives them.
bool isReadableSettingsFile(std::uint32_t attributes, std::uint64_t sizeBytes);

SecretBytes serializeSettings(const BrokerSettings& settings);

// Nothing unless every byte is accounted for: magic and version, numbers in range, flags of 0 or 1, strings
// of at most 8192 units without a zero unit, and no byte behind the last one. Addresses and credentials are
// not judged.
std::optional<BrokerSettings> parseSettings(std::span<const std::byte> bytes);

}  // namespace vextra
