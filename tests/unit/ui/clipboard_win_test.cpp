#include "ui/clipboard_win.h"

#include <gtest/gtest.h>

#include <cstring>
#include <thread>

#include "base/unique_win.h"
#include "import_swap_win.h"
#include "test_window_win.h"

namespace vextra {
namespace {

// All of the block that other programs get, its terminator included.
std::wstring unitsOnClipboard(HWND window) {
    if (!OpenClipboard(window))
        failSetUp("clipboard to be read");
    std::wstring units;
    const HANDLE block = GetClipboardData(CF_UNICODETEXT);
    if (const auto* text = block != nullptr ? static_cast<const wchar_t*>(GlobalLock(block)) : nullptr) {
        units.assign(text, GlobalSize(block) / sizeof(wchar_t));
        GlobalUnlock(block);
    }
    CloseClipboard();
    return units;
}

// A neighbour that has the clipboard open, from a thread and a window of its own.
class NeighbourWithTheClipboard {
public:
    NeighbourWithTheClipboard() {
        thread_ = std::thread([this] {
            const test::TestWindow window;
            opened_ = OpenClipboard(window.handle()) != FALSE;
            SetEvent(ready_.get());
            WaitForSingleObject(enough_.get(), INFINITE);
            if (opened_)
                CloseClipboard();
        });
        WaitForSingleObject(ready_.get(), INFINITE);
    }
    ~NeighbourWithTheClipboard() {
        SetEvent(enough_.get());
        thread_.join();
    }
    NeighbourWithTheClipboard(const NeighbourWithTheClipboard&) = delete;
    NeighbourWithTheClipboard& operator=(const NeighbourWithTheClipboard&) = delete;

    bool opened() const { return opened_; }

private:
    const UniqueHandle ready_{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    const UniqueHandle enough_{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    bool opened_ = false;  // written before `ready_` is set
    std::thread thread_;
};

// Memory as it comes when others have used it before.
HGLOBAL WINAPI usedMemory(UINT flags, SIZE_T bytes) {
    const HGLOBAL block = test::realFunction<HGLOBAL WINAPI(UINT, SIZE_T)>("GlobalAlloc")(flags, bytes);
    if (void* const memory = block != nullptr ? GlobalLock(block) : nullptr) {
        std::memset(memory, 0xCC, bytes);
        GlobalUnlock(block);
    }
    return block;
}

HGLOBAL WINAPI noMemory(UINT, SIZE_T) {
    return nullptr;
}

using GlobalAllocSwap = test::ImportSwap<HGLOBAL WINAPI(UINT, SIZE_T)>;

// A clipboard that looks at what it is handed, before the system adds a terminator of its own, and refuses
// it.
std::wstring unitsHandedOver;
UINT formatHandedOver = 0;

HANDLE WINAPI lookAndRefuse(UINT format, HANDLE block) {
    formatHandedOver = format;
    if (const auto* text = static_cast<const wchar_t*>(GlobalLock(block))) {
        unitsHandedOver.assign(text, GlobalSize(block) / sizeof(wchar_t));
        GlobalUnlock(block);
    }
    return nullptr;
}

class SessionWideClipboard : public testing::Test {
protected:
    const test::TestWindow window;
};

TEST_F(SessionWideClipboard, TakesATextWithItsTerminator) {
    const std::wstring text = L"Prévia: não\r\nLatência • 60 s \U0001F4F7\r\n";
    ASSERT_TRUE(copyToClipboard(window.handle(), text));
    const std::wstring units = unitsOnClipboard(window.handle());
    ASSERT_GT(units.size(), text.size());
    EXPECT_EQ(units.substr(0, text.size() + 1), text + L'\0');
}

TEST_F(SessionWideClipboard, IsHandedTheTextWithItsTerminator) {
    const GlobalAllocSwap memory("GlobalAlloc", &usedMemory);
    const test::ImportSwap<HANDLE WINAPI(UINT, HANDLE)> clipboard("SetClipboardData", &lookAndRefuse);
    EXPECT_FALSE(copyToClipboard(window.handle(), L"não"));
    EXPECT_EQ(formatHandedOver, UINT{CF_UNICODETEXT});
    EXPECT_EQ(unitsHandedOver.substr(0, 4), std::wstring(L"não") + L'\0');
}

TEST_F(SessionWideClipboard, TakesAnEmptyTextAndALongOne) {
    ASSERT_TRUE(copyToClipboard(window.handle(), L""));
    EXPECT_EQ(unitsOnClipboard(window.handle()).at(0), L'\0');
    const std::wstring longText(200'000, L'é');
    ASSERT_TRUE(copyToClipboard(window.handle(), longText));
    EXPECT_EQ(unitsOnClipboard(window.handle()).substr(0, 200'001), longText + L'\0');
}

TEST_F(SessionWideClipboard, TakesTheNewestTextOnly) {
    ASSERT_TRUE(copyToClipboard(window.handle(), L"a long text that came first"));
    ASSERT_TRUE(copyToClipboard(window.handle(), L"second"));
    EXPECT_STREQ(unitsOnClipboard(window.handle()).c_str(), L"second");
}

TEST_F(SessionWideClipboard, IsFreeAgainForOthers) {
    ASSERT_TRUE(copyToClipboard(window.handle(), L"ours"));
    EXPECT_TRUE(NeighbourWithTheClipboard().opened());
}

TEST_F(SessionWideClipboard, StaysAsItWasWhileSomebodyElseHoldsIt) {
    ASSERT_TRUE(copyToClipboard(window.handle(), L"before"));
    {
        const NeighbourWithTheClipboard neighbour;
        ASSERT_TRUE(neighbour.opened());
        EXPECT_FALSE(copyToClipboard(window.handle(), L"refused"));
    }
    EXPECT_STREQ(unitsOnClipboard(window.handle()).c_str(), L"before");
}

int attempts = 0, attemptsThatFail = 0;
BOOL WINAPI busyAtFirst(HWND owner) {
    if (++attempts <= attemptsThatFail)
        return FALSE;
    return test::realFunction<BOOL WINAPI(HWND)>("OpenClipboard")(owner);
}

TEST_F(SessionWideClipboard, IsWaitedForWhileSomebodyElseHoldsItForAMoment) {
    const test::ImportSwap<BOOL WINAPI(HWND)> busy("OpenClipboard", &busyAtFirst);
    attempts = 0;
    attemptsThatFail = 3;
    EXPECT_TRUE(copyToClipboard(window.handle(), L"in the end"));
    attemptsThatFail = 0;
    EXPECT_STREQ(unitsOnClipboard(window.handle()).c_str(), L"in the end");
}

TEST_F(SessionWideClipboard, StaysAsItWasWithoutMemory) {
    ASSERT_TRUE(copyToClipboard(window.handle(), L"before"));
    {
        const GlobalAllocSwap swapped("GlobalAlloc", &noMemory);
        EXPECT_FALSE(copyToClipboard(window.handle(), L"refused"));
    }
    {
        const test::RefusedImport<decltype(GlobalLock)> refused("GlobalLock");
        EXPECT_FALSE(copyToClipboard(window.handle(), L"refused"));
    }
    EXPECT_STREQ(unitsOnClipboard(window.handle()).c_str(), L"before");
}

}  // namespace
}  // namespace vextra
