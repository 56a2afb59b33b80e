#include "base/sha256.h"

#include <windows.h>

#include <bcrypt.h>

#include <gtest/gtest.h>

#include <string>

#include "base/text.h"
#include "import_swap_win.h"

namespace vextra {
namespace {

std::string digestOf(std::string_view text) {
    const auto digest = sha256Of(std::as_bytes(std::span(text)));
    return digest ? lowerHex(*digest) : "failed";
}

// FIPS 180-4's own examples.
TEST(Sha256, IsThatOfTheStandard) {
    EXPECT_EQ(digestOf(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(digestOf("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(digestOf("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
              "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
    EXPECT_EQ(digestOf(std::string(1'000'000, 'a')),
              "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST(Sha256, IsTheSameInPieces) {
    const std::string text = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";
    for (std::size_t cut = 0; cut <= text.size(); ++cut) {
        Sha256 hash;
        EXPECT_TRUE(hash.add(std::as_bytes(std::span(text).first(cut))));
        EXPECT_TRUE(hash.add(std::as_bytes(std::span(text).subspan(cut))));
        EXPECT_EQ(lowerHex(hash.finish().value()),
                  "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
    }
}

TEST(Sha256, IsFinishedOnce) {
    Sha256 hash;
    EXPECT_TRUE(hash.ready());
    EXPECT_TRUE(hash.finish());
    EXPECT_FALSE(hash.ready());
    EXPECT_FALSE(hash.add({}));
    EXPECT_FALSE(hash.finish());
}

NTSTATUS WINAPI failToHash(BCRYPT_HASH_HANDLE, PUCHAR, ULONG, ULONG) {
    return static_cast<NTSTATUS>(0xC0000001);
}

TEST(Sha256, IsNoneWhenTheSystemHasNone) {
    {
        const test::RefusedImport<decltype(BCryptOpenAlgorithmProvider), test::kRefusedStatus> refused(
            "BCryptOpenAlgorithmProvider");
        EXPECT_FALSE(sha256Of({}));
    }
    {
        const test::RefusedImport<decltype(BCryptGetProperty), test::kRefusedStatus> refused(
            "BCryptGetProperty");
        EXPECT_FALSE(sha256Of({}));
    }
    {
        const test::RefusedImport<decltype(BCryptCreateHash), test::kRefusedStatus> refused(
            "BCryptCreateHash");
        EXPECT_FALSE(sha256Of({}));
    }
    const test::RefusedImport<decltype(BCryptFinishHash), test::kRefusedStatus> refused("BCryptFinishHash");
    EXPECT_FALSE(sha256Of({}));
}

TEST(Sha256, FailsForGoodWhenThePieceFails) {
    Sha256 hash;
    {
        const test::ImportSwap<decltype(failToHash)> swap("BCryptHashData", failToHash);
        EXPECT_FALSE(hash.add({}));
    }
    EXPECT_FALSE(hash.add({}));
    EXPECT_FALSE(hash.finish());
}

}  // namespace
}  // namespace vextra
