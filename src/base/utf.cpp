#include "base/utf.h"

#include <cstdint>

namespace vextra {
namespace {

constexpr bool isHighSurrogate(std::uint32_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
constexpr bool isLowSurrogate(std::uint32_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

void appendCodePoint(std::uint32_t point, SecretUtf8& out) {
    char bytes[4];
    std::size_t count = 0;
    const auto put = [&](std::uint32_t byte) { bytes[count++] = static_cast<char>(byte); };
    if (point < 0x80) {
        put(point);
    } else if (point < 0x800) {
        put(0xC0 | (point >> 6));
        put(0x80 | (point & 0x3F));
    } else if (point < 0x10000) {
        put(0xE0 | (point >> 12));
        put(0x80 | ((point >> 6) & 0x3F));
        put(0x80 | (point & 0x3F));
    } else {
        put(0xF0 | (point >> 18));
        put(0x80 | ((point >> 12) & 0x3F));
        put(0x80 | ((point >> 6) & 0x3F));
        put(0x80 | (point & 0x3F));
    }
    out.append(std::string_view(bytes, count));
}

}  // namespace

bool appendUtf8(std::wstring_view units, SecretUtf8& out) {
    for (std::size_t i = 0; i < units.size(); ++i) {
        const auto unit = static_cast<std::uint32_t>(units[i]);
        if (unit > 0xFFFF || isLowSurrogate(unit))  // above 0xFFFF only where wchar_t is wider than a unit
            return false;
        if (!isHighSurrogate(unit)) {
            appendCodePoint(unit, out);
            continue;
        }
        const auto next = i + 1 < units.size() ? static_cast<std::uint32_t>(units[i + 1]) : 0u;
        if (!isLowSurrogate(next))
            return false;
        appendCodePoint(0x10000 + ((unit - 0xD800) << 10) + (next - 0xDC00), out);
        ++i;
    }
    return true;
}

}  // namespace vextra
