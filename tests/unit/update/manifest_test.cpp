#include "update/manifest.h"

#include <gtest/gtest.h>

#include <vector>

#include "manifest_text.h"

namespace vextra {
namespace {

using test::ManifestText;
using test::testChannel;

bool accepted(const ManifestText& text) {
    return parseUpdateManifest(text.json()).has_value();
}
bool acceptedWith(std::string ManifestText::*field, const std::string& json) {
    ManifestText text;
    text.*field = json;
    return accepted(text);
}
UpdateManifest manifestWith(std::string ManifestText::*field, const std::string& json) {
    ManifestText text;
    text.*field = json;
    return parseUpdateManifest(text.json()).value_or(UpdateManifest());
}
UpdateManifest manifestAt(const std::string& version, const std::string& url) {
    return {version, url, std::string(64, 'a'), 1, ""};
}
bool official(const std::string& version, const std::string& url) {
    return isOfficialInstallerUrl(manifestAt(version, url), testChannel());
}

TEST(Manifest, GivesItsFieldsAsWritten) {
    ManifestText text;
    text.sha256 = "\"" + std::string(32, 'A') + std::string(32, 'b') + "\"";
    const auto manifest = parseUpdateManifest(text.json());
    ASSERT_TRUE(manifest);
    EXPECT_EQ(manifest->version, "0.2.1");
    EXPECT_EQ(manifest->installerUrl,
              "https://updates.example:8443/camera-virtual-vextra-mf/0.2.1/Setup.exe");
    EXPECT_EQ(manifest->sha256, std::string(32, 'A') + std::string(32, 'b'));
    EXPECT_EQ(manifest->sizeBytes, 1'048'576u);
    EXPECT_EQ(manifest->signature, "");
}

TEST(Manifest, MayHaveItsMembersInAnyOrder) {
    const ManifestText text;
    EXPECT_TRUE(parseUpdateManifest(R"({"asset":{"size":1,"sha256":)" + text.sha256 + R"(,"url":)" +
                                    text.url +
                                    R"(,"kind":"mf-installer"},"version":"1.0.0","channel":"beta",)"
                                    R"("app":"CameraVirtualVextraMF","schema_version":1})"));
}

TEST(Manifest, HasNoMemberMore) {
    EXPECT_FALSE(acceptedWith(&ManifestText::moreInRoot, R"(,"description":"x")"));
    EXPECT_FALSE(acceptedWith(&ManifestText::moreInAsset, R"(,"mirror":"x")"));
}

TEST(Manifest, HasNoMemberLessAndNoneByAnotherName) {
    const std::string whole = ManifestText().json();
    for (const std::string name :
         {"schema_version", "app", "channel", "version", "asset", "kind", "url", "sha256", "size"}) {
        std::string renamed = whole;
        const std::size_t at = renamed.find("\"" + name + "\":");
        renamed[at + 1] = static_cast<char>(std::toupper(renamed[at + 1]));
        EXPECT_FALSE(parseUpdateManifest(renamed)) << renamed;
    }
    for (const std::string member :
         {R"("schema_version":1,)", R"("app":"CameraVirtualVextraMF",)", R"("channel":"beta",)",
          R"("version":"0.2.1",)", R"("kind":"mf-installer",)"}) {
        std::string without = whole;
        without.erase(without.find(member), member.size());
        EXPECT_FALSE(parseUpdateManifest(without)) << without;
    }
}

TEST(Manifest, HasMembersOfTheRightKind) {
    for (const auto field : {&ManifestText::app, &ManifestText::channel, &ManifestText::version,
                             &ManifestText::kind, &ManifestText::url, &ManifestText::sha256}) {
        EXPECT_FALSE(acceptedWith(field, "1"));
        EXPECT_FALSE(acceptedWith(field, "{}"));
    }
    for (const auto field : {&ManifestText::schemaVersion, &ManifestText::size}) {
        EXPECT_FALSE(acceptedWith(field, "\"1\""));
        EXPECT_FALSE(acceptedWith(field, "{}"));
    }
    EXPECT_FALSE(parseUpdateManifest(ManifestText().jsonWithAsset("\"mf-installer\"")));
    EXPECT_FALSE(parseUpdateManifest(ManifestText().jsonWithAsset("1")));
}

TEST(Manifest, IsOfTheFirstSchema) {
    for (const char* version : {"0", "2", "10", "18446744073709551615"})
        EXPECT_FALSE(acceptedWith(&ManifestText::schemaVersion, version)) << version;
}

TEST(Manifest, IsForThisProductAndChannel) {
    for (const char* app :
         {"\"\"", "\"cameravirtualvextramf\"", "\"CameraVirtualVextraMF \"", "\"CameraVirtualVextra\""})
        EXPECT_FALSE(acceptedWith(&ManifestText::app, app)) << app;
    for (const char* channel : {"\"\"", "\"Beta\"", "\"stable\"", "\"beta2\""})
        EXPECT_FALSE(acceptedWith(&ManifestText::channel, channel)) << channel;
    for (const char* kind : {"\"\"", "\"MF-installer\"", "\"installer\""})
        EXPECT_FALSE(acceptedWith(&ManifestText::kind, kind)) << kind;
}

TEST(Manifest, NamesAVersion) {
    EXPECT_TRUE(acceptedWith(&ManifestText::version, "\"0.2.1-beta.1+7\""));
    for (const char* version : {"\"\"", "\"0.2\"", "\"0.2.0-beta.05\"", "\"v0.2.1\"", "\"0.2.1/..\""})
        EXPECT_FALSE(acceptedWith(&ManifestText::version, version)) << version;
}

TEST(Manifest, NamesAStrictAddress) {
    // Whether it is the official one is asked later.
    EXPECT_TRUE(acceptedWith(&ManifestText::url, "\"https://elsewhere.example/x\""));
    for (const char* url : {"\"\"", "\"http://updates.example/Setup.exe\"", "\"https://u@updates.example/x\"",
                            "\"https://updates.example/#x\""})
        EXPECT_FALSE(acceptedWith(&ManifestText::url, url)) << url;
}

TEST(Manifest, NamesADigestOf64Digits) {
    EXPECT_TRUE(acceptedWith(&ManifestText::sha256, "\"" + std::string(64, 'F') + "\""));
    for (const std::string& digits : {std::string(), std::string(63, 'a'), std::string(65, 'a'),
                                      std::string(63, 'a') + 'g', std::string(63, 'a') + ' '})
        EXPECT_FALSE(acceptedWith(&ManifestText::sha256, "\"" + digits + "\"")) << digits;
}

TEST(Manifest, NamesASizeUpTo512MiB) {
    EXPECT_EQ(manifestWith(&ManifestText::size, "1").sizeBytes, 1u);
    EXPECT_EQ(manifestWith(&ManifestText::size, "536870912").sizeBytes, 536'870'912u);
    for (const char* size : {"0", "536870913", "18446744073709551615"})
        EXPECT_FALSE(acceptedWith(&ManifestText::size, size)) << size;
}

TEST(Manifest, IsNothingWithoutADocument) {
    for (const char* body : {"", "{}", "null", "<html>"})
        EXPECT_FALSE(parseUpdateManifest(body)) << body;
}

TEST(OfficialInstaller, LiesInTheFolderOfItsVersion) {
    EXPECT_TRUE(official("0.2.1", "https://updates.example:8443/camera-virtual-vextra-mf/0.2.1/Setup.exe"));
    EXPECT_TRUE(
        official("0.3.0+7", "https://updates.example:8443/camera-virtual-vextra-mf/0.3.0+7/Setup.exe"));
    EXPECT_TRUE(
        official("0.3.0-rc.1", "https://updates.example:8443/camera-virtual-vextra-mf/0.3.0-rc.1/Setup.exe"));
}

TEST(OfficialInstaller, LiesNowhereElse) {
    for (const char* url : {"", "https://updates.example:8443/camera-virtual-vextra-mf/0.2.0/Setup.exe",
                            "https://updates.example:8443/camera-virtual-vextra-mf/0.2.1/setup.exe",
                            "https://UPDATES.example:8443/camera-virtual-vextra-mf/0.2.1/Setup.exe",
                            "https://updates.example:8443/Camera-virtual-vextra-mf/0.2.1/Setup.exe",
                            "https://updates.example:8443/camera-virtual-vextra-mf/0.2.1/Setup.exe?x=1",
                            "https://updates.example:8443/camera-virtual-vextra-mf/0.2.1/Setup.exe/",
                            "https://updates.example:8443/camera-virtual-vextra-mf/0.2.1/../0.2.1/Setup.exe",
                            "https://updates.example:8443/camera-virtual-vextra-mf/0%2E2.1/Setup.exe",
                            "https://updates.example:8443//camera-virtual-vextra-mf/0.2.1/Setup.exe",
                            "https://updates.example/camera-virtual-vextra-mf/0.2.1/Setup.exe",
                            "https://updates.example:08443/camera-virtual-vextra-mf/0.2.1/Setup.exe",
                            "https://updates.example.evil/camera-virtual-vextra-mf/0.2.1/Setup.exe"})
        EXPECT_FALSE(official("0.2.1", url)) << url;
}

TEST(OfficialInstaller, HasTheBuildInItsFolder) {
    EXPECT_FALSE(
        official("0.3.0+7", "https://updates.example:8443/camera-virtual-vextra-mf/0.3.0/Setup.exe"));
    EXPECT_FALSE(
        official("0.3.0", "https://updates.example:8443/camera-virtual-vextra-mf/0.3.0+7/Setup.exe"));
}

TEST(OfficialInstaller, HasAVersion) {
    EXPECT_FALSE(official("..", "https://updates.example:8443/camera-virtual-vextra-mf/../Setup.exe"));
    EXPECT_FALSE(official("", "https://updates.example:8443/camera-virtual-vextra-mf//Setup.exe"));
}

TEST(InstallerDigest, IsTheManifestsInEitherCase) {
    const std::vector<std::byte> digest(32, std::byte{0xAB});
    UpdateManifest manifest;
    for (const char* pair : {"ab", "AB", "aB"}) {
        manifest.sha256.clear();
        for (int i = 0; i < 32; ++i)
            manifest.sha256 += pair;
        EXPECT_TRUE(isInstallerDigest(manifest, digest)) << pair;
    }
}

TEST(InstallerDigest, IsNoOther) {
    UpdateManifest manifest;
    manifest.sha256 = std::string(64, 'a');
    std::vector<std::byte> digest(32, std::byte{0xAA});
    ASSERT_TRUE(isInstallerDigest(manifest, digest));
    digest.back() = std::byte{0xAB};
    EXPECT_FALSE(isInstallerDigest(manifest, digest));
    digest.pop_back();
    EXPECT_FALSE(isInstallerDigest(manifest, digest));
}

TEST(SignatureDocument, LiesBesideTheInstaller) {
    EXPECT_EQ(signatureDocumentUrl(manifestAt("1.0.0", "https://h/1.0.0/Setup.exe")),
              "https://h/1.0.0/Setup.exe.sig.json");
}

TEST(SignedMessage, HasSixLines) {
    UpdateManifest manifest = manifestAt("0.2.1", "https://h/Setup.exe");
    manifest.sizeBytes = 1'048'576;
    EXPECT_EQ(buildSignedMessage(manifest), "CameraVirtualVextraMF\nbeta\n0.2.1\nhttps://h/Setup.exe\n" +
                                                std::string(64, 'a') + "\n1048576\n");
}

TEST(SignedMessage, TakesTheDigestAsWritten) {
    const UpdateManifest lower = manifestAt("0.2.1", "https://h/Setup.exe");
    UpdateManifest upper = lower;
    upper.sha256 = std::string(64, 'A');
    EXPECT_NE(buildSignedMessage(lower), buildSignedMessage(upper));
}

TEST(SignedMessage, EndsWithTheSizeInDecimalAndALineFeed) {
    UpdateManifest manifest = manifestAt("0.2.1", "https://h/Setup.exe");
    manifest.sizeBytes = 10;
    EXPECT_TRUE(buildSignedMessage(manifest).ends_with("\n10\n"));
    manifest.sizeBytes = kMaxInstallerBytes;
    EXPECT_TRUE(buildSignedMessage(manifest).ends_with("\n536870912\n"));
}

// A verifier that knows one signature of one message under one key.
class TrustedManifest : public testing::Test {
protected:
    TrustedManifest() { sign(); }
    void sign() { signedMessage = buildSignedMessage(manifest); }
    bool trusted() {
        return isManifestStillTrusted(
            manifest, channel,
            [this](std::string_view message, std::string_view signatureHex, const EcPoint& publicKey) {
                ++verified;
                return message == signedMessage && signatureHex == "good" && publicKey == key;
            });
    }

    EcPoint key{std::byte{4}};
    UpdateChannelIdentity channel{"https://updates.example", key};
    UpdateManifest manifest{"0.3.0", installerUrl("0.3.0", channel), std::string(64, 'a'), 1000, "good"};
    std::string signedMessage;
    int verified = 0;
};

TEST_F(TrustedManifest, IsTrustedWhole) {
    EXPECT_TRUE(trusted());
    EXPECT_EQ(verified, 1);
}

TEST_F(TrustedManifest, IsTrustedByItsMessageSignatureAndKeyAlone) {
    manifest.sha256[63] = 'b';
    EXPECT_FALSE(trusted());
    sign();
    EXPECT_TRUE(trusted());
    manifest.signature.clear();
    EXPECT_FALSE(trusted());
    manifest.signature = "good";
    channel.publicKey = {};
    EXPECT_FALSE(trusted());
}

TEST_F(TrustedManifest, IsNotTrustedOutsideTheChannelHoweverSigned) {
    manifest.installerUrl = "https://elsewhere.example/Setup.exe";
    sign();
    EXPECT_FALSE(trusted());
}

TEST_F(TrustedManifest, IsNotTrustedWithASizeOutsideTheLimitsHoweverSigned) {
    for (const std::uint64_t size : {std::uint64_t{0}, kMaxInstallerBytes + 1}) {
        manifest.sizeBytes = size;
        sign();
        EXPECT_FALSE(trusted()) << size;
    }
    for (const std::uint64_t size : {std::uint64_t{1}, kMaxInstallerBytes}) {
        manifest.sizeBytes = size;
        sign();
        EXPECT_TRUE(trusted()) << size;
    }
}

TEST(DefaultManifest, LiesOnTheChannel) {
    EXPECT_EQ(defaultManifestUrl(testChannel()),
              "https://updates.example:8443/camera-virtual-vextra-mf/beta.json");
}

}  // namespace
}  // namespace vextra
