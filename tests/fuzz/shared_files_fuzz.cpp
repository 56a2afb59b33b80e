// Any bytes as what another process left in demand.bin and in the header of latest.frame: leases are counted
// as a second writing of the rule counts them, and no look changes the file; taking and giving back a lease
// touches one slot, never one whose holder beats; a picture is shown only of the documented shape, live
// and fresh; and the next update puts any header right.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <span>

#include "bridge/bridge_protocol.h"
#include "consumer/bridge_reader.h"
#include "consumer/lease_holder.h"
#include "fuzz_text.h"

namespace {

using vextra::BridgeHeader;
using vextra::DemandFile;
using vextra::LeaseSlot;
using vextra::Tick;
using vextra::test::expect;

template <typename T>
bool same(const T& a, const T& b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

// The next bytes as a T; zeros for those that are not there.
template <typename T>
T take(std::span<const std::uint8_t>& bytes, std::size_t count = sizeof(T)) {
    T value{};
    const std::size_t there = std::min(count, bytes.size());
    if (there > 0)
        std::memcpy(&value, bytes.data(), there);
    bytes = bytes.subspan(there);
    return value;
}

// `aheadMs` is how far the other clock may be ahead of ours.
bool isFresh(Tick heartbeat, Tick now, Tick aheadMs) {
    return heartbeat != 0 && heartbeat <= now + aheadMs && heartbeat + 3000 >= now;
}

bool counts(const LeaseSlot& slot, Tick now) {
    return slot.leaseId != 0 && isFresh(slot.heartbeatTickMs, now, 0);
}

// To a holder that looks for a slot, who is kinder by a step of the clock.
bool isBeating(const LeaseSlot& slot, Tick now) {
    return isFresh(slot.heartbeatTickMs, now, 20);
}

std::int32_t countOf(const DemandFile& file, Tick now) {
    return static_cast<std::int32_t>(
        std::ranges::count_if(file.slots, [&](const LeaseSlot& slot) { return counts(slot, now); }));
}

void checkLeases(const DemandFile& found, std::uint64_t wantedId, Tick now) {
    DemandFile file = found;
    expect(vextra::countFreshLeases(file, now) == countOf(found, now));
    const std::uint64_t id = vextra::chooseLeaseId(file, [&] { return wantedId++; });
    expect(id != 0 && std::ranges::none_of(found.slots, [&](const LeaseSlot& s) { return s.leaseId == id; }));
    expect(same(file, found));

    const auto taken = vextra::takeLease(file, id, now);
    const bool noneIsFree =
        std::ranges::none_of(found.slots, [](const LeaseSlot& slot) { return slot.leaseId == 0; });
    if (!taken) {
        expect(same(file, found));
        expect(noneIsFree &&
               std::ranges::all_of(found.slots, [&](const LeaseSlot& s) { return isBeating(s, now); }));
        return;
    }
    expect(*taken < vextra::kLeaseSlots);
    expect(noneIsFree ? !isBeating(found.slots[*taken], now) : found.slots[*taken].leaseId == 0);
    DemandFile expected = found;
    expected.slots[*taken] = {id, now};
    expect(same(file, expected));

    expect(!vextra::beatLease(file.slots[*taken], id + 1, now + 1));
    vextra::releaseLease(file.slots[*taken], id + 1);
    expect(same(file, expected));
    expect(vextra::beatLease(file.slots[*taken], id, now + 1));
    expected.slots[*taken].heartbeatTickMs = now + 1;
    expect(same(file, expected));
    vextra::releaseLease(file.slots[*taken], id);
    expected.slots[*taken] = {};
    expect(same(file, expected));
}

bool isPicture(const BridgeHeader& header, Tick now) {
    const bool shape = header.magic == 0x31464D56 && header.version == 1 && header.width == 1280 &&
                       header.height == 720 && header.stride == 5120 && header.payloadBytes == 3'686'400;
    // One step of the clock either way of it is no other boot.
    return shape && header.state == 2 && header.tickMs <= now + 20 && header.tickMs + 2000 >= now;
}

// One file and one frame for all inputs: they are large.
struct Bridge {
    vextra::BridgeFile file{};
    vextra::BridgeFrame frame;
};

void checkBridge(const BridgeHeader& found, Tick now) {
    static const auto bridge = std::make_unique<Bridge>();
    constexpr std::byte kOnePixel{0xA5};
    bridge->file.header = found;
    bridge->file.pixels[vextra::kFrameBytes - 1] = kOnePixel;
    bridge->frame.pixels.back() = {};

    std::uint32_t pauses = 0;
    const auto read = vextra::readBridgeFrame(bridge->file, bridge->frame, [&] { ++pauses; });
    expect(same(bridge->file.header, found));
    expect(read.consistent == (found.sequence % 2 == 0));
    expect(read.attempts == (read.consistent ? 1 : 50) && pauses == read.attempts - 1);
    if (read.consistent) {
        BridgeHeader expected = found;
        std::memset(expected.reserved, 0, sizeof expected.reserved);
        expect(same(bridge->frame.header, expected));
    }
    const bool shown = vextra::judge(found, now) == vextra::Verdict::kPicture;
    expect(shown == isPicture(found, now));
    if (read.consistent && shown)
        expect(bridge->frame.pixels.back() == kOnePixel);

    vextra::publishUpdate(bridge->file, {vextra::BridgeState::kLive, now, 7, nullptr}, {4711, 1});
    const BridgeHeader& repaired = bridge->file.header;
    expect(repaired.sequence == found.sequence + 2 + found.sequence % 2);
    expect(isPicture(repaired, now) && repaired.frameCounter == 7);
    expect(same(repaired.reserved, found.reserved));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::span<const std::uint8_t> rest(data, size);
    // The time since the machine started: no sum that is made with it comes near its end.
    const Tick now = take<Tick>(rest) & std::numeric_limits<std::int64_t>::max();
    const auto wantedId = take<std::uint64_t>(rest);
    const auto demand = take<DemandFile>(rest, sizeof(DemandFile::slots));
    checkLeases(demand, wantedId, now);
    checkBridge(take<BridgeHeader>(rest), now);
    return 0;
}
