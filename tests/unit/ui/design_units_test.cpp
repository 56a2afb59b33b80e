#include "ui/design_units.h"

#include <gtest/gtest.h>

#include <limits>

#ifdef _WIN32
#include <windows.h>
#endif

namespace vextra {
namespace {

TEST(MulDiv, RoundsToTheNearestAndHalvesAwayFromZero) {
    const struct {
        int number, numerator, denominator, result;
    } kCases[] = {
        {0, 144, 96, 0},    {1, 144, 96, 2},      {-1, 144, 96, -2}, {3, 144, 96, 5},   {-3, 144, 96, -5},
        {1, 120, 96, 1},    {2, 120, 96, 3},      {-2, 120, 96, -3}, {3, 120, 96, 4},   {28, 120, 96, 35},
        {7, 96, 120, 6},    {5, 96, 120, 4},      {1, 96, 192, 1},   {-1, 96, 192, -1}, {3, 96, 192, 2},
        {1, 1, 3, 0},       {2, 1, 3, 1},         {-1, 1, 3, 0},     {-2, 1, 3, -1},    {4, -5, 8, -3},
        {980, 96, 96, 980}, {980, 192, 96, 1960}, {-7, -3, 2, 11},
    };
    for (const auto& [number, numerator, denominator, result] : kCases)
        EXPECT_EQ(mulDiv(number, numerator, denominator), result)
            << number << " * " << numerator << " / " << denominator;
}

TEST(MulDiv, HoldsAProductThatNeeds64Bits) {
    constexpr int kMax = std::numeric_limits<int>::max();
    EXPECT_EQ(mulDiv(kMax, kMax, kMax), kMax);
    EXPECT_EQ(mulDiv(-kMax, kMax, kMax), -kMax);
    EXPECT_EQ(mulDiv(2'000'000'000, 3, 4), 1'500'000'000);
}

TEST(DesignUnits, AreA96thOfAnInch) {
    EXPECT_EQ(pixelsFromDesign(100, 96), 100);
    EXPECT_EQ(pixelsFromDesign(100, 120), 125);
    EXPECT_EQ(pixelsFromDesign(100, 144), 150);
    EXPECT_EQ(pixelsFromDesign(100, 192), 200);
    EXPECT_EQ(designFromPixels(125, 120), 100);
    EXPECT_EQ(designFromPixels(1919, 120), 1535);
}

// A scale of 100 % or more has a pixel of its own for every length.
TEST(DesignUnits, ComeBackFromPixelsAsTheyWere) {
    for (const int dpi : {96, 120, 144, 168, 192, 288}) {
        for (int length = -50; length <= 2000; ++length)
            ASSERT_EQ(designFromPixels(pixelsFromDesign(length, dpi), dpi), length) << dpi;
    }
}

#ifdef _WIN32
TEST(MulDiv, GivesWhatTheSystemGives) {
    for (const int denominator : {1, 2, 3, 95, 96, 97, 120, 144, 192, 1'000'000}) {
        for (const int numerator : {-192, -97, -1, 0, 1, 95, 96, 97, 120, 144, 168, 192, 960}) {
            for (int number = -3000; number <= 3000; ++number)
                ASSERT_EQ(mulDiv(number, numerator, denominator), MulDiv(number, numerator, denominator))
                    << number << " * " << numerator << " / " << denominator;
        }
    }
}

TEST(MulDiv, GivesWhatTheSystemGivesForLargeNumbers) {
    constexpr int kMax = std::numeric_limits<int>::max();
    for (int number = -kMax; number < kMax - 7'654'321; number += 7'654'321)
        ASSERT_EQ(mulDiv(number, 96, 120), MulDiv(number, 96, 120)) << number;
}
#endif

}  // namespace
}  // namespace vextra
