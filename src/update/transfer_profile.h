// How the two kinds of transfer differ: the small documents and the installer. Pure.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "base/product.h"
#include "base/system_types.h"

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

inline constexpr TransferProfile kJsonTransfer{VEXTRA_PROGRAM_W L"/" VEXTRA_RELEASE_LINE_W,
                                               L"application/json", TlsVersions::k12And13,
                                               AddressCheck::kSchemeHostAndNoUser};

// Another name for the agent and no TLS 1.3: odd but meant. What arrives is judged by its signed digest.
inline constexpr TransferProfile kInstallerTransfer{VEXTRA_PROGRAM_W L"/" VEXTRA_VERSION_W, nullptr,
                                                    TlsVersions::k12Only, AddressCheck::kSchemeOnly};

constexpr std::size_t kMaxJsonBodyBytes = 65'536;
constexpr std::size_t kJsonReadBytes = 4096;

constexpr std::uint32_t kInstallerTimeoutMs = 3000;  // each of resolve, connect, send, receive
constexpr Tick kInstallerTotalMs = 300'000;
constexpr std::size_t kInstallerReadBytes = 65'536;

// A Content-Type that means JSON: in any case, with or without parameters and blanks in front of them. A
// leading blank is not forgiven.
bool isJsonContentType(std::wstring_view header);

// The number that a Content-Length announces; the largest there is for what is larger; nothing when the text
// is no number.
std::optional<std::uint64_t> contentLengthFrom(std::wstring_view header);

}  // namespace vextra
