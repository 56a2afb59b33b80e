#include "bridge/shared_file_win.h"

#include <utility>

#include "base/system_win.h"
#include "bridge/bridge_location.h"

namespace vextra {

SharedFile SharedFile::open(const std::wstring& path, std::uint32_t sizeBytes, FileAccess access) {
    const bool writable = access == FileAccess::kReadWrite;
    if (path.empty() || !parentChainIsPlain(path))
        return {};

    PlainFile file = openPlainFile(path, GENERIC_READ | (writable ? GENERIC_WRITE : 0u),
                                   FILE_SHARE_READ | FILE_SHARE_WRITE);
    if (!file || file.sizeBytes != sizeBytes)
        return {};

    SharedFile opened;
    opened.file_ = std::move(file.file);
    opened.access_ = access;
    opened.mapping_.reset(CreateFileMappingW(
        opened.file_.get(), nullptr, writable ? PAGE_READWRITE : PAGE_READONLY, 0, sizeBytes, nullptr));
    if (!opened.mapping_)
        return {};
    opened.view_.reset(MapViewOfFile(
        opened.mapping_.get(), writable ? FILE_MAP_READ | FILE_MAP_WRITE : FILE_MAP_READ, 0, 0, sizeBytes));
    if (!opened.view_)
        return {};
    return opened;
}

// In the order in which they would end: member by member, the file would be closed under its mapping.
SharedFile& SharedFile::operator=(SharedFile&& other) noexcept {
    view_ = std::move(other.view_);
    mapping_ = std::move(other.mapping_);
    file_ = std::move(other.file_);
    access_ = other.access_;
    return *this;
}

// --- latest.frame ---

bool BridgeWriter::open(FileAccess access) {
    close();
    identity_.processId = GetCurrentProcessId();
    identity_.sessionId = sessionOfProcess(identity_.processId).value_or(0);
    const std::wstring path = resolveBridgePath();
    if (path.empty() || (access == FileAccess::kReadWrite && !mayWriteBridge()))
        return false;
    file_ = SharedFile::open(path, kBridgeFileBytes, access);
    return static_cast<bool>(file_);
}

void BridgeWriter::publish(const std::byte* pixels, BridgeState state, std::uint64_t frameCounter) {
    if (!file_.mayBeWritten())
        return;
    publishUpdate(*static_cast<BridgeFile*>(file_.data()), {state, GetTickCount64(), frameCounter, pixels},
                  identity_);
}

void BridgeWriter::close() {
    file_ = {};
}

// --- demand.bin ---

bool DemandChannel::open(FileAccess access) {
    close();
    if (access == FileAccess::kReadWrite && !isMediaSourceAccount(currentUserSidString()))
        return false;
    file_ = SharedFile::open(resolveDemandPath(), kDemandFileBytes, access);
    return static_cast<bool>(file_);
}

std::int32_t DemandChannel::activeLeases() {
    if (!file_ && !open(FileAccess::kReadOnly))
        return -1;
    return countFreshLeases(*view(), GetTickCount64());
}

void DemandChannel::close() {
    const bool holdsSlot = heldSlot >= 0 && heldSlot < static_cast<std::int32_t>(kLeaseSlots);
    if (file_.mayBeWritten() && holdsSlot)
        releaseLease(view()->slots[heldSlot], heldLeaseId);
    file_ = {};
    heldSlot = -1;
}

std::int32_t countLeasesOnce() {
    DemandChannel channel;
    return channel.activeLeases();
}

}  // namespace vextra
