#include "ui/settings_panel_win.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "settings_samples.h"
#include "test_window_win.h"

namespace vextra {
namespace {

class SettingsPanelTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(controls.create(window.handle(), test::TestWindow::module()));
        panel.fillLists();
    }
    std::vector<std::wstring> entries(ControlId list) const {
        std::vector<std::wstring> texts(
            static_cast<std::size_t>(SendMessageW(controls[list], CB_GETCOUNT, 0, 0)));
        for (std::size_t i = 0; i < texts.size(); ++i) {
            wchar_t text[128]{};
            SendMessageW(controls[list], CB_GETLBTEXT, i, reinterpret_cast<LPARAM>(text));
            texts[i] = text;
        }
        return texts;
    }
    std::wstring textOf(ControlId id) const { return std::wstring(controls.secretText(id).view()); }
    wchar_t mask() const {
        return static_cast<wchar_t>(SendMessageW(controls[kIdCustomUrl], EM_GETPASSWORDCHAR, 0, 0));
    }

    test::TestWindow window;
    ControlSet controls;
    SettingsPanel panel{controls};
};

SettingsForm everyField() {
    return formFromSettings(test::everySetting());
}

void expectSame(const SettingsForm& a, const SettingsForm& b) {
    EXPECT_TRUE(test::sameSettings(a.settings, b.settings));
    EXPECT_TRUE(a.latencyText == b.latencyText);
    EXPECT_TRUE(a.firstFrameDeadlineText == b.firstFrameDeadlineText);
}

TEST_F(SettingsPanelTest, OffersTheEntriesInTheOrderOfTheirValues) {
    EXPECT_EQ(entries(kIdSource),
              (std::vector<std::wstring>{L"Perfil interno Vextra (padrão)", L"Câmera direta • IPv4 + stream",
                                         L"URL personalizada", L"Teste sintético • sem rede"}));
    EXPECT_EQ(entries(kIdStream), (std::vector<std::wstring>{L"stream1", L"stream2"}));
    EXPECT_EQ(entries(kIdTransport), (std::vector<std::wstring>{L"TCP (recomendado)", L"UDP"}));
    EXPECT_EQ(entries(kIdDecoder),
              (std::vector<std::wstring>{L"FFmpeg", L"GStreamer (opcional)", L"Auto • GStreamer/FFmpeg"}));
}

TEST_F(SettingsPanelTest, ShowsAFormInItsControls) {
    panel.fill(everyField());
    EXPECT_EQ(controls.selection(kIdSource), 2);
    EXPECT_EQ(controls.selection(kIdStream), 1);
    EXPECT_EQ(controls.selection(kIdTransport), 1);
    EXPECT_EQ(controls.selection(kIdDecoder), 2);
    EXPECT_EQ(textOf(kIdDirectIp), L"192.0.2.9");
    EXPECT_EQ(textOf(kIdCustomUrl), L"rtsps://custom/2?é");
    EXPECT_EQ(textOf(kIdDirectUser), L"usuário");
    EXPECT_EQ(textOf(kIdDirectPassword), L"señha & €");
    EXPECT_EQ(textOf(kIdLatency), L"123");
    EXPECT_EQ(textOf(kIdDeadline), L"4567");
    EXPECT_EQ(textOf(kIdManifestUrl), L"https://manifest/3");
    EXPECT_TRUE(controls.checked(kIdUpdateDisabled));
}

TEST_F(SettingsPanelTest, ReadsBackTheFormThatItShows) {
    panel.fill(everyField());
    expectSame(panel.read(everyField().settings), everyField());
    const SettingsForm defaults = formFromSettings(BrokerSettings{});
    panel.fill(defaults);
    expectSame(panel.read(defaults.settings), defaults);
}

// The texts of the numbers are what counts of them.
TEST_F(SettingsPanelTest, ReadsAllButTheProfileAddressFromItsControls) {
    panel.fill(everyField());
    BrokerSettings current;
    current.profileUrl.assign(L"rtsp://in/effect");
    SettingsForm expected = everyField();
    expected.settings.profileUrl = current.profileUrl;
    expected.settings.latencyMs = current.latencyMs;
    expected.settings.firstFrameDeadlineMs = current.firstFrameDeadlineMs;
    expectSame(panel.read(current), expected);
}

TEST_F(SettingsPanelTest, ShowsTheProfileAddressNowhere) {
    panel.fill(everyField());
    for (const Control& control : kControls)
        EXPECT_EQ(textOf(control.id).find(L"profile"), std::wstring::npos) << control.id;
}

TEST_F(SettingsPanelTest, ReadsNoSelectionAsNone) {
    panel.fill(everyField());
    for (const ControlId list : {kIdSource, kIdStream, kIdTransport, kIdDecoder})
        controls.select(list, -1);
    SettingsForm expected = everyField();
    constexpr std::uint32_t kOneBeforeZero = 0xFFFFFFFF;  // which no record may hold
    expected.settings.source = static_cast<SourceKind>(kOneBeforeZero);
    expected.settings.stream = 0;
    expected.settings.rtspUdp = false;
    expected.settings.decoder = static_cast<DecoderBackend>(kOneBeforeZero);
    expectSame(panel.read(everyField().settings), expected);
}

TEST_F(SettingsPanelTest, KnowsTheSelectedSource) {
    for (int source = 0; source <= 3; ++source) {
        controls.select(kIdSource, source);
        EXPECT_EQ(static_cast<int>(panel.selectedSource()), source);
    }
    controls.select(kIdSource, -1);
    EXPECT_EQ(panel.selectedSource(), SourceKind::kInternalProfile);
}

TEST_F(SettingsPanelTest, RevealsAndHidesTheAddress) {
    panel.fill(everyField());
    EXPECT_EQ(textOf(kIdRevealUrl), L"Revelar URL");
    EXPECT_EQ(mask(), L'\u25CF');
    panel.toggleUrl();
    EXPECT_EQ(textOf(kIdRevealUrl), L"Ocultar URL");
    EXPECT_EQ(mask(), L'\0');
    panel.toggleUrl();
    EXPECT_EQ(textOf(kIdRevealUrl), L"Revelar URL");
    EXPECT_EQ(mask(), L'\u25CF');
    EXPECT_EQ(textOf(kIdCustomUrl), L"rtsps://custom/2?é");
}

TEST_F(SettingsPanelTest, RevealsNoOtherSecret) {
    panel.toggleUrl();
    for (const ControlId field : {kIdDirectIp, kIdDirectPassword, kIdManifestUrl})
        EXPECT_EQ(SendMessageW(controls[field], EM_GETPASSWORDCHAR, 0, 0), 0x25CF) << field;
}

TEST_F(SettingsPanelTest, TogglesTheAdvancedFields) {
    EXPECT_FALSE(panel.advancedShown());
    panel.toggleAdvanced();
    EXPECT_TRUE(panel.advancedShown());
    panel.toggleAdvanced();
    EXPECT_FALSE(panel.advancedShown());
}

TEST_F(SettingsPanelTest, MasksWhatWasRevealedOfTheLastRecord) {
    panel.fill(everyField());
    panel.toggleUrl();
    ASSERT_EQ(mask(), L'\0');
    panel.fill(everyField());
    EXPECT_EQ(mask(), L'\u25CF');
    panel.toggleUrl();
    EXPECT_EQ(mask(), L'\0') << "one press reveals again";
}

}  // namespace
}  // namespace vextra
