// What the main window does for its buttons, its menu and the tray.
#include <string>
#include <utility>

#include "bridge/shared_file_win.h"
#include "config/settings_store.h"
#include "core/supervisor_thread_win.h"
#include "core/window_messages_win.h"
#include "diag/diagnostic_report.h"
#include "ui/clipboard_win.h"
#include "ui/labels.h"
#include "ui/main_window_win.h"
#include "ui/tray_text.h"

namespace vextra {

void MainWindow::onCommand(WORD id, WORD notification) {
    if (id == kIdSource) {
        if (notification == CBN_SELCHANGE)
            layoutControls();
        return;
    }
    if (notification == BN_SETFOCUS || notification == BN_KILLFOCUS)
        spoken_.moveFocus(static_cast<ControlId>(id), notification == BN_SETFOCUS);
    if (notification != BN_CLICKED)
        return;
    switch (id) {
        case kIdAutomatic:
        case kIdTrayAutomatic: toggleAutomatic(); break;
        case kIdPause: send(SupervisorCommand::kTogglePause); break;
        case kIdPreview: togglePreview(); break;
        case kIdTrayShow: openFromTray(); break;
        case kIdTrayQuit: quitBroker(); break;
        case kIdTabCamera: selectPanel(Panel::kCamera); break;
        case kIdTabSettings: selectPanel(Panel::kSettings); break;
        case kIdTabDiagnostics: selectPanel(Panel::kDiagnostics); break;
        case kIdRevealUrl: settingsPanel_.toggleUrl(); break;
        case kIdApply: applySettingsFromPanel(); break;
        case kIdReload: reloadSettingsIntoPanel(); break;
        case kIdAdvanced:
            settingsPanel_.toggleAdvanced();
            spoken_.setAdvanced(settingsPanel_.advancedShown());
            layoutControls();
            break;
        case kIdRefreshLogs:
            refreshLogs();
            controls_.scrollToEnd(kIdLogs);  // where the newest events are
            break;
        case kIdCopyReport: copyReport(); break;
        case kIdRepair: repair(); break;
        case kIdTrayCheckUpdate:
        case kIdCheckUpdate: update_->startCheck(CheckKind::kManual); break;
        case kIdDownloadUpdate: update_->pressInstallerButton(); break;
        default: break;
    }
}

void MainWindow::showStatus(std::wstring_view text) {
    showStatusText(shared_, window_, text);
}

void MainWindow::send(SupervisorCommand command) {
    sendCommand(shared_, wakeEvent_, command);
}

std::wstring_view MainWindow::currentStatusLabel() const {
    return statusLabel(statusNow(shared_, GetTickCount64()));
}

// --- The camera ---

void MainWindow::toggleAutomatic() {
    if (shared_.paused) {
        send(SupervisorCommand::kResume);
        return;
    }
    shared_.previewDeadline = 0;
    send(SupervisorCommand::kStopAndSuspend);
}

void MainWindow::togglePreview() {
    const Tick now = GetTickCount64();
    if (!shared_.previewRuns(now)) {
        shared_.previewDeadline = now + kManualPreviewMs;
        send(SupervisorCommand::kResume);
        log_.write(EventCode::kManualPreviewBegin);
        return;
    }
    shared_.previewDeadline = 0;
    showStatus(L"Prévia manual encerrada. Captura externa, se existente, permanece.");
    log_.write(EventCode::kManualPreviewRelease);
}

void MainWindow::suspendForPrivacy() {
    shared_.previewDeadline = 0;
    send(SupervisorCommand::kSuspend);
}

// --- The tray ---

void MainWindow::onTray(UINT mouseMessage) {
    switch (mouseMessage) {
        case WM_LBUTTONUP:
        case WM_LBUTTONDBLCLK: openFromTray(); break;
        case WM_RBUTTONUP:
        case WM_CONTEXTMENU: showTrayMenu(); break;
        default: break;
    }
}

void MainWindow::openFromTray() {
    showWithoutActivating();
    log_.write(EventCode::kUiShow);
    update_->startCheck(CheckKind::kStartup);
}

void MainWindow::showTrayMenu() {
    const UniqueMenu menu(CreatePopupMenu());
    if (!menu)
        return;
    for (const TrayMenuLine& line : trayMenu(currentStatusLabel(), shared_.paused)) {
        switch (line.kind) {
            case TrayLineKind::kSeparator: AppendMenuW(menu.get(), MF_SEPARATOR, 0, nullptr); break;
            case TrayLineKind::kGreyed: AppendMenuW(menu.get(), MF_GRAYED, 0, line.text.c_str()); break;
            case TrayLineKind::kCommand:
                AppendMenuW(menu.get(), MF_STRING, line.command, line.text.c_str());
                break;
        }
    }
    POINT cursor{};
    GetCursorPos(&cursor);
    // Only a menu of the foreground window closes when the user clicks elsewhere, and only once the window
    // has had another message (TrackPopupMenu, remarks).
    SetForegroundWindow(window_);
    const BOOL chosen = TrackPopupMenu(menu.get(), TPM_RETURNCMD | TPM_RIGHTBUTTON | TPM_NONOTIFY, cursor.x,
                                       cursor.y, 0, window_, nullptr);
    if (chosen != 0)
        PostMessageW(window_, WM_COMMAND, static_cast<WPARAM>(chosen), 0);
    PostMessageW(window_, WM_NULL, 0, 0);
}

// --- The settings ---

// The leases are counted anew: the Supervisor's last count may be a pass old.
CameraUse MainWindow::cameraUse() const {
    return {shared_.active, shared_.previewRuns(GetTickCount64()), countLeasesOnce()};
}

void MainWindow::applySettingsFromPanel() {
    const CameraUse use = cameraUse();  // first: what is read afterwards is read of an idle camera
    const SettingsForm form = settingsPanel_.read(settingsNow(shared_));
    const ApplyResult result = applySettings(
        form, use, [this](const BrokerSettings& settings) { return saveSettings(dataFolder_, settings); });
    if (result.outcome == ApplyOutcome::kApplied) {
        replaceSettings(shared_, result.record);
        shared_.testPattern = result.record.source == SourceKind::kSyntheticTest;
    }
    for (const auto& [code, value] : settingsEvents(result))
        log_.write(code, value);
    showStatus(result.message);
}

void MainWindow::reloadSettingsIntoPanel() {
    const ReloadResult result = reloadSettings(cameraUse(), [this](BrokerSettings& settings) {
        bool fromBackup = false;  // which of its two files gave the record is the store's own affair
        return loadSettings(dataFolder_, settings, fromBackup);
    });
    if (result.record) {
        replaceSettings(shared_, *result.record);
        settingsPanel_.fill(formFromSettings(*result.record));
        layoutControls();
    }
    showStatus(result.message);
}

void MainWindow::selectPanel(Panel panel) {
    panel_ = panel;
    if (panel != Panel::kSettings)
        settingsPanel_.hideUrl();
    spoken_.selectPanel(panel);
    if (panel == Panel::kDiagnostics)
        refreshLogs();
    layoutControls();
    for (const Panel each : {Panel::kCamera, Panel::kSettings, Panel::kDiagnostics})
        InvalidateRect(controls_[tabOf(each)], nullptr, FALSE);
}

// --- Diagnostics ---

std::wstring MainWindow::report() const {
    const WindowState state = windowState({});
    DiagnosticFigures figures;
    figures.sourceLabel = protectedSourceLabel(state.configuredSource);
    figures.statusLabel = statusLabel(state);
    figures.backendLabel = reportBackendLabel(state.effectiveBackend);
    figures.leaseCount = state.leaseCount;
    figures.previewRuns = shared_.previewRuns(state.now);
    figures.observedFps = state.observedFps;
    figures.frameCounter = state.frameCounter;
    figures.lastFrameTick = state.lastFrameTick;
    figures.now = state.now;
    figures.reconnects = state.reconnects;
    figures.generation = shared_.generation;
    figures.lastError = shared_.lastError;
    return buildDiagnosticReport(figures);
}

void MainWindow::refreshLogs() {
    controls_.setText(kIdLogs, diagnosticsView(report(), log_.tailForDisplay()));
}

void MainWindow::copyReport() {
    showStatus(copyToClipboard(window_, report())
                   ? L"Diagnóstico sanitizado copiado, sem URLs ou credenciais."
                   : L"Não foi possível copiar o diagnóstico. Tente novamente.");
}

void MainWindow::repair() {
    if (shared_.active || countLeasesOnce() != 0) {
        showStatus(L"Reparo bloqueado: captura ativa ou demanda desconhecida.");
        return;
    }
    MessageBoxW(
        window_,
        L"Execute novamente o Setup.exe offline da versão MF beta. O instalador Inno verifica a captura e "
        L"preserva suas configurações.",
        kBoxTitle, MB_OK | MB_ICONINFORMATION);
}

// --- Updates ---

UpdateWindowDoors MainWindow::updateDoors() {
    return {
        .settings =
            [this] {
                BrokerSettings settings = settingsNow(shared_);
                return UpdateSettings{settings.updateDisabled, std::move(settings.updateManifestUrl)};
            },
        .camera = [this] { return cameraUse(); },
        .showStatus = [this](std::wstring_view text) { showStatus(text); },
        .showBalloon =
            [this](std::wstring_view title, std::wstring_view text) {
                const TrayNotice notice{title, text};
                tray_.refresh(currentStatusLabel(), &notice);
            },
        .log = [this](EventCode code, std::int32_t value) { log_.write(code, value); },
        // On the worker's thread, when the window may be gone: then nothing waits for the message any more.
        .postCompletion =
            [window = window_](UpdateCompletion completion) {
                PostMessageW(window, kMessageUpdateDone, static_cast<WPARAM>(completion), 0);
            },
    };
}

// On every tick of the timer: by the Supervisor's words, without a look into the demand file.
void MainWindow::refreshUpdateButtons() {
    update_->catchUp();  // a full message queue takes no completion
    const CameraUse use{.episodeActive = shared_.active,
                        .previewRuns = shared_.previewRuns(GetTickCount64()),
                        .leaseCount = shared_.leaseCount};
    controls_.setEnabled(kIdCheckUpdate, update_->checkButtonEnabled());
    controls_.setEnabled(kIdDownloadUpdate, update_->installerButtonEnabled(use));
    controls_.setText(kIdDownloadUpdate, update_->installerButtonLabel());
}

void MainWindow::showUpdateProgress() {
    if (const auto progress = update_->progressText())
        showStatus(*progress);
}

}  // namespace vextra
