#include "update/channel.h"

#include <gtest/gtest.h>

#include "base/text.h"
#include "update/manifest.h"
#include "update/strict_url.h"

namespace vextra {
namespace {

// Written by OpenSSL from the key of RFC 6979, A.2.5.
constexpr std::string_view kKnownKeyPem = R"(-----BEGIN PUBLIC KEY-----
MFkwEwYHKoZIzj0CAQYIKoZIzj0DAQcDQgAEYP7UuiVanTHJYet0xjVtaMBJuJI7
Yfps5mliLmDyn7Z5A/4QCLi8maQa6elWKLxk8vGyDC1+n1F3o8KU1EYimQ==
-----END PUBLIC KEY-----
)";

TEST(ChannelKey, IsReadFromTheFileThatOpensslWrites) {
    const auto point = publicKeyFromPem(kKnownKeyPem);
    ASSERT_TRUE(point);
    EXPECT_EQ(lowerHex(*point),
              "60fed4ba255a9d31c961eb74c6356d68c049b8923b61fa6ce669622e60f29fb6"
              "7903fe1008b8bc99a41ae9e95628bc64f2f1b20c2d7e9f5177a3c294d4462299");
}

TEST(ChannelKey, IsReadWhileTheBrokerIsCompiled) {
    constexpr auto kPoint = publicKeyFromPem(kKnownKeyPem);
    static_assert(kPoint.has_value());
    EXPECT_EQ((*kPoint)[0], std::byte{0x60});
}

TEST(ChannelKey, IsOnTheOneCurve) {
    // The same point under the name of another curve: prime256v1 has the last byte 7.
    auto info = *decodePem<91>(kKnownKeyPem, kPublicKeyLabel);
    info[22] = std::byte{6};
    EXPECT_FALSE(publicKeyFromPem(encodePem<std::string>(info, kPublicKeyLabel)));
}

TEST(ChannelKey, IsNotReadFromAnythingElse) {
    std::string privateLabel(kKnownKeyPem);
    privateLabel.replace(privateLabel.find("PUBLIC"), 6, "PRIVATE");
    for (const std::string& pem : {std::string(), std::string("key"), privateLabel,
                                   std::string(kKnownKeyPem.substr(0, 100)), std::string(kKnownKeyPem) + "x"})
        EXPECT_FALSE(publicKeyFromPem(pem)) << pem;
}

TEST(BuiltInChannel, NamesAPlaceThatItsOwnRulesAccept) {
    const UpdateChannelIdentity& channel = builtInChannel();
    EXPECT_TRUE(isStrictHttpsUrl(defaultManifestUrl(channel))) << channel.origin;
    EXPECT_FALSE(channel.origin.ends_with('/'));
    const UpdateManifest manifest{"1.0.0", installerUrl("1.0.0", channel), "", 1, ""};
    EXPECT_TRUE(isOfficialInstallerUrl(manifest, channel));
}

TEST(BuiltInChannel, HasAKey) {
    EXPECT_NE(builtInChannel().publicKey, EcPoint{});
}

}  // namespace
}  // namespace vextra
