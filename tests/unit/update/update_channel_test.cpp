#include "update/update_channel.h"

#include <gtest/gtest.h>

#include <chrono>

#include "update_window.h"

namespace vextra {
namespace {

using test::kIdleCamera;
using test::Said;
using test::UpdateWindow;
using enum test::Said::Where;

constexpr const wchar_t* kDisabledText = L"Verificação de atualização desativada nas Configurações.";
constexpr const wchar_t* kCheckingText = L"Verificando canal MF e assinatura, sem interromper a câmera...";
constexpr const wchar_t* kAvailableText =
    L"Nova versão 0.3.0 disponível • assinatura MF validada. Baixe para atualizar.";
constexpr std::uint32_t kNoLimitMs = 60'000;  // what takes so long does not end

// --- Checks ---

TEST_F(UpdateWindow, ACheckSaysThatItRuns) {
    channel.startCheck(CheckKind::kManual);
    EXPECT_EQ(takeSaid(), (std::vector<Said>{{kStatus, kCheckingText}, {kLog, L"MF_UPDATE_MANUAL_CHECK 0"}}));
    EXPECT_TRUE(channel.busy());
    EXPECT_FALSE(channel.checkButtonEnabled());
    deliver();
    EXPECT_FALSE(channel.busy());
    EXPECT_TRUE(channel.checkButtonEnabled());
}

TEST_F(UpdateWindow, ACheckOfTheStartIsLoggedAsOne) {
    channel.startCheck(CheckKind::kStartup);
    EXPECT_EQ(takeSaid(kLog), std::vector<std::wstring>{L"MF_UPDATE_STARTUP_CHECK 0"});
    deliver();
}

TEST_F(UpdateWindow, ACheckAsksTheAddressOfTheSettings) {
    check();
    manifestUrl = L"https://mirror.example/beta.json";
    check();
    EXPECT_EQ(checked,
              (std::vector<std::wstring>{L"https://updates.example:8443/camera-virtual-vextra-mf/beta.json",
                                         L"https://mirror.example/beta.json"}));
}

TEST_F(UpdateWindow, ASecondCheckOfTheStartWaitsForFiveMinutes) {
    check(CheckKind::kStartup);
    takeSaid();
    now += 299'999;
    channel.startCheck(CheckKind::kStartup);
    EXPECT_TRUE(takeSaid().empty());
    EXPECT_FALSE(channel.busy());
    now += 1;
    check(CheckKind::kStartup);
    EXPECT_EQ(checks(), 2u);
}

TEST_F(UpdateWindow, AManualCheckIgnoresTheSpacingButRenewsIt) {
    check(CheckKind::kStartup);
    now += 200'000;
    check(CheckKind::kManual);
    now += 200'000;
    channel.startCheck(CheckKind::kStartup);
    EXPECT_FALSE(channel.busy());
    now += 100'000;
    check(CheckKind::kStartup);
    EXPECT_EQ(checks(), 3u);
}

TEST_F(UpdateWindow, DisabledChecksSaySoAndSendNothing) {
    disabled = true;
    channel.startCheck(CheckKind::kStartup);
    EXPECT_EQ(takeSaid(), (std::vector<Said>{{kStatus, kDisabledText}}));
    channel.startCheck(CheckKind::kManual);
    EXPECT_EQ(takeSaid(), (std::vector<Said>{{kStatus, kDisabledText}}));
    EXPECT_EQ(checks(), 0u);
    EXPECT_FALSE(channel.busy());
}

TEST_F(UpdateWindow, ADisabledCheckLeavesTheSpacingAlone) {
    disabled = true;
    channel.startCheck(CheckKind::kStartup);
    disabled = false;
    check(CheckKind::kStartup);
    EXPECT_EQ(checks(), 1u);
}

TEST_F(UpdateWindow, ANewVersionIsAnnounced) {
    channel.startCheck(CheckKind::kManual);
    takeSaid();
    deliver();
    EXPECT_EQ(takeSaid(),
              (std::vector<Said>{{kBalloon,
                                  L"Atualização Vextra MF disponível|Abra Diagnóstico para baixar a nova "
                                  L"versão. A câmera não será interrompida."},
                                 {kLog, L"MF_UPDATE_CHECK_COMPLETED 6"},
                                 {kStatus, kAvailableText}}));
    EXPECT_EQ(channel.installerButtonLabel(), L"Baixar atualização");
    EXPECT_TRUE(channel.installerButtonEnabled(kIdleCamera));
}

TEST_F(UpdateWindow, EveryOtherOutcomeIsAStatusLine) {
    for (const int code : {0, 1, 3, 4, 5}) {
        result = {static_cast<UpdateCode>(code), L"outcome", {}};
        channel.startCheck(CheckKind::kManual);
        takeSaid();
        deliver();
        EXPECT_EQ(takeSaid(),
                  (std::vector<Said>{{kLog, L"MF_UPDATE_CHECK_COMPLETED " + std::to_wstring(code)},
                                     {kStatus, L"outcome"}}));
        EXPECT_FALSE(channel.installerButtonEnabled(kIdleCamera));
    }
}

TEST_F(UpdateWindow, ANewCheckForgetsWhatWasAvailableAndDownloaded) {
    checkAndDownload();
    result = {UpdateCode::kUnreachable, L"unreachable", {}};
    check();
    EXPECT_FALSE(channel.installerButtonEnabled(kIdleCamera));
    takeSaid();
    channel.pressInstallerButton();
    EXPECT_TRUE(takeSaid().empty());
    EXPECT_TRUE(opened.empty());
}

TEST_F(UpdateWindow, ANewCheckThatFindsAVersionOffersItsDownloadAgain) {
    checkAndDownload();
    check();
    EXPECT_EQ(channel.installerButtonLabel(), L"Baixar atualização");
    channel.pressInstallerButton();
    deliver();
    EXPECT_EQ(downloaded.size(), 2u);
    EXPECT_TRUE(opened.empty());
}

// Before the first check.
TEST_F(UpdateWindow, BeginsWithADisabledDownloadButton) {
    EXPECT_EQ(channel.installerButtonLabel(), L"Baixar atualização");
    EXPECT_FALSE(channel.installerButtonEnabled(kIdleCamera));
    EXPECT_TRUE(channel.checkButtonEnabled());
    channel.pressInstallerButton();
    EXPECT_TRUE(takeSaid().empty());
}

// --- Downloads ---

TEST_F(UpdateWindow, ADownloadIsConfirmedByTheUser) {
    check();
    takeSaid();
    answer = false;
    channel.pressInstallerButton();
    EXPECT_EQ(takeSaid(),
              (std::vector<Said>{{kQuestion,
                                  L"Nova versão disponível|Baixar o instalador completo da nova versão MF? A "
                                  L"assinatura, o tamanho e o SHA-256 serão verificados. Nada será instalado "
                                  L"sem sua confirmação."}}));
    EXPECT_FALSE(channel.busy());
    EXPECT_TRUE(downloaded.empty());
}

TEST_F(UpdateWindow, ADownloadIsOfTheManifestThatWasChecked) {
    checkAndDownload();
    ASSERT_EQ(downloaded.size(), 1u);
    EXPECT_EQ(downloaded[0].version, "0.3.0");
    EXPECT_EQ(downloaded[0].signature, "signature");
}

TEST_F(UpdateWindow, ADownloadShowsItsProgress) {
    check();
    EXPECT_EQ(channel.progressText(), std::nullopt);
    waitForCancel = true;
    channel.pressInstallerButton();
    std::optional<std::wstring> text = channel.progressText();
    for (int i = 0; i < 10'000 && text == L"Baixando instalador MF: 0% • câmera preservada"; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        text = channel.progressText();
    }
    EXPECT_EQ(text, L"Baixando instalador MF: 42% • câmera preservada");
    EXPECT_TRUE(channel.busy());
    EXPECT_FALSE(channel.installerButtonEnabled(kIdleCamera));
    channel.beginShutdown();
    deliver();
    EXPECT_EQ(channel.progressText(), std::nullopt);
}

TEST_F(UpdateWindow, AVerifiedDownloadIsReadyToInstall) {
    check();
    channel.pressInstallerButton();
    takeSaid();
    deliver();
    EXPECT_EQ(takeSaid(),
              (std::vector<Said>{{kLog, L"MF_UPDATE_DOWNLOAD_VERIFIED 0"}, {kStatus, L"verified"}}));
    EXPECT_EQ(channel.installerButtonLabel(), L"Instalar atualização");
    EXPECT_FALSE(channel.busy());
}

TEST_F(UpdateWindow, AFailedDownloadCanBeRepeated) {
    download = {false, L"", L"failed"};
    check();
    channel.pressInstallerButton();
    takeSaid();
    deliver();
    EXPECT_EQ(takeSaid(), (std::vector<Said>{{kLog, L"MF_UPDATE_DOWNLOAD_FAILED 0"}, {kStatus, L"failed"}}));
    EXPECT_EQ(channel.installerButtonLabel(), L"Tentar download novamente");
    EXPECT_TRUE(channel.installerButtonEnabled({true, true, 1}));
    channel.pressInstallerButton();
    deliver();
    EXPECT_EQ(downloaded.size(), 2u);
}

TEST_F(UpdateWindow, NothingElseStartsWhileADownloadRuns) {
    check();
    waitForCancel = true;
    channel.pressInstallerButton();
    takeSaid();
    channel.startCheck(CheckKind::kManual);
    channel.startCheck(CheckKind::kStartup);
    channel.pressInstallerButton();
    EXPECT_TRUE(takeSaid().empty());
    EXPECT_TRUE(channel.shutDown(kNoLimitMs));
    EXPECT_EQ(checks(), 1u);
    EXPECT_EQ(downloaded.size(), 1u);
}

TEST_F(UpdateWindow, ACheckThatBeganWhileTheUserWasAskedKeepsTheDownloadFromStarting) {
    check();
    whileAsking = [this] {
        channel.startCheck(CheckKind::kManual);
        takeSaid();
    };
    channel.pressInstallerButton();
    EXPECT_EQ(takeSaid(), (std::vector<Said>{{kStatus, kCheckingText}}));
    deliver();
    EXPECT_TRUE(downloaded.empty());
    EXPECT_EQ(checks(), 2u);
}

TEST_F(UpdateWindow, ACheckThatEndedWhileTheUserWasAskedSaysWhyThereIsNoDownload) {
    check();
    whileAsking = [this] {
        result = {UpdateCode::kUpToDate, L"nothing newer", {}};
        check();
        takeSaid();
    };
    channel.pressInstallerButton();
    EXPECT_EQ(takeSaid(), (std::vector<Said>{{kStatus, L"nothing newer"}}));
    EXPECT_TRUE(downloaded.empty());
}

TEST_F(UpdateWindow, ADownloadThatBeganWhileTheUserWasAskedIsTheOnlyOne) {
    check();
    waitForCancel = true;
    whileAsking = [this] {
        whileAsking = nullptr;
        channel.pressInstallerButton();
        takeSaid();
    };
    channel.pressInstallerButton();
    const std::vector<std::wstring> texts = takeSaid(kStatus);
    ASSERT_EQ(texts.size(), 1u);
    EXPECT_TRUE(texts[0].starts_with(L"Baixando instalador MF: "));
    EXPECT_TRUE(channel.shutDown(kNoLimitMs));
    EXPECT_EQ(downloaded.size(), 1u);
}

TEST_F(UpdateWindow, AnEndThatBeganWhileTheUserWasAskedKeepsTheDownloadFromStarting) {
    check();
    whileAsking = [this] { channel.beginShutdown(); };
    channel.pressInstallerButton();
    EXPECT_FALSE(channel.busy());
    EXPECT_TRUE(downloaded.empty());
}

// --- Messages ---

TEST_F(UpdateWindow, AMessageThatNoWorkerSentIsIgnored) {
    for (const std::uint64_t number : {std::uint64_t{0}, std::uint64_t{1}, std::uint64_t{2}, std::uint64_t{3},
                                       std::uint64_t{1} << 32, (std::uint64_t{1} << 32) + 1})
        channel.handleCompletion(number);
    EXPECT_TRUE(takeSaid().empty());
}

TEST_F(UpdateWindow, AMessageOfTheOtherKindIsIgnored) {
    check();
    waitForCancel = true;
    channel.pressInstallerButton();
    takeSaid();
    channel.handleCompletion(1);
    channel.handleCompletion(2);  // too early: were it believed, the window would wait for the whole download
    EXPECT_TRUE(takeSaid().empty());
    EXPECT_TRUE(channel.busy());
    EXPECT_TRUE(channel.shutDown(kNoLimitMs));
}

TEST_F(UpdateWindow, ARepeatedMessageIsIgnored) {
    check();
    takeSaid();
    channel.handleCompletion(1);
    EXPECT_TRUE(takeSaid().empty());
}

TEST_F(UpdateWindow, ACompletionWhoseMessageWasLostIsCaughtUpWith) {
    channel.catchUp();  // nothing to catch up with
    EXPECT_TRUE(takeSaid().empty());
    channel.startCheck(CheckKind::kManual);
    {
        std::unique_lock guard(postLock);
        ASSERT_TRUE(postedOne.wait_for(guard, std::chrono::seconds(10), [this] { return !posted.empty(); }));
    }
    channel.catchUp();
    EXPECT_FALSE(channel.busy());
    takeSaid();
    channel.handleCompletion(1);  // should the message come after all
    EXPECT_TRUE(takeSaid().empty());
}

// --- The end ---

TEST_F(UpdateWindow, NothingStartsAfterTheEndBegan) {
    checkAndDownload();
    channel.beginShutdown();
    channel.startCheck(CheckKind::kManual);
    channel.startCheck(CheckKind::kStartup);
    channel.pressInstallerButton();
    EXPECT_TRUE(takeSaid().empty());
    EXPECT_EQ(checks(), 1u);
}

TEST_F(UpdateWindow, TheEndCancelsADownloadAndWaitsForIt) {
    check();
    waitForCancel = true;
    channel.pressInstallerButton();
    EXPECT_TRUE(channel.shutDown(kNoLimitMs));
    EXPECT_TRUE(cancelSeen);
}

TEST_F(UpdateWindow, TheEndCancelsACheckAndWaitsForIt) {
    waitForCancel = true;
    channel.startCheck(CheckKind::kManual);
    EXPECT_TRUE(channel.shutDown(kNoLimitMs));
    EXPECT_TRUE(cancelSeen);
    EXPECT_TRUE(channel.shutDown(0));  // a second time is no harm
}

TEST_F(UpdateWindow, TheEndWaitsNoLongerThanItsLimit) {
    networkHolds = true;
    channel.startCheck(CheckKind::kManual);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(channel.shutDown(100));
    const auto waited = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(waited, std::chrono::milliseconds(100));
    EXPECT_LT(waited, std::chrono::seconds(5));
    networkHolds = false;
    EXPECT_TRUE(channel.shutDown(kNoLimitMs));
}

TEST_F(UpdateWindow, TheEndHasNothingToWaitForWithoutAWorker) {
    EXPECT_TRUE(channel.shutDown(0));
}

}  // namespace
}  // namespace vextra
