#include "update/update_channel.h"

#include <chrono>
#include <utility>

#include "base/product.h"
#include "base/text.h"

namespace vextra {
namespace {

constexpr UpdateQuestion kDownloadQuestion{
    L"Baixar o instalador completo da nova versão MF? A assinatura, o tamanho e o SHA-256 serão verificados. "
    L"Nada será instalado sem sua confirmação.",
    L"Nova versão disponível"};
constexpr UpdateQuestion kInstallQuestion{
    L"Abrir o instalador da nova versão MF? O Windows poderá pedir autorização. Suas configurações serão "
    L"preservadas. A instalação só prossegue sem captura ativa.",
    L"Atualização " VEXTRA_TITLE_W};

}  // namespace

UpdateChannel::~UpdateChannel() {
    beginShutdown();
    joinWorker();
}

void UpdateChannel::startCheck(CheckKind kind) {
    if (shuttingDown_ || busy_)
        return;
    const Tick now = system_.now();
    if (kind == CheckKind::kStartup && now < nextStartupCheck_)
        return;
    UpdateSettings settings = window_.settings();
    if (settings.disabled) {
        window_.showStatus(L"Verificação de atualização desativada nas Configurações.");
        return;
    }
    joinWorker();
    nextStartupCheck_ = now + kStartupCheckSpacingMs;
    busy_ = true;
    updateAvailable_ = false;
    downloaded_ = false;
    checkText_ = L"Verificando canal MF e assinatura, sem interromper a câmera...";
    window_.showStatus(checkText_);
    window_.log(kind == CheckKind::kStartup ? EventCode::kUpdateStartupCheck : EventCode::kUpdateManualCheck,
                0);
    startWorker(
        [this, url = std::move(settings.manifestUrl)] {
            UpdateCheckResult result = system_.runCheck(updateCheckRequest(url, channel_), cancel_);
            const std::lock_guard guard(updateResultLock_);
            checkResult_ = std::move(result);
        },
        UpdateCompletion::kCheck);
}

void UpdateChannel::pressInstallerButton() {
    if (downloaded_)
        launchInstaller();
    else
        startDownload();
}

// The user said yes and nothing follows: not without a word.
void UpdateChannel::sayWhatCameBetween() {
    if (!shuttingDown_)
        window_.showStatus(progressText().value_or(checkText_));
}

void UpdateChannel::startDownload() {
    if (!mayFetchInstaller() || !system_.ask(kDownloadQuestion))
        return;
    // While the box was open messages were still dispatched: a check may have begun, or the broker's end.
    // Hence asked again, as one worker is all there may be.
    if (!mayFetchInstaller()) {
        sayWhatCameBetween();
        return;
    }
    joinWorker();
    busy_ = true;
    downloading_ = true;
    progressPercent_ = 0;
    cancel_ = false;
    startWorker(
        [this, manifest = currentManifest()] {
            DownloadResult result = system_.download(manifest, cancel_, progressPercent_);
            const std::lock_guard guard(updateResultLock_);
            downloadResult_ = std::move(result);
        },
        UpdateCompletion::kDownload);
}

void UpdateChannel::launchInstaller() {
    if (!mayLaunchInstaller())
        return;
    if (!cameraIsIdle(window_.camera())) {
        window_.showStatus(
            L"Instalação adiada: encerre a captura e a prévia. Nenhuma reunião será interrompida.");
        return;
    }
    if (!system_.ask(kInstallQuestion))
        return;
    if (!mayLaunchInstaller()) {
        sayWhatCameBetween();
        return;
    }
    // The box may have been open for hours, and a meeting may have begun meanwhile.
    if (!cameraIsIdle(window_.camera())) {
        window_.showStatus(L"Captura iniciada: instalação adiada.");
        return;
    }
    std::wstring path;
    {
        const std::lock_guard guard(updateResultLock_);
        path = downloadResult_.installerPath;
    }
    const bool opened = system_.openInstaller(currentManifest(), path);
    window_.showStatus(opened ? L"Instalador aberto. Conclua o assistente para atualizar."
                              : L"Instalador não iniciado ou autorização cancelada. Câmera preservada.");
    window_.log(opened ? EventCode::kUpdateInstallerLaunched : EventCode::kUpdateInstallerNotLaunched, 0);
}

void UpdateChannel::handleCompletion(std::uint64_t number) {
    // Any program of the user's can send the window this message; waiting for a worker that still runs would
    // freeze the window.
    if (number == 0 || number != finished_.load())
        return;
    finished_ = 0;
    joinWorker();
    busy_ = false;
    if (number == static_cast<std::uint64_t>(UpdateCompletion::kCheck))
        finishCheck();
    else
        finishDownload();
}

void UpdateChannel::finishCheck() {
    UpdateCheckResult result;
    {
        const std::lock_guard guard(updateResultLock_);
        result = checkResult_;
    }
    updateAvailable_ = result.code == UpdateCode::kAvailable;
    std::wstring text = result.message;
    if (updateAvailable_) {
        text = L"Nova versão " + widenedAscii(result.manifest.version) +
               L" disponível • assinatura MF validada. Baixe para atualizar.";
        window_.showBalloon(L"Atualização " VEXTRA_SHORT_NAME_W L" disponível",
                            L"Abra Diagnóstico para baixar a nova versão. A câmera não será interrompida.");
        buttonLabel_ = kDownloadUpdateLabel;
    }
    window_.log(EventCode::kUpdateCheckCompleted, static_cast<std::int32_t>(result.code));
    window_.showStatus(text);
    checkText_ = std::move(text);
}

void UpdateChannel::finishDownload() {
    DownloadResult result;
    {
        const std::lock_guard guard(updateResultLock_);
        result = downloadResult_;
    }
    downloading_ = false;
    downloaded_ = result.verified;
    buttonLabel_ = result.verified ? kInstallUpdateLabel : kRetryDownloadLabel;
    window_.log(result.verified ? EventCode::kUpdateDownloadVerified : EventCode::kUpdateDownloadFailed, 0);
    window_.showStatus(result.message);
}

void UpdateChannel::beginShutdown() {
    shuttingDown_ = true;
    cancel_ = true;
}

bool UpdateChannel::shutDown(std::uint32_t limitMs) {
    beginShutdown();
    if (worker_.joinable() &&
        workerDone_.wait_for(std::chrono::milliseconds(limitMs)) != std::future_status::ready)
        return false;
    joinWorker();
    return true;
}

bool UpdateChannel::installerButtonEnabled(const CameraUse& camera) const {
    return !busy_ && updateAvailable_ && (!downloaded_ || cameraIsIdle(camera));
}

std::optional<std::wstring> UpdateChannel::progressText() const {
    if (!downloading_)
        return std::nullopt;
    return L"Baixando instalador MF: " + std::to_wstring(progressPercent_.load()) + L"% • câmera preservada";
}

UpdateManifest UpdateChannel::currentManifest() {
    const std::lock_guard guard(updateResultLock_);
    return checkResult_.manifest;
}

// noexcept: a system that has no thread to give ends the program, as does a worker that would join itself.
void UpdateChannel::startWorker(std::function<void()> work, UpdateCompletion completion) noexcept {
    std::promise<void> done;
    workerDone_ = done.get_future();
    worker_ = std::thread([this, completion, task = std::move(work), end = std::move(done)]() mutable {
        task();
        finished_ = static_cast<std::uint32_t>(completion);
        window_.postCompletion(completion);
        end.set_value();
    });
}

void UpdateChannel::joinWorker() noexcept {
    if (worker_.joinable())
        worker_.join();
}

}  // namespace vextra
