#include <gtest/gtest.h>
#include <windows.h>

#include <random>
#include <string>

#include "base/text.h"

namespace vextra {
namespace {

// What the system says; empty means that it refuses.
std::string systemUtf8(const std::wstring& units) {
    char bytes[256];
    const int written =
        WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, units.data(), static_cast<int>(units.size()),
                            bytes, sizeof bytes, nullptr, nullptr);
    return {bytes, static_cast<std::size_t>(written)};
}

std::string ownUtf8(const std::wstring& units) {
    SecretUtf8 out;
    return appendUtf8(units, out) ? std::string(out.view()) : std::string();
}

TEST(Utf8, AgreesWithTheSystemOnEveryUnit) {
    for (unsigned unit = 0; unit <= 0xFFFF; ++unit) {
        const std::wstring text(1, static_cast<wchar_t>(unit));
        ASSERT_EQ(ownUtf8(text), systemUtf8(text)) << std::hex << unit;
    }
}

TEST(Utf8, AgreesWithTheSystemOnPairsFromEveryCornerOfUnicode) {
    constexpr wchar_t kCorners[] = {0x0041, 0x07FF, 0xD7FF, 0xD800, 0xD801, 0xDBFF,
                                    0xDC00, 0xDC01, 0xDFFF, 0xE000, 0xFFFF};
    for (const wchar_t first : kCorners) {
        for (const wchar_t second : kCorners) {
            const std::wstring text{first, second};
            ASSERT_EQ(ownUtf8(text), systemUtf8(text)) << std::hex << int{first} << ' ' << int{second};
        }
    }
}

TEST(Utf8, AgreesWithTheSystemOnMixedText) {
    std::mt19937 random(20'012);  // the same texts in every run
    std::uniform_int_distribution<int> anyUnit(0, 0xFFFF);
    std::uniform_int_distribution<int> anySurrogate(0xD800, 0xDFFF);
    std::uniform_int_distribution<std::size_t> anyLength(1, 12);
    int accepted = 0;
    for (int round = 0; round < 50'000; ++round) {
        std::wstring text(anyLength(random), L'\0');
        for (wchar_t& unit : text)
            unit = static_cast<wchar_t>(random() % 3 == 0 ? anySurrogate(random) : anyUnit(random));
        const std::string expected = systemUtf8(text);
        accepted += !expected.empty();
        ASSERT_EQ(ownUtf8(text), expected) << "round " << round;
    }
    EXPECT_GT(accepted, 5000);  // both verdicts have been compared
    EXPECT_LT(accepted, 45'000);
}

TEST(Utf8, AgreesWithTheSystemOnEveryCharacterBeyondTheFirstPlane) {
    for (std::uint32_t point = 0x10000; point <= 0x10FFFF; point += 7) {
        const std::wstring text{static_cast<wchar_t>(0xD800 + ((point - 0x10000) >> 10)),
                                static_cast<wchar_t>(0xDC00 + (point & 0x3FF))};
        ASSERT_EQ(ownUtf8(text), systemUtf8(text)) << std::hex << point;
    }
}

}  // namespace
}  // namespace vextra
