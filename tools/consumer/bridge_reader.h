// The reading half of the bridge's protocol: what a media source does to get a whole frame out of memory that
// another process overwrites at any time. Pure; one thread per BridgeFrame.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "bridge/bridge_layout.h"
#include "bridge/bridge_protocol.h"

namespace vextra {

// An update takes about a millisecond; a writer that is still inside one after this many pauses has died
// there.
constexpr std::uint32_t kMaxReadAttempts = 50;

// Two processes' clocks may disagree by one step of the system's tick, so that a fresh stamp can lie in the
// future.
constexpr Tick kTickSkewMs = 20;

struct BridgeFrame {
    BridgeHeader header{};  // `reserved` stays zero
    std::vector<std::byte> pixels =
        std::vector<std::byte>(kFrameBytes);  // of the last Live update read into it
};

struct ReadResult {
    bool consistent = false;     // false: every attempt was torn, the frame's content is worth nothing
    std::uint32_t attempts = 0;  // 1 to kMaxReadAttempts
};

// The fields of a header, each by itself whole, and with them whatever `takePixels` (called with them) takes.
template <typename TakePixels>
void copyUpdate(const BridgeFile& file, BridgeHeader& copy, const TakePixels& takePixels) {
    const BridgeHeader& shared = file.header;
    copy.magic = loadShared(shared.magic);
    copy.version = loadShared(shared.version);
    copy.width = loadShared(shared.width);
    copy.height = loadShared(shared.height);
    copy.stride = loadShared(shared.stride);
    copy.payloadBytes = loadShared(shared.payloadBytes);
    copy.state = loadShared(shared.state);
    copy.tickMs = loadShared(shared.tickMs);
    copy.frameCounter = loadShared(shared.frameCounter);
    copy.writerPid = loadShared(shared.writerPid);
    copy.writerSession = loadShared(shared.writerSession);
    takePixels(copy);
}

// One attempt at one update. False: the copy is torn, and worth nothing.
template <typename TakePixels>
bool tryReadUpdate(const BridgeFile& file, BridgeHeader& copy, const TakePixels& takePixels) {
    copy.sequence = loadShared(file.header.sequence, std::memory_order_acquire);
    if (copy.sequence % 2 == 1)
        return false;
    copyUpdate(file, copy, takePixels);
    // Everything above is read before the sequence word is read again.
    std::atomic_thread_fence(std::memory_order_acquire);
    return loadShared(file.header.sequence) == copy.sequence;
}

// The sequence word alone: as long as it stays the same, nothing new is there.
std::uint32_t peekSequence(const BridgeFile& file);

// Copies one consistent update; its pixels only when it is a valid Live one, for no other state has a
// picture. `pause` is called between attempts and should last about a millisecond.
ReadResult readBridgeFrame(const BridgeFile& file, BridgeFrame& frame, const std::function<void()>& pause);

enum class Verdict {
    kPicture = 1,    // Live and fresh: the pixels may be shown
    kStale,          // Live, but too old (or stamped by another boot's clock)
    kNotLive,        // a state in which the reader shows its own fallback picture
    kInvalidHeader,  // not this format; all zeros until the first update
};

// `now` must have been taken after the read.
Verdict judge(const BridgeHeader& header, Tick now);

}  // namespace vextra
