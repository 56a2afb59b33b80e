#include "core/supervisor_thread_win.h"

#include <process.h>

#include <utility>

#include "base/system_win.h"
#include "base/unique_win.h"
#include "base/wait_win.h"
#include "bridge/bridge_location.h"
#include "bridge/shared_file_win.h"
#include "core/media_foundation_win.h"
#include "core/run_outputs.h"
#include "core/supervisor.h"
#include "core/window_messages_win.h"
#include "producers/ffmpeg_process_win.h"
#include "producers/producer.h"

namespace vextra {
namespace {

void runSupervisor(const SupervisorThreadSetup& setup, HWND window) {
    const ComApartment apartment(COINIT_MULTITHREADED);
    MediaFoundation mediaFoundation;
    const std::int32_t started = mediaFoundation.startup();
    setup.log->write(EventCode::kMfStartup, started);

    SharedStatus& shared = *setup.shared;
    const auto showStatus = [&](std::wstring_view text) { showStatusText(shared, window, text); };
    const auto log = [&](EventCode code, std::int32_t value) { setup.log->write(code, value); };
    BridgeWriter bridge;
    DemandChannel demand;
    const ProducerReports reports{
        .showStatus = showStatus,
        .log = log,
        .explainFailure = [&](std::wstring_view reason) { replaceFailureReason(shared, reason); },
    };
    FfmpegProcess ffmpeg(setup.installRoot, reports);
    Producer producer(
        {
            .startFfmpeg = [&](const FfmpegInput& input) { return ffmpeg.start(input); },
            .readFfmpeg = [&](std::byte* buffer, std::uint32_t bytes) { return ffmpeg.read(buffer, bytes); },
            .stopFfmpeg = [&] { ffmpeg.stop(); },
            .findGstreamer = [&] { return GstRuntime::instance(setup.gstreamerPlaces).api(); },
        },
        reports, shared.effectiveBackend);

    SupervisorDoors doors{
        .now = [] { return Tick{GetTickCount64()}; },
        .countLeases = [&] { return demand.activeLeases(); },
        .takeStopSignal = [&] { return WaitForSingleObject(setup.stopSignal, 0) == WAIT_OBJECT_0; },
        .accountMayPublish = [] { return mayWriteBridge(); },
        .showStatus = showStatus,
        .askWindowToQuit = [&] { PostMessageW(window, kMessageStopSignal, 0, 0); },
        .log = log,
        .openBridge = [&] { return bridge.open(FileAccess::kReadWrite); },
        .publish = [&](const std::byte* pixels, BridgeState state,
                       std::uint64_t counter) { bridge.publish(pixels, state, counter); },
        .closeBridge = [&] { bridge.close(); },
        .startProducer = [&](bool test, std::wstring_view url,
                             const BrokerSettings& settings) { return producer.start(test, url, settings); },
        .readProducer = [&](std::byte* buffer, std::uint32_t bytes) { return producer.read(buffer, bytes); },
        .stopProducer = [&] { producer.stop(); },
        .keepPreview = [&](const std::byte* pixels) { keepPreviewFrame(shared, pixels); },
        .recordEvidence = nullptr,
    };
    if (!setup.evidenceFolder.empty()) {
        doors.recordEvidence = [&](const std::byte* pixels, std::uint64_t number, Tick now) {
            recordFrameEvidence(*setup.log, setup.evidenceFolder, pixels, number, now);
        };
    }

    Supervisor supervisor(shared, std::move(doors), started >= 0);
    WakeWait wait(setup.wakeEvent);
    for (;;) {
        switch (supervisor.runPass()) {
            case NextPass::kAtOnce: break;
            case NextPass::kActiveWait: wait.waitShort(kActivePassMs); break;
            case NextPass::kIdleWait: wait.waitPlain(kIdlePassMs); break;
            case NextPass::kNever:
                if (started >= 0)
                    setup.log->write(EventCode::kMfShutdown, mediaFoundation.shutdown());
                return;
        }
    }
}

}  // namespace

SupervisorThread::SupervisorThread(SupervisorThreadSetup setup) : setup_(std::move(setup)) {}

SupervisorThread::~SupervisorThread() {
    waitForEnd(INFINITE);
}

bool SupervisorThread::start(HWND window) {
    if (!waitForEnd(0))
        return false;
    window_ = window;
    // Not std::thread, whose end cannot be waited for with a limit.
    thread_.reset(reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, &run, this, 0, nullptr)));
    return static_cast<bool>(thread_);
}

bool SupervisorThread::waitForEnd(std::uint32_t limitMs) {
    return !thread_ || WaitForSingleObject(thread_.get(), limitMs) == WAIT_OBJECT_0;
}

// noexcept: an exception here ends the program.
unsigned __stdcall SupervisorThread::run(void* self) noexcept {
    const auto* thread = static_cast<const SupervisorThread*>(self);
    runSupervisor(thread->setup_, thread->window_);
    return 0;
}

void sendCommand(SharedStatus& shared, HANDLE wakeEvent, SupervisorCommand command) {
    shared.mailbox = command;
    SetEvent(wakeEvent);
}

void showStatusText(SharedStatus& shared, HWND window, std::wstring_view text) {
    if (replaceStatusText(shared, text))
        PostMessageW(window, kMessageStatusChanged, 0, 0);
}

}  // namespace vextra
