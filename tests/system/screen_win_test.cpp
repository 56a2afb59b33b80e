// What a person sees in the running broker's window, and reaches with the mouse.
#include <windows.h>

#include <wtsapi32.h>

#include <algorithm>
#include <cwchar>

#include "window_test_win.h"

namespace vextra::test {
namespace {

// The stub decoder's picture is nowhere of the placeholder's colours.
constexpr COLORREF kPlaceholder = RGB(18, 25, 36);
constexpr POINT kInPreview{490, 290};  // above the words that lie over the placeholder

class ReleaseScreen : public WindowTest {
protected:
    bool waitForPlaceholder() {
        return waitUntil([&] { return window.pixel(kInPreview) == kPlaceholder; }, 4000);
    }
    bool waitForCamera() {
        return waitUntil(
            [&] {
                const COLORREF shown = window.pixel(kInPreview);
                return shown != kPlaceholder && shown != CLR_INVALID;
            },
            4000);
    }
};

TEST_F(ReleaseScreen, ShowsTheCameraOnlyWhileItIsLive) {
    start();
    ASSERT_TRUE(waitForPlaceholder());
    for (int round = 0; round < 2; ++round) {
        goLive();
        ASSERT_TRUE(waitForCamera()) << round;
        pause();
        EXPECT_TRUE(waitForPlaceholder()) << "paused, round " << round;
        pause();
        ASSERT_TRUE(waitForCamera()) << round;
        SendMessageW(window.handle(), WM_WTSSESSION_CHANGE, WTS_SESSION_LOCK, 0);
        EXPECT_TRUE(waitForPlaceholder()) << "locked, round " << round;
        SendMessageW(window.handle(), WM_WTSSESSION_CHANGE, WTS_SESSION_UNLOCK, 0);
        ASSERT_TRUE(waitForCamera()) << round;
        viewer().releaseLease();
        EXPECT_TRUE(waitForPlaceholder()) << "not watched, round " << round;
    }
}

TEST_F(ReleaseScreen, ShowsThePlaceholderForAStalledCamera) {
    decoder().behave("frames=20\nframesPerSecond=16\nthen=hang");
    start();
    goLive();
    ASSERT_TRUE(waitForCamera());
    EXPECT_TRUE(waitForPlaceholder());
}

TEST_F(ReleaseScreen, DrawsTheTabOfThePanelThatIsShownAsSelected) {
    constexpr COLORREF kSelected = RGB(65, 41, 78), kUnselected = RGB(245, 246, 249);
    start();
    const ControlId tabs[] = {kIdTabCamera, kIdTabSettings, kIdTabDiagnostics};
    for (const ControlId selected : tabs) {
        window.press(selected);
        for (const ControlId tab : tabs) {
            const RECT place = window.place(tab);
            const COLORREF wanted = tab == selected ? kSelected : kUnselected;
            const POINT corner{place.left + 1, place.top + 1};  // outside the text and the focus rectangle
            EXPECT_TRUE(waitUntil([&] { return window.pixel(corner) == wanted; }, 2000))
                << tab << " with the panel of " << selected;
        }
    }
}

TEST_F(ReleaseScreen, DrawsFieldsAndTextsDarkOnWhite) {
    constexpr COLORREF kText = RGB(39, 36, 46), kWhite = RGB(255, 255, 255);
    start();
    const auto has = [&](ControlId id, COLORREF colour) {
        const RECT place = window.place(id);
        for (int y = place.top; y < place.bottom; ++y) {
            for (int x = place.left; x < std::min<int>(place.right, place.left + 120); ++x) {
                if (window.pixel({x, y}) == colour)
                    return true;
            }
        }
        return false;
    };
    const auto end = [&](ControlId id) {  // far from its text
        const RECT place = window.place(id);
        return window.pixel({place.right - 6, (place.top + place.bottom) / 2});
    };
    EXPECT_TRUE(has(kIdStatusLine, kText));
    EXPECT_EQ(end(kIdStatusLine), kWhite);
    window.press(kIdTabSettings);
    window.choose(kIdSource, 1);
    window.type(kIdDirectUser, L"MMMMMMMM");
    EXPECT_TRUE(waitUntil([&] { return has(kIdDirectUser, kText); }, 2000));
    EXPECT_EQ(end(kIdDirectUser), kWhite);
}

// --- The mouse ---

TEST_F(ReleaseScreen, TakesAClickOnTheVeryEdgeOfAField) {
    start();
    window.press(kIdTabSettings);
    window.choose(kIdSource, 1);
    window.press(kIdAdvanced);
    for (const ControlId field :
         {kIdDirectIp, kIdDirectUser, kIdDirectPassword, kIdLatency, kIdDeadline, kIdManifestUrl}) {
        const RECT place = window.place(field);
        const LONG width = place.right - place.left, height = place.bottom - place.top;
        for (const POINT at : {POINT{20, 0}, POINT{20, 3}, POINT{20, height - 1}, POINT{0, height / 2},
                               POINT{width - 1, height / 2}}) {
            ASSERT_TRUE(window.focus(kIdTransport));
            window.click(field, at);
            EXPECT_EQ(window.focused(), field) << "at " << at.x << "," << at.y;
        }
    }
}

TEST_F(ReleaseScreen, TakesARealClickOnTheVeryEdgeOfAField) {
    start();
    window.press(kIdTabSettings);
    window.choose(kIdSource, 1);
    const LONG bottom = window.place(kIdDirectUser).bottom - window.place(kIdDirectUser).top - 2;
    for (const LONG y : {LONG{2}, bottom}) {
        ASSERT_TRUE(window.focus(kIdTransport));
        ASSERT_TRUE(window.clickForReal(kIdDirectUser, {30, y}))
            << "something else is in front of the window";
        EXPECT_TRUE(waitUntil([&] { return window.focused() == kIdDirectUser; }, 2000)) << y;
    }
}

// --- The keyboard ---

TEST_F(ReleaseScreen, TurnsItsPanelsWithCtrlAndTab) {
    start();
    ASSERT_TRUE(window.focus(kIdAutomatic));
    const std::vector<WORD> forwards{VK_CONTROL}, backwards{VK_CONTROL, VK_SHIFT};
    ASSERT_TRUE(BrokerWindow::keyForReal(VK_TAB, forwards));
    EXPECT_TRUE(waitUntil([&] { return window.focused() == kIdTabSettings; }, 2000)) << window.focused();
    EXPECT_TRUE(window.visible(kIdSource));
    ASSERT_TRUE(BrokerWindow::keyForReal(VK_TAB, backwards));
    EXPECT_TRUE(waitUntil([&] { return window.focused() == kIdTabCamera; }, 2000)) << window.focused();
    EXPECT_TRUE(window.visible(kIdAutomatic));
}

// --- What the buttons lead to ---

TEST_F(ReleaseScreen, LeavesAMeetingItsCameraWhenThePreviewIsEnded) {
    start();
    goLive();
    window.press(kIdPreview);
    ASSERT_TRUE(waitUntil([&] { return window.text(kIdPreview) == L"Encerrar prévia manual"; }, 2000));
    window.press(kIdPreview);
    ASSERT_TRUE(broker().waitForEvent("MANUAL_PREVIEW_RELEASE"));
    Sleep(800);  // longer than a producer without demand lives
    EXPECT_TRUE(viewer().waitForFrameAfter(viewer().header().frameCounter + 8, 2000));
    EXPECT_EQ(viewer().header().state, static_cast<std::uint32_t>(BridgeState::kLive));
}

TEST_F(ReleaseScreen, EndsThePreviewWhenAutomaticIsSuspended) {
    start();
    window.press(kIdPreview);
    ASSERT_TRUE(viewer().waitForState(BridgeState::kLive));
    ASSERT_TRUE(waitUntil([&] { return window.text(kIdPreview) == L"Encerrar prévia manual"; }, 2000));
    window.press(kIdAutomatic);
    EXPECT_TRUE(waitUntil([&] { return window.text(kIdPreview) == L"Testar prévia por 60s"; }, 2000));
    window.press(kIdAutomatic);
    ASSERT_TRUE(waitUntil([&] { return window.text(kIdAutomatic) == L"Suspender automático"; }, 2000));
    Sleep(500);
    EXPECT_NE(viewer().header().state, static_cast<std::uint32_t>(BridgeState::kLive))
        << "switching it on again asks for no preview";
}

// --- Diagnostics ---

TEST_F(ReleaseScreen, ReportsTheRateAtWhichFramesReallyCome) {
    start();
    goLive();
    window.press(kIdTabDiagnostics);
    const auto rate = [&] {
        window.press(kIdRefreshLogs);
        const std::wstring view = window.text(kIdLogs);
        constexpr std::wstring_view kKey = L"FPS observado: ";
        const std::size_t at = view.find(kKey);
        return at == std::wstring::npos ? -1 : std::wcstod(view.c_str() + at + kKey.size(), nullptr);
    };
    EXPECT_TRUE(waitUntil([&] { return rate() > 14 && rate() < 18; }, 6000)) << rate();
    viewer().releaseLease();
    EXPECT_TRUE(waitUntil([&] { return rate() == 0; }, 5000)) << rate();
}

TEST_F(ReleaseScreen, ShowsTheNewestEventsWhenTheLogIsRefreshed) {
    start();
    window.press(kIdTabDiagnostics);
    const auto firstLine = [&] {
        return SendMessageW(window.control(kIdLogs), EM_GETFIRSTVISIBLELINE, 0, 0);
    };
    EXPECT_EQ(firstLine(), 0) << "the report, which comes first";
    window.press(kIdRefreshLogs);
    EXPECT_GT(firstLine(), 0);
}

}  // namespace
}  // namespace vextra::test
