// The settings panel of the running broker, filled in and pressed from outside; what it stores is read back
// as the next start would.
#include <algorithm>
#include <optional>
#include <sstream>

#include "broker_test_win.h"
#include "broker_window_win.h"
#include "config/settings_record.h"
#include "config/settings_store.h"

namespace vextra::test {
namespace {

constexpr wchar_t kApplied[] =
    L"Configuração salva e aplicada. Conexão somente por demanda ou prévia explícita.";
constexpr wchar_t kBlocked[] =
    L"Aplicação bloqueada: pare a prévia e aguarde o fim da captura externa. Nenhuma reunião será "
    L"interrompida.";
constexpr wchar_t kNoNumbers[] = L"Latência e prazo devem ser números inteiros (ms).";
constexpr wchar_t kOutOfRange[] = L"Parâmetros fora do intervalo permitido.";
constexpr wchar_t kNotSaved[] =
    L"Não foi possível salvar. Configuração anterior preservada; verifique a pasta do usuário.";
constexpr wchar_t kReloaded[] = L"Configuração salva recarregada, sem iniciar captura.";
constexpr wchar_t kReloadBlocked[] = L"Recarregar bloqueado durante captura/prévia.";
constexpr wchar_t kNothingToReload[] = L"Nenhuma configuração salva pôde ser lida; nada foi alterado.";

class SettingsPanel : public BrokerTest {
protected:
    SettingsPanel() {
        decoder().behave("frames=endless\nframesPerSecond=16");
        broker().start(L"");
        EXPECT_TRUE(broker().waitForEvent("MF_UPDATE_CHECK_COMPLETED", 20'000));
        window.press(kIdTabSettings);
    }

    std::optional<BrokerSettings> stored() {
        BrokerSettings settings;
        bool fromBackup = false;
        return loadSettings(broker().dataFolder(), settings, fromBackup) ? std::optional(settings)
                                                                         : std::nullopt;
    }
    void typeUrl(const std::wstring& url) {
        window.choose(kIdSource, 2);
        window.type(kIdCustomUrl, url);
    }
    bool apply(std::wstring_view status) {
        window.press(kIdApply);
        return window.waitForStatus(status);
    }
    // A click that was on its way while the button turned grey.
    void pressApplyThoughDisabled() { SendMessageW(window.handle(), WM_COMMAND, kIdApply, 0); }
    void restart(const std::wstring& options = L"") {
        broker().terminate();
        broker().start(options);
        window.press(kIdTabSettings);
    }
    // Windows shows another program no masked text, so it is revealed first; hidden again afterwards.
    std::wstring shownUrl() {
        window.press(kIdRevealUrl);
        const std::wstring url = window.text(kIdCustomUrl);
        window.press(kIdRevealUrl);
        return url;
    }
    void startPreview() {
        window.press(kIdTabCamera);
        window.press(kIdPreview);
        window.press(kIdTabSettings);
    }
    std::wstring openedAddress() {
        startPreview();
        return decoder().record().argumentAfter(L"-i");
    }
    std::vector<std::string> settingsEvents() {
        std::vector<std::string> events = broker().events();
        std::erase_if(events, [](const std::string& event) { return !event.starts_with("SETTINGS_"); });
        return events;
    }
    // The same with their numbers: "SETTINGS_LATENCY 50".
    std::vector<std::string> settingsNumbers() {
        std::vector<std::string> events;
        std::istringstream lines(readFile(broker().dataFolder() + L"\\diagnostic.log"));
        for (std::string line; std::getline(lines, line);) {
            std::istringstream words(line);
            std::string tick, code, number;
            words >> tick >> code >> number;
            if (code.starts_with("SETTINGS_"))
                events.push_back(code + " " + std::to_string(std::stoul(number.substr(3), nullptr, 16)));
        }
        return events;
    }

    // What masked fields hold is seen by what they save.
    void expectFieldsHoldWhatIsStored() {
        const std::optional<BrokerSettings> before = stored();
        ASSERT_TRUE(before);
        ASSERT_TRUE(apply(kApplied));
        const std::optional<BrokerSettings> after = stored();
        ASSERT_TRUE(after);
        EXPECT_TRUE(serializeSettings(*after) == serializeSettings(*before));
    }

    const BrokerWindow window{broker()};
};

TEST_F(SettingsPanel, KeepsACustomAddressAcrossARestart) {
    typeUrl(L"https://camera.example:8443/live?a=1");
    window.choose(kIdTransport, 1);
    window.choose(kIdDecoder, 2);
    window.press(kIdAdvanced);
    window.type(kIdLatency, L"120");
    window.type(kIdDeadline, L"9000");
    window.type(kIdManifestUrl, L"https://updates.example/beta.json");
    window.check(kIdUpdateDisabled, true);
    ASSERT_TRUE(apply(kApplied));
    restart();
    EXPECT_EQ(window.chosen(kIdSource), 2);
    EXPECT_EQ(shownUrl(), L"https://camera.example:8443/live?a=1");
    EXPECT_EQ(window.chosen(kIdTransport), 1);
    EXPECT_EQ(window.chosen(kIdDecoder), 2);
    EXPECT_EQ(window.text(kIdLatency), L"120");
    EXPECT_EQ(window.text(kIdDeadline), L"9000");
    EXPECT_TRUE(window.checked(kIdUpdateDisabled));
    expectFieldsHoldWhatIsStored();
}

TEST_F(SettingsPanel, KeepsADirectCameraAcrossARestart) {
    window.choose(kIdSource, 1);
    window.type(kIdDirectIp, L"192.0.2.7");
    window.choose(kIdStream, 1);
    window.type(kIdDirectUser, L"usuário");
    window.type(kIdDirectPassword, L"sénha •🔒");
    ASSERT_TRUE(apply(kApplied));
    restart();
    EXPECT_EQ(window.chosen(kIdSource), 1);
    EXPECT_EQ(window.chosen(kIdStream), 1);
    EXPECT_EQ(window.text(kIdDirectUser), L"usuário");
    EXPECT_EQ(stored()->directIp.view(), L"192.0.2.7");
    EXPECT_EQ(stored()->directPassword.view(), L"sénha •🔒");
    expectFieldsHoldWhatIsStored();
}

TEST_F(SettingsPanel, AppliesWithoutConnecting) {
    typeUrl(L"rtsp://camera.example/live");
    ASSERT_TRUE(apply(kApplied));
    Sleep(300);
    EXPECT_FALSE(decoderHasStarted());
    EXPECT_EQ(settingsEvents(), std::vector<std::string>{"SETTINGS_APPLIED_DPAPI"});
}

TEST_F(SettingsPanel, IsWhatTheNextProducerUses) {
    typeUrl(L"rtsp://camera.example/live");
    ASSERT_TRUE(apply(kApplied));
    EXPECT_EQ(openedAddress(), L"rtsp://camera.example/live");
}

TEST_F(SettingsPanel, SwitchesToTheTestPictureWithoutStartingAnything) {
    window.choose(kIdSource, 3);
    ASSERT_TRUE(apply(kApplied));
    Sleep(300);
    EXPECT_FALSE(decoderHasStarted());
    EXPECT_EQ(openedAddress().substr(0, 9), L"testsrc2=");
}

TEST_F(SettingsPanel, RefusesWhatIsNoNumberWithoutLogging) {
    typeUrl(L"rtsp://camera.example/live");
    for (const wchar_t* latency : {L"", L"12ms", L"30001"}) {
        window.press(kIdReload);
        ASSERT_TRUE(window.waitForStatus(kNothingToReload));
        window.type(kIdLatency, latency);
        EXPECT_TRUE(apply(kNoNumbers)) << latency;
    }
    EXPECT_EQ(settingsEvents(), std::vector<std::string>{});
    EXPECT_FALSE(stored());
}

TEST_F(SettingsPanel, LogsTheNumbersOfARefusedRecordInOrder) {
    window.choose(kIdSource, 3);
    window.choose(kIdStream, 1);
    window.choose(kIdDecoder, 1);
    window.type(kIdLatency, L"5001");
    window.type(kIdDeadline, L"999");
    ASSERT_TRUE(apply(kOutOfRange));
    EXPECT_EQ(settingsNumbers(),
              (std::vector<std::string>{"SETTINGS_VALIDATION_REJECTED 0", "SETTINGS_SOURCE 3",
                                        "SETTINGS_STREAM 2", "SETTINGS_DECODER 1", "SETTINGS_LATENCY 5001",
                                        "SETTINGS_FIRST_DEADLINE 999"}));
    EXPECT_FALSE(stored());
}

TEST_F(SettingsPanel, KeepsTheOldRecordInEffectWhenItRefusesTheNewOne) {
    typeUrl(L"rtsp://camera.example/old");
    ASSERT_TRUE(apply(kApplied));
    typeUrl(L"rtsp://camera.example/new");
    window.type(kIdLatency, L"5001");
    ASSERT_TRUE(apply(kOutOfRange));
    EXPECT_EQ(openedAddress(), L"rtsp://camera.example/old");
}

TEST_F(SettingsPanel, SaysWhatIsWrongWithAnAddress) {
    typeUrl(L"ftp://camera.example/live");
    EXPECT_TRUE(apply(L"Informe uma URL http, https, rtsp ou rtsps completa, sem espaços."));
    window.choose(kIdSource, 1);
    window.type(kIdDirectIp, L"300.1.1.1");
    EXPECT_TRUE(apply(L"Informe um IPv4 válido: quatro números entre 0 e 255."));
}

TEST_F(SettingsPanel, IsBlockedWhileTheManualPreviewRuns) {
    window.choose(kIdSource, 3);
    ASSERT_TRUE(apply(kApplied));
    startPreview();
    ASSERT_TRUE(viewer().waitForState(BridgeState::kLive));
    EXPECT_TRUE(waitUntil([&] { return !window.enabled(kIdApply); }, 2000));
    typeUrl(L"rtsp://camera.example/live");
    pressApplyThoughDisabled();
    EXPECT_TRUE(window.waitForStatus(kBlocked));
    EXPECT_EQ(settingsEvents().back(), "SETTINGS_APPLY_BLOCKED_ACTIVE_OR_UNKNOWN");
    EXPECT_EQ(stored()->source, SourceKind::kSyntheticTest);
}

// Nothing else is in its way: there is no usable source, so no episode begins, and no program holds a lease.
TEST_F(SettingsPanel, IsBlockedByAManualPreviewThatStartedNothing) {
    startPreview();
    ASSERT_TRUE(waitUntil([&] { return !window.enabled(kIdApply); }, 2000));
    typeUrl(L"rtsp://camera.example/live");
    pressApplyThoughDisabled();  // its text gives way at once to the Supervisor's
    EXPECT_EQ(settingsEvents(), std::vector<std::string>{"SETTINGS_APPLY_BLOCKED_ACTIVE_OR_UNKNOWN"});
    EXPECT_FALSE(decoderHasStarted());
    EXPECT_FALSE(stored());
}

TEST_F(SettingsPanel, IsBlockedByALeaseThatStartedNothing) {
    viewer().takeLease();  // no usable source: no episode begins
    ASSERT_TRUE(waitUntil([&] { return !window.enabled(kIdApply); }, 2000));
    typeUrl(L"rtsp://camera.example/live");
    pressApplyThoughDisabled();  // its text gives way at once to the Supervisor's, which asks for a valid
                                 // source
    EXPECT_EQ(settingsEvents(), std::vector<std::string>{"SETTINGS_APPLY_BLOCKED_ACTIVE_OR_UNKNOWN"});
    EXPECT_FALSE(stored());
}

TEST_F(SettingsPanel, IsBlockedWhileTheDemandIsUnknown) {
    broker().terminate();
    machine_.removeValue(L"DemandPath");
    broker().start(L"");
    EXPECT_TRUE(waitUntil([&] { return !window.enabled(kIdApply); }, 2000));
    typeUrl(L"rtsp://camera.example/live");
    pressApplyThoughDisabled();
    EXPECT_TRUE(window.waitForStatus(kBlocked));
}

TEST_F(SettingsPanel, IsBlockedByALeaseForThreeSecondsAfterItsLastHeartbeat) {
    constexpr Tick kAlmostStaleMs = 2000;
    const Tick lastHeartbeat = GetTickCount64() - kAlmostStaleMs;
    viewer().demand().slots[0] = {7, lastHeartbeat};
    typeUrl(L"rtsp://camera.example/live");
    pressApplyThoughDisabled();
    EXPECT_EQ(settingsEvents(), std::vector<std::string>{"SETTINGS_APPLY_BLOCKED_ACTIVE_OR_UNKNOWN"});
    ASSERT_LE(GetTickCount64() - lastHeartbeat, kLeaseFreshMs) << "the machine was too slow for this test";
    ASSERT_TRUE(waitUntil([&] { return GetTickCount64() - lastHeartbeat > kLeaseFreshMs + 50; }, 2000));
    pressApplyThoughDisabled();  // the button turns up to 200 ms later
    EXPECT_EQ(settingsEvents(), (std::vector<std::string>{"SETTINGS_APPLY_BLOCKED_ACTIVE_OR_UNKNOWN",
                                                          "SETTINGS_APPLIED_DPAPI"}));
}

TEST_F(SettingsPanel, CanApplyAgainOnceTheLeaseIsGone) {
    viewer().takeLease();
    ASSERT_TRUE(waitUntil([&] { return !window.enabled(kIdApply); }, 2000));
    viewer().releaseLease();
    EXPECT_TRUE(waitUntil([&] { return window.enabled(kIdApply); }, 2000));
}

TEST_F(SettingsPanel, KeepsTheOldRecordWhenItCannotSave) {
    typeUrl(L"rtsp://camera.example/old");
    ASSERT_TRUE(apply(kApplied));
    writeFile(broker().dataFolder() + L"\\settings.dpapi.new", "left by a crash");
    typeUrl(L"rtsp://camera.example/new");
    EXPECT_TRUE(apply(kNotSaved));
    EXPECT_EQ(settingsEvents().back(), "SETTINGS_SAVE_FAILED");
    EXPECT_EQ(openedAddress(), L"rtsp://camera.example/old");
}

TEST_F(SettingsPanel, ReloadsWhatIsSaved) {
    typeUrl(L"rtsp://camera.example/live");
    ASSERT_TRUE(apply(kApplied));
    typeUrl(L"rtsp://elsewhere.example/");
    window.choose(kIdSource, 1);
    window.press(kIdReload);
    EXPECT_TRUE(window.waitForStatus(kReloaded));
    EXPECT_EQ(window.chosen(kIdSource), 2);
    EXPECT_EQ(shownUrl(), L"rtsp://camera.example/live");
    EXPECT_TRUE(window.visible(kIdCustomUrl));
}

TEST_F(SettingsPanel, PutsWhatItReloadsInEffect) {
    typeUrl(L"rtsp://camera.example/old");
    ASSERT_TRUE(apply(kApplied));
    BrokerSettings changed = *stored();
    changed.customUrl.assign(L"rtsp://camera.example/new");
    ASSERT_TRUE(saveSettings(broker().dataFolder(), changed));
    window.press(kIdReload);
    ASSERT_TRUE(window.waitForStatus(kReloaded));
    EXPECT_EQ(openedAddress(), L"rtsp://camera.example/new");
}

// Which is why the guide says to quit the broker before an import: a running one does not look.
TEST_F(SettingsPanel, OverwritesWhatAnImportSavedBesideIt) {
    typeUrl(L"rtsp://running.example/");
    ASSERT_TRUE(apply(kApplied));
    const ScopedVariable source(L"CAMERA_VIRTUAL_VEXTRA_SOURCE", L"custom");
    const ScopedVariable url(L"CAMERA_VIRTUAL_VEXTRA_CUSTOM_URL", L"rtsp://imported.example/");
    EXPECT_EQ(broker().runToEnd(L"--import-legacy-env --background"), 2u);
    EXPECT_EQ(stored()->customUrl.view(), L"rtsp://imported.example/");
    ASSERT_TRUE(apply(kApplied));
    EXPECT_EQ(stored()->customUrl.view(), L"rtsp://running.example/");
}

// What it shows is what it saves, and it shows the forced source.
TEST_F(SettingsPanel, SavesTheTestPictureInARunThatIsForcedToIt) {
    typeUrl(L"rtsp://camera.example/live");
    ASSERT_TRUE(apply(kApplied));
    restart(L"--test-pattern");
    EXPECT_EQ(window.chosen(kIdSource), 3);
    ASSERT_TRUE(apply(kApplied));
    EXPECT_EQ(stored()->source, SourceKind::kSyntheticTest);
}

TEST_F(SettingsPanel, ReloadsNothingWhileThePreviewRuns) {
    window.choose(kIdSource, 3);
    ASSERT_TRUE(apply(kApplied));
    startPreview();
    ASSERT_TRUE(viewer().waitForState(BridgeState::kLive));
    typeUrl(L"rtsp://typed.example/");
    window.press(kIdReload);
    EXPECT_TRUE(window.waitForStatus(kReloadBlocked));
    EXPECT_EQ(shownUrl(), L"rtsp://typed.example/");
    EXPECT_EQ(window.chosen(kIdSource), 2);
}

TEST_F(SettingsPanel, ChangesNothingWhenThereIsNothingToReload) {
    typeUrl(L"rtsp://typed.example/");
    window.press(kIdReload);
    EXPECT_TRUE(window.waitForStatus(kNothingToReload));
    EXPECT_EQ(shownUrl(), L"rtsp://typed.example/");
}

// --- Masks ---

TEST_F(SettingsPanel, RevealsTheAddressAndHidesItAgain) {
    typeUrl(L"rtsp://camera.example/live");
    EXPECT_TRUE(window.masked(kIdCustomUrl));
    EXPECT_EQ(window.text(kIdRevealUrl), L"Revelar URL");
    window.press(kIdRevealUrl);
    EXPECT_EQ(SendMessageW(window.control(kIdCustomUrl), EM_GETPASSWORDCHAR, 0, 0), 0);
    EXPECT_EQ(window.text(kIdRevealUrl), L"Ocultar URL");
    window.press(kIdRevealUrl);
    EXPECT_TRUE(window.masked(kIdCustomUrl));
    EXPECT_EQ(window.text(kIdRevealUrl), L"Revelar URL");
}

TEST_F(SettingsPanel, HidesARevealedAddressWhenItIsReloaded) {
    typeUrl(L"rtsp://camera.example/live");
    ASSERT_TRUE(apply(kApplied));
    window.press(kIdRevealUrl);
    ASSERT_FALSE(window.masked(kIdCustomUrl));
    window.press(kIdReload);
    EXPECT_TRUE(window.masked(kIdCustomUrl));
    EXPECT_EQ(window.text(kIdRevealUrl), L"Revelar URL");
}

TEST_F(SettingsPanel, HidesARevealedAddressWhenThePanelIsLeftOrTheWindowClosed) {
    typeUrl(L"rtsp://camera.example/live");
    window.press(kIdRevealUrl);
    ASSERT_FALSE(window.masked(kIdCustomUrl));
    window.press(kIdTabCamera);
    EXPECT_TRUE(window.masked(kIdCustomUrl));
    window.pressOn(kIdTabSettings, kIdRevealUrl);
    ASSERT_FALSE(window.masked(kIdCustomUrl));
    SendMessageW(window.handle(), WM_CLOSE, 0, 0);
    ASSERT_FALSE(IsWindowVisible(window.handle()));
    EXPECT_TRUE(window.masked(kIdCustomUrl));
}

TEST_F(SettingsPanel, KeepsItsFieldsMaskedWhateverHappensToTheWindow) {
    typeUrl(L"rtsp://camera.example/live");
    ASSERT_TRUE(apply(kApplied));
    const auto allMasked = [&] {
        return window.masked(kIdDirectIp) && window.masked(kIdCustomUrl) &&
               window.masked(kIdDirectPassword) && window.masked(kIdManifestUrl);
    };
    EXPECT_TRUE(allMasked());
    window.press(kIdTabCamera);
    window.press(kIdTabSettings);
    EXPECT_TRUE(allMasked()) << "after a change of panel";
    SetWindowPos(window.handle(), nullptr, 0, 0, 1100, 900, SWP_NOZORDER | SWP_NOACTIVATE);
    EXPECT_TRUE(allMasked()) << "after a change of size";
    window.press(kIdReload);
    EXPECT_TRUE(allMasked()) << "after a reload";
    for (int source = 0; source < 4; ++source)
        window.choose(kIdSource, source);
    EXPECT_TRUE(allMasked()) << "after a change of source";
}

// --- What is there ---

TEST_F(SettingsPanel, ShowsTheFieldsOfTheChosenSource) {
    const auto shown = [&] {
        std::vector<bool> visible;
        for (const ControlId id :
             {kIdDirectIp, kIdStream, kIdDirectUser, kIdDirectPassword, kIdCustomUrl, kIdRevealUrl})
            visible.push_back(window.visible(id));
        return visible;
    };
    const std::vector<bool> none(6, false), direct{true, true, true, true, false, false},
        custom{false, false, false, false, true, true};
    window.choose(kIdSource, 0);
    EXPECT_EQ(shown(), none);
    window.choose(kIdSource, 1);
    EXPECT_EQ(shown(), direct);
    window.choose(kIdSource, 2);
    EXPECT_EQ(shown(), custom);
    window.choose(kIdSource, 3);
    EXPECT_EQ(shown(), none);
}

TEST_F(SettingsPanel, ShowsTheAdvancedFieldsOnDemand) {
    EXPECT_FALSE(window.visible(kIdLatency));
    window.press(kIdAdvanced);
    EXPECT_TRUE(window.visible(kIdLatency));
    EXPECT_TRUE(window.visible(kIdDeadline));
    window.press(kIdAdvanced);
    EXPECT_FALSE(window.visible(kIdLatency));
}

TEST_F(SettingsPanel, OpensByItselfWhenThereIsNoUsableSource) {
    broker().terminate();
    broker().start(L"");
    EXPECT_TRUE(window.visible(kIdSource));
    EXPECT_EQ(window.chosen(kIdSource), 2);
    EXPECT_TRUE(window.visible(kIdCustomUrl));
}

TEST_F(SettingsPanel, SavesWithTheEnterKeyFromAField) {
    typeUrl(L"rtsp://camera.example/live");
    ASSERT_TRUE(window.focus(kIdCustomUrl));
    window.key(VK_RETURN);
    EXPECT_TRUE(window.waitForStatus(kApplied));
}

TEST_F(SettingsPanel, IsLeftWithoutSavingByTheEnterKeyOnATab) {
    typeUrl(L"rtsp://camera.example/live");
    ASSERT_TRUE(window.focus(kIdTabDiagnostics));
    window.key(VK_RETURN);
    EXPECT_TRUE(waitUntil([&] { return window.visible(kIdLogs); }, 2000));
    EXPECT_FALSE(stored());
}

}  // namespace
}  // namespace vextra::test
