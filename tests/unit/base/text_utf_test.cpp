#include "base/text.h"

#include <gtest/gtest.h>

#include <cwchar>
#include <ostream>
#include <string>

namespace vextra {
namespace {

struct Conversion {
    bool complete;
    std::string bytes;
    bool operator==(const Conversion&) const = default;
};

// gtest prints bytes, not text.
void PrintTo(const Conversion& conversion, std::ostream* out) {
    *out << (conversion.complete ? "complete" : "broken off") << ' '
         << testing::PrintToString(conversion.bytes);
}

Conversion convert(std::wstring_view units) {
    SecretUtf8 out;
    const bool complete = appendUtf8(units, out);
    return {complete, std::string(out.view())};
}

Conversion complete(std::string_view bytes) {
    return {true, std::string(bytes)};
}

Conversion brokenOffAfter(std::string_view bytes) {
    return {false, std::string(bytes)};
}

std::string strictUtf8(std::wstring_view text) {
    return std::string(toUtf8Strict(text).view());
}

TEST(Utf8, OfNothingIsNothing) {
    EXPECT_EQ(convert(L""), complete(""));
}

TEST(Utf8, AppendsToWhatIsThere) {
    SecretUtf8 out("abc");
    EXPECT_TRUE(appendUtf8(L"d", out));
    EXPECT_EQ(out.view(), "abcd");
}

TEST(Utf8, GrowsFromOneToThreeBytesAtTheBordersOfUnicode) {
    const struct {
        wchar_t unit;
        const char* bytes;
    } kBorders[] = {
        {L'\x01', "\x01"},           {L'\x7F', "\x7F"},           {L'\x80', "\xC2\x80"},
        {L'\x7FF', "\xDF\xBF"},      {L'\x800', "\xE0\xA0\x80"},  {L'\xD7FF', "\xED\x9F\xBF"},
        {L'\xE000', "\xEE\x80\x80"}, {L'\xFFFE', "\xEF\xBF\xBE"}, {L'\xFFFF', "\xEF\xBF\xBF"},
    };
    for (const auto& border : kBorders)
        EXPECT_EQ(convert({&border.unit, 1}), complete(border.bytes)) << std::hex << int{border.unit};
}

TEST(Utf8, MakesFourBytesOfASurrogatePair) {
    EXPECT_EQ(convert(L"\xD800\xDC00"), complete("\xF0\x90\x80\x80"));  // U+10000, the first
    EXPECT_EQ(convert(L"\xD83D\xDE00"), complete("\xF0\x9F\x98\x80"));  // U+1F600
    EXPECT_EQ(convert(L"\xDBFF\xDFFF"), complete("\xF4\x8F\xBF\xBF"));  // U+10FFFF, the last
}

TEST(Utf8, TakesAZeroUnitAsAnyOther) {
    EXPECT_EQ(convert({L"a\0b", 3}), complete({"a\0b", 3}));
}

TEST(Utf8, BreaksOffAtAnUnpairedSurrogate) {
    EXPECT_EQ(convert(L"ab\xD800"), brokenOffAfter("ab"));        // high at the end
    EXPECT_EQ(convert(L"ab\xD800z"), brokenOffAfter("ab"));       // high before an ordinary unit
    EXPECT_EQ(convert(L"ab\xD800\xD800"), brokenOffAfter("ab"));  // high before high
    EXPECT_EQ(convert(L"ab\xD800\xE000"), brokenOffAfter("ab"));  // high before the unit above the lows
    EXPECT_EQ(convert(L"ab\xDC00"), brokenOffAfter("ab"));        // low first
    EXPECT_EQ(convert(L"ab\xDFFF\xD800"), brokenOffAfter("ab"));  // the wrong way round
}

TEST(Utf8, ReadsOnAfterAPair) {
    EXPECT_EQ(convert(L"\xD83D\xDE00!"), complete("\xF0\x9F\x98\x80!"));
    EXPECT_EQ(convert(L"\xD83D\xDE00\xDE00"), brokenOffAfter("\xF0\x9F\x98\x80"));
}

#if WCHAR_MAX > 0xFFFF
TEST(Utf8, RefusesWhatIsNoUtf16Unit) {
    EXPECT_EQ(convert(L"a\U0001F600"), brokenOffAfter("a"));
}
#endif

TEST(StrictUtf8, ConvertsWhatDecodersMayTake) {
    EXPECT_EQ(strictUtf8(L"rtsp://h/\xE9"), "rtsp://h/\xC3\xA9");
}

TEST(StrictUtf8, IsEmptyForWhatDecodersMayNotTake) {
    EXPECT_EQ(strictUtf8(L""), "");
    EXPECT_EQ(strictUtf8({L"a\0b", 3}), "");
    EXPECT_EQ(strictUtf8({L"ab\0", 3}), "");
    EXPECT_EQ(strictUtf8(L"abc\xD800"), "");
}

TEST(StrictUtf8, Takes8192UnitsButNotMore) {
    EXPECT_EQ(strictUtf8(std::wstring(8192, L'\xE9')).size(), 16'384u);
    EXPECT_EQ(strictUtf8(std::wstring(8193, L'a')), "");
}

}  // namespace
}  // namespace vextra
