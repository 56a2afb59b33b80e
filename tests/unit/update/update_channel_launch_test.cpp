// The installer's start, as far as the channel decides it.
#include <gtest/gtest.h>

#include <memory>

#include "bridge/bridge_protocol.h"
#include "update/update_channel.h"
#include "update_window.h"

namespace vextra {
namespace {

using test::kIdleCamera;
using test::Said;
using enum test::Said::Where;

class UpdateLaunch : public test::UpdateWindow {};

constexpr const wchar_t* kLaunchedText = L"Instalador aberto. Conclua o assistente para atualizar.";
constexpr const wchar_t* kNotLaunchedText =
    L"Instalador não iniciado ou autorização cancelada. Câmera preservada.";

TEST_F(UpdateLaunch, TheInstallerIsOpenedAfterAYes) {
    checkAndDownload();
    channel.pressInstallerButton();
    EXPECT_EQ(takeSaid(), (std::vector<Said>{
                              {kQuestion,
                               L"Atualização Câmera Virtual Vextra MF|Abrir o instalador da nova versão MF? "
                               L"O Windows poderá pedir autorização. Suas configurações serão preservadas. "
                               L"A instalação só prossegue sem captura ativa."},
                              {kStatus, kLaunchedText},
                              {kLog, L"MF_UPDATE_INSTALLER_LAUNCHED 0"}}));
    EXPECT_EQ(opened, (std::vector<std::pair<std::string, std::wstring>>{{"0.3.0", L"C:\\u\\Setup.exe"}}));
}

TEST_F(UpdateLaunch, TheInstallerIsNotOpenedAfterANo) {
    checkAndDownload();
    answer = false;
    channel.pressInstallerButton();
    EXPECT_EQ(takeSaid(kQuestion).size(), 1u);
    EXPECT_TRUE(takeSaid().empty());
    EXPECT_TRUE(opened.empty());
}

TEST_F(UpdateLaunch, ABusyCameraPutsTheInstallerOff) {
    checkAndDownload();
    for (const CameraUse busy :
         {CameraUse{true, false, 0}, CameraUse{false, true, 0}, CameraUse{false, false, 1},
          CameraUse{false, false, 16}, CameraUse{false, false, -1}, CameraUse{}}) {
        camera = busy;
        channel.pressInstallerButton();
        EXPECT_EQ(takeSaid(), (std::vector<Said>{{kStatus,
                                                  L"Instalação adiada: encerre a captura e a prévia. Nenhuma "
                                                  L"reunião será interrompida."}}));
        EXPECT_FALSE(channel.installerButtonEnabled(busy));
    }
    EXPECT_TRUE(opened.empty());
}

TEST_F(UpdateLaunch, ALeaseBlocksTheInstallerAsLongAsItIsFresh) {
    checkAndDownload();
    const auto file = std::make_unique<DemandFile>();
    file->slots[3].leaseId = 7;
    file->slots[3].heartbeatTickMs = now;
    camera.leaseCount = countFreshLeases(*file, now + 3000);
    channel.pressInstallerButton();
    EXPECT_TRUE(opened.empty());
    camera.leaseCount = countFreshLeases(*file, now + 3001);
    channel.pressInstallerButton();
    EXPECT_EQ(opened.size(), 1u);
}

TEST_F(UpdateLaunch, ACaptureThatBeganWhileTheUserWasAskedPutsTheInstallerOff) {
    checkAndDownload();
    whileAsking = [this] { camera.leaseCount = 1; };
    channel.pressInstallerButton();
    EXPECT_EQ(takeSaid(kStatus), std::vector<std::wstring>{L"Captura iniciada: instalação adiada."});
    EXPECT_TRUE(opened.empty());
}

TEST_F(UpdateLaunch, AnEndThatBeganWhileTheUserWasAskedKeepsTheInstallerClosed) {
    checkAndDownload();
    whileAsking = [this] { channel.beginShutdown(); };
    channel.pressInstallerButton();
    EXPECT_TRUE(opened.empty());
    EXPECT_TRUE(takeSaid(kStatus).empty());
}

TEST_F(UpdateLaunch, ACheckThatEndedWhileTheUserWasAskedKeepsTheEarlierInstallerClosed) {
    checkAndDownload();
    whileAsking = [this] {
        result.manifest.version = "0.4.0";
        check();
        takeSaid();
    };
    channel.pressInstallerButton();
    EXPECT_TRUE(opened.empty());
    EXPECT_EQ(takeSaid(kStatus),
              std::vector<std::wstring>{
                  L"Nova versão 0.4.0 disponível • assinatura MF validada. Baixe para atualizar."});
    EXPECT_EQ(channel.installerButtonLabel(), L"Baixar atualização");
}

TEST_F(UpdateLaunch, AnInstallerThatDidNotStartCanBeStartedAgain) {
    checkAndDownload();
    installerOpens = false;
    channel.pressInstallerButton();
    std::vector<Said> expected = {{kStatus, kNotLaunchedText}, {kLog, L"MF_UPDATE_INSTALLER_NOT_LAUNCHED 0"}};
    std::vector<Said> all = takeSaid();
    EXPECT_EQ(std::vector<Said>(all.begin() + 1, all.end()), expected);
    EXPECT_EQ(channel.installerButtonLabel(), L"Instalar atualização");
    EXPECT_TRUE(channel.installerButtonEnabled(kIdleCamera));
    installerOpens = true;
    channel.pressInstallerButton();
    EXPECT_EQ(opened.size(), 2u);
}

TEST_F(UpdateLaunch, TheInstallButtonWaitsForAnIdleCameraAndTheDownloadButtonDoesNot) {
    check();
    EXPECT_TRUE(channel.installerButtonEnabled({true, true, 16}));
    channel.pressInstallerButton();
    deliver();
    EXPECT_TRUE(channel.installerButtonEnabled(kIdleCamera));
    EXPECT_FALSE(channel.installerButtonEnabled({true, false, 0}));
    EXPECT_FALSE(channel.installerButtonEnabled({false, true, 0}));
    EXPECT_FALSE(channel.installerButtonEnabled({false, false, 1}));
}

}  // namespace
}  // namespace vextra
