#include "ui/accessibility_win.h"

#include <gtest/gtest.h>

#include "recording_annotations_win.h"

namespace vextra {
namespace {

class AccessibilityTest : public testing::Test {
protected:
    test::AnnotationService system;
    test::RecordingAnnotations& told = system.service;
    const HWND control = reinterpret_cast<HWND>(0x4321);

    long state() const { return told.number(control, PROPID_ACC_STATE); }
};

TEST_F(AccessibilityTest, NamesAControlAsFarAsTheNameGoes) {
    EXPECT_TRUE(Accessibility().setName(control, std::wstring_view(L"Usuário RTSP and more", 7)));
    EXPECT_EQ(told.text(control, PROPID_ACC_NAME), L"Usuário");
    EXPECT_EQ(told.entries(), 1u);
}

TEST_F(AccessibilityTest, DescribesAControlForReadersOfEitherKind) {
    EXPECT_TRUE(Accessibility().setDescription(control, L"16.0 fps observados"));
    EXPECT_EQ(told.text(control, PROPID_ACC_DESCRIPTION), L"16.0 fps observados");
    EXPECT_EQ(told.text(control, test::kHelpTextProperty), L"16.0 fps observados");
}

TEST_F(AccessibilityTest, TakesADescriptionBack) {
    const Accessibility accessibility;
    accessibility.setDescription(control, L"16.0 fps observados");
    EXPECT_TRUE(accessibility.setDescription(control, L""));
    EXPECT_EQ(told.entries(), 0u);
}

TEST_F(AccessibilityTest, MakesATabOfAButton) {
    EXPECT_TRUE(Accessibility().setTab(control, {}));
    EXPECT_EQ(told.number(control, PROPID_ACC_ROLE), ROLE_SYSTEM_PAGETAB);
    EXPECT_EQ(state(), STATE_SYSTEM_FOCUSABLE | STATE_SYSTEM_SELECTABLE);
}

TEST_F(AccessibilityTest, SaysWhetherATabIsSelected) {
    EXPECT_TRUE(Accessibility().setTab(control, {.selected = true}));
    EXPECT_EQ(state(), STATE_SYSTEM_FOCUSABLE | STATE_SYSTEM_SELECTABLE | STATE_SYSTEM_SELECTED);
}

// The state stands in for the button's own, so that what that said of the focus has to be in it.
TEST_F(AccessibilityTest, SaysWhetherATabHasTheFocus) {
    EXPECT_TRUE(Accessibility().setTab(control, {.focused = true}));
    EXPECT_EQ(state(), STATE_SYSTEM_FOCUSABLE | STATE_SYSTEM_SELECTABLE | STATE_SYSTEM_FOCUSED);
}

TEST_F(AccessibilityTest, SaysWhetherAPartOfThePanelIsOpen) {
    const Accessibility accessibility;
    EXPECT_TRUE(accessibility.setFold(control, {.open = true}));
    EXPECT_EQ(state(), STATE_SYSTEM_FOCUSABLE | STATE_SYSTEM_EXPANDED);
    EXPECT_TRUE(accessibility.setFold(control, {.open = false, .focused = true}));
    EXPECT_EQ(state(), STATE_SYSTEM_FOCUSABLE | STATE_SYSTEM_COLLAPSED | STATE_SYSTEM_FOCUSED);
}

TEST_F(AccessibilityTest, MakesALiveRegionThatIsPolite) {
    constexpr long kPolite = 1;
    EXPECT_TRUE(Accessibility().setPoliteRegion(control));
    EXPECT_EQ(told.number(control, test::kLiveSettingProperty), kPolite);
}

TEST_F(AccessibilityTest, TakesEverythingBackThatItSaid) {
    const Accessibility accessibility;
    accessibility.setName(control, L"name");
    accessibility.setDescription(control, L"description");
    accessibility.setTab(control, {});
    accessibility.setPoliteRegion(control);
    ASSERT_EQ(told.entries(), 6u);
    accessibility.clear(control);
    EXPECT_EQ(told.entries(), 0u);
}

TEST_F(AccessibilityTest, SaysWhenAServiceRefuses) {
    told.answer = E_NOTIMPL;
    const Accessibility accessibility;
    EXPECT_FALSE(accessibility.setName(control, L"name"));
    EXPECT_FALSE(accessibility.setDescription(control, L"description"));
    EXPECT_FALSE(accessibility.setTab(control, {}));
    EXPECT_FALSE(accessibility.setFold(control, {}));
    EXPECT_FALSE(accessibility.setPoliteRegion(control));
}

TEST_F(AccessibilityTest, GivesTheServiceBack) {
    {
        const Accessibility accessibility;
        EXPECT_EQ(told.references, 1);
    }
    EXPECT_EQ(told.references, 0);
}

TEST_F(AccessibilityTest, IsMissedSilentlyWithoutAService) {
    system.remove();
    const Accessibility accessibility;
    EXPECT_FALSE(accessibility.setName(control, L"name"));
    EXPECT_FALSE(accessibility.setDescription(control, L"description"));
    EXPECT_FALSE(accessibility.setTab(control, {}));
    EXPECT_FALSE(accessibility.setFold(control, {}));
    EXPECT_FALSE(accessibility.setPoliteRegion(control));
    accessibility.clear(control);
}

}  // namespace
}  // namespace vextra
