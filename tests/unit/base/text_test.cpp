#include "base/text.h"

#include <gtest/gtest.h>

#include <array>

namespace vextra {
namespace {

TEST(LowerHex, WritesTheHighDigitFirst) {
    constexpr std::array kBytes{std::byte{0x00}, std::byte{0x0F}, std::byte{0xF0}, std::byte{0xAB},
                                std::byte{0xFF}};
    EXPECT_EQ(lowerHex(kBytes), "000ff0abff");
    EXPECT_EQ(lowerHex({}), "");
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

}  // namespace
}  // namespace vextra
