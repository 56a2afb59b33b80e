// The holding half of the demand channel: what a media source does in demand.bin for each stream that is
// open.
//
// Holders race with each other and with the broker's scan, without a lock. Every race ends well because
//  - a slot changes hands only by compare-and-swap of its leaseId, so of two takers one loses and looks on;
//  - between the swap and the first heartbeat the slot does not count (its heartbeat is 0 or old);
//  - a holder that was taken over while it slept (a suspended process, a stopped debugger) sees another id
//    at its next beat and takes a new slot. A slot with an id but no heartbeat may be one that is being taken
//    or released this very moment: taking it over costs its holder the same one beat, and a holder that died
//    there does not block the slot for ever;
//  - a heartbeat or a release that comes late, after the slot has changed hands, can only give the new
//    holder a heartbeat that it would have made itself, or take its heartbeat away until it beats again.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>

#include "bridge/bridge_layout.h"

namespace vextra {

// Six beats fit into the time after which a lease is taken for dead.
constexpr Tick kBeatPeriodMs = 500;

// A random identifier: not 0, and unlike every one in the file.
std::uint64_t chooseLeaseId(const DemandFile& file, const std::function<std::uint64_t()>& random);

// Takes a free slot, or else one whose holder no longer beats; nothing when all 16 are alive.
std::optional<std::uint32_t> takeLease(DemandFile& file, std::uint64_t leaseId, Tick now);

// False when the slot is another holder's by now: nothing is written then.
bool beatLease(LeaseSlot& slot, std::uint64_t leaseId, Tick now);

// One stream's lease, from take() to release(). `file` is borrowed. Used by one thread only.
class LeaseHolder {
public:
    LeaseHolder(DemandFile& file, std::function<std::uint64_t()> random);
    LeaseHolder(const LeaseHolder&) = delete;
    LeaseHolder& operator=(const LeaseHolder&) = delete;
    ~LeaseHolder() { release(); }

    // False when no slot is to be had. A lease that is already held is kept.
    bool take(Tick now);

    // To be called as often as one likes: beats when it is time. A lost lease is replaced; false when no slot
    // is to be had any more.
    bool keepAlive(Tick now);

    void release();

    // Forgets the lease without releasing it, as a crash would.
    void abandon() { slot_.reset(); }

    std::uint64_t leaseId() const { return leaseId_; }
    std::optional<std::uint32_t> slot() const { return slot_; }
    std::uint32_t timesLost() const { return timesLost_; }

private:
    DemandFile& file_;
    const std::function<std::uint64_t()> random_;
    std::optional<std::uint32_t> slot_;
    std::uint64_t leaseId_ = 0;
    Tick lastBeatMs_ = 0;
    std::uint32_t timesLost_ = 0;
};

}  // namespace vextra
