#include "base/text.h"

#include <algorithm>
#include <cerrno>
#include <cwchar>
#include <limits>

namespace vextra {
namespace {

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

SecretUtf8 narrowedAscii(std::wstring_view text) {
    SecretUtf8 bytes;
    if (!std::ranges::all_of(text, [](wchar_t unit) { return static_cast<std::uint32_t>(unit) <= 127; }))
        return bytes;
    bytes.reserve(text.size());
    for (const wchar_t unit : text)
        bytes.append(static_cast<char>(unit));
    return bytes;
}

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

SecretUtf8 toUtf8Strict(std::wstring_view text) {
    SecretUtf8 bytes;
    if (text.empty() || text.size() > kMaxUrlUnits || text.find(L'\0') != std::wstring_view::npos)
        return bytes;
    bytes.reserve(text.size() * 3);
    if (!appendUtf8(text, bytes))
        bytes.clear();
    return bytes;
}

std::optional<std::uint32_t> parseWholeNumber(const wchar_t* text, std::size_t length) {
    wchar_t* end = nullptr;
    errno = 0;
    const unsigned long value = std::wcstoul(text, &end, 10);
    if (length == 0 || end != text + length)
        return std::nullopt;
    // The system's library negates even its largest number where a sign stands before one that is too large.
    constexpr std::uint32_t kLargest = std::numeric_limits<std::uint32_t>::max();
    if (errno == ERANGE)
        return kLargest;
    // On Windows an unsigned long has 32 bits; where it has more, it is made to stop at the same number.
    if constexpr (sizeof value > sizeof kLargest) {
        const bool negative = std::wstring_view(text, length).find(L'-') != std::wstring_view::npos;
        if ((negative ? 0 - value : value) > kLargest)
            return kLargest;
    }
    return static_cast<std::uint32_t>(value);
}

}  // namespace vextra
