#include "config/settings_apply.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace vextra {
namespace {

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

// A record in which every field differs from its default and from every other.
BrokerSettings everyField() {
    BrokerSettings settings;
    settings.source = SourceKind::kCustomUrl;
    settings.stream = 2;
    settings.decoder = DecoderBackend::kAutomatic;
    settings.latencyMs = 123;
    settings.firstFrameDeadlineMs = 4567;
    settings.rtspUdp = true;
    settings.updateDisabled = true;
    settings.profileUrl = secret(L"rtsp://profile/1");
    settings.directIp = secret(L"192.0.2.9");
    settings.directUser = secret(L"usuário");
    settings.directPassword = secret(L"señha €");
    settings.customUrl = secret(L"rtsps://custom/2");
    settings.updateManifestUrl = secret(L"https://manifest/3");
    return settings;
}

void expectSame(const BrokerSettings& a, const BrokerSettings& b) {
    EXPECT_EQ(a.source, b.source);
    EXPECT_EQ(a.stream, b.stream);
    EXPECT_EQ(a.decoder, b.decoder);
    EXPECT_EQ(a.latencyMs, b.latencyMs);
    EXPECT_EQ(a.firstFrameDeadlineMs, b.firstFrameDeadlineMs);
    EXPECT_EQ(a.rtspUdp, b.rtspUdp);
    EXPECT_EQ(a.updateDisabled, b.updateDisabled);
    EXPECT_TRUE(a.profileUrl == b.profileUrl);
    EXPECT_TRUE(a.directIp == b.directIp);
    EXPECT_TRUE(a.directUser == b.directUser);
    EXPECT_TRUE(a.directPassword == b.directPassword);
    EXPECT_TRUE(a.customUrl == b.customUrl);
    EXPECT_TRUE(a.updateManifestUrl == b.updateManifestUrl);
}

// A form that is accepted, so that a test changes the one field it is about.
SettingsForm acceptable() {
    SettingsForm form;
    form.source = 3;
    form.stream = 0;
    form.transport = 0;
    form.decoder = 0;
    form.latencyMs = secret(L"50");
    form.firstFrameDeadlineMs = secret(L"7000");
    return form;
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
    BrokerSettings current{};
};

Attempt apply(const SettingsForm& form, const Circumstances& given = {}) {
    Attempt attempt;
    const auto save = [&](const BrokerSettings& record) {
        attempt.saved.push_back(record);
        return given.saveWorks;
    };
    ApplyResult result = applySettings(form, given.current, given.use, save);
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

TEST(SettingsForm, ShowsARecordAsTheListsCount) {
    const SettingsForm form = formFromSettings(everyField());
    EXPECT_EQ(form.source, 2);
    EXPECT_EQ(form.stream, 1);
    EXPECT_EQ(form.transport, 1);
    EXPECT_EQ(form.decoder, 2);
    EXPECT_EQ(form.latencyMs.view(), L"123");
    EXPECT_EQ(form.firstFrameDeadlineMs.view(), L"4567");
    EXPECT_EQ(form.directIp.view(), L"192.0.2.9");
    EXPECT_EQ(form.directUser.view(), L"usuário");
    EXPECT_EQ(form.directPassword.view(), L"señha €");
    EXPECT_EQ(form.customUrl.view(), L"rtsps://custom/2");
    EXPECT_EQ(form.updateManifestUrl.view(), L"https://manifest/3");
    EXPECT_TRUE(form.updateDisabled);
}

TEST(SettingsForm, ShowsTheDefaultsAsTheListsCount) {
    const SettingsForm form = formFromSettings(BrokerSettings{});
    EXPECT_EQ(form.source, 0);
    EXPECT_EQ(form.stream, 0);
    EXPECT_EQ(form.transport, 0);
    EXPECT_EQ(form.decoder, 0);
    EXPECT_EQ(form.latencyMs.view(), L"50");
    EXPECT_EQ(form.firstFrameDeadlineMs.view(), L"7000");
    EXPECT_FALSE(form.updateDisabled);
}

TEST(SettingsForm, BringsBackTheRecordThatItShows) {
    const Attempt attempt = apply(formFromSettings(everyField()), {.current = everyField()});
    ASSERT_EQ(attempt.outcome, ApplyOutcome::kApplied);
    expectSame(attempt.record, everyField());
}

TEST(SettingsForm, NeverHoldsTheProfileAddress) {
    const SettingsForm form = formFromSettings(everyField());
    for (const SecretText* field : {&form.directIp, &form.customUrl, &form.directUser, &form.directPassword,
                                    &form.latencyMs, &form.firstFrameDeadlineMs, &form.updateManifestUrl})
        EXPECT_EQ(field->view().find(L"profile"), std::wstring_view::npos);
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
    EXPECT_FALSE(cameraIsIdle(CameraUse{}));
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
    form.latencyMs = secret(text);
    return apply(form);
}

Attempt withDeadline(std::wstring_view text) {
    SettingsForm form = acceptable();
    form.firstFrameDeadlineMs = secret(text);
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

// As the system's own conversion reads them; the fields let nobody type them, but a paste does.
TEST(NumberFields, MayBeginWithBlanksAPlusOrZeros) {
    for (const wchar_t* text : {L" 50", L"\t50", L"+50", L" +50", L"00050"}) {
        const Attempt attempt = withLatency(text);
        EXPECT_EQ(attempt.outcome, ApplyOutcome::kApplied);
        EXPECT_EQ(attempt.record.latencyMs, 50u);
    }
}

// Nobody types it; what matters is that it is the same number wherever these rules are judged.
TEST(NumberFields, WrapANegativeNumberAtTwoToTheThirtySecond) {
    const Attempt attempt = withLatency(L"-4294967246");
    EXPECT_EQ(attempt.outcome, ApplyOutcome::kApplied);
    EXPECT_EQ(attempt.record.latencyMs, 50u);
}

// --- The lists ---

TEST(Lists, AreReadAsTheyCount) {
    SettingsForm form = formFromSettings(everyField());
    for (int source = 0; source <= 3; ++source) {
        form.source = source;
        EXPECT_EQ(static_cast<int>(apply(form, {.current = everyField()}).record.source), source);
    }
    for (int stream = 0; stream <= 1; ++stream) {
        form.stream = stream;
        EXPECT_EQ(apply(form, {.current = everyField()}).record.stream,
                  static_cast<std::uint32_t>(stream) + 1);
    }
    for (int decoder = 0; decoder <= 2; ++decoder) {
        form.decoder = decoder;
        EXPECT_EQ(static_cast<int>(apply(form, {.current = everyField()}).record.decoder), decoder);
    }
    for (int transport = -1; transport <= 1; ++transport) {
        form.transport = transport;
        EXPECT_EQ(apply(form, {.current = everyField()}).record.rtspUdp, transport == 1);
    }
}

TEST(Lists, WithoutASelectionAreRefused) {
    std::int32_t SettingsForm::*const kLists[] = {&SettingsForm::source, &SettingsForm::stream,
                                                  &SettingsForm::decoder};
    for (const auto list : kLists) {
        SettingsForm form = acceptable();
        form.*list = -1;
        expectRefusal(apply(form), ApplyOutcome::kRejected, kOutOfRange);
    }
}

TEST(Lists, BeyondTheirEntriesAreRefused) {
    const std::pair<std::int32_t SettingsForm::*, std::int32_t> kLists[] = {
        {&SettingsForm::source, 4}, {&SettingsForm::stream, 2}, {&SettingsForm::decoder, 3}};
    for (const auto& [list, entry] : kLists) {
        SettingsForm form = acceptable();
        form.*list = entry;
        expectRefusal(apply(form), ApplyOutcome::kRejected, kOutOfRange);
    }
}

// --- The order of the checks ---

SettingsForm wrongInEveryWay() {
    SettingsForm form = acceptable();
    form.source = 2;
    form.customUrl = secret(L"no address");
    form.latencyMs = secret(L"12ms");
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
    form.latencyMs = secret(L"50");
    expectRefusal(apply(form, {.saveWorks = false}), ApplyOutcome::kRejected, kNoUrl);
}

TEST(ApplyingSettings, GivesBackTheNumbersThatItRejected) {
    SettingsForm form = acceptable();
    form.source = 1;
    form.stream = 1;
    form.decoder = 2;
    form.latencyMs = secret(L"5001");
    form.firstFrameDeadlineMs = secret(L"999");
    const Attempt attempt = apply(form);
    EXPECT_EQ(attempt.outcome, ApplyOutcome::kRejected);
    EXPECT_EQ(attempt.record.source, SourceKind::kDirectCamera);
    EXPECT_EQ(attempt.record.stream, 2u);
    EXPECT_EQ(attempt.record.decoder, DecoderBackend::kAutomatic);
    EXPECT_EQ(attempt.record.latencyMs, 5001u);
    EXPECT_EQ(attempt.record.firstFrameDeadlineMs, 999u);
}

// --- The save ---

TEST(ApplyingSettings, SavesOnceWhatIsThenInEffect) {
    const Attempt attempt = apply(formFromSettings(everyField()), {.current = everyField()});
    EXPECT_EQ(attempt.outcome, ApplyOutcome::kApplied);
    EXPECT_EQ(attempt.message, kApplied);
    ASSERT_EQ(attempt.saved.size(), 1u);
    expectSame(attempt.saved[0], everyField());
    expectSame(attempt.record, everyField());
}

TEST(ApplyingSettings, KeepsTheProfileAddressOfTheRecordInEffect) {
    BrokerSettings current;
    current.profileUrl = secret(L"rtsp://profile/1");
    const Attempt attempt = apply(acceptable(), {.current = current});
    ASSERT_EQ(attempt.saved.size(), 1u);
    EXPECT_EQ(attempt.saved[0].profileUrl.view(), L"rtsp://profile/1");
    EXPECT_EQ(attempt.record.profileUrl.view(), L"rtsp://profile/1");
}

TEST(ApplyingSettings, TakesNothingElseFromTheRecordInEffect) {
    const Attempt attempt = apply(acceptable(), {.current = everyField()});
    ASSERT_EQ(attempt.outcome, ApplyOutcome::kApplied);
    BrokerSettings expected;
    expected.source = SourceKind::kSyntheticTest;
    expected.profileUrl = secret(L"rtsp://profile/1");
    expectSame(attempt.record, expected);
}

TEST(ApplyingSettings, SaysSoWhenTheSaveFails) {
    const Attempt attempt = apply(acceptable(), {.saveWorks = false});
    EXPECT_EQ(attempt.outcome, ApplyOutcome::kSaveFailed);
    EXPECT_EQ(attempt.message, kNotSaved);
    EXPECT_EQ(attempt.saved.size(), 1u);
    expectSame(attempt.record, BrokerSettings{});  // nothing that a caller could put into effect
}

TEST(ApplyingSettings, LeavesTheRecordInEffectAlone) {
    for (const bool saveWorks : {true, false}) {
        const Circumstances given{.saveWorks = saveWorks, .current = everyField()};
        apply(acceptable(), given);
        expectSame(given.current, everyField());
    }
}

}  // namespace
}  // namespace vextra
