// The event log's whole vocabulary. Nothing else can be logged: whoever needs a new event adds a line here.
#pragma once

#include <cstdint>
#include <string_view>

namespace vextra {

enum class EventCode : std::uint8_t {
    // Entry and maintenance commands
    kAppStart = 1,
    kAppExitClean,
    kUiReady,
    kAutomaticIdleReady,
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
    // FFmpeg producer
    kFfmpegStart,
    kFfmpegLaunchFailed,
    kFfmpegJobAssignFailed,
    // GStreamer producer
    kGstreamerStart,
};

// The text of a code: upper-case letters, digits and '_'; one code also holds '.' and '-'.
constexpr std::string_view eventText(EventCode code) {
    switch (code) {
        case EventCode::kAppStart: return "APP_START_LIMITED_0.2.0-beta.5";
        case EventCode::kAppExitClean: return "APP_EXIT_CLEAN";
        case EventCode::kUiReady: return "UI_READY";
        case EventCode::kAutomaticIdleReady: return "AUTOMATIC_IDLE_READY";
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
        case EventCode::kFfmpegStart: return "FFMPEG_START_OWN_PROCESS";
        case EventCode::kFfmpegLaunchFailed: return "FFMPEG_LAUNCH_FAILED";
        case EventCode::kFfmpegJobAssignFailed: return "FFMPEG_JOB_ASSIGN_FAILED";
        case EventCode::kGstreamerStart: return "GSTREAMER_START_OWN_PIPELINE";
    }
    return "";
}

}  // namespace vextra
