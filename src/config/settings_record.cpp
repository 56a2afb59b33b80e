#include "config/settings_record.h"

#include "base/text.h"

namespace vextra {
namespace {

constexpr std::uint32_t kMagic = 0x33474643;  // "CFG3" in file order
constexpr std::uint32_t kFormatVersion = 1;
// Magic, version, numbers and flags, of four bytes each.
constexpr std::size_t kHeadBytes = [] {
    std::size_t words = 2 + kSettingsFlags.size();
    eachSettingsNumber([&](auto, auto, auto) { ++words; });
    return words * 4;
}();

void putUint16(SecretBytes& bytes, std::uint32_t value) {
    bytes.push_back(static_cast<std::byte>(value & 0xFF));
    bytes.push_back(static_cast<std::byte>((value >> 8) & 0xFF));
}

void putUint32(SecretBytes& bytes, std::uint32_t value) {
    putUint16(bytes, value & 0xFFFF);
    putUint16(bytes, value >> 16);
}

// Takes from the front of what is left; after the first failure everything else fails too.
class Reader {
public:
    explicit Reader(std::span<const std::byte> bytes) : rest_(bytes) {}

    std::uint32_t uint32() {
        if (!has(4))
            return 0;
        const std::uint32_t value = unitAt(0) | (unitAt(1) << 16);
        rest_ = rest_.subspan(4);
        return value;
    }
    bool flag() {
        const std::uint32_t value = uint32();
        if (value > 1)
            good_ = false;
        return value == 1;
    }
    void string(SecretText& out) {
        const std::size_t units = uint32();
        if (units > kMaxUrlUnits || !has(units * 2)) {
            good_ = false;
            return;
        }
        out.reserve(units);
        for (std::size_t i = 0; i < units; ++i) {
            const auto unit = static_cast<wchar_t>(unitAt(i));
            if (unit == 0)
                good_ = false;
            out.append(unit);
        }
        rest_ = rest_.subspan(units * 2);
    }
    bool good() const { return good_; }
    bool atEnd() const { return rest_.empty(); }

private:
    bool has(std::size_t bytes) { return good_ = good_ && bytes <= rest_.size(); }
    std::uint32_t unitAt(std::size_t index) const {
        return static_cast<std::uint32_t>(rest_[2 * index]) |
               (static_cast<std::uint32_t>(rest_[2 * index + 1]) << 8);
    }

    std::span<const std::byte> rest_;
    bool good_ = true;
};

}  // namespace

SecretBytes serializeSettings(const BrokerSettings& settings) {
    std::size_t size = kHeadBytes;
    for (const auto string : kSettingsTexts)
        size += 4 + 2 * (settings.*string).size();
    SecretBytes bytes;
    bytes.reserve(size);

    putUint32(bytes, kMagic);
    putUint32(bytes, kFormatVersion);
    eachSettingsNumber(
        [&](auto field, auto, auto) { putUint32(bytes, static_cast<std::uint32_t>(settings.*field)); });
    for (const auto flag : kSettingsFlags)
        putUint32(bytes, settings.*flag ? 1 : 0);
    for (const auto string : kSettingsTexts) {
        putUint32(bytes, static_cast<std::uint32_t>((settings.*string).size()));
        for (const wchar_t unit : (settings.*string).view())
            putUint16(bytes, static_cast<std::uint32_t>(unit));
    }
    return bytes;
}

std::optional<BrokerSettings> parseSettings(std::span<const std::byte> bytes) {
    Reader reader(bytes);
    if (reader.uint32() != kMagic || reader.uint32() != kFormatVersion)
        return std::nullopt;
    BrokerSettings settings;
    eachSettingsNumber([&](auto field, auto lowest, auto) {
        settings.*field = static_cast<decltype(lowest)>(reader.uint32());
    });
    for (const auto flag : kSettingsFlags)
        settings.*flag = reader.flag();
    for (const auto string : kSettingsTexts)
        reader.string(settings.*string);
    if (!reader.good() || !reader.atEnd() || !numbersInRange(settings))
        return std::nullopt;
    return settings;
}

}  // namespace vextra
