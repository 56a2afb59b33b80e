#include "base/text.h"

#include <gtest/gtest.h>

#include <string_view>

namespace vextra {
namespace {

std::optional<std::uint32_t> parse(std::wstring_view text) {
    return parseWholeNumber(text.data(), text.size());
}

TEST(WholeNumber, IsDecimal) {
    EXPECT_EQ(parse(L"0"), 0u);
    EXPECT_EQ(parse(L"5000"), 5000u);
    EXPECT_EQ(parse(L"4294967295"), 4294967295u);
}

TEST(WholeNumber, MayBeginWithWhiteSpaceASignOrZeros) {
    for (const wchar_t* text : {L" 12", L"\t\r\n 12", L"+12", L" +12", L"0012"})
        EXPECT_EQ(parse(text), 12u);
}

TEST(WholeNumber, IsTheWholeText) {
    for (const std::wstring_view text :
         {std::wstring_view(L"12ms"), std::wstring_view(L"12 "), std::wstring_view(L"1.5"),
          std::wstring_view(L"1,000"), std::wstring_view(L"0x10"), std::wstring_view(L"1e3"),
          std::wstring_view(L"50\0", 3), std::wstring_view(L"50\0ms", 5)})
        EXPECT_EQ(parse(text), std::nullopt) << std::wstring(text);
}

TEST(WholeNumber, IsNothingWithoutADigit) {
    for (const wchar_t* text : {L"", L" ", L"+", L"-", L"+-1", L"- 1", L"ms"})
        EXPECT_EQ(parse(text), std::nullopt) << text;
}

TEST(WholeNumber, StopsAtTheLargestOf32Bits) {
    for (const wchar_t* text : {L"4294967296", L"18446744073709551616", L"99999999999999999999",
                                L"-4294967296", L"-99999999999999999999"})
        EXPECT_EQ(parse(text), 4294967295u) << text;
}

// So the conversion of the C library does it.
TEST(WholeNumber, WrapsAtTwoToTheThirtySecondWhenItIsNegative) {
    EXPECT_EQ(parse(L"-1"), 4294967295u);
    EXPECT_EQ(parse(L"-4294967295"), 1u);
    EXPECT_EQ(parse(L"-4294967246"), 50u);
    EXPECT_EQ(parse(L"-0"), 0u);
}

}  // namespace
}  // namespace vextra
