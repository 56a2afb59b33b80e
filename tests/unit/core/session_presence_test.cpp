#include "core/session_presence.h"

#include <gtest/gtest.h>

#include "core/shared_status.h"

namespace vextra {
namespace {

constexpr std::uint32_t kBoth = kSessionLocked | kSessionDisconnected;
constexpr SessionAnswer kNothing{};
constexpr SessionAnswer kOpen{.locked = false, .disconnected = false};
constexpr SessionAnswer kAllAway{.locked = true, .disconnected = true};

TEST(SessionPresence, IsOpenWhereTheSystemCannotSay) {
    EXPECT_EQ(sessionAwayAfter(0, SessionNews::kNone, kNothing), 0u);
}

TEST(SessionPresence, IsAtTheStartWhatTheSystemSays) {
    EXPECT_EQ(sessionAwayAfter(0, SessionNews::kNone, kOpen), 0u);
    EXPECT_EQ(sessionAwayAfter(0, SessionNews::kNone, kAllAway), kBoth);
    EXPECT_EQ(sessionAwayAfter(0, SessionNews::kNone, {.locked = true, .disconnected = {}}), kSessionLocked);
    EXPECT_EQ(sessionAwayAfter(0, SessionNews::kNone, {.locked = {}, .disconnected = true}),
              kSessionDisconnected);
}

TEST(SessionPresence, StaysLockedThroughASleepOfWhichTheSystemCannotSay) {
    EXPECT_EQ(sessionAwayAfter(kSessionLocked, SessionNews::kNone, kNothing), kSessionLocked);
}

TEST(SessionPresence, IsOpenAgainAfterASleepWhenTheSystemSaysSo) {
    EXPECT_EQ(sessionAwayAfter(kBoth, SessionNews::kNone, kOpen), 0u);
}

TEST(SessionPresence, IsLockedUntilItIsUnlocked) {
    EXPECT_EQ(sessionAwayAfter(0, SessionNews::kLocked, kNothing), kSessionLocked);
    EXPECT_EQ(sessionAwayAfter(kSessionLocked, SessionNews::kUnlocked, kNothing), 0u);
}

TEST(SessionPresence, IsDisconnectedUntilItIsConnected) {
    EXPECT_EQ(sessionAwayAfter(0, SessionNews::kDisconnected, kNothing), kSessionDisconnected);
    EXPECT_EQ(sessionAwayAfter(kSessionDisconnected, SessionNews::kConnected, kNothing), 0u);
}

TEST(SessionPresence, KeepsItsLockThroughAConnect) {
    EXPECT_EQ(sessionAwayAfter(kBoth, SessionNews::kConnected, kNothing), kSessionLocked);
}

TEST(SessionPresence, TakesItsLockFromTheSystemAtAConnect) {
    EXPECT_EQ(sessionAwayAfter(kSessionDisconnected, SessionNews::kConnected, kAllAway), kSessionLocked);
    EXPECT_EQ(sessionAwayAfter(kBoth, SessionNews::kConnected, kOpen), 0u);
}

TEST(SessionPresence, IsNotConnectedByAnUnlock) {
    EXPECT_EQ(sessionAwayAfter(kBoth, SessionNews::kUnlocked, kNothing), kSessionDisconnected);
}

TEST(SessionPresence, DoesNotAskWhatAMessageHasSaid) {
    EXPECT_TRUE(needsAnswer(SessionNews::kNone));
    EXPECT_TRUE(needsAnswer(SessionNews::kConnected));
    EXPECT_FALSE(needsAnswer(SessionNews::kLocked));
    EXPECT_FALSE(needsAnswer(SessionNews::kUnlocked));
    EXPECT_FALSE(needsAnswer(SessionNews::kDisconnected));
}

TEST(InteractiveSession, IsAnyButThatOfTheServices) {
    EXPECT_TRUE(isInteractiveSession(1));
    EXPECT_FALSE(isInteractiveSession(0));
    EXPECT_FALSE(isInteractiveSession(std::nullopt));
}

}  // namespace
}  // namespace vextra
