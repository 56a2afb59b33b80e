#include "base/product.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string_view>
#include <vector>

#include "base/text.h"

namespace vextra {
namespace {

// The numbers of a version, in order.
std::vector<std::uint32_t> numbersIn(std::string_view version) {
    std::vector<std::uint32_t> numbers;
    bool within = false;
    for (const char c : version) {
        if (isAsciiDigit(c)) {
            if (!within)
                numbers.push_back(0);
            numbers.back() = numbers.back() * 10 + static_cast<std::uint32_t>(c - '0');
        }
        within = isAsciiDigit(c);
    }
    return numbers;
}

// What Windows compares is what people read; a version without a pre-release has 0 in the fourth place.
TEST(ProductVersion, OfTheResourceIsTheOneInWords) {
    std::vector<std::uint32_t> inWords = numbersIn(VEXTRA_VERSION);
    if (inWords.size() == 3)
        inWords.push_back(0);
    EXPECT_EQ(inWords, (std::vector<std::uint32_t>{VEXTRA_VERSION_NUMBERS}));
}

}  // namespace
}  // namespace vextra
