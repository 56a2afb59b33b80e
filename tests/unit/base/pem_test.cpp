#include "base/pem.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace vextra {
namespace {

std::vector<std::byte> bytesFrom(std::string_view text) {
    const auto bytes = std::as_bytes(std::span(text));
    return {bytes.begin(), bytes.end()};
}

template <std::size_t Bytes>
std::string decoded(std::string_view pem) {
    const auto bytes = decodePem<Bytes>(pem, "X");
    return bytes ? std::string(reinterpret_cast<const char*>(bytes->data()), Bytes) : "refused";
}

// The examples of RFC 4648, section 10.
TEST(Pem, HoldsTheStandardsBase64) {
    EXPECT_EQ(decoded<1>("-----BEGIN X-----\nZg==\n-----END X-----\n"), "f");
    EXPECT_EQ(decoded<2>("-----BEGIN X-----\nZm8=\n-----END X-----\n"), "fo");
    EXPECT_EQ(decoded<3>("-----BEGIN X-----\nZm9v\n-----END X-----\n"), "foo");
    EXPECT_EQ(decoded<4>("-----BEGIN X-----\nZm9vYg==\n-----END X-----\n"), "foob");
    EXPECT_EQ(decoded<6>("-----BEGIN X-----\nZm9vYmFy\n-----END X-----\n"), "foobar");
    EXPECT_EQ(encodePem<std::string>(bytesFrom("foob"), "X"),
              "-----BEGIN X-----\nZm9vYg==\n-----END X-----\n");
}

TEST(Pem, TakesEitherKindOfLineBreak) {
    EXPECT_EQ(decoded<6>("-----BEGIN X-----\r\nZm9v\r\nYmFy\r\n-----END X-----\r\n"), "foobar");
    EXPECT_EQ(decoded<3>("\n-----BEGIN X-----\nZm9v\n-----END X-----"), "foo");
}

TEST(Pem, RefusesWhatIsNotExactlyThatBlock) {
    for (const char* pem :
         {"", "Zm9v", "-----BEGIN X-----", "-----BEGIN X-----\nZm9v\n",
          "-----BEGIN X\nZm9v\n-----END X-----\n", "-----BEGIN X-----\nZm9v\n-----END X",
          "-----BEGIN X-----\nZm9v\n-----END Y-----\n", "-----BEGIN Y-----\nZm9v\n-----END Y-----\n",
          "-----BEGIN X-----\nZm9\n-----END X-----\n", "-----BEGIN X-----\nZm9vZg==\n-----END X-----\n",
          "-----BEGIN X-----\nZm9v=\n-----END X-----\n", "-----BEGIN X-----\nZm 9v\n-----END X-----\n",
          "-----BEGIN X-----\nZm9*\n-----END X-----\n", "text\n-----BEGIN X-----\nZm9v\n-----END X-----\n",
          "-----BEGIN X-----\nZm9v\n-----END X-----\ntext",
          "-----BEGIN X-----\nZm9v\n-----END X-----\n-----BEGIN X-----\nZm9v\n-----END X-----\n"})
        EXPECT_EQ(decoded<3>(pem), "refused") << pem;
}

TEST(Pem, RefusesBitsBehindTheLastByte) {
    EXPECT_EQ(decoded<1>("-----BEGIN X-----\nZh==\n-----END X-----\n"), "refused");
    EXPECT_EQ(decoded<2>("-----BEGIN X-----\nZm9=\n-----END X-----\n"), "refused");
}

TEST(Pem, GivesBackWhatWasWritten) {
    std::mt19937 random(1);
    std::vector<std::byte> bytes(138);
    for (int round = 0; round < 200; ++round) {
        for (std::byte& byte : bytes)
            byte = static_cast<std::byte>(random());
        const auto pem = encodePem<std::string>(bytes, "PRIVATE KEY");
        const auto again = decodePem<138>(pem, "PRIVATE KEY");
        ASSERT_TRUE(again) << pem;
        EXPECT_TRUE(std::equal(again->begin(), again->end(), bytes.begin()));
    }
}

TEST(Pem, HasLinesOf64Digits) {
    const auto pem = encodePem<std::string>(std::vector<std::byte>(49), "X");
    EXPECT_EQ(pem, "-----BEGIN X-----\n" + std::string(64, 'A') + "\nAA==\n-----END X-----\n");
}

}  // namespace
}  // namespace vextra
