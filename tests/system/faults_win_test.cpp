// What goes wrong around the broker: decoders that die, hang and babble, files that are not what they should
// be, neighbours that crash at the worst moment. Nothing is lost, nothing is torn, and all of it recovers.
#include <windows.h>

#include <winternl.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <random>
#include <span>

#include "bridge/bridge_location.h"
#include "broker_test_win.h"
#include "broker_window_win.h"

namespace vextra::test {
namespace {

namespace fs = std::filesystem;

class Faults : public BrokerTest {
protected:
    void startAndWatch() {
        broker().start(L"--test-pattern --background");
        viewer().takeLease();
    }
    void goLive() {
        startAndWatch();
        ASSERT_TRUE(viewer().waitForState(BridgeState::kLive));
    }
};
using ReleaseFaults = Faults;

// --- The decoder ---

TEST_F(Faults, ADecoderKilledInMidFrameIsReplaced) {
    decoder().behave("frames=20\nframesPerSecond=16\ntailBytes=1843200\nthen=hang");
    goLive();
    ASSERT_TRUE(viewer().waitForFrameAfter(19));
    decoder().behave("frames=endless\nframesPerSecond=16");
    const DWORD pid = decoder().record().number("pid");
    const UniqueHandle child(OpenProcess(PROCESS_TERMINATE, FALSE, pid));
    ASSERT_TRUE(TerminateProcess(child.get(), 1));
    ASSERT_TRUE(viewer().waitForState(BridgeState::kUnavailable, 2000));
    ASSERT_TRUE(viewer().waitForState(BridgeState::kLive, 4000));
    EXPECT_TRUE(viewer().read().isWhole()) << "half a frame of the dead decoder got into the next one's";
    EXPECT_EQ(broker().countEvents("PRODUCER_RECONNECT_FALLBACK"), 1u);
}

TEST_F(Faults, ADecoderThatFallsSilentIsShownAsFallbackAndReplaced) {
    decoder().behave("frames=5\nframesPerSecond=16\nthen=hang");
    goLive();
    ASSERT_TRUE(viewer().waitForFrameAfter(4));
    const Tick lastFrame = viewer().header().tickMs;
    decoder().behave("frames=endless\nframesPerSecond=16");
    ASSERT_TRUE(viewer().waitForState(BridgeState::kFallback, 3000));
    EXPECT_GE(GetTickCount64() - lastFrame, 1950u);
    ASSERT_TRUE(viewer().waitForState(BridgeState::kUnavailable, 6000));
    EXPECT_GE(GetTickCount64() - lastFrame, 6950u);
    EXPECT_TRUE(viewer().waitForState(BridgeState::kLive, 4000));
}

TEST_F(ReleaseFaults, ADecoderThatNeverShowsAFrameIsReplacedAtItsDeadline) {
    decoder().behave("then=hang");
    const Tick began = GetTickCount64();
    startAndWatch();
    ASSERT_TRUE(viewer().waitForState(BridgeState::kUnavailable, 12'000));
    EXPECT_GE(GetTickCount64() - began, 6900u);
    EXPECT_EQ(viewer().header().frameCounter, 0u);
}

TEST_F(Faults, MessagesWithoutEndDoNotStopTheFrames) {
    decoder().behave("frames=endless\nframesPerSecond=16\nerrorBytes=20000");
    goLive();
    const std::uint64_t before = viewer().header().frameCounter;
    EXPECT_TRUE(viewer().waitForFrameAfter(before + 20, 10'000));
}

TEST_F(Faults, ADecoderFasterThanItShouldBeTearsNothing) {
    decoder().behave("frames=endless");
    goLive();
    for (int i = 0; i < 50; ++i)
        ASSERT_TRUE(viewer().read().isWhole());
    EXPECT_EQ(broker().countEvents("PRODUCER_RECONNECT_FALLBACK"), 0u);
}

TEST_F(Faults, AMissingDecoderExhaustsTheEpisodeInsteadOfTheMachine) {
    fs::remove(decoder().decoderPath());
    startAndWatch();
    ASSERT_TRUE(viewer().waitForState(BridgeState::kUnavailable));
    Sleep(1000);
    EXPECT_EQ(broker().countEvents("FFMPEG_START_OWN_PROCESS"), 0u);
    EXPECT_TRUE(broker().runs());
}

TEST_F(Faults, ADecoderThatCannotBeLaunchedIsLogged) {
    writeFile(decoder().decoderPath(), "this is no program");
    startAndWatch();
    EXPECT_TRUE(broker().waitForEvent("FFMPEG_LAUNCH_FAILED"));
    EXPECT_TRUE(viewer().waitForState(BridgeState::kUnavailable));
}

// --- The shared files and the registry: one blocked episode each, then repaired under the running broker ---

struct Damage {
    const char* name;
    void (*doIt)(InstalledMachine&);
};

// The demand channel stays mapped by the running broker; the bridge is opened anew for every episode.
class DamagedBridge : public Faults, public testing::WithParamInterface<Damage> {};

TEST_P(DamagedBridge, IsReportedOverAndOverUntilItIsRepaired) {
    decoder().behave("frames=endless\nframesPerSecond=16");
    broker().start(L"--test-pattern --background");
    GetParam().doIt(machine_);
    DemandSide demand(machine_.demandPath());
    demand.takeLease();
    ASSERT_TRUE(waitUntil([&] { return broker().countEvents("BRIDGE_OPEN_FAILED") > 20; }, 5000));
    EXPECT_EQ(broker().countEvents("DEMAND_BEGIN_DEVICE_UNCHANGED"), 0u);
    EXPECT_FALSE(decoderHasStarted());
    demand.releaseLease();
    // The broker looks at the file until it has noticed; a folder in use could not be removed.
    std::size_t before = 0;
    ASSERT_TRUE(waitUntil(
        [&] {
            before = broker().countEvents("BRIDGE_OPEN_FAILED");
            Sleep(100);
            return broker().countEvents("BRIDGE_OPEN_FAILED") == before;
        },
        5000));
    machine_.repair();
    viewer().takeLease();
    EXPECT_TRUE(viewer().waitForState(BridgeState::kLive));
}

INSTANTIATE_TEST_SUITE_P(
    Faults, DamagedBridge,
    testing::Values(Damage{"OneByteShort",
                           [](InstalledMachine& machine) {
                               fs::resize_file(machine.bridgePath(), kBridgeFileBytes - 1);
                           }},
                    Damage{"OneByteLong",
                           [](InstalledMachine& machine) {
                               fs::resize_file(machine.bridgePath(), kBridgeFileBytes + 1);
                           }},
                    Damage{"AFolder",
                           [](InstalledMachine& machine) {
                               fs::remove(machine.bridgePath());
                               fs::create_directory(machine.bridgePath());
                           }},
                    Damage{"Missing", [](InstalledMachine& machine) { fs::remove(machine.bridgePath()); }}),
    [](const auto& instance) { return std::string(instance.param.name); });

class UnknownDemand : public Faults, public testing::WithParamInterface<Damage> {};

TEST_P(UnknownDemand, StartsNothingUntilItIsRepaired) {
    GetParam().doIt(machine_);
    broker().start(L"--test-pattern --background");
    Sleep(500);
    EXPECT_EQ(broker().countEvents("DEMAND_BEGIN_DEVICE_UNCHANGED"), 0u);
    EXPECT_EQ(broker().runToEnd(L"--maintenance-check"),
              GetParam().name == std::string("OwnerMissing") ? 3u : 9u);
    machine_.repair();
    decoder().behave("frames=endless\nframesPerSecond=16");
    viewer().takeLease();
    EXPECT_TRUE(viewer().waitForState(BridgeState::kLive, 8000));
}

INSTANTIATE_TEST_SUITE_P(
    Faults, UnknownDemand,
    testing::Values(
        Damage{"DemandMissing", [](InstalledMachine& machine) { fs::remove(machine.demandPath()); }},
        Damage{"DemandOneByteShort",
               [](InstalledMachine& machine) { writeFile(machine.demandPath(), std::string(4095, '\0')); }},
        Damage{"DemandOneByteLong",
               [](InstalledMachine& machine) { writeFile(machine.demandPath(), std::string(4097, '\0')); }},
        Damage{"DemandAFolder",
               [](InstalledMachine& machine) {
                   fs::remove(machine.demandPath());
                   fs::create_directory(machine.demandPath());
               }},
        Damage{"BridgePathMissing", [](InstalledMachine& machine) { machine.removeValue(kBridgePathValue); }},
        Damage{"BridgePathTooLong",
               [](InstalledMachine& machine) {
                   machine.setString(kBridgePathValue, machine.bridgePath() + std::wstring(1024, L'x'));
               }},
        Damage{"BridgePathOfAnotherType",
               [](InstalledMachine& machine) { machine.setNumber(kBridgePathValue, 1); }},
        Damage{"OwnerMissing", [](InstalledMachine& machine) { machine.removeValue(kOwnerSidValue); }}),
    [](const auto& instance) { return std::string(instance.param.name); });

TEST_F(Faults, AForeignOwnerBlocksEveryEpisodeWithoutAPause) {
    broker().start(L"--test-pattern --background");
    ASSERT_TRUE(broker().waitForEvent("MF_UPDATE_CHECK_COMPLETED", 20'000));
    machine_.setString(kOwnerSidValue, L"S-1-5-21-1-2-3-1001");  // the mapped demand channel stays readable
    viewer().takeLease();
    EXPECT_TRUE(waitUntil([&] { return broker().countEvents("OWNER_OR_ELEVATION_BLOCK") > 50; }, 5000));
    const std::string log = readFile(broker().dataFolder() + L"\\diagnostic.log");
    EXPECT_NE(log.find("OWNER_OR_ELEVATION_BLOCK hr=0x80070005"), std::string::npos);
}

// --- Crashes of the broker itself ---

using SuspendOrResume = NTSTATUS(NTAPI*)(HANDLE);
SuspendOrResume ntdllFunction(const char* name) {
    return reinterpret_cast<SuspendOrResume>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), name)));
}

TEST_F(Faults, ABrokerKilledInsideAnUpdateIsRepairedByTheNext) {
    decoder().behave("frames=endless");  // as fast as it goes: the more updates, the sooner one is caught
    goLive();
    const auto suspend = ntdllFunction("NtSuspendProcess");
    const auto resume = ntdllFunction("NtResumeProcess");
    bool caught = false;
    const Tick end = GetTickCount64() + 60'000;
    while (!caught && GetTickCount64() < end) {
        // Most looks are cheap; only an odd word is worth stopping the broker for.
        if (viewer().header().sequence % 2 == 0)
            continue;
        suspend(broker().process());
        Sleep(30);  // the request may return before every thread has stopped
        caught = viewer().header().sequence % 2 == 1;
        if (!caught)
            resume(broker().process());
    }
    ASSERT_TRUE(caught) << "the broker was never caught between its two increments";
    broker().terminate();
    const std::uint32_t left = viewer().header().sequence;
    ASSERT_EQ(left % 2, 1u);
    viewer().releaseLease();

    decoder().behave("frames=endless\nframesPerSecond=16");
    startAndWatch();
    // The dead broker's header may say Live until the new one's first update.
    ASSERT_TRUE(waitUntil([&] { return viewer().header().writerPid == broker().processId(); }, 5000));
    ASSERT_TRUE(viewer().waitForState(BridgeState::kLive));
    const Viewer::Picture picture = viewer().read();  // which no odd word would let through
    EXPECT_EQ(picture.header.state, static_cast<std::uint32_t>(BridgeState::kLive));
    EXPECT_TRUE(picture.isWhole());
}

// --- Neighbours ---

// The whole of demand.bin as slots: the sixteen that count, and what lies behind them.
std::span<LeaseSlot> wholeFile(DemandFile& file) {
    static_assert(sizeof(DemandFile) % sizeof(LeaseSlot) == 0);
    return {reinterpret_cast<LeaseSlot*>(&file), sizeof(DemandFile) / sizeof(LeaseSlot)};
}

// As the diagnostics view has it now.
int leasesShown(const BrokerWindow& window) {
    window.press(kIdRefreshLogs);
    const std::wstring view = window.text(kIdLogs);
    constexpr std::wstring_view kKey = L"Demanda MF (leases, não aplicativos): ";
    const std::size_t at = view.find(kKey);
    return at == std::wstring::npos ? -99 : std::stoi(view.substr(at + kKey.size()));
}

TEST_F(ReleaseFaults, SlotsHammeredByAnotherProcessNeverCountMoreThanSixteen) {
    decoder().behave("frames=endless\nframesPerSecond=16");
    std::jthread hammer([slots = wholeFile(viewer().demand())](const std::stop_token& stop) {
        std::mt19937_64 random(1);
        while (!stop.stop_requested()) {
            LeaseSlot& slot = slots[random() % slots.size()];
            std::atomic_ref<std::uint64_t>(slot.leaseId).store(random() % 3);
            std::atomic_ref<Tick>(slot.heartbeatTickMs)
                .store(random() % 2 == 0 ? random() : GetTickCount64());
        }
    });
    broker().start(L"--test-pattern");
    EXPECT_TRUE(viewer().waitForState(BridgeState::kLive, 10'000));
    const BrokerWindow window(broker());
    window.press(kIdTabDiagnostics);
    int most = 0;
    const Tick end = GetTickCount64() + 2000;
    while (GetTickCount64() < end) {
        const int count = leasesShown(window);
        ASSERT_GE(count, 0);
        ASSERT_LE(count, 16);
        most = std::max(most, count);
        Sleep(5);
    }
    EXPECT_GT(most, 0);
    hammer.request_stop();
    hammer.join();
    for (LeaseSlot& slot : wholeFile(viewer().demand()))
        slot = {};
    EXPECT_TRUE(viewer().waitForState(BridgeState::kStopped, 5000));
}

TEST_F(Faults, BytesBehindTheSlotsAreNobodysLease) {
    const std::jthread holders(
        [behind = wholeFile(viewer().demand()).subspan(kLeaseSlots)](const std::stop_token& stop) {
            while (!stop.stop_requested()) {
                for (LeaseSlot& slot : behind)
                    slot = {7, GetTickCount64()};
                Sleep(100);
            }
        });
    ASSERT_TRUE(waitUntil([this] { return viewer().demand().reserved[0] != std::byte{}; }, 1000));
    EXPECT_EQ(broker().runToEnd(L"--maintenance-check"), 0u);
}

}  // namespace
}  // namespace vextra::test
