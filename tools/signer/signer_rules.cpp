#include "signer/signer_rules.h"

#include <algorithm>
#include <array>

#include "base/pem.h"
#include "update/channel.h"

namespace vextra {

const wchar_t kSignerUsage[] =
    L"Makes the update channel's keys, and what its server hands out.\n"
    L"\n"
    L"  vextra-channel-signer keygen --private-key FILE --public-key FILE\n"
    L"      a new pair, as PEM; the files must not exist\n"
    L"  vextra-channel-signer sign --setup FILE --version V --origin URL --private-key FILE --out FOLDER\n"
    L"      [--public-key FILE]\n"
    L"      writes camera-virtual-vextra-mf\\V\\Setup.exe and its Setup.exe.sig.json, checks them as the "
    L"broker\n"
    L"      would, and then replaces camera-virtual-vextra-mf\\beta.json; a version is published once;\n"
    L"      public key: the one that the brokers were built with, which has to fit the private one\n"
    L"\n"
    L"Exit codes: 0 done; 1 refused or failed; 2 usage.";

namespace {

constexpr std::string_view kPrivateKeyLabel = "PRIVATE KEY";
constexpr std::size_t kScalarBytes = 32;

// PrivateKeyInfo with the algorithm of kPublicKeyPrefix; then the scalar; then the optional public key's tag.
constexpr auto kBeforeScalar =
    bytesOf(0x30, 0x81, 0x87, 0x02, 0x01, 0x00, 0x30, 0x13, 0x06, 0x07, 0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x02,
            0x01, 0x06, 0x08, 0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x03, 0x01, 0x07, 0x04, 0x6D, 0x30, 0x6B, 0x02,
            0x01, 0x01, 0x04, 0x20);
constexpr auto kBeforePoint = bytesOf(0xA1, 0x44, 0x03, 0x42, 0x00, 0x04);
constexpr std::size_t kPointAt = kBeforeScalar.size() + kScalarBytes + kBeforePoint.size();
constexpr std::size_t kPrivateKeyBytes = kPointAt + EcPoint{}.size();
static_assert(kPrivateKeyBytes == 138);

enum class Need { kRequired = 1, kOptional };

struct Option {
    SignerCommand command;
    std::wstring_view name;
    std::wstring SignerOptions::*member;
    Need need = Need::kRequired;
};
constexpr Option kOptions[] = {
    {SignerCommand::kKeygen, L"--private-key", &SignerOptions::privateKeyPath},
    {SignerCommand::kKeygen, L"--public-key", &SignerOptions::publicKeyPath},
    {SignerCommand::kSign, L"--setup", &SignerOptions::setupPath},
    {SignerCommand::kSign, L"--version", &SignerOptions::version},
    {SignerCommand::kSign, L"--origin", &SignerOptions::origin},
    {SignerCommand::kSign, L"--private-key", &SignerOptions::privateKeyPath},
    {SignerCommand::kSign, L"--public-key", &SignerOptions::publicKeyPath, Need::kOptional},
    {SignerCommand::kSign, L"--out", &SignerOptions::outFolder},
};

bool setOption(SignerOptions& options, std::wstring_view name, std::wstring_view value) {
    for (const Option& option : kOptions) {
        if (option.command != options.command || option.name != name)
            continue;
        std::wstring& place = options.*option.member;
        if (!place.empty() || value.empty())
            return false;
        place = value;
        return true;
    }
    return false;
}

bool isComplete(const SignerOptions& options) {
    return std::ranges::all_of(kOptions, [&](const Option& option) {
        return option.command != options.command || option.need == Need::kOptional ||
               !(options.*option.member).empty();
    });
}

}  // namespace

std::optional<SignerOptions> parseSignerOptions(std::span<const wchar_t* const> arguments) {
    if (arguments.size() % 2 == 0)  // a command, then pairs
        return std::nullopt;
    const std::wstring_view command = arguments.front();
    if (command != L"keygen" && command != L"sign")
        return std::nullopt;
    SignerOptions options;
    options.command = command == L"sign" ? SignerCommand::kSign : SignerCommand::kKeygen;
    for (std::size_t i = 1; i < arguments.size(); i += 2) {
        if (!setOption(options, arguments[i], arguments[i + 1]))
            return std::nullopt;
    }
    return isComplete(options) ? std::optional(options) : std::nullopt;
}

SecretUtf8 privateKeyPem(const SigningKey& key) {
    SecretBytes info(kBeforeScalar.begin(), kBeforeScalar.end());
    info.insert(info.end(), key.scalar.begin(), key.scalar.end());
    info.insert(info.end(), kBeforePoint.begin(), kBeforePoint.end());
    info.insert(info.end(), key.point.begin(), key.point.end());
    return encodePem<SecretUtf8>(info, kPrivateKeyLabel);
}

std::optional<SigningKey> privateKeyFromPem(std::string_view pem) {
    auto info = decodePem<kPrivateKeyBytes>(pem, kPrivateKeyLabel);
    if (!info)
        return std::nullopt;
    const auto scalar = info->begin() + kBeforeScalar.size();
    const auto point = info->begin() + kPointAt;
    const bool known = std::equal(kBeforeScalar.begin(), kBeforeScalar.end(), info->begin()) &&
                       std::equal(kBeforePoint.begin(), kBeforePoint.end(), scalar + kScalarBytes);
    SigningKey key{SecretBytes(scalar, scalar + kScalarBytes), {}};
    std::copy(point, info->end(), key.point.begin());
    wipeMemory(info->data(), info->size());
    return known ? std::optional(std::move(key)) : std::nullopt;
}

std::string publicKeyPem(const EcPoint& point) {
    std::array<std::byte, kPublicKeyPrefix.size() + EcPoint{}.size()> info{};
    std::copy(point.begin(), point.end(),
              std::copy(kPublicKeyPrefix.begin(), kPublicKeyPrefix.end(), info.begin()));
    return encodePem<std::string>(info, kPublicKeyLabel);
}

std::string manifestJson(const UpdateManifest& manifest) {
    const auto text = [](std::string_view key, std::string_view value) {
        return "\"" + std::string(key) + "\": \"" + std::string(value) + "\",\n";
    };
    return "{\n  \"schema_version\": " + std::to_string(kManifestSchema) + ",\n  " +
           text("app", kChannelApp) + "  " + text("channel", kChannelName) + "  " +
           text("version", manifest.version) + "  \"asset\": {\n    " + text("kind", kManifestAssetKind) +
           "    " + text("url", manifest.installerUrl) + "    " + text("sha256", manifest.sha256) +
           "    \"size\": " + std::to_string(manifest.sizeBytes) + "\n  }\n}\n";
}

std::string signatureJson(std::string_view signatureHex) {
    return "{ \"signature\": \"" + std::string(signatureHex) + "\" }\n";
}

}  // namespace vextra
