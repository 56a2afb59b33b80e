#include "consumer/lease_holder.h"

#include <algorithm>
#include <atomic>
#include <iterator>
#include <utility>

#include "bridge/bridge_protocol.h"
#include "consumer/bridge_reader.h"

namespace vextra {
namespace {

using SharedWord = std::atomic_ref<std::uint64_t>;

std::uint64_t loadId(const LeaseSlot& slot) {
    return SharedWord(const_cast<LeaseSlot&>(slot).leaseId).load();
}

// Kinder than the broker's count by the skew of two clocks: a holder that beats must not be taken for dead.
bool isBeating(LeaseSlot& slot, Tick now) {
    const Tick heartbeat = SharedWord(slot.heartbeatTickMs).load();
    return heartbeat != 0 && heartbeat <= now + kTickSkewMs && now <= heartbeat + kLeaseFreshMs;
}

bool swapId(LeaseSlot& slot, std::uint64_t from, std::uint64_t to) {
    return SharedWord(slot.leaseId).compare_exchange_strong(from, to);
}

}  // namespace

std::uint64_t chooseLeaseId(const DemandFile& file, const std::function<std::uint64_t()>& random) {
    for (;;) {
        const std::uint64_t id = random();
        const auto isTaken = [id](const LeaseSlot& slot) { return loadId(slot) == id; };
        if (id != 0 && std::none_of(std::begin(file.slots), std::end(file.slots), isTaken))
            return id;
    }
}

std::optional<std::uint32_t> takeLease(DemandFile& file, std::uint64_t leaseId, Tick now) {
    const auto takenOver = [&](LeaseSlot& slot, std::uint64_t from) {
        if (!swapId(slot, from, leaseId))
            return false;
        SharedWord(slot.heartbeatTickMs).store(now);
        return true;
    };
    for (std::uint32_t i = 0; i < kLeaseSlots; ++i) {
        if (takenOver(file.slots[i], 0))
            return i;
    }
    for (std::uint32_t i = 0; i < kLeaseSlots; ++i) {
        LeaseSlot& slot = file.slots[i];
        // The id first: if the slot changes hands after that, the swap fails.
        const std::uint64_t id = loadId(slot);
        if (!isBeating(slot, now) && takenOver(slot, id))
            return i;
    }
    return std::nullopt;
}

bool beatLease(LeaseSlot& slot, std::uint64_t leaseId, Tick now) {
    if (loadId(slot) != leaseId)
        return false;
    SharedWord(slot.heartbeatTickMs).store(now);
    return true;
}

LeaseHolder::LeaseHolder(DemandFile& file, std::function<std::uint64_t()> random)
    : file_(file), random_(std::move(random)) {}

bool LeaseHolder::take(Tick now) {
    if (slot_)
        return true;
    leaseId_ = chooseLeaseId(file_, random_);
    slot_ = takeLease(file_, leaseId_, now);
    lastBeatMs_ = now;
    return slot_.has_value();
}

bool LeaseHolder::keepAlive(Tick now) {
    if (slot_ && now < lastBeatMs_ + kBeatPeriodMs)
        return true;
    lastBeatMs_ = now;
    if (slot_ && beatLease(file_.slots[*slot_], leaseId_, now))
        return true;
    if (slot_)
        ++timesLost_;
    slot_.reset();
    return take(now);
}

void LeaseHolder::release() {
    if (slot_)
        releaseLease(file_.slots[*slot_], leaseId_);
    slot_.reset();
}

}  // namespace vextra
