// An update as its user meets it: a signed release is published, the running broker announces it, fetches it
// and starts it when the user agrees and no program watches. The broker is one whose channel the test names;
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

constexpr wchar_t kVersion[] = L"4000000000.0.0-system.1";  // newer than every broker
constexpr wchar_t kAnnounced[] =
    L"Nova versão 4000000000.0.0-system.1 disponível • assinatura MF validada. Baixe para atualizar.";
constexpr wchar_t kUnreachable[] = L"Não foi possível verificar a atualização MF com segurança.";
constexpr wchar_t kVerified[] =
    L"Instalador baixado: assinatura, tamanho e SHA-256 verificados. Instale quando a câmera estiver ociosa.";
constexpr wchar_t kDownloadQuestion[] =
    L"Baixar o instalador completo da nova versão MF? A assinatura, o tamanho e o SHA-256 serão verificados. "
    L"Nada será instalado sem sua confirmação.";
constexpr wchar_t kInstallQuestion[] =
    L"Abrir o instalador da nova versão MF? O Windows poderá pedir autorização. Suas configurações serão "
    L"preservadas. A instalação só prossegue sem captura ativa.";

class TimedUpdates : public BrokerTest {
protected:
    void SetUp() override {
        VEXTRA_SKIP_WITHOUT_UPDATE_SERVER();
        server.emplace(*UpdateServer::find());
        // A person's own downloads are not ours to remove, and the broker under test would do so too.
        if (!runsUnderWine() && fs::exists(downloads()) && !fs::is_empty(downloads()))
            failSetUp("this user has downloads of a real broker; move them away", ERROR_ALREADY_EXISTS);
        removeLeftovers();
        decoder().behave("frames=endless\nframesPerSecond=16");
        fs::copy_file(builtFile(L"tests\\broker-with-test-channel.exe"),
                      broker().installRoot() + L"\\bin\\CameraVirtualVextraMF.exe",
                      fs::copy_options::overwrite_existing);
        const SignerReport made = makeKeyFiles(keys / L"private.pem", keys / L"public.pem");
        ASSERT_TRUE(made.ok());
        useServer("good");
        publicKey.emplace(L"VEXTRA_TEST_CHANNEL_KEY", (keys / L"public.pem").c_str());
    }
    void TearDown() override {
        broker().end();
        if (server)
            removeLeftovers();
    }

    // For brokers that are started from now on.
    void useServer(std::string_view kind) {
        const std::string address = server->origin(kind);
        origin.reset();
        origin.emplace(L"VEXTRA_TEST_CHANNEL_ORIGIN", std::wstring(address.begin(), address.end()).c_str());
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
        removeRelease();
    }
    void removeRelease() const {
        std::error_code ignored;
        fs::remove_all(release(), ignored);
        for (const wchar_t* name : {L"beta.json", L"beta.json.reply", L"beta.json.requests"})
            fs::remove(release().parent_path() / name, ignored);
    }
    void publish() {
        const std::string address = server->origin();
        const SignerReport report = publishRelease({builtFile(L"tests\\stub-setup.exe"),
                                                    kVersion,
                                                    std::wstring(address.begin(), address.end()),
                                                    server->www(),
                                                    {}},
                                                   *readSigningKey(keys / L"private.pem"));
        ASSERT_TRUE(report.ok());
    }
    // How the server hands out the installer, or the manifest; see https_server.py.
    void replyToTheDownload(std::string_view reply) {
        writeFile((release() / L"Setup.exe.reply").wstring(), reply);
    }
    void replyToTheCheck(std::string_view reply) {
        fs::create_directories(release().parent_path());
        writeFile((release().parent_path() / L"beta.json.reply").wstring(), reply);
    }
    void paceTheDownload(const std::string& secondsAPiece) {
        replyToTheDownload("{\"pace\":" + secondsAPiece + "}");
    }
    // Returns once there is a part of the installer: the folder alone comes a moment earlier.
    void beginDownload() {
        pressAndAnswer(kDownloadQuestion, IDYES);
        ASSERT_TRUE(waitUntil(
            [&] {
                const std::optional<fs::path> setup = downloaded();
                return setup && fs::exists(setup->parent_path() / L"Setup.download");
            },
            10'000));
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

TEST_F(TimedUpdates, AreAnnouncedByTheCheckAtTheStart) {
    startAndHearOfIt();
    EXPECT_EQ(broker().countEvents("MF_UPDATE_STARTUP_CHECK"), 1u);
    EXPECT_EQ(broker().countEvents("MF_UPDATE_CHECK_COMPLETED"), 1u);
    EXPECT_EQ(window.text(kIdDownloadUpdate), L"Baixar atualização");
    EXPECT_TRUE(window.enabled(kIdCheckUpdate));
}

TEST_F(TimedUpdates, GoFromTheAnnouncementToTheStartedInstaller) {
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

TEST_F(TimedUpdates, AreNotFetchedWithoutTheUsersConsent) {
    startAndHearOfIt();
    pressAndAnswer(kDownloadQuestion, IDNO);
    Sleep(500);
    EXPECT_FALSE(downloaded());
    EXPECT_TRUE(window.enabled(kIdDownloadUpdate));
}

TEST_F(TimedUpdates, ShowTheirProgressAndLeaveTheCameraAlone) {
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

TEST_F(TimedUpdates, AreNotInstalledWhileSomebodyWatches) {
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

TEST_F(TimedUpdates, WaitForAMeetingThatBeganWhileTheQuestionWasOpen) {
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

TEST_F(TimedUpdates, AreNotAnnouncedWhenThereIsNothingNewer) {
    broker().start(L"--test-pattern");
    EXPECT_TRUE(window.waitForStatus(kUnreachable, 20'000));
    EXPECT_FALSE(window.enabled(kIdDownloadUpdate));
}

TEST_F(TimedUpdates, AreLookedForAgainOnRequest) {
    broker().start(L"--test-pattern");
    ASSERT_TRUE(broker().waitForEvent("MF_UPDATE_CHECK_COMPLETED", 20'000));
    publish();
    ASSERT_TRUE(waitUntil([&] { return window.enabled(kIdCheckUpdate); }, 2000));
    window.pressOn(kIdTabDiagnostics, kIdCheckUpdate);
    EXPECT_TRUE(window.waitForStatus(kAnnounced, 20'000));
    EXPECT_EQ(broker().countEvents("MF_UPDATE_MANUAL_CHECK"), 1u);
}

TEST_F(TimedUpdates, AreNotLookedForWhenTheSettingsForbidIt) {
    publish();
    broker().start(L"--test-pattern");
    ASSERT_TRUE(broker().waitForEvent("MF_UPDATE_CHECK_COMPLETED", 20'000));
    window.check(kIdUpdateDisabled, true);
    ASSERT_TRUE(waitUntil([&] { return window.enabled(kIdApply); }, 2000));
    window.pressOn(kIdTabSettings, kIdApply);
    ASSERT_TRUE(broker().waitForEvent("SETTINGS_APPLIED_DPAPI"));
    ASSERT_TRUE(waitUntil([&] { return window.enabled(kIdCheckUpdate); }, 2000));
    window.pressOn(kIdTabDiagnostics, kIdCheckUpdate);
    EXPECT_TRUE(window.waitForStatus(L"Verificação de atualização desativada nas Configurações."));
    EXPECT_EQ(broker().countEvents("MF_UPDATE_MANUAL_CHECK"), 0u);
}

TEST_F(TimedUpdates, AreNotAskedForAgainByShowingTheWindowTooSoon) {
    startAndHearOfIt();
    window.command(kIdTrayShow);
    Sleep(500);
    EXPECT_EQ(broker().countEvents("MF_UPDATE_STARTUP_CHECK"), 1u);
}

TEST_F(TimedUpdates, EndWithTheBrokerInTheMiddleOfADownload) {
    startAndHearOfIt();
    paceTheDownload("0.5");
    beginDownload();
    window.commandAndGoOn(kIdTrayQuit);
    EXPECT_EQ(broker().waitForExit(10'000), 0u);
    EXPECT_FALSE(downloaded());
}

TEST_F(TimedUpdates, EndWithTheSessionInTheMiddleOfADownload) {
    startAndHearOfIt();
    paceTheDownload("0.5");
    beginDownload();
    EXPECT_NE(SendMessageW(window.handle(), WM_QUERYENDSESSION, 0, 0), 0);
    PostMessageW(window.handle(), WM_ENDSESSION, TRUE, 0);
    EXPECT_EQ(broker().waitForExit(10'000), 0u);
    EXPECT_FALSE(downloaded());
}

TEST_F(TimedUpdates, LeaveNothingOfADownloadWhoseBrokerWasKilled) {
    startAndHearOfIt();
    paceTheDownload("0.5");
    beginDownload();
    const fs::path killed = downloaded()->parent_path();
    broker().terminate();
    ASSERT_TRUE(fs::exists(killed / L"Setup.download"));
    removeRelease();
    startAndHearOfIt();
    download();
    EXPECT_FALSE(fs::exists(killed));
    EXPECT_TRUE(fs::exists(*downloaded()));
}

TEST_F(TimedUpdates, SayWhyNoDownloadFollowsAYes) {
    startAndHearOfIt();
    window.pressAndGoOn(kIdDownloadUpdate);
    const HWND box = window.waitForBox();
    ASSERT_NE(box, nullptr);
    replyToTheCheck(R"({"status":500})");
    window.press(kIdCheckUpdate);
    ASSERT_TRUE(window.waitForStatus(kUnreachable));
    PostMessageW(box, WM_COMMAND, IDYES, 0);
    ASSERT_TRUE(waitUntil([&] { return IsWindow(box) == FALSE; }, 2000));
    EXPECT_TRUE(window.waitForStatus(kUnreachable));
    EXPECT_FALSE(downloaded());
}

TEST_F(TimedUpdates, IgnoreACompletionThatNobodySent) {
    broker().start(L"--test-pattern");
    ASSERT_TRUE(broker().waitForEvent("MF_UPDATE_CHECK_COMPLETED", 20'000));
    for (const WPARAM number : {1, 2, 3})
        SendMessageW(window.handle(), WM_APP + 4, number, 0);
    EXPECT_TRUE(broker().runs());
    EXPECT_EQ(broker().countEvents("MF_UPDATE_CHECK_COMPLETED"), 1u);
}

// --- The end of the broker while a server holds a check or a download ---

struct Hold {
    const char* name;
    const char* server;    // a kind of server
    const char* check;     // how it hands out the manifest
    const char* download;  // and the installer; empty: held at the check already
};
constexpr Hold kHolds[] = {
    {"connect, silent", "connect_silent", "", ""},
    {"handshake, silent", "handshake_silent", "", ""},
    {"handshake, dripping", "handshake_drip", "", ""},
    {"head, silent", "good", R"({"head":"silent"})", ""},
    {"head, dripping", "good", R"({"head":"drip"})", ""},
    {"body, silent", "good", R"({"length":100,"more":20,"stall":10})", ""},
    {"body, dripping", "good", R"({"more":100,"drip":1})", ""},
    {"head of the installer, silent", "good", "", R"({"head":"silent"})"},
    {"head of the installer, dripping", "good", "", R"({"head":"drip"})"},
    {"installer, silent", "good", "", R"({"stall":10})"},
    {"installer, dripping", "good", "", R"({"drip":1})"},
};
constexpr char kEndedAlready[] =
    "connect, dripping: nothing travels before there is a connection; reset anywhere: it is over before "
    "the quit";

class HeldUpdates : public TimedUpdates {
protected:
    void SetUp() override {
        TimedUpdates::SetUp();
        machine_.setString(kInstallDirValue, broker().installRoot());
    }

    void startAndBeHeld(const Hold& hold) {
        removeLeftovers();
        useServer(hold.server);
        if (*hold.check != 0)
            replyToTheCheck(hold.check);
        if (*hold.download != 0) {
            startAndHearOfIt();
            replyToTheDownload(hold.download);
            beginDownload();
        } else {
            broker().start(L"--test-pattern");
            ASSERT_TRUE(broker().waitForEvent("MF_UPDATE_STARTUP_CHECK"));
        }
        Sleep(kOnItsWayMs);
        ASSERT_EQ(broker().countEvents("MF_UPDATE_CHECK_COMPLETED"), *hold.download != 0 ? 1u : 0u);
        ASSERT_EQ(broker().countEvents("MF_UPDATE_DOWNLOAD_FAILED"), 0u);
    }
    void expectEndInTime(const Hold& hold) {
        const Tick begin = GetTickCount64();
        EXPECT_EQ(broker().runToEnd(L"--shutdown-broker", 20'000), 0u) << hold.name;
        const Tick took = GetTickCount64() - begin;
        EXPECT_EQ(broker().waitForExit(0), 0u) << hold.name;
        EXPECT_LE(took, kLimitMs + kSlackMs) << hold.name;
        EXPECT_EQ(broker().countEvents("APP_EXIT_CLEAN"), 1u) << hold.name;
        std::printf("  %-32s ended after %5llu ms\n", hold.name, took);
    }

    static constexpr DWORD kOnItsWayMs = 500;  // to where the server holds it
    static constexpr Tick kLimitMs = 4000;     // for all that runs to end
    static constexpr Tick kSlackMs = 2000;
};
using TimedHeldUpdates = HeldUpdates;
using FullHeldUpdates = HeldUpdates;

TEST_F(TimedHeldUpdates, LetTheBrokerEndAlthoughTheServerDrips) {
    const Hold dripping = {"body, dripping", "good", R"({"more":100,"drip":1})", ""};
    startAndBeHeld(dripping);
    expectEndInTime(dripping);
}

TEST_F(FullHeldUpdates, LetTheBrokerEndWhereverTheServerHoldsThem) {
    for (const Hold& hold : kHolds) {
        startAndBeHeld(hold);
        if (HasFatalFailure())
            return;
        expectEndInTime(hold);
        broker().end();
    }
    std::printf("  %s\n", kEndedAlready);
}

}  // namespace
}  // namespace vextra::test
