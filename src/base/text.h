// Characters of the seven-bit alphabet, without a locale: what protocols and file formats mean by "digit" and
// "letter".
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace vextra {

constexpr bool isAsciiDigit(char c) {
    return c >= '0' && c <= '9';
}
constexpr bool isAsciiLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// The value of a hexadecimal digit in either case; -1 for any other character.
constexpr int hexDigitValue(char c) {
    if (isAsciiDigit(c))
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// Only A-Z change.
template <typename Char>
constexpr Char asciiLowered(Char c) {
    return c >= Char{'A'} && c <= Char{'Z'} ? static_cast<Char>(c - Char{'A'} + Char{'a'}) : c;
}

template <typename Char>
constexpr bool equalsIgnoringAsciiCase(std::basic_string_view<Char> a, std::basic_string_view<Char> b) {
    if (a.size() != b.size())
        return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (asciiLowered(a[i]) != asciiLowered(b[i]))
            return false;
    }
    return true;
}

// Two digits a byte, the high one first, "0123456789abcdef".
inline std::string lowerHex(std::span<const std::byte> bytes) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const std::byte byte : bytes) {
        text.push_back(kDigits[std::to_integer<std::size_t>(byte >> 4)]);
        text.push_back(kDigits[std::to_integer<std::size_t>(byte & std::byte{15})]);
    }
    return text;
}

// For text that is known to be ASCII; every byte becomes the unit of the same value.
inline std::wstring widenedAscii(std::string_view text) {
    std::wstring units;
    units.reserve(text.size());
    for (const char c : text)
        units.push_back(static_cast<wchar_t>(static_cast<unsigned char>(c)));
    return units;
}

}  // namespace vextra
