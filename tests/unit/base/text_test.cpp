#include "base/text.h"

#include <gtest/gtest.h>

#include <array>
#include <cctype>

namespace vextra {
namespace {

TEST(LowerHex, WritesTheHighDigitFirst) {
    constexpr std::array kBytes{std::byte{0x00}, std::byte{0x0F}, std::byte{0xF0}, std::byte{0xAB},
                                std::byte{0xFF}};
    EXPECT_EQ(lowerHex(kBytes), "000ff0abff");
    EXPECT_EQ(lowerHex({}), "");
}

TEST(BytesFromHex, TakesDigitsInEitherCase) {
    const std::string lower = "0123456789abcdef" + std::string(112, 'f');
    std::string upper = lower;
    for (char& c : upper)
        c = static_cast<char>(std::toupper(c));
    const auto bytes = bytesFromHex<64>(lower);
    ASSERT_TRUE(bytes);
    EXPECT_EQ(lowerHex(*bytes), lower);
    EXPECT_EQ(bytesFromHex<64>(upper), bytes);
}

TEST(BytesFromHex, TakesNothingElse) {
    const std::string good(128, 'a');
    EXPECT_FALSE(bytesFromHex<64>(""));
    EXPECT_FALSE(bytesFromHex<64>(good.substr(1)));
    EXPECT_FALSE(bytesFromHex<64>(good + 'a'));
    for (const std::size_t at : {0u, 1u, 63u, 64u, 126u, 127u}) {
        for (const char wrong : {'g', ' ', '\0', '/', ':', '@', 'G', '`', '\xFF'}) {
            std::string bad = good;
            bad[at] = wrong;
            EXPECT_FALSE(bytesFromHex<64>(bad)) << at << ' ' << int{wrong};
        }
    }
}

TEST(HexDigit, IsOneOf22Characters) {
    const std::string_view lower = "0123456789abcdef";
    const std::string_view upper = "0123456789ABCDEF";
    int digits = 0;
    for (int c = -128; c < 128; ++c) {
        const int value = hexDigitValue(static_cast<char>(c));
        if (value < 0)
            continue;
        ++digits;
        const auto place = static_cast<std::size_t>(value);
        EXPECT_TRUE(lower[place] == static_cast<char>(c) || upper[place] == static_cast<char>(c)) << c;
    }
    EXPECT_EQ(digits, 22);
}

TEST(AsciiCase, IsThatOfAToZAlone) {
    EXPECT_TRUE(equalsIgnoringAsciiCase<char>("AZaz09", "azAZ09"));
    EXPECT_FALSE(equalsIgnoringAsciiCase<char>("a", "ab"));
    EXPECT_FALSE(equalsIgnoringAsciiCase<char>("@[", "`{"));
    EXPECT_FALSE(equalsIgnoringAsciiCase<wchar_t>(L"É", L"é"));
    EXPECT_FALSE(equalsIgnoringAsciiCase<wchar_t>(L"\x212A", L"k"));  // the sign for kelvin
}

TEST(WidenedAscii, KeepsEveryValue) {
    EXPECT_EQ(widenedAscii("0.2.1+a~"), L"0.2.1+a~");
    EXPECT_EQ(widenedAscii("\xE9"), L"\xE9");
}

TEST(NarrowedAscii, KeepsAscii) {
    EXPECT_EQ(narrowedAscii(L"https://h/\x7F").view(), "https://h/\x7F");
    EXPECT_EQ(narrowedAscii(std::wstring(8192, L'a')).size(), 8192u);
}

TEST(NarrowedAscii, IsEmptyForEverythingElse) {
    for (const wchar_t* text : {L"", L"https://h/é", L"https://h/\x80", L"https://\x0261/", L"\xFFFF"})
        EXPECT_TRUE(narrowedAscii(text).empty());
}

}  // namespace
}  // namespace vextra
