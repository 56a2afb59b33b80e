#include "core/supervisor.h"

#include <utility>

#include "base/system_types.h"
#include "config/source_url.h"
#include "producers/backend_choice.h"
#include "producers/gst_contract.h"

namespace vextra {
namespace {

constexpr bool kRuntimeAvailable = true;
constexpr wchar_t kTextIdle[] = L"Automático: aguardando aplicativo. Dispositivo persistente; FFmpeg parado.";

}  // namespace

Supervisor::Supervisor(SharedStatus& shared, SupervisorDoors doors, bool mediaFoundationStarted)
    : shared_(shared), doors_(std::move(doors)), mediaFoundationStarted_(mediaFoundationStarted) {}

NextPass Supervisor::runPass() {
    const SupervisorCommand command = shared_.mailbox.exchange(SupervisorCommand::kNone);
    const std::int32_t leases = doors_.countLeases();
    shared_.leaseCount = leases;

    // A signal that arrives while leases are held or unknown is taken all the same, and lost:
    // --shutdown-broker has to be run again once the meeting is over.
    if (doors_.takeStopSignal() && leases == 0)
        doors_.askWindowToQuit();

    const Tick now = doors_.now();
    const bool demand = leases >= 1 || shared_.previewRuns(now);
    if (demand) {
        memory_.idleSince = 0;
    } else {
        if (memory_.idleSince == 0)
            memory_.idleSince = now;
        if (shared_.active && now - memory_.idleSince >= kDemandGraceMs) {
            stopEpisode();
            doors_.log(EventCode::kLastDemandReleased, 0);
        }
    }

    Begin begin = Begin::kDone;
    switch (command) {
        case SupervisorCommand::kQuit: stopEpisode(); return NextPass::kNever;
        case SupervisorCommand::kSuspend: suspend(); break;
        case SupervisorCommand::kResume: resume(); break;
        case SupervisorCommand::kStopAndSuspend: stopAndSuspend(); break;
        case SupervisorCommand::kTogglePause: togglePause(); break;
        case SupervisorCommand::kStartNow: begin = beginDemand(demand); break;
        case SupervisorCommand::kNone:
            if (!shared_.paused)
                begin = beginDemand(demand);
            break;
    }
    if (begin == Begin::kRefused)
        return NextPass::kAtOnce;

    // By the state of the session and not by its messages alone: a Suspend may have come while nothing was
    // active, or have been replaced in the mailbox, and an episode may begin while the screen is locked.
    if (shared_.sessionAway != 0 && !memory_.suspended)
        suspend();

    if (shared_.active && !shared_.paused && !memory_.suspended && !memory_.exhausted)
        pump();
    return shared_.active ? NextPass::kActiveWait : NextPass::kIdleWait;
}

// --- Commands ---

void Supervisor::suspend() {
    if (!shared_.active)
        return;
    memory_.suspended = true;
    stopProducerInstance();
    shared_.lastFrameTick = 0;
    setStatus(BrokerStatus::kSuspended);
    publishHeader(BridgeState::kFallback);
    doors_.showStatus(L"Suspenso: dispositivo MF preservado com fallback.");
    doors_.log(EventCode::kPowerSuspend, 0);
}

// Resuming means a new generation, also when nothing was suspended. A producer that has shown nothing yet is
// new already, and keeps its time to its first frame.
void Supervisor::resume() {
    shared_.paused = false;
    if (shared_.active) {
        memory_.suspended = false;
        clearFailures();
        if (memory_.firstFrameSeen)
            stopProducerInstance();
        shared_.lastFrameTick = 0;
        memory_.retryAt = 0;
    }
    doors_.showStatus(L"Retomada: abrindo uma nova geração do produtor.");
    doors_.log(EventCode::kPowerResume, 0);
}

void Supervisor::stopAndSuspend() {
    stopEpisode();
    shared_.paused = true;  // demand starts nothing until Resume
}

void Supervisor::togglePause() {
    if (!shared_.active)
        return;
    const bool pause = !shared_.paused;
    shared_.paused = pause;
    if (pause) {
        stopProducerInstance();
        shared_.lastFrameTick = 0;
        setStatus(BrokerStatus::kPaused);
        publishHeader(BridgeState::kPaused);
        doors_.showStatus(L"Produtor pausado. Saída MF permanece disponível com fallback local.");
        doors_.log(EventCode::kProducerPause, 0);
    } else {
        clearFailures();
        setStatus(BrokerStatus::kConnecting);
        restartFirstFrameClock();
        doors_.showStatus(L"Retomando o mesmo dispositivo MF...");
        doors_.log(EventCode::kProducerResume, 0);
    }
}

// --- The episode ---

Supervisor::Begin Supervisor::refuse(std::wstring_view text) {
    doors_.showStatus(text);
    return Begin::kRefused;
}

Supervisor::Begin Supervisor::beginDemand(bool demand) {
    if (shared_.active || !demand)
        return Begin::kDone;
    if (!mediaFoundationStarted_)
        return refuse(L"Media Foundation indisponível neste Windows.");
    if (!doors_.accountMayPublish()) {
        doors_.log(EventCode::kOwnerOrElevationBlock, kResultAccessDenied);
        return refuse(L"Instale para esta conta e execute sem privilégios de administrador.");
    }
    if (!doors_.openBridge()) {
        doors_.log(EventCode::kBridgeOpenFailed, 0);
        return refuse(L"Componente/bridge não instalado ou ACL inválida. Execute o Setup.exe offline.");
    }
    snapshot_ = settingsNow(shared_);
    shared_.testPattern = syntheticTest();
    memory_.forceFfmpeg = false;
    url_ = sourceUrl(snapshot_);
    if (!syntheticTest() && url_.empty()) {
        doors_.closeBridge();
        return refuse(L"Fonte ausente/inválida. Abra Configurações e salve uma fonte válida.");
    }

    publishHeader(BridgeState::kFallback);
    doors_.log(EventCode::kDemandBegin, 0);
    shared_.active = true;
    shared_.paused = false;
    setStatus(BrokerStatus::kConnecting);
    memory_.suspended = false;
    clearFailures();
    memory_.frameBytesRead = 0;
    memory_.retryAt = 0;
    restartFirstFrameClock();
    doors_.showStatus(L"Captura ativa: conectando produtor automático...");
    return Begin::kDone;
}

void Supervisor::stopEpisode() {
    stopProducerInstance();
    shared_.lastFrameTick = 0;
    publishHeader(BridgeState::kStopped);
    doors_.closeBridge();
    shared_.active = false;
    shared_.paused = false;
    setStatus(BrokerStatus::kIdle);
    shared_.effectiveBackend = EffectiveBackend::kNone;
    url_.clear();
    doors_.showStatus(kTextIdle);
    doors_.log(EventCode::kStopComplete, 0);
}

// --- The frame pump ---

void Supervisor::pump() {
    if (!memory_.producerExists && !startProducer())
        return;
    readProducer();
}

bool Supervisor::startProducer() {
    if (doors_.now() < memory_.retryAt)
        return false;
    BrokerSettings settings = snapshot_;
    if (memory_.forceFfmpeg)
        settings.decoder = DecoderBackend::kFfmpeg;
    if (doors_.startProducer(syntheticTest(), url_.view(), settings)) {
        memory_.producerExists = true;
        ++shared_.generation;
        memory_.frameBytesRead = 0;
        memory_.firstFrameSeen = false;
        memory_.framesInGeneration = 0;
        restartFirstFrameClock();
        setStatus(BrokerStatus::kConnecting);
        publishHeader(BridgeState::kFallback);
        return true;
    }
    shared_.lastError = kResultProducerNotStarted;
    ++memory_.failures;
    setStatus(BrokerStatus::kUnavailable);
    publishHeader(BridgeState::kUnavailable);
    doors_.showStatus(snapshot_.decoder == DecoderBackend::kGstreamer
                          ? L"GStreamer indisponível ou falhou. Instale runtime x64; FFmpeg não será usado "
                            L"implicitamente."
                          : L"Decoder não iniciou. Recuperação limitada; verifique a instalação.");
    memory_.retryAt = doors_.now() + kStartRetryMs;
    if (memory_.failures >= kMaxFailures) {
        memory_.exhausted = true;
        doors_.showStatus(L"Recuperação esgotada. Desligue e ligue para tentar novamente.");
    }
    return false;
}

void Supervisor::readProducer() {
    const std::int32_t taken =
        doors_.readProducer(frame_->bytes + memory_.frameBytesRead, kFrameBytes - memory_.frameBytesRead);
    if (taken < 0) {
        recover();
        return;
    }
    memory_.frameBytesRead += static_cast<std::uint32_t>(taken);
    if (memory_.frameBytesRead == kFrameBytes)
        publishFrame();
    watch();
}

void Supervisor::publishFrame() {
    const std::uint64_t number = ++shared_.frameCounter;
    doors_.publish(frame_->bytes, BridgeState::kLive, number);
    const Tick now = doors_.now();
    if (doors_.recordEvidence)
        doors_.recordEvidence(frame_->bytes, number, now);
    doors_.keepPreview(frame_->bytes);
    shared_.lastFrameTick = now;
    memory_.frameBytesRead = 0;
    if (!memory_.firstFrameSeen)
        doors_.log(EventCode::kFirstFrame, 0);
    memory_.firstFrameSeen = true;
    setStatus(BrokerStatus::kLive);
    shared_.lastError = 0;
    replaceFailureReason(shared_, {});
    if (++memory_.framesInGeneration >= kHealthyFrames)
        memory_.failures = 0;
    if (number % kReportEveryFrames == 1) {
        doors_.showStatus(syntheticTest()
                              ? L"Teste local ao vivo — FFmpeg lavfi → bridge → Media Foundation."
                              : L"Fonte selecionada ao vivo — produtor → bridge → Media Foundation.");
        doors_.log(EventCode::kProducerFrameLive, 0);
    }
}

void Supervisor::watch() {
    const Tick now = doors_.now();
    if (!memory_.firstFrameSeen) {
        if (now >= memory_.firstFrameDeadline)
            recover();
        return;
    }
    const Tick ageMs = now - shared_.lastFrameTick;
    if (ageMs > kStallRecoverMs)
        recover();
    else if (ageMs > kLiveFreshMs)
        publishHeader(BridgeState::kFallback);
}

void Supervisor::recover() {
    const bool gstreamerRan = shared_.effectiveBackend == EffectiveBackend::kGstreamer;
    if (snapshot_.decoder == DecoderBackend::kAutomatic && gstreamerRan) {
        memory_.forceFfmpeg = true;
        doors_.log(EventCode::kAutoGstreamerFallback, 0);
    }
    // A pipeline that failed has said why. One that only never shows anything most often lacks the codec.
    if (gstreamerRan && !memory_.firstFrameSeen && failureReasonNow(shared_).empty())
        replaceFailureReason(shared_, gstAvailabilityText(kRuntimeAvailable));
    stopProducerInstance();
    publishHeader(BridgeState::kUnavailable);
    ++shared_.reconnects;
    setStatus(BrokerStatus::kUnavailable);
    shared_.lastError = kResultProducerStalled;
    memory_.retryAt = doors_.now() + recoveryDelayMs(memory_.failures);
    ++memory_.failures;
    doors_.showStatus(L"Produtor indisponível. MF envia fallback; reconexão automática limitada.");
    doors_.log(EventCode::kProducerReconnect, 0);
    if (memory_.failures >= kMaxFailures) {
        memory_.exhausted = true;
        doors_.showStatus(
            L"Recuperação esgotada. MF permanece com fallback. Desligue e ligue para tentar novamente.");
    }
}

// --- Small steps ---

void Supervisor::stopProducerInstance() {
    doors_.stopProducer();
    memory_.producerExists = false;
    memory_.frameBytesRead = 0;  // half a frame is dropped with the producer that wrote it
}

void Supervisor::publishHeader(BridgeState state) {
    doors_.publish(nullptr, state, shared_.frameCounter);
}

void Supervisor::restartFirstFrameClock() {
    memory_.firstFrameDeadline = doors_.now() + snapshot_.firstFrameDeadlineMs;
}

void Supervisor::clearFailures() {
    memory_.failures = 0;
    memory_.exhausted = false;
}

}  // namespace vextra
