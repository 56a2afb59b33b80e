#include "consumer/bridge_reader.h"

#include <atomic>
#include <cstring>

namespace vextra {
namespace {

// atomic_ref wants a mutable object even to load; on x64 such a load does not write, so a read-only view will
// do.
template <typename T>
T loadShared(const T& word, std::memory_order order = std::memory_order_relaxed) {
    return std::atomic_ref<T>(const_cast<T&>(word)).load(order);
}

bool hasFrameContract(const BridgeHeader& header) {
    return header.magic == kBridgeMagic && header.version == kBridgeVersion &&
           header.width == kFrameWidthPx && header.height == kFrameHeightPx &&
           header.stride == kFrameStrideBytes && header.payloadBytes == kFrameBytes;
}

bool isLive(const BridgeHeader& header) {
    return header.state == static_cast<std::uint32_t>(BridgeState::kLive);
}

bool tryRead(const BridgeFile& file, BridgeFrame& frame) {
    const BridgeHeader& shared = file.header;
    BridgeHeader& copy = frame.header;
    copy.sequence = loadShared(shared.sequence, std::memory_order_acquire);
    if (copy.sequence % 2 == 1)
        return false;
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
    // The header may be torn here; then the sequence word has moved and the copy is thrown away below.
    if (hasFrameContract(copy) && isLive(copy))
        std::memcpy(frame.pixels.data(), file.pixels, kFrameBytes);
    // Everything above is read before the sequence word is read again.
    std::atomic_thread_fence(std::memory_order_acquire);
    return loadShared(shared.sequence) == copy.sequence;
}

}  // namespace

std::uint32_t peekSequence(const BridgeFile& file) {
    return loadShared(file.header.sequence, std::memory_order_acquire);
}

ReadResult readBridgeFrame(const BridgeFile& file, BridgeFrame& frame, const std::function<void()>& pause) {
    for (std::uint32_t attempt = 1; attempt <= kMaxReadAttempts; ++attempt) {
        if (tryRead(file, frame))
            return {true, attempt};
        if (attempt < kMaxReadAttempts)
            pause();
    }
    return {false, kMaxReadAttempts};
}

Verdict judge(const BridgeHeader& header, Tick now) {
    if (!hasFrameContract(header))
        return Verdict::kInvalidHeader;
    if (!isLive(header))
        return Verdict::kNotLive;
    if (header.tickMs > now)
        return header.tickMs - now <= kTickSkewMs ? Verdict::kPicture : Verdict::kStale;
    return now - header.tickMs <= kLiveFreshMs ? Verdict::kPicture : Verdict::kStale;
}

}  // namespace vextra
