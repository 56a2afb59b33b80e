// The two files that the broker shares with the camera's media source, byte by byte. Little-endian, x64.
// docs/bridge-format.md tells the same to the authors of media sources.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/system_types.h"

namespace vextra {

// The one shape of a frame: BGRA, 8 bits a channel, top row first, no padding between rows.
constexpr std::uint32_t kFrameWidthPx = 1280;
constexpr std::uint32_t kFrameHeightPx = 720;
constexpr std::uint32_t kFrameStrideBytes = kFrameWidthPx * 4;
constexpr std::uint32_t kFrameBytes = kFrameStrideBytes * kFrameHeightPx;
constexpr std::uint32_t kFramesPerSecond = 16;
static_assert(kFrameStrideBytes == 5120 && kFrameBytes == 3'686'400);

enum class BridgeState : std::uint32_t {
    kStopped = 0,      // the broker closed the bridge
    kFallback = 1,     // demand exists, no fresh frame yet or any more
    kLive = 2,         // the pixels are a current picture; no other state says that
    kPaused = 3,       // the user paused the producer
    kUnavailable = 4,  // the producer failed
};

// latest.frame
struct BridgeHeader {
    std::uint32_t sequence;      // even: consistent; odd: an update is under way, or its writer died in it
    std::uint32_t magic;         // "VMF1" in file order
    std::uint32_t version;       // 1
    std::uint32_t width;         // pixels
    std::uint32_t height;        // pixels
    std::uint32_t stride;        // bytes a row
    std::uint32_t payloadBytes;  // bytes of pixels after the header
    std::uint32_t state;         // BridgeState of this update
    Tick tickMs;                 // the writer's GetTickCount64() at this update
    std::uint64_t frameCounter;  // complete frames published since the broker started
    std::uint32_t writerPid;
    std::uint32_t writerSession;  // terminal-services session
    std::byte reserved[72];       // never written by the broker
};
static_assert(offsetof(BridgeHeader, sequence) == 0);
static_assert(offsetof(BridgeHeader, magic) == 4);
static_assert(offsetof(BridgeHeader, version) == 8);
static_assert(offsetof(BridgeHeader, width) == 12);
static_assert(offsetof(BridgeHeader, height) == 16);
static_assert(offsetof(BridgeHeader, stride) == 20);
static_assert(offsetof(BridgeHeader, payloadBytes) == 24);
static_assert(offsetof(BridgeHeader, state) == 28);
static_assert(offsetof(BridgeHeader, tickMs) == 32);
static_assert(offsetof(BridgeHeader, frameCounter) == 40);
static_assert(offsetof(BridgeHeader, writerPid) == 48);
static_assert(offsetof(BridgeHeader, writerSession) == 52);
static_assert(offsetof(BridgeHeader, reserved) == 56);
static_assert(sizeof(BridgeHeader) == 128);

struct BridgeFile {
    BridgeHeader header;
    std::byte pixels[kFrameBytes];
};
static_assert(offsetof(BridgeFile, pixels) == 128);
static_assert(sizeof(BridgeFile) == 3'686'528);

constexpr std::uint32_t kBridgeFileBytes = sizeof(BridgeFile);
constexpr std::uint32_t kBridgeMagic = 0x31464D56;
constexpr std::uint32_t kBridgeVersion = 1;

// demand.bin
struct LeaseSlot {
    std::uint64_t leaseId;  // 0: the slot is free
    Tick heartbeatTickMs;   // 0: released
};
static_assert(offsetof(LeaseSlot, leaseId) == 0);
static_assert(offsetof(LeaseSlot, heartbeatTickMs) == 8);
static_assert(sizeof(LeaseSlot) == 16);

constexpr std::uint32_t kLeaseSlots = 16;

struct DemandFile {
    LeaseSlot slots[kLeaseSlots];
    std::byte reserved[3840];
};
static_assert(offsetof(DemandFile, reserved) == 256);
static_assert(sizeof(DemandFile) == 4096);

constexpr std::uint32_t kDemandFileBytes = sizeof(DemandFile);

// A lease counts while its last heartbeat is at most this old.
constexpr Tick kLeaseFreshMs = 3000;

// A Live frame counts as a picture of now while it is at most this old.
constexpr Tick kLiveFreshMs = 2000;

}  // namespace vextra
