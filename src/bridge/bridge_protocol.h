// How the two shared files are written and read without a lock between processes. Pure: memory in, memory
// out.
#pragma once

#include <cstdint>

#include "bridge/bridge_layout.h"

namespace vextra {

// Who writes, as it stands in the header.
struct BridgeWriterIdentity {
    std::uint32_t processId = 0;
    std::uint32_t sessionId = 0;
};

struct BridgeUpdate {
    BridgeState state = BridgeState::kStopped;
    Tick tickMs = 0;
    std::uint64_t frameCounter = 0;
    const std::byte* pixels = nullptr;  // kFrameBytes of them, or null: the header alone
};

// One update of the whole slot. The sequence word is odd while it lasts and advances by 2, or by 3 when the
// last writer died between its two increments. One writer at a time; readers never block it.
void publishUpdate(BridgeFile& file, const BridgeUpdate& update, const BridgeWriterIdentity& writer);

// The number of slots held by somebody who still beats: id non-zero and the same when read again, heartbeat
// non-zero, not after `now`, and at most kLeaseFreshMs old.
std::int32_t countFreshLeases(const DemandFile& file, Tick now);

// Gives a lease back: it stops counting at once, and the slot is freed only if it still belongs to `leaseId`.
void releaseLease(LeaseSlot& slot, std::uint64_t leaseId);

}  // namespace vextra
