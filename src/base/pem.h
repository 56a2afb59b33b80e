// PEM (RFC 7468), for blocks whose length is known: narrower than the standard allows, so that a file that
// was cut, joined or edited is refused. Usable at compile time. Pure.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace vextra {

inline constexpr std::string_view kBase64Digits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
inline constexpr std::string_view kPemBegin = "-----BEGIN ";
inline constexpr std::string_view kPemEnd = "-----END ";
inline constexpr std::string_view kPemDashes = "-----";

namespace detail {

constexpr bool takePrefix(std::string_view& text, std::string_view prefix) {
    if (!text.starts_with(prefix))
        return false;
    text.remove_prefix(prefix.size());
    return true;
}

constexpr bool takeLine(std::string_view& text, std::string_view before, std::string_view label) {
    return takePrefix(text, before) && takePrefix(text, label) && takePrefix(text, kPemDashes);
}

constexpr void skipLineBreaks(std::string_view& text) {
    while (!text.empty() && (text.front() == '\r' || text.front() == '\n'))
        text.remove_prefix(1);
}

}  // namespace detail

// The bytes between the lines of `label`. Nothing unless the text is that one block and holds exactly
// `Bytes`.
template <std::size_t Bytes>
constexpr std::optional<std::array<std::byte, Bytes>> decodePem(std::string_view pem,
                                                                std::string_view label) {
    constexpr std::size_t kPadding = (3 - Bytes % 3) % 3;
    std::array<std::byte, Bytes> bytes{};
    detail::skipLineBreaks(pem);
    if (!detail::takeLine(pem, kPemBegin, label))
        return std::nullopt;
    std::uint32_t bits = 0;
    int bitCount = 0;
    std::size_t filled = 0;
    for (detail::skipLineBreaks(pem); filled < Bytes; detail::skipLineBreaks(pem)) {
        const std::size_t digit = pem.empty() ? std::string_view::npos : kBase64Digits.find(pem.front());
        if (digit == std::string_view::npos)
            return std::nullopt;
        pem.remove_prefix(1);
        bits = (bits << 6) | static_cast<std::uint32_t>(digit);
        bitCount += 6;
        if (bitCount >= 8) {
            bitCount -= 8;
            bytes[filled++] = static_cast<std::byte>(bits >> bitCount & 0xFF);
        }
    }
    if ((bits & ((1u << bitCount) - 1)) != 0 ||
        !detail::takePrefix(pem, std::string_view("==").substr(2 - kPadding)))
        return std::nullopt;
    detail::skipLineBreaks(pem);
    if (!detail::takeLine(pem, kPemEnd, label))
        return std::nullopt;
    detail::skipLineBreaks(pem);
    return pem.empty() ? std::optional(bytes) : std::nullopt;
}

// Lines of 64 digits, each ended by a line feed. `Text` is std::string or, for private keys, SecretUtf8.
template <typename Text>
Text encodePem(std::span<const std::byte> bytes, std::string_view label) {
    constexpr std::size_t kLineDigits = 64;
    Text text;
    text.append(kPemBegin);
    text.append(label);
    text.append(kPemDashes);
    std::size_t digits = 0;
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        std::uint32_t group = 0;
        for (std::size_t i = 0; i < 3; ++i)
            group = group << 8 | (at + i < bytes.size() ? std::to_integer<std::uint32_t>(bytes[at + i]) : 0);
        for (std::size_t i = 0; i < 4; ++i) {
            if (digits++ % kLineDigits == 0)
                text.append("\n");
            const bool padding = at + i > bytes.size();
            text.append(padding ? "=" : kBase64Digits.substr(group >> (18 - 6 * i) & 63, 1));
        }
    }
    text.append("\n");
    text.append(kPemEnd);
    text.append(label);
    text.append(kPemDashes);
    text.append("\n");
    return text;
}

}  // namespace vextra
