#include "config/settings_apply.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "settings_samples.h"

namespace vextra {
namespace {

using test::everySetting;
using test::sameSettings;

constexpr CameraUse kIdle{false, false, 0};

constexpr wchar_t kBlocked[] =
    L"Aplicação bloqueada: pare a prévia e aguarde o fim da captura externa. Nenhuma reunião será "
    L"interrompida.";
constexpr wchar_t kNotNumbers[] = L"Latência e prazo devem ser números inteiros (ms).";
constexpr wchar_t kOutOfRange[] = L"Parâmetros fora do intervalo permitido.";
constexpr wchar_t kNoUrl[] = L"Informe uma URL http, https, rtsp ou rtsps completa, sem espaços.";
constexpr wchar_t kNotSaved[] =
    L"Não foi possível salvar. Configuração anterior preservada; verifique a pasta do usuário.";
constexpr wchar_t kApplied[] =
    L"Configuração salva e aplicada. Conexão somente por demanda ou prévia explícita.";

SecretText secret(std::wstring_view text) {
    return SecretText(text);
}

// A form that is accepted, so that a test changes the one field it is about.
SettingsForm acceptable() {
    BrokerSettings settings;
    settings.source = SourceKind::kSyntheticTest;
    return formFromSettings(settings);
}

// What was saved, and what the flow said.
struct Attempt {
    ApplyOutcome outcome;
    std::wstring message;
    BrokerSettings record;
    std::vector<BrokerSettings> saved;
};

struct Circumstances {
    CameraUse use = kIdle;
    bool saveWorks = true;
};

Attempt apply(const SettingsForm& form, const Circumstances& given = {}) {
    Attempt attempt;
    const auto save = [&](const BrokerSettings& record) {
        attempt.saved.push_back(record);
        return given.saveWorks;
    };
    ApplyResult result = applySettings(form, given.use, save);
    attempt.outcome = result.outcome;
    attempt.message = result.message;
    attempt.record = result.record;
    return attempt;
}

void expectRefusal(const Attempt& attempt, ApplyOutcome outcome, const wchar_t* message) {
    EXPECT_EQ(attempt.outcome, outcome);
    EXPECT_EQ(attempt.message, message);
    EXPECT_TRUE(attempt.saved.empty());
}

// --- The panel and the record ---

TEST(SettingsForm, IsTheRecordWithItsTypedNumbersAsTexts) {
    const SettingsForm form = formFromSettings(everySetting());
    EXPECT_TRUE(sameSettings(form.settings, everySetting()));
    EXPECT_EQ(form.latencyText.view(), L"123");
    EXPECT_EQ(form.firstFrameDeadlineText.view(), L"4567");
}

TEST(SettingsForm, BringsBackTheRecordThatItShows) {
    const Attempt attempt = apply(formFromSettings(everySetting()));
    ASSERT_EQ(attempt.outcome, ApplyOutcome::kApplied);
    EXPECT_TRUE(sameSettings(attempt.record, everySetting()));
}

// --- When settings may change ---

TEST(IdleCamera, HasNoEpisodeNoPreviewAndNoLease) {
    EXPECT_TRUE(cameraIsIdle({false, false, 0}));
    EXPECT_FALSE(cameraIsIdle({true, false, 0}));
    EXPECT_FALSE(cameraIsIdle({false, true, 0}));
    EXPECT_FALSE(cameraIsIdle({false, false, 1}));
    EXPECT_FALSE(cameraIsIdle({false, false, 16}));
}

TEST(IdleCamera, IsNotAssumedOfAnUnreadableChannel) {
    EXPECT_FALSE(cameraIsIdle({false, false, -1}));
}

TEST(IdleCamera, IsNotAssumedOfWhatWasNotSaid) {
    EXPECT_FALSE(cameraIsIdle({.previewRuns = false, .leaseCount = 0}));
    EXPECT_FALSE(cameraIsIdle({.episodeActive = false, .leaseCount = 0}));
    EXPECT_FALSE(cameraIsIdle({.episodeActive = false, .previewRuns = false}));
}

TEST(ApplyingSettings, IsBlockedWhileTheCameraIsInUseOrNobodyKnows) {
    for (const CameraUse& use : {CameraUse{true, false, 0}, CameraUse{false, true, 0},
                                 CameraUse{false, false, 1}, CameraUse{false, false, -1}}) {
        expectRefusal(apply(acceptable(), {.use = use}), ApplyOutcome::kBlocked, kBlocked);
    }
}

// --- The number fields ---

Attempt withLatency(std::wstring_view text) {
    SettingsForm form = acceptable();
    form.latencyText = secret(text);
    return apply(form);
}

Attempt withDeadline(std::wstring_view text) {
    SettingsForm form = acceptable();
    form.firstFrameDeadlineText = secret(text);
    return apply(form);
}

TEST(NumberFields, TakeWhatTheirRangesAllow) {
    for (const std::uint32_t latency : {0u, 1u, 50u, 5000u}) {
        const Attempt attempt = withLatency(std::to_wstring(latency));
        EXPECT_EQ(attempt.outcome, ApplyOutcome::kApplied) << latency;
        EXPECT_EQ(attempt.record.latencyMs, latency);
    }
    for (const std::uint32_t deadline : {1000u, 1001u, 29'999u, 30'000u}) {
        const Attempt attempt = withDeadline(std::to_wstring(deadline));
        EXPECT_EQ(attempt.outcome, ApplyOutcome::kApplied) << deadline;
        EXPECT_EQ(attempt.record.firstFrameDeadlineMs, deadline);
    }
}

TEST(NumberFields, BeyondTheirRangeAreJudgedLikeTheRestOfTheRecord) {
    for (const wchar_t* latency : {L"5001", L"29999", L"30000"})
        expectRefusal(withLatency(latency), ApplyOutcome::kRejected, kOutOfRange);
    for (const wchar_t* deadline : {L"0", L"999"})
        expectRefusal(withDeadline(deadline), ApplyOutcome::kRejected, kOutOfRange);
}

TEST(NumberFields, HoldNumbersUpTo30000) {
    for (const wchar_t* text : {L"30001", L"99999", L"4294967296", L"99999999999999999999999999"}) {
        expectRefusal(withLatency(text), ApplyOutcome::kNotNumbers, kNotNumbers);
        expectRefusal(withDeadline(text), ApplyOutcome::kNotNumbers, kNotNumbers);
    }
}

TEST(NumberFields, HoldNothingElseThanANumber) {
    const std::wstring_view kTexts[] = {
        L"",
        L" ",
        L"12ms",
        L"12 ",
        L"-1",
        L"- 1",
        L"0x20",
        L"1.5",
        L"1,5",
        L"abc",
        L"++5",
        L"1e3",
        std::wstring_view(L"50\0", 3),
        std::wstring_view(L"50\0ms", 5),
    };
    for (const std::wstring_view text : kTexts) {
        expectRefusal(withLatency(text), ApplyOutcome::kNotNumbers, kNotNumbers);
        expectRefusal(withDeadline(text), ApplyOutcome::kNotNumbers, kNotNumbers);
    }
}

// As the system's own conversion reads them; they cannot be typed into the fields, but pasted.
TEST(NumberFields, MayBeginWithBlanksAPlusOrZeros) {
    for (const wchar_t* text : {L" 50", L"\t50", L"+50", L" +50", L"00050"}) {
        const Attempt attempt = withLatency(text);
        EXPECT_EQ(attempt.outcome, ApplyOutcome::kApplied);
        EXPECT_EQ(attempt.record.latencyMs, 50u);
    }
}

// It cannot be typed; what matters is that it is the same number wherever these rules are judged.
TEST(NumberFields, WrapANegativeNumberAtTwoToTheThirtySecond) {
    const Attempt attempt = withLatency(L"-4294967246");
    EXPECT_EQ(attempt.outcome, ApplyOutcome::kApplied);
    EXPECT_EQ(attempt.record.latencyMs, 50u);
}

// --- The lists ---

template <typename Value, std::size_t kCount>
void expectReadAsItCounts(const std::array<NamedChoice<Value>, kCount>& choices) {
    for (std::size_t i = 0; i < kCount; ++i) {
        const auto selection = static_cast<std::int32_t>(i);
        EXPECT_EQ(selectedValue(choices, selection), choices[i].value) << i;
        EXPECT_EQ(selectionOf(choices, choices[i].value), selection) << i;
    }
}

TEST(Lists, AreReadAsTheyCount) {
    expectReadAsItCounts(kSourceKinds);
    expectReadAsItCounts(kStreams);
    expectReadAsItCounts(kTransports);
    expectReadAsItCounts(kDecoderBackends);
}

TEST(Lists, ShowNothingAsTheirSelectionWithoutOne) {
    EXPECT_EQ(selectionOf(kSourceKinds, selectedValue(kSourceKinds, -1)), -1);
    EXPECT_EQ(selectionOf(kStreams, selectedValue(kStreams, -1)), -1);
    EXPECT_EQ(selectionOf(kDecoderBackends, selectedValue(kDecoderBackends, -1)), -1);
}

TEST(Lists, WithoutASelectionOrBeyondTheirEntriesAreRefused) {
    for (const std::int32_t selection : {-1, 4}) {
        SettingsForm form = acceptable();
        form.settings.source = selectedValue(kSourceKinds, selection);
        expectRefusal(apply(form), ApplyOutcome::kRejected, kOutOfRange);
    }
    for (const std::int32_t selection : {-1, 2}) {
        SettingsForm form = acceptable();
        form.settings.stream = selectedValue(kStreams, selection);
        expectRefusal(apply(form), ApplyOutcome::kRejected, kOutOfRange);
    }
    for (const std::int32_t selection : {-1, 3}) {
        SettingsForm form = acceptable();
        form.settings.decoder = selectedValue(kDecoderBackends, selection);
        expectRefusal(apply(form), ApplyOutcome::kRejected, kOutOfRange);
    }
    EXPECT_FALSE(selectedValue(kTransports, -1));
}

// --- The order of the checks ---

SettingsForm wrongInEveryWay() {
    SettingsForm form = acceptable();
    form.settings.source = SourceKind::kCustomUrl;
    form.settings.customUrl = secret(L"no address");
    form.latencyText = secret(L"12ms");
    return form;
}

TEST(ApplyingSettings, AsksFirstWhetherTheCameraIsIdle) {
    expectRefusal(apply(wrongInEveryWay(), {.use = {true, false, 0}, .saveWorks = false}),
                  ApplyOutcome::kBlocked, kBlocked);
}

TEST(ApplyingSettings, ReadsTheNumbersBeforeItJudgesTheRecord) {
    expectRefusal(apply(wrongInEveryWay(), {.saveWorks = false}), ApplyOutcome::kNotNumbers, kNotNumbers);
}

TEST(ApplyingSettings, JudgesTheRecordBeforeItSaves) {
    SettingsForm form = wrongInEveryWay();
    form.latencyText = secret(L"50");
    expectRefusal(apply(form, {.saveWorks = false}), ApplyOutcome::kRejected, kNoUrl);
}

TEST(ApplyingSettings, GivesBackTheNumbersThatItRejected) {
    SettingsForm form = acceptable();
    form.settings.source = SourceKind::kDirectCamera;
    form.settings.stream = 2;
    form.settings.decoder = DecoderBackend::kAutomatic;
    form.latencyText = secret(L"5001");
    form.firstFrameDeadlineText = secret(L"999");
    const Attempt attempt = apply(form);
    EXPECT_EQ(attempt.outcome, ApplyOutcome::kRejected);
    EXPECT_EQ(attempt.record.source, SourceKind::kDirectCamera);
    EXPECT_EQ(attempt.record.stream, 2u);
    EXPECT_EQ(attempt.record.decoder, DecoderBackend::kAutomatic);
    EXPECT_EQ(attempt.record.latencyMs, 5001u);
    EXPECT_EQ(attempt.record.firstFrameDeadlineMs, 999u);
}

// --- The save ---

TEST(ApplyingSettings, SavesOnceWhatIsThenToBePutInEffect) {
    const Attempt attempt = apply(formFromSettings(everySetting()));
    EXPECT_EQ(attempt.outcome, ApplyOutcome::kApplied);
    EXPECT_EQ(attempt.message, kApplied);
    ASSERT_EQ(attempt.saved.size(), 1u);
    EXPECT_TRUE(sameSettings(attempt.saved[0], everySetting()));
    EXPECT_TRUE(sameSettings(attempt.record, everySetting()));
}

TEST(ApplyingSettings, ReadsTheNumbersFromTheirTextsAlone) {
    SettingsForm form = acceptable();
    form.settings.latencyMs = 5001;
    form.settings.firstFrameDeadlineMs = 999;
    const Attempt attempt = apply(form);
    ASSERT_EQ(attempt.outcome, ApplyOutcome::kApplied);
    EXPECT_EQ(attempt.record.latencyMs, 50u);
    EXPECT_EQ(attempt.record.firstFrameDeadlineMs, 7000u);
}

TEST(ApplyingSettings, SaysSoWhenTheSaveFails) {
    const Attempt attempt = apply(acceptable(), {.saveWorks = false});
    EXPECT_EQ(attempt.outcome, ApplyOutcome::kSaveFailed);
    EXPECT_EQ(attempt.message, kNotSaved);
    EXPECT_EQ(attempt.saved.size(), 1u);
    EXPECT_TRUE(sameSettings(attempt.record, BrokerSettings{}));  // nothing that could be put into effect
}

// --- What is logged ---

using Events = std::vector<std::pair<EventCode, std::int32_t>>;

Events eventsOf(ApplyOutcome outcome) {
    BrokerSettings record = everySetting();
    record.source = SourceKind::kSyntheticTest;
    record.decoder = DecoderBackend::kGstreamer;
    record.latencyMs = 5001;
    record.firstFrameDeadlineMs = 0xFFFF'FFFF;
    Events events;
    for (const auto& [code, value] : settingsEvents({outcome, L"a message", record}))
        events.emplace_back(code, value);
    return events;
}

TEST(SettingsEvents, OfABlockedAttemptAreOne) {
    EXPECT_EQ(eventsOf(ApplyOutcome::kBlocked), (Events{{EventCode::kSettingsApplyBlocked, 0}}));
}

TEST(SettingsEvents, AreNoneForWhatIsNoNumber) {
    EXPECT_EQ(eventsOf(ApplyOutcome::kNotNumbers), Events{});
}

TEST(SettingsEvents, OfARefusedRecordAreItsNumbersInOrder) {
    EXPECT_EQ(eventsOf(ApplyOutcome::kRejected), (Events{{EventCode::kSettingsRejected, 0},
                                                         {EventCode::kSettingsSource, 3},
                                                         {EventCode::kSettingsStream, 2},
                                                         {EventCode::kSettingsDecoder, 1},
                                                         {EventCode::kSettingsLatency, 5001},
                                                         {EventCode::kSettingsFirstDeadline, -1}}));
}

TEST(SettingsEvents, OfARecordThatWasNotSavedAreOne) {
    EXPECT_EQ(eventsOf(ApplyOutcome::kSaveFailed), (Events{{EventCode::kSettingsSaveFailed, 0}}));
}

TEST(SettingsEvents, OfAnAppliedRecordAreOne) {
    EXPECT_EQ(eventsOf(ApplyOutcome::kApplied), (Events{{EventCode::kSettingsApplied, 0}}));
}

// --- Reloading ---

ReloadResult reload(const CameraUse& use, bool loads, int& loadsAsked) {
    return reloadSettings(use, [&](BrokerSettings& settings) {
        ++loadsAsked;
        settings = everySetting();  // also where it says that there is none
        return loads;
    });
}

TEST(ReloadingSettings, GivesWhatIsStored) {
    int asked = 0;
    const ReloadResult result = reload(kIdle, true, asked);
    EXPECT_EQ(result.message, L"Configuração salva recarregada, sem iniciar captura.");
    ASSERT_TRUE(result.record);
    EXPECT_TRUE(sameSettings(*result.record, everySetting()));
}

TEST(ReloadingSettings, GivesNothingWhenNothingCouldBeRead) {
    int asked = 0;
    const ReloadResult result = reload(kIdle, false, asked);
    EXPECT_EQ(result.message, L"Nenhuma configuração salva pôde ser lida; nada foi alterado.");
    EXPECT_FALSE(result.record);
}

TEST(ReloadingSettings, ReadsNothingWhileTheCameraIsInUseOrItsUseUnknown) {
    for (const CameraUse& use : {CameraUse{true, false, 0}, CameraUse{false, true, 0},
                                 CameraUse{false, false, 1}, CameraUse{false, false, -1}}) {
        int asked = 0;
        const ReloadResult result = reload(use, true, asked);
        EXPECT_EQ(result.message, L"Recarregar bloqueado durante captura/prévia.");
        EXPECT_FALSE(result.record);
        EXPECT_EQ(asked, 0);
    }
}

}  // namespace
}  // namespace vextra
