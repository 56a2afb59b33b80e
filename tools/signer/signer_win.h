// The channel signer's work: keys by the system's cryptography, and a release as files that a web server
// hands out. Texts are for the publisher.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "signer/signer_rules.h"

namespace vextra {

struct SignerReport {
    std::vector<std::wstring> lines;  // what was written
    std::wstring trouble;             // what stopped it; empty: all is well

    bool ok() const { return trouble.empty(); }
};

std::optional<SigningKey> generateSigningKey();

// 128 hexadecimal digits: r, then s.
std::optional<std::string> signMessage(std::string_view message, const SigningKey& key);

// A new pair in two new files; neither may exist.
SignerReport makeKeyFiles(const std::wstring& privateKeyPath, const std::wstring& publicKeyPath);

// Nothing unless the file is one that makeKeyFiles or "openssl genpkey" writes, unencrypted.
std::optional<SigningKey> readSigningKey(const std::wstring& path);

struct ReleasePlan {
    std::wstring setupPath;
    std::wstring version;
    std::wstring origin;
    std::wstring outFolder;  // what the server has at its root; exists
    // Of the key that the brokers were built with, which has to fit the private one; empty: not asked.
    std::wstring publicKeyPath;
};

// Writes the version's folder, judges it with the broker's own check, and only then announces it in
// beta.json. Of a release that is refused nothing is left, and beta.json stays as it was.
SignerReport publishRelease(const ReleasePlan& plan, const SigningKey& key);

}  // namespace vextra
