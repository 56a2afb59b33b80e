#include "signer/signer_win.h"

#include <windows.h>

#include <bcrypt.h>

#include <gtest/gtest.h>

#include "base/sha256.h"
#include "base/text.h"
#include "import_swap_win.h"
#include "update/channel.h"
#include "update/json_reader.h"
#include "update/signature.h"

namespace vextra {
namespace {

class ChannelSigner : public testing::Test {
protected:
    void SetUp() override {
        key = generateSigningKey().value();
        writeFile(setup, bytes);
    }
    SignerReport publish(const std::wstring& version = L"0.3.0",
                         const std::wstring& origin = L"https://h:1") const {
        return publishRelease({setup, version, origin, folder.path(), publicKey}, key);
    }
    std::wstring channelFile(const std::wstring& name) const {
        return folder / (L"camera-virtual-vextra-mf\\" + name);
    }
    void expectRefused(const SignerReport& report) const {
        EXPECT_FALSE(report.ok());
        EXPECT_TRUE(report.lines.empty());
        EXPECT_FALSE(fileExists(channelFile(L"beta.json")));
        EXPECT_FALSE(fileExists(channelFile(L"beta.json.new")));
        EXPECT_FALSE(fileExists(channelFile(L"0.3.0")));
    }

    SigningKey key;
    std::wstring publicKey;  // its file, where the publisher names one
    const TemporaryFolder folder;
    const std::wstring setup = folder / L"a setup.exe";
    const std::string bytes = std::string(100'000, 's');
};

TEST_F(ChannelSigner, WritesWhatTheServerHandsOut) {
    const SignerReport report = publish();
    ASSERT_TRUE(report.ok());
    EXPECT_EQ(report.lines, (std::vector<std::wstring>{channelFile(L"0.3.0\\Setup.exe"),
                                                       channelFile(L"0.3.0\\Setup.exe.sig.json"),
                                                       channelFile(L"beta.json")}));
    EXPECT_EQ(readFile(channelFile(L"0.3.0\\Setup.exe")), bytes);
    const auto manifest = parseUpdateManifest(readFile(channelFile(L"beta.json")));
    ASSERT_TRUE(manifest);
    EXPECT_EQ(manifest->version, "0.3.0");
    EXPECT_EQ(manifest->installerUrl, "https://h:1/camera-virtual-vextra-mf/0.3.0/Setup.exe");
    EXPECT_EQ(manifest->sha256, lowerHex(sha256Of(std::as_bytes(std::span(bytes))).value()));
    EXPECT_EQ(manifest->sizeBytes, bytes.size());
    const auto document = parseJsonDocument(readFile(channelFile(L"0.3.0\\Setup.exe.sig.json")));
    ASSERT_TRUE(document);
    EXPECT_TRUE(verifyManifestSignature(buildSignedMessage(*manifest),
                                        findMember(*document, "signature", JsonKind::kString)->text,
                                        key.point));
    EXPECT_FALSE(fileExists(channelFile(L"beta.json.new")));
}

TEST_F(ChannelSigner, AnnouncesTheNewestAndKeepsTheOthers) {
    EXPECT_TRUE(publish(L"0.3.0").ok());
    EXPECT_TRUE(publish(L"0.3.1+7").ok());
    EXPECT_EQ(parseUpdateManifest(readFile(channelFile(L"beta.json")))->version, "0.3.1+7");
    EXPECT_TRUE(fileExists(channelFile(L"0.3.0\\Setup.exe")));
}

TEST_F(ChannelSigner, PublishesAVersionOnce) {
    EXPECT_TRUE(publish().ok());
    const std::string manifest = readFile(channelFile(L"beta.json"));
    writeFile(setup, "another");
    EXPECT_FALSE(publish().ok());
    EXPECT_EQ(readFile(channelFile(L"beta.json")), manifest);
    EXPECT_EQ(readFile(channelFile(L"0.3.0\\Setup.exe")), bytes);
}

TEST_F(ChannelSigner, RefusesWhatIsNoVersion) {
    for (const wchar_t* version : {L"0.3", L"v0.3.0", L"0.3.0-beta.05", L"..", L"0.3.0/..", L"0.3.0-é", L""})
        expectRefused(publish(version));
}

TEST_F(ChannelSigner, RefusesWhatIsNoOrigin) {
    for (const wchar_t* origin :
         {L"", L"http://h", L"https://h/", L"https://h/x", L"https://é", L"https://u@h", L"h", L"https://H"})
        expectRefused(publish(L"0.3.0", origin));
}

TEST_F(ChannelSigner, AnnouncesAnOlderVersionNotWithoutAWord) {
    EXPECT_EQ(publish(L"0.3.1").lines.size(), 3u);
    const SignerReport report = publish(L"0.3.0");
    EXPECT_TRUE(report.ok());
    ASSERT_EQ(report.lines.size(), 4u);
    EXPECT_EQ(report.lines[3], L"NOTE: older than what was announced until now: 0.3.1");
    EXPECT_EQ(publish(L"0.3.2").lines.size(), 3u);
}

TEST_F(ChannelSigner, SignsWithTheKeyOfTheBrokersAlone) {
    publicKey = folder / L"public.pem";
    expectRefused(publish());  // no such file
    writeFile(publicKey, publicKeyPem(generateSigningKey()->point));
    expectRefused(publish());
    writeFile(publicKey, publicKeyPem(key.point));
    EXPECT_TRUE(publish().ok());
}

TEST_F(ChannelSigner, RefusesAnInstallerOfAnImpossibleSize) {
    writeFile(setup, "");
    expectRefused(publish());
    makeFile(setup, 536'870'913);
    expectRefused(publish());
    DeleteFileW(setup.c_str());
    expectRefused(publish());
}

TEST_F(ChannelSigner, RefusesAKeyWhoseHalvesAreOfTwo) {
    key.point = generateSigningKey()->point;
    expectRefused(publish());
}

NTSTATUS WINAPI refuseToVerify(BCRYPT_KEY_HANDLE, void*, PUCHAR, ULONG, PUCHAR, ULONG, ULONG) {
    return static_cast<NTSTATUS>(0xC000A000);
}

TEST_F(ChannelSigner, PublishesNothingThatTheBrokerWouldRefuse) {
    const test::ImportSwap<decltype(refuseToVerify)> swap("BCryptVerifySignature", refuseToVerify);
    expectRefused(publish());
}

TEST_F(ChannelSigner, KeepsTheOldAnnouncementWhenANewReleaseIsRefused) {
    EXPECT_TRUE(publish(L"0.2.9").ok());
    const std::string manifest = readFile(channelFile(L"beta.json"));
    const test::ImportSwap<decltype(refuseToVerify)> swap("BCryptVerifySignature", refuseToVerify);
    EXPECT_FALSE(publish().ok());
    EXPECT_EQ(readFile(channelFile(L"beta.json")), manifest);
    EXPECT_FALSE(fileExists(channelFile(L"0.3.0")));
}

TEST_F(ChannelSigner, MakesAPairThatFitsTogether) {
    const std::wstring privatePath = folder / L"private.pem";
    const std::wstring publicPath = folder / L"public.pem";
    ASSERT_TRUE(makeKeyFiles(privatePath, publicPath).ok());
    const auto made = readSigningKey(privatePath);
    ASSERT_TRUE(made);
    EXPECT_EQ(publicKeyFromPem(readFile(publicPath)), made->point);
    const std::string signature = signMessage("x", *made).value();
    EXPECT_TRUE(verifyManifestSignature("x", signature, made->point));
}

TEST_F(ChannelSigner, OverwritesNoKey) {
    const std::wstring privatePath = folder / L"private.pem";
    const std::wstring publicPath = folder / L"public.pem";
    writeFile(publicPath, "mine");
    EXPECT_FALSE(makeKeyFiles(privatePath, publicPath).ok());
    EXPECT_EQ(readFile(publicPath), "mine");
    EXPECT_FALSE(fileExists(privatePath));
    writeFile(privatePath, "mine");
    EXPECT_FALSE(makeKeyFiles(privatePath, folder / L"other.pem").ok());
    EXPECT_EQ(readFile(privatePath), "mine");
}

TEST_F(ChannelSigner, ReadsNoOtherFileAsAKey) {
    EXPECT_FALSE(readSigningKey(setup));
    EXPECT_FALSE(readSigningKey(folder / L"missing.pem"));
}

}  // namespace
}  // namespace vextra
