#include "signer/signer_rules.h"

#include <gtest/gtest.h>

#include <vector>

#include "base/text.h"
#include "update/channel.h"
#include "update/json_reader.h"

namespace vextra {
namespace {

// What "openssl genpkey" writes for a P-256 key, byte for byte, with a pattern in the place of each number:
// no key.
constexpr std::string_view kPrivateInfo =
    "308187020100301306072a8648ce3d020106082a8648ce3d030107046d306b0201010420"
    "0102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f20"
    "a14403420004"
    "2122232425262728292a2b2c2d2e2f303132333435363738393a3b3c3d3e3f40"
    "4142434445464748494a4b4c4d4e4f505152535455565758595a5b5c5d5e5f60";

SigningKey patternKey() {
    SigningKey key;
    for (int i = 1; i <= 32; ++i)
        key.scalar.push_back(static_cast<std::byte>(i));
    for (std::size_t i = 0; i < key.point.size(); ++i)
        key.point[i] = static_cast<std::byte>(33 + i);
    return key;
}
std::string pemOf(const std::vector<std::byte>& info) {
    return encodePem<std::string>(info, "PRIVATE KEY");
}
std::vector<std::byte> privateInfo() {
    std::vector<std::byte> bytes;
    for (std::size_t i = 0; i < kPrivateInfo.size(); i += 2)
        bytes.push_back(
            static_cast<std::byte>(hexDigitValue(kPrivateInfo[i]) * 16 + hexDigitValue(kPrivateInfo[i + 1])));
    return bytes;
}

std::optional<SignerOptions> parsed(const std::vector<const wchar_t*>& arguments) {
    return parseSignerOptions(arguments);
}
const std::vector<const wchar_t*> kSign = {L"sign",  L"--setup",  L"s",         L"--version",
                                           L"1.0.0", L"--origin", L"https://h", L"--private-key",
                                           L"p.pem", L"--out",    L"www"};

TEST(SignerOptions, OfKeygenNameTwoFiles) {
    const auto options = parsed({L"keygen", L"--public-key", L"b", L"--private-key", L"a"});
    ASSERT_TRUE(options);
    EXPECT_EQ(options->command, SignerCommand::kKeygen);
    EXPECT_EQ(options->privateKeyPath, L"a");
    EXPECT_EQ(options->publicKeyPath, L"b");
}

TEST(SignerOptions, OfSignNameEverything) {
    const auto options = parsed(kSign);
    ASSERT_TRUE(options);
    EXPECT_EQ(options->command, SignerCommand::kSign);
    EXPECT_EQ(options->setupPath, L"s");
    EXPECT_EQ(options->version, L"1.0.0");
    EXPECT_EQ(options->origin, L"https://h");
    EXPECT_EQ(options->privateKeyPath, L"p.pem");
    EXPECT_EQ(options->outFolder, L"www");
}

TEST(SignerOptions, OfSignMayNameThePublicKey) {
    EXPECT_EQ(parsed(kSign)->publicKeyPath, L"");
    auto arguments = kSign;
    arguments.insert(arguments.end(), {L"--public-key", L"k.pem"});
    EXPECT_EQ(parsed(arguments)->publicKeyPath, L"k.pem");
    arguments.insert(arguments.end(), {L"--public-key", L"k.pem"});
    EXPECT_FALSE(parsed(arguments));
}

TEST(SignerOptions, AreRefusedUnlessWholeAndOnce) {
    EXPECT_FALSE(parsed({}));
    EXPECT_FALSE(parsed({L"sign"}));
    EXPECT_FALSE(parsed({L"Sign"}));
    EXPECT_FALSE(parsed({L"verify", L"--setup", L"s"}));
    EXPECT_FALSE(parsed({L"keygen", L"--private-key", L"a"}));
    EXPECT_FALSE(parsed({L"keygen", L"--private-key", L"a", L"--public-key"}));
    EXPECT_FALSE(parsed({L"keygen", L"--private-key", L"a", L"--private-key", L"b"}));
    EXPECT_FALSE(parsed({L"keygen", L"--private-key", L"a", L"--public-key", L"b", L"--out", L"c"}));
    EXPECT_FALSE(parsed({L"keygen", L"--private-key", L"a", L"--public-key", L""}));
    for (std::size_t left = 1; left < kSign.size(); left += 2) {
        auto arguments = kSign;
        arguments.erase(arguments.begin() + static_cast<std::ptrdiff_t>(left),
                        arguments.begin() + static_cast<std::ptrdiff_t>(left) + 2);
        EXPECT_FALSE(parsed(arguments)) << left;
    }
}

TEST(SigningKey, IsReadAsOpensslWritesIt) {
    const auto key = privateKeyFromPem(pemOf(privateInfo()));
    ASSERT_TRUE(key);
    EXPECT_EQ(key->scalar, patternKey().scalar);
    EXPECT_EQ(key->point, patternKey().point);
}

TEST(SigningKey, IsWrittenAsOpensslWritesIt) {
    EXPECT_EQ(privateKeyPem(patternKey()).view(), pemOf(privateInfo()));
}

TEST(SigningKey, HasAPublicHalfThatTheBuildReads) {
    EXPECT_EQ(publicKeyFromPem(publicKeyPem(patternKey().point)), patternKey().point);
}

TEST(SigningKey, IsNotReadFromAnythingElse) {
    EXPECT_FALSE(privateKeyFromPem(""));
    EXPECT_FALSE(privateKeyFromPem(publicKeyPem(patternKey().point)));
    EXPECT_FALSE(privateKeyFromPem(encodePem<std::string>(privateInfo(), "EC PRIVATE KEY")));
    for (const std::size_t place : {0u, 9u, 25u, 35u, 68u, 73u}) {
        auto spoiled = privateInfo();
        spoiled[place] ^= std::byte{1};
        EXPECT_FALSE(privateKeyFromPem(pemOf(spoiled))) << place;
    }
}

TEST(DocumentsOfARelease, AreReadByTheBroker) {
    const UpdateChannelIdentity channel{"https://h:1", {}};
    const UpdateManifest manifest{"1.0.0-rc.1+7", installerUrl("1.0.0-rc.1+7", channel), std::string(64, 'a'),
                                  kMaxInstallerBytes, ""};
    const auto again = parseUpdateManifest(manifestJson(manifest));
    ASSERT_TRUE(again);
    EXPECT_EQ(buildSignedMessage(*again), buildSignedMessage(manifest));
    const auto document = parseJsonDocument(signatureJson(std::string(128, 'f')));
    ASSERT_TRUE(document);
    EXPECT_EQ(document->members.size(), 1u);
    EXPECT_EQ(findMember(*document, "signature", JsonKind::kString)->text, std::string(128, 'f'));
}

TEST(ChannelOrigin, IsSchemeHostAndPortAlone) {
    for (const char* origin : {"https://h", "https://updates.example:8443", "https://[::1]:1"})
        EXPECT_TRUE(isChannelOrigin(origin)) << origin;
    for (const char* origin : {"", "https://h/", "https://h?x", "http://h", "https://h#", "https://u@h", "h",
                               "https://", "https://H", "https://a..b", "https://h:99999"})
        EXPECT_FALSE(isChannelOrigin(origin)) << origin;
}

}  // namespace
}  // namespace vextra
