// A world for the Supervisor to live in, and the fixture that most of its tests begin with.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <string>
#include <utility>
#include <vector>

#include "base/system_types.h"
#include "core/supervisor.h"
#include "producers/backend_choice.h"

namespace vextra {

struct Published {
    BridgeState state;
    bool pixels;
    std::uint64_t counter;
};

struct Logged {
    EventCode code;
    std::int32_t value;
};

// A world in which the Supervisor lives: a clock that moves by hand, leases, a bridge that remembers, and a
// producer that does as it is told.
class World {
public:
    World() { useSource(SourceKind::kSyntheticTest); }

    void useSource(SourceKind source) {
        shared.settings.source = source;
        shared.settings.customUrl.assign(L"rtsp://camera/live");
    }

    Supervisor make(bool mediaFoundation = true) {
        return Supervisor(
            shared,
            {
                .now = [this] { return now; },
                .countLeases = [this] { return leases; },
                .takeStopSignal = [this] { return std::exchange(stopSignal, false); },
                .accountMayPublish = [this] { return accountTrusted; },
                .showStatus = [this](std::wstring_view text) { texts.emplace_back(text); },
                .askWindowToQuit = [this] { ++quitRequests; },
                .log =
                    [this](EventCode code, std::int32_t value) {
                        log.push_back({code, value});
                    },
                .openBridge = [this] { return bridgeOpen = bridgeOpens; },
                .publish =
                    [this](const std::byte* pixels, BridgeState state, std::uint64_t counter) {
                        published.push_back({state, pixels != nullptr, counter});
                    },
                .closeBridge = [this] { bridgeOpen = false; },
                .startProducer =
                    [this](bool test, std::wstring_view url, const BrokerSettings& settings) {
                        return startProducer(test, url, settings);
                    },
                .readProducer = [this](std::byte* buffer,
                                       std::uint32_t capacity) { return read(buffer, capacity); },
                .stopProducer = [this] { producerRuns = false; },
                .keepPreview = [this](const std::byte* pixels) { keepPreviewFrame(shared, pixels); },
                .recordEvidence = nullptr,
            },
            mediaFoundation);
    }

    bool startProducer(bool test, std::wstring_view url, const BrokerSettings& settings) {
        ++starts;
        startedAt = now;
        startedTest = test;
        startedUrl = url;
        startedDecoder = settings.decoder;
        if (!producerStarts)
            return false;
        const bool gstreamer = settings.decoder != DecoderBackend::kFfmpeg && !test && gstreamerInstalled;
        shared.effectiveBackend = gstreamer ? EffectiveBackend::kGstreamer : EffectiveBackend::kFfmpeg;
        producerRuns = true;
        return true;
    }

    // What the next read gives: from the script, else `steady` bytes.
    std::int32_t read(std::byte*, std::uint32_t capacity) {
        std::int64_t wanted = steady;
        if (!script.empty()) {
            wanted = script.front();
            script.pop_front();
        }
        return static_cast<std::int32_t>(std::min<std::int64_t>(wanted, capacity));
    }

    // One pass, then the wait that it asked for (as long as the real one would last).
    NextPass pass(Supervisor& supervisor) {
        const NextPass next = supervisor.runPass();
        if (next == NextPass::kActiveWait)
            now += kActivePassMs;
        else if (next == NextPass::kIdleWait)
            now += kIdlePassMs;
        return next;
    }
    void passUntil(Supervisor& supervisor, Tick end) {
        while (now < end)
            pass(supervisor);
    }
    NextPass command(Supervisor& supervisor, SupervisorCommand value) {
        shared.mailbox = value;
        return pass(supervisor);
    }

    BrokerStatus status() const { return shared.status; }
    std::size_t countLogged(EventCode code) const {
        return static_cast<std::size_t>(
            std::count_if(log.begin(), log.end(), [&](const Logged& line) { return line.code == code; }));
    }
    std::size_t countPublished(BridgeState state) const {
        return static_cast<std::size_t>(std::count_if(
            published.begin(), published.end(), [&](const Published& one) { return one.state == state; }));
    }
    std::wstring lastText() const { return texts.empty() ? L"" : texts.back(); }
    BridgeState lastState() const { return published.back().state; }

    SharedStatus shared;
    Tick now = 1'000'000;
    std::int32_t leases = 0;
    bool stopSignal = false;
    bool accountTrusted = true;
    bool bridgeOpens = true;
    bool producerStarts = true;
    bool gstreamerInstalled = false;
    std::int64_t steady = kFrameBytes;  // bytes a read gives when the script is empty; 0 nothing, -1 the end
    std::deque<std::int64_t> script;

    bool bridgeOpen = false;
    bool producerRuns = false;
    int starts = 0;
    Tick startedAt = 0;
    bool startedTest = false;
    std::wstring startedUrl;
    DecoderBackend startedDecoder = DecoderBackend::kFfmpeg;
    int quitRequests = 0;
    std::vector<std::wstring> texts;
    std::vector<Logged> log;
    std::vector<Published> published;
};

class SupervisorTest : public testing::Test {
protected:
    // A lease, a producer and its first frame.
    void goLive() {
        world.leases = 1;
        world.pass(supervisor);
        ASSERT_EQ(world.status(), BrokerStatus::kLive);
    }
    // Until the producer has been given up once more.
    void passUntilReconnects(std::uint32_t count) {
        for (int passes = 0; world.shared.reconnects < count && passes < 100'000; ++passes)
            world.pass(supervisor);
        ASSERT_EQ(world.shared.reconnects, count);
    }

    // From the pass that gave the producer up, the last one, to the next attempt.
    Tick waitBeforeNextStart() {
        const Tick lost = world.now - kActivePassMs;
        const int startsBefore = world.starts;
        while (world.starts == startsBefore && world.now < lost + 20'000)
            world.pass(supervisor);
        return world.startedAt - lost;
    }

    World world;
    Supervisor supervisor = world.make();
};

}  // namespace vextra
