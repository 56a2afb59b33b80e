// The broker's end of the bridge: one frame slot in a mapped file, overwritten in place.
#pragma once

#include <cstdint>

#include "bridge/bridge_layout.h"
#include "bridge/bridge_protocol.h"
#include "bridge/shared_file_win.h"

namespace vextra {

// Used by one thread only (the Supervisor's).
class BridgeWriter {
public:
    // Closes what is open, then finds, vets and maps latest.frame. For writing, the account must be the
    // bridge's owner and not elevated. False leaves the writer closed.
    bool open(FileAccess access);

    // One update; null pixels refresh the header alone. Does nothing while closed or opened read-only.
    void publish(const std::byte* pixels, BridgeState state, std::uint64_t frameCounter);

    // Never writes: whoever closes publishes Stopped first.
    void close();

private:
    SharedFile file_;
    FileAccess access_ = FileAccess::kReadOnly;
    BridgeWriterIdentity identity_;
};

}  // namespace vextra
