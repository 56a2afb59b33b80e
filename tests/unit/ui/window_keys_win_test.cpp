#include "ui/window_keys_win.h"

#include <gtest/gtest.h>

#include <optional>
#include <vector>

#include "test_window_win.h"

namespace vextra {
namespace {

class SessionWideWindowKeys : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(controls.create(window.handle(), test::TestWindow::module()));
        ShowWindow(window.handle(), SW_SHOWNA);
    }
    void show(Panel panel) {
        controls.apply(placeControls({.clientWidthPixels = 980,
                                      .clientHeightPixels = 720,
                                      .panel = panel,
                                      .selectedSource = SourceKind::kDirectCamera}),
                       tabOf(panel));
    }
    // As while another window has the keyboard, and when this one has it again.
    void leaveAndComeBack(Panel panel) {
        keys.keepFocus(window.handle());
        SetFocus(nullptr);
        keys.giveFocusBack(panel);
    }
    LRESULT defaultWithFocusOn(ControlId id, Panel panel) {
        show(panel);
        SetFocus(controls[id]);
        return keys.defaultButton(panel);
    }
    std::optional<Panel> askedFor(WPARAM key, const std::vector<int>& held, HWND target,
                                  UINT message = WM_KEYDOWN) const {
        BYTE states[256]{};
        for (const int each : held)
            states[each] = 0x80;
        SetKeyboardState(states);
        const MSG sent{target, message, key, 1, 0, {0, 0}};
        const std::optional<Panel> panel = WindowKeys::panelAskedFor(sent, window.handle(), Panel::kCamera);
        const BYTE none[256]{};
        SetKeyboardState(const_cast<BYTE*>(none));
        return panel;
    }

    test::TestWindow window;
    ControlSet controls;
    WindowKeys keys{controls};
};

// --- The control that has the keyboard ---

TEST_F(SessionWideWindowKeys, GoBackToTheControlThatHadThem) {
    show(Panel::kSettings);
    SetFocus(controls[kIdDirectUser]);
    leaveAndComeBack(Panel::kSettings);
    EXPECT_EQ(GetFocus(), controls[kIdDirectUser]);
}

TEST_F(SessionWideWindowKeys, GoToTheTabAtFirst) {
    show(Panel::kCamera);
    keys.giveFocusBack(Panel::kCamera);
    EXPECT_EQ(GetFocus(), controls[kIdTabCamera]);
}

TEST_F(SessionWideWindowKeys, GoToTheTabWhereTheControlIsHiddenOrDisabledMeanwhile) {
    show(Panel::kSettings);
    SetFocus(controls[kIdDirectUser]);
    keys.keepFocus(window.handle());
    SetFocus(nullptr);
    show(Panel::kDiagnostics);
    keys.giveFocusBack(Panel::kDiagnostics);
    EXPECT_EQ(GetFocus(), controls[kIdTabDiagnostics]);

    SetFocus(controls[kIdRepair]);
    keys.keepFocus(window.handle());
    SetFocus(nullptr);
    EnableWindow(controls[kIdRepair], FALSE);
    keys.giveFocusBack(Panel::kDiagnostics);
    EXPECT_EQ(GetFocus(), controls[kIdTabDiagnostics]);
}

TEST_F(SessionWideWindowKeys, AreNotKeptForAControlOfAnotherWindow) {
    show(Panel::kCamera);
    SetFocus(controls[kIdPreview]);
    keys.keepFocus(window.handle());
    const test::TestWindow other;
    SetFocus(other.handle());
    leaveAndComeBack(Panel::kCamera);
    EXPECT_EQ(GetFocus(), controls[kIdPreview]);
}

TEST_F(SessionWideWindowKeys, MoveToTheNextControlThePreviousOneOrTheOneThatIsNamed) {
    show(Panel::kDiagnostics);
    const auto move = [&](WPARAM wParam, LPARAM lParam) {
        WindowKeys::moveFocus(window.handle(), wParam, lParam);
        return GetFocus();
    };
    SetFocus(controls[kIdRefreshLogs]);
    EXPECT_EQ(move(FALSE, FALSE), controls[kIdCopyReport]);
    EXPECT_EQ(move(TRUE, FALSE), controls[kIdRefreshLogs]);
    EXPECT_EQ(move(reinterpret_cast<WPARAM>(controls[kIdRepair]), TRUE), controls[kIdRepair]);
    const test::TestWindow other;
    EXPECT_EQ(move(reinterpret_cast<WPARAM>(other.handle()), TRUE), controls[kIdRepair])
        << "not one of its own";
}

// --- Enter ---

TEST_F(SessionWideWindowKeys, PressTheButtonThatHasThem) {
    EXPECT_EQ(defaultWithFocusOn(kIdPreview, Panel::kCamera), MAKELRESULT(105, DC_HASDEFID));
    EXPECT_EQ(defaultWithFocusOn(kIdTabCamera, Panel::kSettings), MAKELRESULT(300, DC_HASDEFID));
    EXPECT_EQ(defaultWithFocusOn(kIdAdvanced, Panel::kSettings), MAKELRESULT(325, DC_HASDEFID));
}

TEST_F(SessionWideWindowKeys, SaveFromAFieldOfTheSettingsAndDoNothingElsewhere) {
    EXPECT_EQ(defaultWithFocusOn(kIdDirectUser, Panel::kSettings), MAKELRESULT(322, DC_HASDEFID));
    EXPECT_EQ(defaultWithFocusOn(kIdLogs, Panel::kDiagnostics), 0);
}

// --- Ctrl+Tab ---

TEST_F(SessionWideWindowKeys, TurnThePanelsWithControlAndTab) {
    for (const HWND target : {window.handle(), controls[kIdDirectUser]}) {
        EXPECT_EQ(askedFor(VK_TAB, {VK_CONTROL}, target), Panel::kSettings);
        EXPECT_EQ(askedFor(VK_TAB, {VK_CONTROL, VK_SHIFT}, target), Panel::kDiagnostics);
    }
}

TEST_F(SessionWideWindowKeys, TurnNothingOtherwise) {
    const HWND target = controls[kIdDirectUser];
    EXPECT_EQ(askedFor(VK_TAB, {}, target), std::nullopt);
    EXPECT_EQ(askedFor(VK_TAB, {VK_SHIFT}, target), std::nullopt);
    EXPECT_EQ(askedFor(VK_TAB, {VK_CONTROL, VK_MENU}, target), std::nullopt);
    EXPECT_EQ(askedFor(VK_RETURN, {VK_CONTROL}, target), std::nullopt);
    EXPECT_EQ(askedFor(VK_TAB, {VK_CONTROL}, target, WM_KEYUP), std::nullopt);
    const test::TestWindow other;
    EXPECT_EQ(askedFor(VK_TAB, {VK_CONTROL}, other.handle()), std::nullopt);
}

}  // namespace
}  // namespace vextra
