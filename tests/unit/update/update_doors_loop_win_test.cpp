// The whole way of an update as its publisher and its user go it, with everything real but the window: the
// signer writes a release, a server hands it out, the channel announces, downloads and starts it.
#include <windows.h>

#include <gtest/gtest.h>

#include <condition_variable>
#include <deque>
#include <mutex>

#include "local_app_data_win.h"
#include "signer/signer_win.h"
#include "update/update_channel.h"
#include "update/update_doors_win.h"
#include "update_server_win.h"

namespace vextra {
namespace {

using test::ScratchLocalAppData;
using test::UpdateServer;

std::wstring besideThisProgram(const wchar_t* name) {
    wchar_t path[MAX_PATH];
    const DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
    return std::filesystem::path(std::wstring(path, length)).parent_path().wstring() + L"\\" + name;
}

bool waitForFile(const std::wstring& path) {
    for (int waitedMs = 0; waitedMs < 20'000 && !fileExists(path); waitedMs += 20)
        Sleep(20);
    return fileExists(path);
}

class ServerWideUpdateLoop : public testing::Test {
protected:
    void SetUp() override {
        VEXTRA_SKIP_WITHOUT_UPDATE_SERVER();
        server.emplace(*UpdateServer::find());
        key = generateSigningKey().value();
        identity = {server->origin(), key.point};
        localAppData.emplace();
        channel.emplace(identity, systemDoors(), windowDoors());
        removeRelease();
    }
    void TearDown() override {
        channel.reset();
        if (server)
            removeRelease();
    }
    // All of it: these tests are the only ones that announce a release.
    void removeRelease() const {
        std::error_code ignored;
        const std::filesystem::path channelFolder = server->www() + L"\\camera-virtual-vextra-mf";
        std::filesystem::remove_all(channelFolder / version, ignored);
        std::filesystem::remove(channelFolder / "beta.json", ignored);
        std::filesystem::remove(channelFolder / "beta.json.requests", ignored);
    }

    UpdateSystemDoors systemDoors() {
        UpdateSystemDoors made = systemUpdateDoors(nullptr, identity);
        made.ask = [](const UpdateQuestion&) { return true; };
        return made;
    }
    UpdateWindowDoors windowDoors() {
        return {
            .settings = [] { return UpdateSettings{}; },
            .camera = [this] { return camera; },
            .showStatus = [this](std::wstring_view text) { status = text; },
            .showBalloon = [](std::wstring_view, std::wstring_view) {},
            .log = [this](EventCode code, std::int32_t value) { log.emplace_back(code, value); },
            .postCompletion =
                [this](UpdateCompletion completion) {
                    const std::lock_guard guard(lock);
                    posted.push_back(completion);
                    changed.notify_all();
                },
        };
    }
    void deliver() {
        std::unique_lock guard(lock);
        ASSERT_TRUE(changed.wait_for(guard, std::chrono::seconds(60), [this] { return !posted.empty(); }));
        const UpdateCompletion completion = posted.front();
        posted.pop_front();
        guard.unlock();
        channel->handleCompletion(static_cast<std::uint64_t>(completion));
    }
    void publish() {
        const SignerReport report =
            publishRelease({besideThisProgram(L"stub-setup.exe"),
                            version,
                            std::wstring(identity.origin.begin(), identity.origin.end()),
                            server->www(),
                            {}},
                           key);
        ASSERT_TRUE(report.ok()) << std::string(report.trouble.begin(), report.trouble.end());
    }
    void check() {
        channel->startCheck(CheckKind::kManual);
        deliver();
    }
    std::wstring downloadedInstaller() const {
        return localAppData->downloads().at(0).wstring() + L"\\Setup.exe";
    }

    const std::wstring version = L"4000000000.0.0-loop.1";  // newer than every broker
    std::optional<UpdateServer> server;
    SigningKey key;
    UpdateChannelIdentity identity;
    std::optional<ScratchLocalAppData> localAppData;
    CameraUse camera{false, false, 0};
    std::wstring status;
    std::vector<std::pair<EventCode, std::int32_t>> log;
    std::mutex lock;
    std::condition_variable changed;
    std::deque<UpdateCompletion> posted;  // guarded by lock
    std::optional<UpdateChannel> channel;
};

TEST_F(ServerWideUpdateLoop, GoesFromTheSignedReleaseToTheStartedInstaller) {
    publish();
    check();
    EXPECT_EQ(status,
              L"Nova versão " + version + L" disponível • assinatura MF validada. Baixe para atualizar.");

    channel->pressInstallerButton();
    EXPECT_TRUE(channel->progressText());
    deliver();
    EXPECT_EQ(channel->installerButtonLabel(), L"Instalar atualização");

    camera.leaseCount = 1;
    channel->pressInstallerButton();
    EXPECT_EQ(status, L"Instalação adiada: encerre a captura e a prévia. Nenhuma reunião será interrompida.");
    EXPECT_FALSE(fileExists(downloadedInstaller() + L".arguments"));

    camera.leaseCount = 0;
    channel->pressInstallerButton();
    EXPECT_EQ(status, L"Instalador aberto. Conclua o assistente para atualizar.");
    ASSERT_TRUE(waitForFile(downloadedInstaller() + L".arguments"));
    const std::string line = readFile(downloadedInstaller() + L".arguments");
    EXPECT_TRUE(line.find("\\Setup.exe") != std::string::npos && line.ends_with(" /NORESTART")) << line;
    EXPECT_EQ(log,
              (std::vector<std::pair<EventCode, std::int32_t>>{{EventCode::kUpdateManualCheck, 0},
                                                               {EventCode::kUpdateCheckCompleted, 6},
                                                               {EventCode::kUpdateDownloadVerified, 0},
                                                               {EventCode::kUpdateInstallerLaunched, 0}}));
}

TEST_F(ServerWideUpdateLoop, EndsWhereNothingIsPublished) {
    check();
    EXPECT_EQ(status, L"Não foi possível verificar a atualização MF com segurança.");
}

TEST_F(ServerWideUpdateLoop, EndsWhereTheSignatureIsMissing) {
    publish();
    DeleteFileW(
        (server->www() + L"\\camera-virtual-vextra-mf\\" + version + L"\\Setup.exe.sig.json").c_str());
    check();
    EXPECT_EQ(status, L"Assinatura da atualização indisponível; instalação não autorizada.");
}

TEST_F(ServerWideUpdateLoop, EndsWhereSomebodyElseSigned) {
    key = generateSigningKey().value();
    publish();
    check();
    EXPECT_EQ(status, L"Assinatura da atualização inválida; instalação recusada.");
}

TEST_F(ServerWideUpdateLoop, EndsWhereTheFileOnTheServerIsAnother) {
    publish();
    const std::wstring served = server->www() + L"\\camera-virtual-vextra-mf\\" + version + L"\\Setup.exe";
    std::string bytes = readFile(served);
    bytes[bytes.size() / 2] = static_cast<char>(bytes[bytes.size() / 2] ^ 1);
    writeFile(served, bytes);
    check();
    channel->pressInstallerButton();
    deliver();
    EXPECT_EQ(status, L"Download não concluído; nenhuma instalação foi iniciada.");
    EXPECT_EQ(channel->installerButtonLabel(), L"Tentar download novamente");
    EXPECT_TRUE(localAppData->downloads().empty());
}

TEST_F(ServerWideUpdateLoop, EndsWhereTheDownloadedFileWasExchanged) {
    publish();
    check();
    channel->pressInstallerButton();
    deliver();
    std::string bytes = readFile(downloadedInstaller());
    bytes.back() = static_cast<char>(bytes.back() ^ 1);
    writeFile(downloadedInstaller(), bytes);
    channel->pressInstallerButton();
    EXPECT_EQ(status, L"Instalador não iniciado ou autorização cancelada. Câmera preservada.");
    Sleep(200);
    EXPECT_FALSE(fileExists(downloadedInstaller() + L".arguments"));
}

TEST_F(ServerWideUpdateLoop, EndsWithTheProgramInTheMiddleOfADownload) {
    publish();
    const std::wstring served = server->www() + L"\\camera-virtual-vextra-mf\\" + version + L"\\Setup.exe";
    check();
    writeFile(served + L".reply", R"({"pace":0.5})");
    channel->pressInstallerButton();
    for (int waitedMs = 0; waitedMs < 5000 && !fileExists(served + L".requests"); waitedMs += 10)
        Sleep(10);
    const Tick begin = GetTickCount64();
    EXPECT_TRUE(channel->shutDown(10'000));
    EXPECT_LT(GetTickCount64() - begin, 3000u);
    EXPECT_TRUE(localAppData->downloads().empty());
}

}  // namespace
}  // namespace vextra
