// Text: the seven-bit alphabet without a locale, as protocols and file formats mean "digit" and "letter";
// decimal numbers; and the borders between UTF-16 units and bytes. Any thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "base/secret.h"

namespace vextra {

// The longest address, and so the longest text of the settings and for a decoder, in UTF-16 units.
constexpr std::size_t kMaxUrlUnits = 8192;

// --- ASCII ---

// Of bytes and of wide units; as objects, so that algorithms take them.
inline constexpr auto isAsciiDigit = [](auto c) { return c >= '0' && c <= '9'; };
inline constexpr auto isAsciiLetter = [](auto c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };

// The value of a hexadecimal digit in either case; -1 for any other character.
template <typename Char>
constexpr int hexDigitValue(Char c) {
    if (isAsciiDigit(c))
        return c - Char{'0'};
    if (c >= Char{'a'} && c <= Char{'f'})
        return c - Char{'a'} + 10;
    if (c >= Char{'A'} && c <= Char{'F'})
        return c - Char{'A'} + 10;
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

// The other way, from digits in either case. Nothing unless there are exactly two for each byte.
template <std::size_t kBytes>
constexpr std::optional<std::array<std::byte, kBytes>> bytesFromHex(std::string_view digits) {
    if (digits.size() != kBytes * 2)
        return std::nullopt;
    std::array<std::byte, kBytes> bytes{};
    for (std::size_t i = 0; i < kBytes; ++i) {
        const int high = hexDigitValue(digits[2 * i]);
        const int low = hexDigitValue(digits[2 * i + 1]);
        if (high < 0 || low < 0)
            return std::nullopt;
        bytes[i] = static_cast<std::byte>(high * 16 + low);
    }
    return bytes;
}

// For text that is known to be ASCII; every byte becomes the unit of the same value.
inline std::wstring widenedAscii(std::string_view text) {
    std::wstring units;
    units.reserve(text.size());
    for (const char c : text)
        units.push_back(static_cast<wchar_t>(static_cast<unsigned char>(c)));
    return units;
}

// The other way, for text that may be anything: empty unless all of it is ASCII.
SecretUtf8 narrowedAscii(std::wstring_view text);

// --- Numbers ---

// The whole text in base 10, as the standard conversion reads it where it has 32 bits, on every machine:
// white space and a sign may stand in front, what is larger than 32 bits becomes the largest number of 32
// bits, and a negative number wraps at 2^32. Nothing when anything else stands there, as in an empty text.
// `length` in units; the terminator stands behind them.
std::optional<std::uint32_t> parseWholeNumber(const wchar_t* text, std::size_t length);

// --- Unicode ---

constexpr bool isHighSurrogate(std::uint32_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
constexpr bool isLowSurrogate(std::uint32_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

// Strictly: nothing is replaced, nothing is guessed. Appends the UTF-8 form of `units` to `out`. False at the
// first unpaired surrogate; `out` then holds what came before it. (Unicode 15, table 3-6; the same verdicts
// as WideCharToMultiByte with WC_ERR_INVALID_CHARS.)
bool appendUtf8(std::wstring_view units, SecretUtf8& out);

// Text as decoders take it. Empty when the text is empty, longer than 8192 units, holds a zero unit or an
// unpaired surrogate.
SecretUtf8 toUtf8Strict(std::wstring_view text);

// For people to read: what is invalid is replaced. By the system's own conversion, so on Windows only.
std::string utf8FromWide(std::wstring_view text);
std::wstring wideFromUtf8(std::string_view bytes);

}  // namespace vextra
