// How the two shared files are written and read without a lock between processes. Pure: memory in, memory
// out.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

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

// The number of slots whose holder still beats: id non-zero and the same when read again, heartbeat
// non-zero, not after `now`, and at most kLeaseFreshMs old.
std::int32_t countFreshLeases(const DemandFile& file, Tick now);

// Gives a lease back: it stops counting at once, and the slot is freed only if it still belongs to `leaseId`.
void releaseLease(LeaseSlot& slot, std::uint64_t leaseId);

// --- Memory that another process reads or writes at any time: how it is touched ---

// atomic_ref wants a mutable object even to load; on x64 such a load does not write, so a read-only view will
// do.
template <typename T>
T loadShared(const T& word, std::memory_order order = std::memory_order_relaxed) {
    return std::atomic_ref<T>(const_cast<T&>(word)).load(order);
}
template <typename T>
void storeShared(T& word, T value) {
    std::atomic_ref<T>(word).store(value, std::memory_order_relaxed);
}

// Copies pixels while the other side may be copying too. What comes out torn is thrown away by the sequence
// word, but to the language, and to ThreadSanitizer, two plain copies at once are a race. Word by word they
// would be none, and take more than twice as long; so that is for the sanitizer's build alone. Whole 8-byte
// words, aligned.
inline void copyShared(std::byte* to, const std::byte* from, std::size_t bytes) {
#ifdef __SANITIZE_THREAD__
    auto* const target = reinterpret_cast<std::uint64_t*>(to);
    const auto* const source = reinterpret_cast<const std::uint64_t*>(from);
    for (std::size_t i = 0; i < bytes / sizeof(std::uint64_t); ++i)
        storeShared(target[i], loadShared(source[i]));
#else
    std::memcpy(to, from, bytes);
#endif
}

}  // namespace vextra
