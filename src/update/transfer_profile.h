// How the two kinds of transfer differ: the small documents and the installer. Pure.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>

#include "base/product.h"
#include "base/text.h"

namespace vextra {

enum class TlsVersions : std::uint8_t { k12And13 = 1, k12Only };

enum class AddressCheck : std::uint8_t {
    kSchemeHostAndNoUser = 1,
    kSchemeOnly,  // the rest was checked when the manifest was accepted
};

struct TransferProfile {
    const wchar_t* userAgent;
    const wchar_t* acceptType;  // null: none is named
    TlsVersions tls;
    AddressCheck addressCheck;
};

inline constexpr wchar_t kJsonType[] = L"application/json";

inline constexpr TransferProfile kJsonTransfer{.userAgent = VEXTRA_PROGRAM_W L"/" VEXTRA_RELEASE_LINE_W,
                                               .acceptType = kJsonType,
                                               .tls = TlsVersions::k12And13,
                                               .addressCheck = AddressCheck::kSchemeHostAndNoUser};

// Another name for the agent and no TLS 1.3: odd but meant. What arrives is judged by its signed digest.
inline constexpr TransferProfile kInstallerTransfer{.userAgent = VEXTRA_PROGRAM_W L"/" VEXTRA_VERSION_W,
                                                    .acceptType = nullptr,
                                                    .tls = TlsVersions::k12Only,
                                                    .addressCheck = AddressCheck::kSchemeOnly};

// How long a transfer may take.
struct TransferLimits {
    std::uint32_t operationTimeoutMs;  // each of resolve, connect, send, receive
    std::uint32_t totalTimeoutMs;      // from before the session is opened
};

inline constexpr TransferLimits kJsonLimits{.operationTimeoutMs = 3000, .totalTimeoutMs = 15'000};
inline constexpr TransferLimits kInstallerLimits{.operationTimeoutMs = 3000, .totalTimeoutMs = 300'000};

constexpr std::size_t kJsonReadBytes = 4096;
constexpr std::size_t kInstallerReadBytes = 65'536;

// A Content-Type that means JSON: in any case, with or without parameters and blanks in front of them. A
// leading blank is not forgiven.
constexpr bool isJsonContentType(std::wstring_view header) {
    std::wstring_view type = header.substr(0, header.find(L';'));
    type = type.substr(0, type.find_last_not_of(L' ') + 1);
    return equalsIgnoringAsciiCase<wchar_t>(type, kJsonType);
}

// The number that a Content-Length announces; the largest there is for what is larger; nothing when the text
// is no number.
constexpr std::optional<std::uint64_t> contentLengthFrom(std::wstring_view header) {
    constexpr std::uint64_t kLargest = std::numeric_limits<std::uint64_t>::max();
    if (header.empty())
        return std::nullopt;
    std::uint64_t length = 0;
    for (const wchar_t unit : header) {
        if (!isAsciiDigit(unit))
            return std::nullopt;
        const auto digit = static_cast<std::uint64_t>(unit - L'0');
        length = length > (kLargest - digit) / 10 ? kLargest : length * 10 + digit;
    }
    return length;
}

}  // namespace vextra
