#include "bridge/bridge_protocol.h"

namespace vextra {

void publishUpdate(BridgeFile& file, const BridgeUpdate& update, const BridgeWriterIdentity& writer) {
    BridgeHeader& header = file.header;
    const std::atomic_ref<std::uint32_t> sequence(header.sequence);
    if (sequence.load() % 2 == 1)  // a writer died in the middle of an update
        sequence.fetch_add(1);

    sequence.fetch_add(1);
    std::atomic_thread_fence(std::memory_order_seq_cst);
    storeShared(header.magic, kBridgeMagic);
    storeShared(header.version, kBridgeVersion);
    storeShared(header.width, kFrameWidthPx);
    storeShared(header.height, kFrameHeightPx);
    storeShared(header.stride, kFrameStrideBytes);
    storeShared(header.payloadBytes, kFrameBytes);
    storeShared(header.state, static_cast<std::uint32_t>(update.state));
    storeShared(header.tickMs, update.tickMs);
    storeShared(header.frameCounter, update.frameCounter);
    storeShared(header.writerPid, writer.processId);
    storeShared(header.writerSession, writer.sessionId);
    if (update.pixels != nullptr)
        copyShared(file.pixels, update.pixels, kFrameBytes);
    std::atomic_thread_fence(std::memory_order_seq_cst);
    sequence.fetch_add(1);
}

std::int32_t countFreshLeases(const DemandFile& file, Tick now) {
    std::int32_t count = 0;
    for (const LeaseSlot& slot : file.slots) {
        const std::uint64_t leaseId = loadShared(slot.leaseId);
        std::atomic_thread_fence(std::memory_order_seq_cst);
        const Tick heartbeat = loadShared(slot.heartbeatTickMs);
        std::atomic_thread_fence(std::memory_order_seq_cst);
        const bool held = leaseId != 0 && loadShared(slot.leaseId) == leaseId;
        if (held && heartbeat != 0 && heartbeat <= now && now - heartbeat <= kLeaseFreshMs)
            ++count;
    }
    return count;
}

void releaseLease(LeaseSlot& slot, std::uint64_t leaseId) {
    const std::atomic_ref<std::uint64_t> owner(slot.leaseId);
    if (owner.load() != leaseId)
        return;
    std::atomic_ref<Tick>(slot.heartbeatTickMs).exchange(0);
    std::uint64_t expected = leaseId;
    owner.compare_exchange_strong(expected, 0);
}

}  // namespace vextra
