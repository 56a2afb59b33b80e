#include "update/version.h"

#include <gtest/gtest.h>

namespace vextra {
namespace {

// Each ranks below the next, and no two rank the same.
void expectAscending(const std::vector<std::string>& versions) {
    for (std::size_t a = 0; a < versions.size(); ++a) {
        for (std::size_t b = 0; b < versions.size(); ++b)
            EXPECT_EQ(compareVersions(versions[a], versions[b]), a < b   ? -1
                                                                 : a > b ? 1
                                                                         : 0)
                << versions[a] << " and " << versions[b];
    }
}

TEST(Version, HasThreeNumbersAndMayHaveMore) {
    const auto version = parseVersion("1.22.333-rc.1.x-y+build.007");
    ASSERT_TRUE(version);
    EXPECT_EQ(version->core, (std::array<std::uint32_t, 3>{1, 22, 333}));
    EXPECT_EQ(version->preRelease, (std::vector<std::string>{"rc", "1", "x-y"}));
}

TEST(Version, OfThisBrokerIsOne) {
    EXPECT_EQ(kBrokerVersion, "0.2.0-beta.5");
    EXPECT_TRUE(parseVersion(kBrokerVersion));
}

TEST(Version, IsAcceptedInEveryShapeOfTheStandard) {
    for (const char* text : {"0.0.0",
                             "0.0.4",
                             "1.2.3",
                             "10.20.30",
                             "4294967295.4294967295.4294967295",
                             "1.1.2-prerelease+meta",
                             "1.1.2+meta",
                             "1.1.2+meta-valid",
                             "1.0.0-alpha",
                             "1.0.0-alpha.beta.1",
                             "1.0.0-alpha.0valid",
                             "1.0.0-alpha-a.b-c-somethinglong+build.1-aef.1-its-okay",
                             "1.0.0-rc.1+build.1",
                             "2.0.0-rc.1+build.123",
                             "1.2.3----RC-SNAPSHOT.12.9.1--.12+788",
                             "1.2.3----R-S.12.9.1--.12+meta",
                             "1.0.0-0A.is.legal",
                             "1.0.0-0",
                             "1.0.0--",
                             "1.0.0+0",
                             "1.0.0+-",
                             "1.0.0+00",
                             "0.2.0-beta.5+build.007",
                             "0.2.0+7",
                             "1.0.0-99999999999999999999999"})
        EXPECT_TRUE(parseVersion(text)) << text;
}

TEST(Version, IsRefusedInEveryOther) {
    for (const char* text : {"",
                             "1",
                             "1.2",
                             "0.2",
                             "0.2.0.1",
                             "1.2.3-0123",
                             "1.2.3-0123.0123",
                             "1.1.2+.123",
                             "+invalid",
                             "-invalid",
                             "-invalid+invalid",
                             "alpha",
                             "alpha.beta",
                             "alpha+beta",
                             "1.0.0-alpha_beta",
                             "1.0.0-alpha..",
                             "1.0.0-alpha..1",
                             "01.1.1",
                             "1.01.1",
                             "1.1.01",
                             "00.2.0",
                             "0.2.0-beta.05",
                             "0.2.0-",
                             "0.2.0+",
                             "0.2.0-+",
                             "0.2.0-+x",
                             "0.2.0-x+",
                             "0.2.0-.x",
                             "0.2.0-x.",
                             "1.2.3+a+b",
                             "1.2.3-a+b+c",
                             "1.2.3.DEV",
                             "1.2-SNAPSHOT",
                             "v1.2.3",
                             " 1.2.3",
                             "1.2.3 ",
                             "1.2.3\n",
                             "+1.2.3",
                             "1.-2.3",
                             "1.2.3-\xC3\xA9",
                             "1.2.3+\xFF",
                             "1..3",
                             ".2.3",
                             "1.2.",
                             "..",
                             "1.2.3/../..",
                             "1.2.3-a/b",
                             "4294967296.0.0",
                             "0.4294967296.0",
                             "0.0.9999999999",
                             "0.0.00000000001",
                             "0.0.42949672950",
                             "1,2,3",
                             "0x1.2.3",
                             "1.2.3-00"})
        EXPECT_FALSE(parseVersion(text)) << text;
}

TEST(Version, Has128BytesAtMost) {
    const std::string longest = "1.2.3-" + std::string(122, 'a');
    EXPECT_TRUE(parseVersion(longest));
    EXPECT_FALSE(parseVersion(longest + 'a'));
}

TEST(VersionOrder, IsThatOfTheStandardsExamples) {
    expectAscending({"1.0.0", "2.0.0", "2.1.0", "2.1.1"});
    expectAscending({"1.0.0-alpha", "1.0.0"});
    expectAscending({"1.0.0-alpha", "1.0.0-alpha.1", "1.0.0-alpha.beta", "1.0.0-beta", "1.0.0-beta.2",
                     "1.0.0-beta.11", "1.0.0-rc.1", "1.0.0"});
    expectAscending({"1.9.0", "1.10.0", "1.11.0"});
}

TEST(VersionOrder, LeavesTheBuildOut) {
    for (const char* text : {"1.0.0-alpha+001", "1.0.0-alpha+20130313144700", "1.0.0-alpha+exp.sha.5114f85",
                             "1.0.0-alpha+21AF26D3----117B344092BD"})
        EXPECT_EQ(compareVersions(text, "1.0.0-alpha"), 0) << text;
    EXPECT_EQ(compareVersions("0.2.0+7", "0.2.0"), 0);
    EXPECT_EQ(compareVersions("0.2.0+9", "0.2.1+1"), -1);
}

TEST(VersionOrder, OfThisProductsReleases) {
    expectAscending({"0.2.0-beta.4", "0.2.0-beta.5", "0.2.0-beta.10", "0.2.0-rc.1", "0.2.0", "0.2.1-alpha",
                     "0.3.0-alpha"});
}

TEST(VersionOrder, ComparesNumbersAsNumbersHoweverLong) {
    expectAscending({"1.0.0-9", "1.0.0-10", "1.0.0-18446744073709551615", "1.0.0-18446744073709551616",
                     "1.0.0-99999999999999999999999", "1.0.0-100000000000000000000000"});
    expectAscending({"4294967294.0.0", "4294967295.0.0"});
}

TEST(VersionOrder, PutsNumbersBelowWordsAndWordsInAsciiOrder) {
    expectAscending(
        {"1.0.0-99999", "1.0.0--", "1.0.0-0a", "1.0.0-A", "1.0.0-Z", "1.0.0-a", "1.0.0-aa", "1.0.0-z"});
}

TEST(VersionOrder, IsNothingWhenEitherIsNoVersion) {
    EXPECT_EQ(compareVersions("1.0", "1.0.0"), std::nullopt);
    EXPECT_EQ(compareVersions("1.0.0", "x"), std::nullopt);
}

}  // namespace
}  // namespace vextra
