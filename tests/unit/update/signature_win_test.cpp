#include "update/signature.h"

#include <windows.h>

#include <bcrypt.h>

#include <gtest/gtest.h>

#include <algorithm>

#include "base/text.h"
#include "import_swap_win.h"
#include "signature_vectors.h"
#include "signer/signer_win.h"
#include "update/manifest.h"

namespace vextra {
namespace {

using test::ImportSwap;
using test::kSignatureVectors;
using test::SignatureVector;

constexpr std::string_view kGroupOrder = "ffffffff00000000ffffffffffffffffbce6faada7179e84f3b9cac2fc632551";
const std::string kZero(64, '0');

std::string bytesOfHex(std::string_view hex) {
    std::string bytes;
    for (std::size_t i = 0; i < hex.size(); i += 2)
        bytes.push_back(static_cast<char>(hexDigitValue(hex[i]) * 16 + hexDigitValue(hex[i + 1])));
    return bytes;
}
EcPoint pointOf(const SignatureVector& vector) {
    return *bytesFromHex<sizeof(EcPoint)>(vector.point);
}
bool verifies(const SignatureVector& vector, std::string_view signature) {
    return verifyManifestSignature(bytesOfHex(vector.message), signature, pointOf(vector));
}

TEST(Signature, IsJudgedAsOthersJudgeIt) {
    int good = 0;
    for (const SignatureVector& vector : kSignatureVectors) {
        EXPECT_EQ(verifies(vector, vector.signature), vector.verifies)
            << vector.source << ' ' << vector.signature;
        good += vector.verifies ? 1 : 0;
    }
    EXPECT_EQ(good, 13);
}

TEST(Signature, MayBeWrittenInEitherCase) {
    for (const SignatureVector& vector : kSignatureVectors) {
        std::string upper(vector.signature);
        for (char& c : upper)
            c = static_cast<char>(std::toupper(c));
        EXPECT_EQ(verifies(vector, upper), vector.verifies);
    }
}

TEST(Signature, FailsWithAnyBitOfItFlipped) {
    const SignatureVector& vector = kSignatureVectors[std::size(kSignatureVectors) - 1];
    ASSERT_TRUE(verifies(vector, vector.signature));
    const EcSignature good = *bytesFromHex<sizeof(EcSignature)>(vector.signature);
    for (std::size_t bit = 0; bit < good.size() * 8; ++bit) {
        EcSignature bad = good;
        bad[bit / 8] ^= static_cast<std::byte>(1 << bit % 8);
        EXPECT_FALSE(verifies(vector, lowerHex(bad))) << bit;
    }
}

TEST(Signature, FailsWithAnyBitOfTheMessageFlipped) {
    const SignatureVector& vector = kSignatureVectors[std::size(kSignatureVectors) - 1];
    const std::string good = bytesOfHex(vector.message);
    for (std::size_t bit = 0; bit < good.size() * 8; ++bit) {
        std::string bad = good;
        bad[bit / 8] = static_cast<char>(bad[bit / 8] ^ 1 << bit % 8);
        EXPECT_FALSE(verifyManifestSignature(bad, vector.signature, pointOf(vector))) << bit;
    }
    EXPECT_FALSE(verifyManifestSignature(good + '\n', vector.signature, pointOf(vector)));
    EXPECT_FALSE(verifyManifestSignature("", vector.signature, pointOf(vector)));
}

TEST(Signature, FailsUnderAnotherKey) {
    const SignatureVector& vector = kSignatureVectors[std::size(kSignatureVectors) - 1];
    const SignatureVector& other = kSignatureVectors[std::size(kSignatureVectors) - 2];
    EXPECT_FALSE(verifyManifestSignature(bytesOfHex(vector.message), vector.signature, pointOf(other)));
    EXPECT_FALSE(verifyManifestSignature(bytesOfHex(vector.message), vector.signature, EcPoint{}));
}

TEST(Signature, FailsWithNumbersOutsideTheGroup) {
    for (const SignatureVector& vector : kSignatureVectors) {
        const std::string r(vector.signature.substr(0, 64));
        const std::string s(vector.signature.substr(64));
        const std::string order(kGroupOrder);
        for (const std::string& bad : {kZero + s, r + kZero, kZero + kZero, order + s, r + order,
                                       order + order, std::string(64, 'f') + s, r + std::string(64, 'f')})
            EXPECT_FALSE(verifies(vector, bad)) << bad;
    }
}

TEST(Signature, OfTheSignerVerifies) {
    const auto key = generateSigningKey();
    ASSERT_TRUE(key);
    for (const char* message : {"", "x", "CameraVirtualVextraMF\nbeta\n"}) {
        const auto signature = signMessage(message, *key);
        ASSERT_TRUE(signature);
        EXPECT_TRUE(verifyManifestSignature(message, *signature, key->point));
        EXPECT_FALSE(verifyManifestSignature(std::string(message) + "y", *signature, key->point));
    }
}

int verifierCalls = 0;
NTSTATUS WINAPI countVerifierCalls(BCRYPT_KEY_HANDLE, void*, PUCHAR, ULONG, PUCHAR, ULONG, ULONG) {
    ++verifierCalls;
    return 0;  // would be a success
}

TEST(Signature, ThatIsMalformedNeverReachesTheVerifier) {
    const ImportSwap<decltype(countVerifierCalls)> swap("BCryptVerifySignature", countVerifierCalls);
    verifierCalls = 0;
    const SignatureVector& vector = kSignatureVectors[0];
    for (const std::string& bad :
         {std::string(), std::string(127, 'a'), std::string(129, 'a'), std::string(127, 'a') + 'g'})
        EXPECT_FALSE(verifies(vector, bad));
    EXPECT_EQ(verifierCalls, 0);
    EXPECT_TRUE(verifies(vector, std::string(128, 'a')));
    EXPECT_EQ(verifierCalls, 1);
}

// Windows tells success by zero and above; a warning would be above too.
NTSTATUS WINAPI refuseToVerify(BCRYPT_KEY_HANDLE, void*, PUCHAR, ULONG, PUCHAR, ULONG, ULONG) {
    return static_cast<NTSTATUS>(0xC000A000);
}

TEST(Signature, IsRefusedWhenTheSystemCannotVerify) {
    const SignatureVector& vector = *std::ranges::find(kSignatureVectors, true, &SignatureVector::verifies);
    ASSERT_TRUE(verifies(vector, vector.signature));
    {
        const test::RefusedImport<decltype(BCryptOpenAlgorithmProvider), test::kRefusedStatus> refused(
            "BCryptOpenAlgorithmProvider");
        EXPECT_FALSE(verifies(vector, vector.signature));
    }
    {
        const test::RefusedImport<decltype(BCryptHashData), test::kRefusedStatus> refused("BCryptHashData");
        EXPECT_FALSE(verifies(vector, vector.signature));
    }
    const test::RefusedImport<decltype(BCryptImportKeyPair), test::kRefusedStatus> refused(
        "BCryptImportKeyPair");
    EXPECT_FALSE(verifies(vector, vector.signature));
}

TEST(Signature, IsRefusedWhenTheSystemSaysSo) {
    const ImportSwap<decltype(refuseToVerify)> swap("BCryptVerifySignature", refuseToVerify);
    for (const SignatureVector& vector : kSignatureVectors)
        EXPECT_FALSE(verifies(vector, vector.signature));
}

class SignedManifest : public testing::Test {
protected:
    void SetUp() override {
        const auto made = generateSigningKey();
        ASSERT_TRUE(made);
        key = *made;
        channel = {"https://updates.example", key.point};
        manifest = {"0.3.0", installerUrl("0.3.0", channel), std::string(64, 'a'), 1000, ""};
        sign();
    }
    void sign() { manifest.signature = signMessage(buildSignedMessage(manifest), key).value(); }
    bool trusted() const { return isManifestStillTrusted(manifest, channel, verifyManifestSignature); }

    SigningKey key;
    UpdateChannelIdentity channel;
    UpdateManifest manifest;
};

TEST_F(SignedManifest, IsTrustedWhole) {
    EXPECT_TRUE(trusted());
}

TEST_F(SignedManifest, IsNotTrustedWithAnyFieldChanged) {
    const UpdateManifest good = manifest;
    manifest.version = "0.3.1";
    EXPECT_FALSE(trusted());
    manifest = good;
    manifest.sizeBytes = 1001;
    EXPECT_FALSE(trusted());
    manifest = good;
    manifest.sha256[63] = 'b';
    EXPECT_FALSE(trusted());
    manifest = good;
    manifest.signature.clear();
    EXPECT_FALSE(trusted());
}

// Its message has other letters, though it is the same digest.
TEST_F(SignedManifest, IsNotTrustedWithItsDigestInTheOtherCase) {
    manifest.sha256 = std::string(64, 'A');
    EXPECT_FALSE(trusted());
    sign();
    EXPECT_TRUE(trusted());
}

}  // namespace
}  // namespace vextra
