#include <gtest/gtest.h>

#include <windows.h>

#include <wtsapi32.h>

#include "core/session_presence.h"
#include "import_swap_win.h"

namespace vextra {
namespace {

// What Windows hands out, from its documentation: level 1, then a session's number, state and flags.
struct Handout {
    DWORD level;
    DWORD unused;
    ULONG session;
    int state;
    LONG flags;
    char rest[200];
};
Handout handout;
DWORD handoutBytes = 0;
WTS_INFO_CLASS asked{};
int freed = 0;

BOOL WINAPI answer(HANDLE, DWORD, WTS_INFO_CLASS what, LPWSTR* memory, DWORD* bytes) {
    asked = what;
    *memory = reinterpret_cast<LPWSTR>(&handout);
    *bytes = handoutBytes;
    return TRUE;
}
void WINAPI countFreed(void* memory) {
    freed += memory == &handout ? 1 : 0;
}

SessionAnswer askedOf(const Handout& given, DWORD bytes = sizeof(Handout)) {
    handout = given;
    handoutBytes = bytes;
    freed = 0;
    const test::ImportSwap<decltype(WTSQuerySessionInformationW)> query("WTSQuerySessionInformationW",
                                                                        &answer);
    const test::ImportSwap<decltype(WTSFreeMemory)> release("WTSFreeMemory", &countFreed);
    return askAboutSession();
}

TEST(SessionAnswer, TellsALock) {
    EXPECT_EQ(askedOf({1, 0, 1, WTSActive, 0, {}}).locked, true);
    EXPECT_EQ(askedOf({1, 0, 1, WTSActive, 1, {}}).locked, false);
    EXPECT_EQ(asked, 25);
}

TEST(SessionAnswer, TellsADisconnect) {
    EXPECT_EQ(askedOf({1, 0, 1, WTSActive, 0, {}}).disconnected, false);
    EXPECT_EQ(askedOf({1, 0, 1, WTSDisconnected, 0, {}}).disconnected, true);
}

TEST(SessionAnswer, IsNothingWhereTheSystemDoesNotKnow) {
    EXPECT_EQ(askedOf({1, 0, 1, WTSActive, -1, {}}).locked, std::nullopt);
    EXPECT_EQ(askedOf({1, 0, 1, WTSConnected, 0, {}}).disconnected, std::nullopt);
}

TEST(SessionAnswer, IsNothingOfAnotherLevelOrLength) {
    EXPECT_EQ(askedOf({2, 0, 1, WTSActive, 0, {}}).locked, std::nullopt);
    EXPECT_EQ(askedOf({1, 0, 1, WTSActive, 0, {}}, 19).locked, std::nullopt);
}

TEST(SessionAnswer, IsNothingWhenTheCallIsRefused) {
    const test::RefusedImport<decltype(WTSQuerySessionInformationW)> refused("WTSQuerySessionInformationW");
    EXPECT_EQ(askAboutSession().locked, std::nullopt);
    EXPECT_EQ(askAboutSession().disconnected, std::nullopt);
}

TEST(SessionAnswer, GivesItsMemoryBack) {
    askedOf({1, 0, 1, WTSActive, 0, {}});
    EXPECT_EQ(freed, 1);
}

}  // namespace
}  // namespace vextra
