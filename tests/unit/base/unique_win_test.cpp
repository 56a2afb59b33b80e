#include "base/unique_win.h"

#include <gtest/gtest.h>

#include <utility>

namespace vextra {
namespace {

UniqueHandle makeEvent() {
    return UniqueHandle(CreateEventW(nullptr, TRUE, FALSE, nullptr));
}

bool isOpen(HANDLE handle) {
    DWORD flags = 0;
    return GetHandleInformation(handle, &flags) != FALSE;
}

TEST(UniqueHandle, IsInvalidUntilGivenSomething) {
    EXPECT_FALSE(UniqueHandle());
    EXPECT_FALSE(UniqueHandle(nullptr));
    EXPECT_TRUE(makeEvent());
}

TEST(UniqueHandle, ClosesWhatItOwns) {
    HANDLE raw = nullptr;
    {
        const UniqueHandle event = makeEvent();
        raw = event.get();
        EXPECT_TRUE(isOpen(raw));
    }
    EXPECT_FALSE(isOpen(raw));
}

TEST(UniqueHandle, ClosesTheOldWhenItTakesANew) {
    UniqueHandle event = makeEvent();
    const HANDLE old = event.get();
    const HANDLE fresh = makeEvent().release();
    event.reset(fresh);
    EXPECT_FALSE(isOpen(old));
    EXPECT_TRUE(isOpen(fresh));
}

TEST(UniqueHandle, GivesUpWhatItReleases) {
    UniqueHandle event = makeEvent();
    const HANDLE raw = event.release();
    EXPECT_FALSE(event);
    EXPECT_TRUE(isOpen(raw));
    CloseHandle(raw);
}

TEST(UniqueHandle, MovesWithoutClosing) {
    UniqueHandle from = makeEvent();
    const HANDLE raw = from.get();
    UniqueHandle to = makeEvent();
    to = std::move(from);
    EXPECT_EQ(to.get(), raw);
    EXPECT_TRUE(isOpen(raw));
}

TEST(UniqueHandle, SurvivesBeingMovedToItself) {
    UniqueHandle event = makeEvent();
    UniqueHandle& same = event;
    event = std::move(same);
    EXPECT_TRUE(event && isOpen(event.get()));
}

TEST(UniqueHandle, ClosesTheOldBeforeAFunctionFillsIt) {
    UniqueHandle event = makeEvent();
    const HANDLE old = event.get();
    HANDLE* const place = event.put();
    EXPECT_FALSE(isOpen(old));
    EXPECT_EQ(*place, nullptr);
}

void closeAndFail(HANDLE handle) {
    CloseHandle(handle);
    SetLastError(ERROR_INVALID_HANDLE);
}

TEST(UniqueHandle, ClosesWithoutChangingTheLastError) {
    {
        const Unique<HANDLE, &closeAndFail> event(makeEvent().release());
        SetLastError(ERROR_DISK_FULL);
    }
    EXPECT_EQ(GetLastError(), DWORD{ERROR_DISK_FULL});
}

TEST(UniqueFile, IsInvalidAsCreateFileSaysIt) {
    EXPECT_FALSE(UniqueFile());
    EXPECT_FALSE(UniqueFile(
        CreateFileW(L"C:\\no such folder\\file", GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr)));
}

}  // namespace
}  // namespace vextra
