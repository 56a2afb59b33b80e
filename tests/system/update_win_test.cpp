// An update as its user meets it: a signed release is published, the running broker announces it, fetches it
// and starts it when the user agrees and nobody watches. The broker is one whose channel the test names;
// server, signature and installer are real.
#include <windows.h>

#include <objbase.h>
#include <shlobj.h>

#include <filesystem>
#include <optional>

#include "broker_test_win.h"
#include "broker_window_win.h"
#include "signer/signer_win.h"
#include "update_server_win.h"

namespace vextra::test {
namespace {

namespace fs = std::filesystem;

constexpr wchar_t kVersion[] = L"0.3.0-system.1";
constexpr wchar_t kAnnounced[] =
    L"Nova versão 0.3.0-system.1 disponível • assinatura MF validada. Baixe para atualizar.";
constexpr wchar_t kNothingNewer[] = L"Nenhuma versão MF mais recente no canal configurado.";
constexpr wchar_t kVerified[] =
    L"Instalador baixado: assinatura, tamanho e SHA-256 verificados. Instale quando a câmera estiver ociosa.";
constexpr wchar_t kDownloadQuestion[] =
    L"Baixar o instalador completo da nova versão MF? A assinatura, o tamanho e o SHA-256 serão verificados. "
    L"Nada será instalado sem sua confirmação.";
constexpr wchar_t kInstallQuestion[] =
    L"Abrir o instalador da nova versão MF? O Windows poderá pedir autorização. Suas configurações serão "
    L"preservadas. A instalação só prossegue sem captura ativa.";

class Updates : public BrokerTest {
protected:
    void SetUp() override {
        VEXTRA_SKIP_WITHOUT_UPDATE_SERVER();
        server.emplace(*UpdateServer::find());
        removeLeftovers();
        decoder().behave("frames=endless\nframesPerSecond=16");
        fs::copy_file(builtFile(L"tests\\broker-with-test-channel.exe"),
                      broker().installRoot() + L"\\bin\\CameraVirtualVextraMF.exe",
                      fs::copy_options::overwrite_existing);
        const SignerReport made = makeKeyFiles(keys / L"private.pem", keys / L"public.pem");
        ASSERT_TRUE(made.ok());
        const std::string address = server->origin();
        origin.emplace(L"VEXTRA_TEST_CHANNEL_ORIGIN", std::wstring(address.begin(), address.end()).c_str());
        publicKey.emplace(L"VEXTRA_TEST_CHANNEL_KEY", (keys / L"public.pem").c_str());
    }
    void TearDown() override {
        broker().end();
        if (server)
            removeLeftovers();
    }

    // Downloads go to the user's own folder, whatever the environment says.
    static fs::path downloads() {
        PWSTR known = nullptr;
        SHGetKnownFolderPath(FOLDERID_LocalAppData, 0, nullptr, &known);
        const fs::path folder = fs::path(known) / L"Vextra" / L"CameraVirtualMFBeta" / L"updates";
        CoTaskMemFree(known);
        return folder;
    }
    fs::path release() const { return fs::path(server->www()) / L"camera-virtual-vextra-mf" / kVersion; }
    void removeLeftovers() const {
        std::error_code ignored;
        fs::remove_all(downloads(), ignored);
        fs::remove_all(release(), ignored);
        fs::remove(release().parent_path() / L"beta.json", ignored);
    }
    void publish() {
        const std::string address = server->origin();
        const SignerReport report =
            publishRelease({builtFile(L"tests\\stub-setup.exe"), kVersion,
                            std::wstring(address.begin(), address.end()), server->www()},
                           *readSigningKey(keys / L"private.pem"));
        ASSERT_TRUE(report.ok());
    }
    void paceTheDownload(const std::string& secondsAPiece) {
        writeFile((release() / L"Setup.exe.reply").wstring(), "{\"pace\":" + secondsAPiece + "}");
    }
    void startAndHearOfIt() {
        publish();
        broker().start(L"--test-pattern");
        ASSERT_TRUE(window.waitForStatus(kAnnounced, 20'000));
        ASSERT_TRUE(waitUntil([&] { return window.enabled(kIdDownloadUpdate); }, 2000));
        window.press(kIdTabDiagnostics);
    }
    // Presses the button for the installer and answers the question that comes.
    void pressAndAnswer(const wchar_t* question, WPARAM answer) {
        window.pressAndGoOn(kIdDownloadUpdate);
        const HWND box = window.waitForBox();
        ASSERT_NE(box, nullptr);
        EXPECT_EQ(BrokerWindow::boxText(box), question);
        PostMessageW(box, WM_COMMAND, answer, 0);
        ASSERT_TRUE(waitUntil([&] { return IsWindow(box) == FALSE; }, 2000));
    }
    void download() {
        pressAndAnswer(kDownloadQuestion, IDYES);
        ASSERT_TRUE(window.waitForStatus(kVerified, 30'000));
        ASSERT_TRUE(
            waitUntil([&] { return window.text(kIdDownloadUpdate) == L"Instalar atualização"; }, 2000));
    }
    static std::optional<fs::path> downloaded() {
        if (!fs::exists(downloads()))
            return std::nullopt;
        for (const fs::directory_entry& entry : fs::directory_iterator(downloads()))
            return entry.path() / L"Setup.exe";
        return std::nullopt;
    }

    const TemporaryFolder keys;
    std::optional<UpdateServer> server;
    std::optional<ScopedVariable> origin, publicKey;
    const BrokerWindow window{broker()};
};

TEST_F(Updates, AreAnnouncedByTheCheckAtTheStart) {
    startAndHearOfIt();
    EXPECT_EQ(broker().countEvents("MF_UPDATE_STARTUP_CHECK"), 1u);
    EXPECT_EQ(broker().countEvents("MF_UPDATE_CHECK_COMPLETED"), 1u);
    EXPECT_EQ(window.text(kIdDownloadUpdate), L"Baixar atualização");
    EXPECT_TRUE(window.enabled(kIdCheckUpdate));
}

TEST_F(Updates, GoFromTheAnnouncementToTheStartedInstaller) {
    startAndHearOfIt();
    download();
    pressAndAnswer(kInstallQuestion, IDYES);
    EXPECT_TRUE(window.waitForStatus(L"Instalador aberto. Conclua o assistente para atualizar."));
    const std::wstring record = downloaded()->wstring() + L".arguments";
    ASSERT_TRUE(waitUntil([&] { return fileExists(record); }, 10'000));
    const std::string line = readFile(record);
    EXPECT_TRUE(line.ends_with(" /NORESTART")) << line;
    EXPECT_EQ(broker().countEvents("MF_UPDATE_INSTALLER_LAUNCHED"), 1u);
}

TEST_F(Updates, AreNotFetchedWithoutTheUsersConsent) {
    startAndHearOfIt();
    pressAndAnswer(kDownloadQuestion, IDNO);
    Sleep(500);
    EXPECT_FALSE(downloaded());
    EXPECT_TRUE(window.enabled(kIdDownloadUpdate));
}

TEST_F(Updates, ShowTheirProgressAndLeaveTheCameraAlone) {
    startAndHearOfIt();
    paceTheDownload("0.2");
    viewer().takeLease();
    ASSERT_TRUE(viewer().waitForState(BridgeState::kLive));
    pressAndAnswer(kDownloadQuestion, IDYES);
    EXPECT_TRUE(waitUntil(
        [&] {
            const std::wstring text = window.text(kIdStatusLine);
            return text.starts_with(L"Baixando instalador MF: ") && text.ends_with(L"% • câmera preservada");
        },
        5000));
    EXPECT_FALSE(window.enabled(kIdCheckUpdate));
    EXPECT_FALSE(window.enabled(kIdDownloadUpdate));
    EXPECT_TRUE(viewer().waitForFrameAfter(viewer().header().frameCounter + 16, 3000));
    EXPECT_TRUE(broker().waitForEvent("MF_UPDATE_DOWNLOAD_VERIFIED", 30'000));
}

TEST_F(Updates, AreNotInstalledWhileSomebodyWatches) {
    startAndHearOfIt();
    download();
    viewer().takeLease();
    ASSERT_TRUE(viewer().waitForState(BridgeState::kLive));
    EXPECT_TRUE(waitUntil([&] { return !window.enabled(kIdDownloadUpdate); }, 2000));
    window.command(kIdDownloadUpdate);  // as a click that came before the button was disabled
    EXPECT_TRUE(window.waitForStatus(
        L"Instalação adiada: encerre a captura e a prévia. Nenhuma reunião será interrompida."));
    viewer().releaseLease();
    ASSERT_TRUE(waitUntil([&] { return window.enabled(kIdDownloadUpdate); }, 3000));
    EXPECT_FALSE(fileExists(downloaded()->wstring() + L".arguments"));
}

TEST_F(Updates, WaitForAMeetingThatBeganWhileTheQuestionWasOpen) {
    startAndHearOfIt();
    download();
    window.pressAndGoOn(kIdDownloadUpdate);
    const HWND box = window.waitForBox();
    ASSERT_NE(box, nullptr);
    viewer().takeLease();
    ASSERT_TRUE(viewer().waitForState(BridgeState::kLive));
    PostMessageW(box, WM_COMMAND, IDYES, 0);
    EXPECT_TRUE(window.waitForStatus(L"Captura iniciada: instalação adiada."));
    EXPECT_FALSE(fileExists(downloaded()->wstring() + L".arguments"));
}

TEST_F(Updates, AreNotAnnouncedWhenThereIsNothingNewer) {
    broker().start(L"--test-pattern");
    EXPECT_TRUE(window.waitForStatus(L"Não foi possível verificar a atualização MF com segurança.", 20'000));
    EXPECT_FALSE(window.enabled(kIdDownloadUpdate));
}

TEST_F(Updates, AreLookedForAgainOnRequest) {
    broker().start(L"--test-pattern");
    ASSERT_TRUE(broker().waitForEvent("MF_UPDATE_CHECK_COMPLETED", 20'000));
    publish();
    ASSERT_TRUE(waitUntil([&] { return window.enabled(kIdCheckUpdate); }, 2000));
    window.pressOn(kIdTabDiagnostics, kIdCheckUpdate);
    EXPECT_TRUE(window.waitForStatus(kAnnounced, 20'000));
    EXPECT_EQ(broker().countEvents("MF_UPDATE_MANUAL_CHECK"), 1u);
}

TEST_F(Updates, AreNotLookedForWhenTheSettingsForbidIt) {
    publish();
    broker().start(L"--test-pattern");
    ASSERT_TRUE(broker().waitForEvent("MF_UPDATE_CHECK_COMPLETED", 20'000));
    window.check(kIdUpdateDisabled, true);
    ASSERT_TRUE(waitUntil([&] { return window.enabled(kIdApply); }, 2000));
    window.pressOn(kIdTabSettings, kIdApply);
    ASSERT_TRUE(broker().waitForEvent("SETTINGS_APPLIED_DPAPI"));
    window.pressOn(kIdTabDiagnostics, kIdCheckUpdate);
    EXPECT_TRUE(window.waitForStatus(L"Verificação de atualização desativada nas Configurações."));
    EXPECT_EQ(broker().countEvents("MF_UPDATE_MANUAL_CHECK"), 0u);
}

TEST_F(Updates, AreNotAskedForAgainByShowingTheWindowTooSoon) {
    startAndHearOfIt();
    window.command(kIdTrayShow);
    Sleep(500);
    EXPECT_EQ(broker().countEvents("MF_UPDATE_STARTUP_CHECK"), 1u);
}

TEST_F(Updates, EndWithTheBrokerInTheMiddleOfADownload) {
    startAndHearOfIt();
    paceTheDownload("0.5");
    pressAndAnswer(kDownloadQuestion, IDYES);
    ASSERT_TRUE(waitUntil([&] { return downloaded().has_value(); }, 10'000));
    window.commandAndGoOn(kIdTrayQuit);
    EXPECT_EQ(broker().waitForExit(10'000), 0u);
    EXPECT_FALSE(downloaded());
}

TEST_F(Updates, IgnoreACompletionThatNobodySent) {
    broker().start(L"--test-pattern");
    ASSERT_TRUE(broker().waitForEvent("MF_UPDATE_CHECK_COMPLETED", 20'000));
    for (const WPARAM number : {1, 2, 3})
        SendMessageW(window.handle(), WM_APP + 4, number, 0);
    EXPECT_TRUE(broker().runs());
    EXPECT_EQ(broker().countEvents("MF_UPDATE_CHECK_COMPLETED"), 1u);
}

}  // namespace
}  // namespace vextra::test
