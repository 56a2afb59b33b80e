// The event log's whole vocabulary. Nothing else can be logged: a new event is a new line here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "base/product.h"

namespace vextra {

enum class EventCode : std::uint8_t {
    // Entry and maintenance commands
    kAppStart = 1,
    kAppExitClean,
    kUiReady,
    kAutomaticIdleReady,
    kCameraCreated,
    kCameraReset,
    kCameraRegistered,
    kCameraRemoved,
    // Supervisor
    kMfStartup,
    kMfShutdown,
    kStopComplete,
    kOwnerOrElevationBlock,
    kBridgeOpenFailed,
    kDemandBegin,
    kLastDemandReleased,
    kFirstFrame,
    kProducerFrameLive,
    kProducerPause,
    kProducerResume,
    kProducerReconnect,
    kAutoGstreamerFallback,
    kPowerSuspend,
    kPowerResume,
    // Window
    kSessionNotifyRegistered,
    kSessionNotifyFailed,
    kSessionPrivateFallback,
    kSessionOwnResume,
    kUiShow,
    kDpiChanged,
    kManualPreviewBegin,
    kManualPreviewRelease,
    kUiHideTray,
    kTrayAddOk,
    kTrayAddFailed,
    kTrayRemove,
    // Settings panel
    kSettingsApplyBlocked,
    kSettingsRejected,
    kSettingsSource,
    kSettingsStream,
    kSettingsDecoder,
    kSettingsLatency,
    kSettingsFirstDeadline,
    kSettingsSaveFailed,
    kSettingsApplied,
    // FFmpeg producer
    kFfmpegStart,
    kFfmpegLaunchFailed,
    kFfmpegJobAssignFailed,
    // GStreamer producer
    kGstreamerStart,
    // Update channel
    kUpdateStartupCheck,
    kUpdateManualCheck,
    kUpdateCheckCompleted,
    kUpdateDownloadVerified,
    kUpdateDownloadFailed,
    kUpdateInstallerLaunched,
    kUpdateInstallerNotLaunched,
};

// The text of a code: upper-case letters, digits and '_'; one code also holds '.' and '-'.
constexpr std::string_view eventText(EventCode code) {
    switch (code) {
        case EventCode::kAppStart: return "APP_START_LIMITED_" VEXTRA_VERSION;
        case EventCode::kAppExitClean: return "APP_EXIT_CLEAN";
        case EventCode::kUiReady: return "UI_READY";
        case EventCode::kAutomaticIdleReady: return "AUTOMATIC_IDLE_READY";
        case EventCode::kCameraCreated: return "CREATE_SYSTEM_CURRENTUSER";
        case EventCode::kCameraReset: return "RESET_OWN_SYSTEM_CAMERA";
        case EventCode::kCameraRegistered: return "REGISTER_SYSTEM";
        case EventCode::kCameraRemoved: return "REMOVE_SYSTEM";
        case EventCode::kMfStartup: return "MF_STARTUP";
        case EventCode::kMfShutdown: return "MF_SHUTDOWN";
        case EventCode::kStopComplete: return "STOP_COMPLETE";
        case EventCode::kOwnerOrElevationBlock: return "OWNER_OR_ELEVATION_BLOCK";
        case EventCode::kBridgeOpenFailed: return "BRIDGE_OPEN_FAILED";
        case EventCode::kDemandBegin: return "DEMAND_BEGIN_DEVICE_UNCHANGED";
        case EventCode::kLastDemandReleased: return "LAST_DEMAND_RELEASED_PRODUCER_STOP";
        case EventCode::kFirstFrame: return "FIRST_FRAME_BOUNDED";
        case EventCode::kProducerFrameLive: return "PRODUCER_FRAME_LIVE";
        case EventCode::kProducerPause: return "PRODUCER_PAUSE_FALLBACK";
        case EventCode::kProducerResume: return "PRODUCER_RESUME";
        case EventCode::kProducerReconnect: return "PRODUCER_RECONNECT_FALLBACK";
        case EventCode::kAutoGstreamerFallback: return "AUTO_GSTREAMER_FALLBACK_FFMPEG";
        case EventCode::kPowerSuspend: return "POWER_SUSPEND_FALLBACK";
        case EventCode::kPowerResume: return "POWER_RESUME_RECOVER";
        case EventCode::kSessionNotifyRegistered: return "SESSION_NOTIFY_REGISTERED";
        case EventCode::kSessionNotifyFailed: return "SESSION_NOTIFY_FAILED";
        case EventCode::kSessionPrivateFallback: return "SESSION_PRIVATE_FALLBACK";
        case EventCode::kSessionOwnResume: return "SESSION_OWN_RESUME";
        case EventCode::kUiShow: return "UI_SHOW_IDEMPOTENT";
        case EventCode::kDpiChanged: return "DPI_CHANGED";
        case EventCode::kManualPreviewBegin: return "MANUAL_PREVIEW_BEGIN_60S";
        case EventCode::kManualPreviewRelease: return "MANUAL_PREVIEW_RELEASE";
        case EventCode::kUiHideTray: return "UI_HIDE_TRAY_ACTIVE";
        case EventCode::kTrayAddOk: return "TRAY_ADD_OK";
        case EventCode::kTrayAddFailed: return "TRAY_ADD_FAILED";
        case EventCode::kTrayRemove: return "TRAY_REMOVE";
        case EventCode::kSettingsApplyBlocked: return "SETTINGS_APPLY_BLOCKED_ACTIVE_OR_UNKNOWN";
        case EventCode::kSettingsRejected: return "SETTINGS_VALIDATION_REJECTED";
        case EventCode::kSettingsSource: return "SETTINGS_SOURCE";
        case EventCode::kSettingsStream: return "SETTINGS_STREAM";
        case EventCode::kSettingsDecoder: return "SETTINGS_DECODER";
        case EventCode::kSettingsLatency: return "SETTINGS_LATENCY";
        case EventCode::kSettingsFirstDeadline: return "SETTINGS_FIRST_DEADLINE";
        case EventCode::kSettingsSaveFailed: return "SETTINGS_SAVE_FAILED";
        case EventCode::kSettingsApplied: return "SETTINGS_APPLIED_DPAPI";
        case EventCode::kFfmpegStart: return "FFMPEG_START_OWN_PROCESS";
        case EventCode::kFfmpegLaunchFailed: return "FFMPEG_LAUNCH_FAILED";
        case EventCode::kFfmpegJobAssignFailed: return "FFMPEG_JOB_ASSIGN_FAILED";
        case EventCode::kGstreamerStart: return "GSTREAMER_START_OWN_PIPELINE";
        case EventCode::kUpdateStartupCheck: return "MF_UPDATE_STARTUP_CHECK";
        case EventCode::kUpdateManualCheck: return "MF_UPDATE_MANUAL_CHECK";
        case EventCode::kUpdateCheckCompleted: return "MF_UPDATE_CHECK_COMPLETED";
        case EventCode::kUpdateDownloadVerified: return "MF_UPDATE_DOWNLOAD_VERIFIED";
        case EventCode::kUpdateDownloadFailed: return "MF_UPDATE_DOWNLOAD_FAILED";
        case EventCode::kUpdateInstallerLaunched: return "MF_UPDATE_INSTALLER_LAUNCHED";
        case EventCode::kUpdateInstallerNotLaunched: return "MF_UPDATE_INSTALLER_NOT_LAUNCHED";
    }
    return "";
}

// None is longer: lines are made in memory of a fixed size.
constexpr std::size_t kLongestEventText = eventText(EventCode::kSettingsApplyBlocked).size();

}  // namespace vextra
