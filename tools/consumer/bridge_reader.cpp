#include "consumer/bridge_reader.h"

namespace vextra {
namespace {

bool hasFrameContract(const BridgeHeader& header) {
    return header.magic == kBridgeMagic && header.version == kBridgeVersion &&
           header.width == kFrameWidthPx && header.height == kFrameHeightPx &&
           header.stride == kFrameStrideBytes && header.payloadBytes == kFrameBytes;
}

bool isLive(const BridgeHeader& header) {
    return header.state == static_cast<std::uint32_t>(BridgeState::kLive);
}

// The header may be torn here; then the sequence word has moved and the copy is thrown away.
bool tryRead(const BridgeFile& file, BridgeFrame& frame) {
    return tryReadUpdate(file, frame.header, [&](const BridgeHeader& header) {
        if (hasFrameContract(header) && isLive(header))
            copyShared(frame.pixels.data(), file.pixels, kFrameBytes);
    });
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
