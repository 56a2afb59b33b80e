#include "ui/frame_rate.h"

#include <gtest/gtest.h>

namespace vextra {
namespace {

TEST(FrameRate, IsNothingBeforeASampleEnds) {
    FrameRate rate;
    EXPECT_FALSE(rate.look(100, 5000));
    EXPECT_FALSE(rate.look(116, 5999));
    EXPECT_EQ(rate.perSecond(), 0);
}

TEST(FrameRate, CountsFromTheFirstLookOn) {
    FrameRate rate;
    rate.look(1000, 5000);
    EXPECT_TRUE(rate.look(1016, 6000));
    EXPECT_EQ(rate.perSecond(), 16);
}

TEST(FrameRate, IsOfTheTimeThatReallyPassed) {
    FrameRate rate;
    rate.look(0, 5000);
    EXPECT_TRUE(rate.look(20, 6250));
    EXPECT_EQ(rate.perSecond(), 16);
}

TEST(FrameRate, StaysUntilTheNextSampleEnds) {
    FrameRate rate;
    rate.look(0, 0);
    rate.look(16, 1000);
    EXPECT_FALSE(rate.look(40, 1999));
    EXPECT_EQ(rate.perSecond(), 16);
    EXPECT_TRUE(rate.look(40, 2000));
    EXPECT_EQ(rate.perSecond(), 24);
    EXPECT_TRUE(rate.look(40, 3000));
    EXPECT_EQ(rate.perSecond(), 0);
}

TEST(FrameRate, BeginsOnAMachineThatHasJustStarted) {
    FrameRate rate;
    EXPECT_FALSE(rate.look(0, 0));
    EXPECT_TRUE(rate.look(8, 1000));
    EXPECT_EQ(rate.perSecond(), 8);
}

}  // namespace
}  // namespace vextra
