// The document that announces the newest installer, the rules under which it is believed, and the text that
// its signature covers. docs/update-channel.md describes the format. Pure.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "update/channel.h"

namespace vextra {

constexpr std::uint64_t kMaxInstallerBytes = 536'870'912;  // 512 MiB
constexpr std::size_t kSha256HexDigits = 64;

// An accepted manifest. Copied between the workers and the window.
struct UpdateManifest {
    std::string version;  // as written, pre-release and build parts included
    std::string installerUrl;
    std::string sha256;  // as written: 64 hexadecimal digits, their case preserved
    std::uint64_t sizeBytes = 0;
    std::string
        signature;  // empty until a signature of this manifest has been verified; then its hexadecimal text
};

// Nothing unless the document is exactly one manifest of this product and channel, without a member more.
std::optional<UpdateManifest> parseUpdateManifest(std::string_view body);

bool isInstallerSize(std::uint64_t bytes);

// Whether a file with this SHA-256 is the announced one; the manifest's digits may be of either case.
bool isInstallerDigest(const UpdateManifest& manifest, std::span<const std::byte> digest);

// The one place for the installer of a version: origin, channel path, version folder, "Setup.exe".
std::string installerUrl(std::string_view version, const UpdateChannelIdentity& channel);

// True when the installer lies at exactly that place, wherever the manifest itself was fetched from.
bool isOfficialInstallerUrl(const UpdateManifest& manifest, const UpdateChannelIdentity& channel);

// Beside the installer, not beside the manifest.
std::string signatureDocumentUrl(const UpdateManifest& manifest);

// Product, channel, version, URL, digest and size, one a line, each line ended by a line feed.
std::string buildSignedMessage(const UpdateManifest& manifest);

}  // namespace vextra
