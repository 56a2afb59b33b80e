#include "update/manifest.h"

#include <algorithm>

#include "base/text.h"
#include "update/json_reader.h"
#include "update/strict_url.h"
#include "update/version.h"

namespace vextra {
namespace {

constexpr std::size_t kRootMembers = 5;
constexpr std::size_t kAssetMembers = 4;

// Null unless there is such a string and it obeys the rule.
template <typename Rule>
const std::string* findText(const JsonValue& object, std::string_view key, Rule obeys) {
    const JsonValue* const value = findMember(object, key, JsonKind::kString);
    return value != nullptr && obeys(value->text) ? &value->text : nullptr;
}

auto equals(std::string_view expected) {
    return [expected](std::string_view text) { return text == expected; };
}

bool isVersion(std::string_view text) {
    return parseVersion(text).has_value();
}

bool isSha256Text(std::string_view text) {
    return text.size() == kSha256HexDigits &&
           std::ranges::all_of(text, [](char c) { return hexDigitValue(c) >= 0; });
}

bool readAsset(const JsonValue& asset, UpdateManifest& manifest) {
    const std::string* const kind = findText(asset, "kind", equals(kManifestAssetKind));
    const std::string* const url = findText(asset, "url", isStrictHttpsUrl);
    const std::string* const sha256 = findText(asset, "sha256", isSha256Text);
    const JsonValue* const size = findMember(asset, "size", JsonKind::kNumber);
    if (asset.members.size() != kAssetMembers || kind == nullptr || url == nullptr || sha256 == nullptr ||
        size == nullptr || !isInstallerSize(size->number))
        return false;
    manifest.installerUrl = *url;
    manifest.sha256 = *sha256;
    manifest.sizeBytes = size->number;
    return true;
}

}  // namespace

std::optional<UpdateManifest> parseUpdateManifest(std::string_view body) {
    const std::optional<JsonValue> root = parseJsonDocument(body);
    if (!root || root->members.size() != kRootMembers)
        return std::nullopt;
    const JsonValue* const schema = findMember(*root, "schema_version", JsonKind::kNumber);
    const std::string* const version = findText(*root, "version", isVersion);
    const JsonValue* const asset = findMember(*root, "asset", JsonKind::kObject);
    if (schema == nullptr || schema->number != kManifestSchema ||
        findText(*root, "app", equals(kChannelApp)) == nullptr ||
        findText(*root, "channel", equals(kChannelName)) == nullptr || version == nullptr || asset == nullptr)
        return std::nullopt;
    UpdateManifest manifest;
    if (!readAsset(*asset, manifest))
        return std::nullopt;
    manifest.version = *version;
    return manifest;
}

bool isInstallerSize(std::uint64_t bytes) {
    return bytes >= 1 && bytes <= kMaxInstallerBytes;
}

bool isInstallerDigest(const UpdateManifest& manifest, std::span<const std::byte> digest) {
    return equalsIgnoringAsciiCase<char>(lowerHex(digest), manifest.sha256);
}

std::string installerUrl(std::string_view version, const UpdateChannelIdentity& channel) {
    return channelBase(channel) + std::string(version) + "/" + std::string(kInstallerFileName);
}

bool isOfficialInstallerUrl(const UpdateManifest& manifest, const UpdateChannelIdentity& channel) {
    return isVersion(manifest.version) && manifest.installerUrl == installerUrl(manifest.version, channel);
}

std::string signatureDocumentUrl(const UpdateManifest& manifest) {
    return manifest.installerUrl + std::string(kSignatureSuffix);
}

std::string buildSignedMessage(const UpdateManifest& manifest) {
    std::string message;
    for (const std::string_view line :
         {kChannelApp, kChannelName, std::string_view(manifest.version),
          std::string_view(manifest.installerUrl), std::string_view(manifest.sha256)})
        message.append(line).push_back('\n');
    return message + std::to_string(manifest.sizeBytes) + "\n";
}

bool isManifestStillTrusted(const UpdateManifest& manifest, const UpdateChannelIdentity& channel,
                            const SignatureVerifier& verify) {
    return isOfficialInstallerUrl(manifest, channel) && isInstallerSize(manifest.sizeBytes) &&
           verify(buildSignedMessage(manifest), manifest.signature, channel.publicKey);
}

}  // namespace vextra
