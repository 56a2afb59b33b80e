// The update channel as the window sees it: what runs, what is known, what the user may press and what is
// said. All of it belongs to the window's thread; checks and downloads run on one worker at a time. Pure:
// what touches the system comes in through the doors.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <future>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "base/secret.h"
#include "base/system_types.h"
#include "config/camera_use.h"
#include "diag/event_codes.h"
#include "update/update_check.h"

namespace vextra {

constexpr Tick kStartupCheckSpacingMs = 300'000;

// What the installer's button says: at first, after a download that failed, after one that was verified.
inline constexpr std::wstring_view kDownloadUpdateLabel = L"Baixar atualização";
inline constexpr std::wstring_view kRetryDownloadLabel = L"Tentar download novamente";
inline constexpr std::wstring_view kInstallUpdateLabel = L"Instalar atualização";

enum class CheckKind : std::uint8_t {
    kStartup = 1,  // at start and whenever the window is shown; at most one in kStartupCheckSpacingMs
    kManual,
};

// The number that a completion message carries.
enum class UpdateCompletion : std::uint8_t { kCheck = 1, kDownload = 2 };

struct DownloadResult {
    bool verified = false;
    std::wstring installerPath;  // empty unless verified
    std::wstring message;        // for the user
};

struct UpdateSettings {
    bool disabled = false;
    SecretText manifestUrl;  // empty: the channel's own
};

// A box with Yes and No; No is the default, and closing it means No.
struct UpdateQuestion {
    std::wstring_view text;
    std::wstring_view title;
};

// What the channel has the system do, and what it asks and tells its window. Each is filled whole in one
// place, by designated initialisers: then a member that is left out is an error of the compiler.
struct UpdateSystemDoors {
    // Called on the window's thread.
    std::function<Tick()> now;
    std::function<bool(const UpdateQuestion&)> ask;
    std::function<bool(const UpdateManifest&, const std::wstring& installerPath)> openInstaller;

    // Called on the worker. Both look at `cancel` between their steps; the download writes `progressPercent`.
    std::function<UpdateCheckResult(const UpdateCheckRequest&, const std::atomic<bool>& cancel)> runCheck;
    std::function<DownloadResult(const UpdateManifest&, const std::atomic<bool>& cancel,
                                 std::atomic<std::uint32_t>& progressPercent)>
        download;
};

struct UpdateWindowDoors {
    // Called on the window's thread.
    std::function<UpdateSettings()> settings;  // copied under the settings lock
    std::function<CameraUse()> camera;         // as it is at this moment, the leases freshly counted
    // The shared status text and a message to the window, whose status line shows that text and nothing else:
    // answers to the user and news are told in the same way.
    std::function<void(std::wstring_view)> showStatus;
    std::function<void(std::wstring_view title, std::wstring_view text)> showBalloon;
    std::function<void(EventCode, std::int32_t)> log;

    // Called on the worker, also when the window is gone.
    std::function<void(UpdateCompletion)> postCompletion;
};

class UpdateChannel {
public:
    // `channel` is borrowed and outlives this object.
    UpdateChannel(const UpdateChannelIdentity& channel, UpdateSystemDoors system, UpdateWindowDoors window)
        : channel_(channel), system_(std::move(system)), window_(std::move(window)) {}
    UpdateChannel(const UpdateChannel&) = delete;
    UpdateChannel& operator=(const UpdateChannel&) = delete;
    // Waits for the worker, however long it takes.
    ~UpdateChannel();

    // What the user and the system ask for. Nothing happens while it cannot.
    void startCheck(CheckKind kind);
    void pressInstallerButton();  // download, or install what is downloaded

    // The window received a completion message with this number. One that no worker sent is ignored.
    void handleCompletion(std::uint64_t number);
    // Now and then: a worker that ended although its message did not arrive.
    void catchUp() { handleCompletion(finished_); }

    // From here on nothing is started, and the worker ends with its current step. Returns at once.
    void beginShutdown();
    // The same, and waits for the worker, but no longer than the limit: its step may be one that the network
    // holds. True when no worker is left. False: it still uses this object, which then may not be destroyed;
    // all that is left to do is to end the process.
    bool shutDown(std::uint32_t limitMs);

    // What the window shows.
    bool busy() const { return busy_; }
    bool checkButtonEnabled() const { return !busy_; }
    bool installerButtonEnabled(const CameraUse& camera) const;
    std::wstring_view installerButtonLabel() const { return buttonLabel_; }
    std::optional<std::wstring> progressText() const;  // while downloading

private:
    void sayWhatCameBetween();
    void startDownload();
    void launchInstaller();
    void finishCheck();
    void finishDownload();

    bool mayFetchInstaller() const { return !shuttingDown_ && !busy_ && updateAvailable_; }
    bool mayLaunchInstaller() const { return mayFetchInstaller() && downloaded_; }
    UpdateManifest currentManifest();
    void startWorker(std::function<void()> work, UpdateCompletion completion) noexcept;
    void joinWorker() noexcept;

    const UpdateChannelIdentity& channel_;
    const UpdateSystemDoors system_;
    const UpdateWindowDoors window_;

    // Window's thread only.
    bool busy_ = false;  // a worker was started and its completion not yet handled
    bool updateAvailable_ = false;
    bool downloading_ = false;
    bool downloaded_ = false;
    bool shuttingDown_ = false;
    Tick nextStartupCheck_ = 0;  // no start-up check before this
    std::wstring_view buttonLabel_ = kDownloadUpdateLabel;
    std::wstring checkText_;        // what was last said of a check
    std::thread worker_;            // the one that may exist
    std::future<void> workerDone_;  // ready when it has nothing left to do

    // Shared with the worker.
    std::atomic<std::uint32_t> progressPercent_{0};  // written by the worker
    std::atomic<bool> cancel_{false};                // written by the window's thread
    std::atomic<std::uint32_t> finished_{0};         // UpdateCompletion of a worker that ended; 0: none

    std::mutex updateResultLock_;
    UpdateCheckResult checkResult_;  // guarded by updateResultLock_
    DownloadResult downloadResult_;  // guarded by updateResultLock_
};

}  // namespace vextra
