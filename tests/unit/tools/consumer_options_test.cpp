#include "consumer/consumer_options.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <vector>

namespace vextra {
namespace {

std::optional<ConsumerOptions> parse(std::initializer_list<const wchar_t*> arguments) {
    const std::vector<const wchar_t*> list(arguments);
    return parseConsumerOptions(list);
}

TEST(ConsumerOptions, AskForAWatchInFull) {
    const auto options =
        parse({L"watch", L"--seconds", L"15", L"--frames", L"3", L"--png", L"a.png", L"--json", L"-",
               L"--progress", L"--no-lease", L"--bridge", L"B", L"--demand", L"D"});
    ASSERT_TRUE(options);
    EXPECT_EQ(options->command, ConsumerCommand::kWatch);
    EXPECT_EQ(options->seconds, 15u);
    EXPECT_EQ(options->frames, 3u);
    EXPECT_EQ(options->pngPath, L"a.png");
    EXPECT_EQ(options->jsonPath, L"-");
    EXPECT_EQ(options->bridgePath, L"B");
    EXPECT_EQ(options->demandPath, L"D");
    EXPECT_TRUE(options->progress);
    EXPECT_TRUE(options->noLease);
    EXPECT_FALSE(options->crash);
}

TEST(ConsumerOptions, AskForALeaseAlone) {
    const auto options = parse({L"lease", L"--hold-seconds", L"0", L"--crash"});
    ASSERT_TRUE(options);
    EXPECT_EQ(options->command, ConsumerCommand::kLease);
    EXPECT_EQ(options->seconds, 0u);
    EXPECT_TRUE(options->crash);
}

TEST(ConsumerOptions, AskForOneRead) {
    const auto options = parse({L"read"});
    ASSERT_TRUE(options);
    EXPECT_EQ(options->command, ConsumerCommand::kRead);
}

TEST(ConsumerOptions, AreRefusedWithoutACommandOrATime) {
    EXPECT_FALSE(parse({}));
    EXPECT_FALSE(parse({L"--seconds", L"1"}));
    EXPECT_FALSE(parse({L"WATCH", L"--seconds", L"1"}));
    EXPECT_FALSE(parse({L"watch"}));
    EXPECT_FALSE(parse({L"watch", L"--frames", L"1"}));
    EXPECT_FALSE(parse({L"lease"}));
}

TEST(ConsumerOptions, AreRefusedWhereTheyMeanNothing) {
    EXPECT_FALSE(parse({L"read", L"--seconds", L"1"}));
    EXPECT_FALSE(parse({L"read", L"--demand", L"D"}));
    EXPECT_FALSE(parse({L"lease", L"--hold-seconds", L"1", L"--png", L"a"}));
    EXPECT_FALSE(parse({L"lease", L"--hold-seconds", L"1", L"--no-lease"}));
    EXPECT_FALSE(parse({L"watch", L"--hold-seconds", L"1"}));
    EXPECT_FALSE(parse({L"watch", L"--seconds", L"1", L"--crash"}));
    EXPECT_FALSE(parse({L"watch", L"--seconds", L"1", L"more"}));
    EXPECT_FALSE(parse({L"watch", L"--seconds", L"1", L"--png"}));
    EXPECT_FALSE(parse({L"watch", L"--seconds", L"1", L"--png", L""}));
}

TEST(ConsumerOptions, TakeWholeNumbersInTheirRangeOnly) {
    for (const wchar_t* bad : {L"0", L"86401", L"-1", L"+1", L"1.5", L"1s", L"", L" 1", L"9999999999"})
        EXPECT_FALSE(parse({L"watch", L"--seconds", bad}));
    EXPECT_TRUE(parse({L"watch", L"--seconds", L"1"}));
    EXPECT_TRUE(parse({L"watch", L"--seconds", L"86400"}));
    EXPECT_FALSE(parse({L"watch", L"--seconds", L"1", L"--frames", L"0"}));
}

}  // namespace
}  // namespace vextra
