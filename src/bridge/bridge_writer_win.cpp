#include <windows.h>

#include "base/system_win.h"
#include "bridge/bridge_location.h"
#include "bridge/bridge_writer.h"

namespace vextra {

bool BridgeWriter::open(FileAccess access) {
    close();
    access_ = access;
    identity_.processId = GetCurrentProcessId();
    identity_.sessionId = sessionOfProcess(identity_.processId).value_or(0);
    const std::wstring path = resolveBridgePath();
    if (path.empty() || (access == FileAccess::kReadWrite && !mayWriteBridge()))
        return false;
    file_ = SharedFile::open(path, kBridgeFileBytes, access);
    return static_cast<bool>(file_);
}

void BridgeWriter::publish(const std::byte* pixels, BridgeState state, std::uint64_t frameCounter) {
    if (!file_ || access_ != FileAccess::kReadWrite)
        return;
    publishUpdate(*static_cast<BridgeFile*>(file_.data()), {state, GetTickCount64(), frameCounter, pixels},
                  identity_);
}

void BridgeWriter::close() {
    file_ = {};
}

}  // namespace vextra
