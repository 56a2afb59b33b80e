// What a publisher asks of the channel signer, and the texts that it writes: keys, the manifest, the
// signature document. Pure.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "base/secret.h"
#include "update/channel.h"
#include "update/manifest.h"

namespace vextra {

enum class SignerCommand { kKeygen = 1, kSign };

struct SignerOptions {
    SignerCommand command = SignerCommand::kKeygen;
    std::wstring privateKeyPath;
    std::wstring publicKeyPath;  // of kSign: may be empty
    std::wstring setupPath;      // from here on of kSign alone
    std::wstring version;
    std::wstring origin;
    std::wstring outFolder;
};

// Nothing when the line makes no sense: every option of the command is needed, once, but the public key.
// `arguments` are those after the program's name.
std::optional<SignerOptions> parseSignerOptions(std::span<const wchar_t* const> arguments);

extern const wchar_t kSignerUsage[];

// A P-256 pair.
struct SigningKey {
    SecretBytes scalar;  // 32 bytes, big-endian
    EcPoint point{};
};

// PKCS #8 (RFC 5958) around an ECPrivateKey with its public key (RFC 5915), as "openssl genpkey" writes it.
SecretUtf8 privateKeyPem(const SigningKey& key);
std::optional<SigningKey> privateKeyFromPem(std::string_view pem);

std::string publicKeyPem(const EcPoint& point);

// Of values that need no escapes: neither a version nor its own installer's address can hold one that would.
std::string manifestJson(const UpdateManifest& manifest);
std::string signatureJson(std::string_view signatureHex);

}  // namespace vextra
