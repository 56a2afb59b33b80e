#include "base/fnv1a.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace vextra {
namespace {

std::uint64_t hashOf(std::string_view text) {
    return fnv1a64(std::as_bytes(std::span(text)));
}

TEST(Fnv1a64, OfNothingIsTheOffsetBasis) {
    EXPECT_EQ(fnv1a64({}), 0xCBF29CE484222325u);
}

TEST(Fnv1a64, GivesThePublishedValues) {
    EXPECT_EQ(hashOf("a"), 0xAF63DC4C8601EC8Cu);
    EXPECT_EQ(hashOf("foobar"), 0x85944171F73967E8u);
}

TEST(Fnv1a64, TakesBytesAsUnsigned) {
    EXPECT_EQ(hashOf("\xFF"), 0xAF64724C8602EB6Eu);
}

TEST(Fnv1a64, CountsZeroBytes) {
    EXPECT_EQ(hashOf({"\0", 1}), 0xAF63BD4C8601B7DFu);
}

TEST(Fnv1a64, DependsOnTheOrderOfBytes) {
    EXPECT_NE(hashOf("ab"), hashOf("ba"));
}

}  // namespace
}  // namespace vextra
