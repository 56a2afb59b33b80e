// The document that announces the newest installer, the rules under which it is believed, and the text that
// its signature covers. docs/update-channel.md describes the format. Pure.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "update/channel.h"

namespace vextra {

constexpr std::uint64_t kManifestSchema = 1;
constexpr std::string_view kManifestAssetKind = "mf-installer";
constexpr std::uint64_t kMaxInstallerBytes = 536'870'912;  // 512 MiB
constexpr std::size_t kSha256HexDigits = 64;

// An accepted manifest. Copied between the workers and the window.
struct UpdateManifest {
    std::string version;  // as written, pre-release and build parts included
    std::string installerUrl;
    std::string sha256;  // as written: 64 hexadecimal digits, their case preserved
    std::uint64_t sizeBytes = 0;
    std::string signature;  // in hexadecimal digits; empty until one of this manifest has been verified
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

// Next to the installer, wherever the manifest lies.
std::string signatureDocumentUrl(const UpdateManifest& manifest);

// Product, channel, version, URL, digest and size, one a line, each line ended by a line feed.
std::string buildSignedMessage(const UpdateManifest& manifest);

// Whether a signature, in hexadecimal digits, is that of the message under the key (update/signature.h).
using SignatureVerifier =
    std::function<bool(std::string_view message, std::string_view signatureHex, const EcPoint& publicKey)>;

// What held when the manifest was checked still holds: the installer's place, its size, the stored signature.
// Asked again before the download and before the launch.
bool isManifestStillTrusted(const UpdateManifest& manifest, const UpdateChannelIdentity& channel,
                            const SignatureVerifier& verify);

}  // namespace vextra
