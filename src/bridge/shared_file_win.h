// How this side opens the two files that the broker shares with the camera's media source: mapped whole,
// after every check.
#pragma once

#include <cstdint>
#include <string>

#include "base/unique_win.h"
#include "bridge/bridge_layout.h"
#include "bridge/bridge_protocol.h"

namespace vextra {

enum class FileAccess { kReadOnly, kReadWrite };

// A mapping of a whole file of known size. Movable; used by one thread at a time.
class SharedFile {
public:
    // Maps `path` when it exists, is a plain file (no link, no folder) of exactly `sizeBytes`, and every
    // folder on the way to it is plain. Nothing is created, resized or repaired. An empty path is a refusal.
    static SharedFile open(const std::wstring& path, std::uint32_t sizeBytes, FileAccess access);

    SharedFile() = default;
    SharedFile(SharedFile&&) = default;
    SharedFile& operator=(SharedFile&& other) noexcept;
    ~SharedFile() = default;

    explicit operator bool() const { return static_cast<bool>(view_); }
    void* data() const { return view_.get(); }
    bool mayBeWritten() const { return view_ && access_ == FileAccess::kReadWrite; }

private:
    // What is mapped goes before what it is a view of: members end in reverse order.
    UniqueFile file_;
    UniqueHandle mapping_;
    UniqueView view_;
    FileAccess access_ = FileAccess::kReadOnly;  // of the view
};

// --- latest.frame ---

// The broker's end of the bridge: one frame slot in a mapped file, overwritten in place. Used by one thread
// only.
class BridgeWriter {
public:
    // Closes what is open, then finds, vets and maps latest.frame. For writing, the account must be the
    // bridge's owner and not elevated. False leaves the writer closed.
    bool open(FileAccess access);

    // One update; null pixels refresh the header alone. Does nothing while closed or opened read-only.
    void publish(const std::byte* pixels, BridgeState state, std::uint64_t frameCounter);

    // Never writes: the caller must publish Stopped first.
    void close();

private:
    SharedFile file_;
    BridgeWriterIdentity identity_;
};

// --- demand.bin ---

// Who is watching: the leases that media sources hold in demand.bin. Each instance is used by one thread
// only.
class DemandChannel {
public:
    DemandChannel() = default;
    DemandChannel(const DemandChannel&) = delete;
    DemandChannel& operator=(const DemandChannel&) = delete;
    ~DemandChannel() { close(); }

    // Closes what is open (giving back a held lease), then finds, vets and maps demand.bin. For writing, the
    // process must run as LocalService or LocalSystem: no interactive user ever opens the file for writing.
    bool open(FileAccess access);

    // The number of fresh leases, 0 to 16. Opens read-only when closed; -1 when that fails: demand is
    // unknown, and every caller then takes the safe side.
    std::int32_t activeLeases();

    void close();

    // The lease that this instance gives back when it closes. A writer that took a slot says so here; a
    // reader leaves them alone. See releaseLease.
    std::uint64_t heldLeaseId = 0;
    std::int32_t heldSlot = -1;

private:
    DemandFile* view() const { return static_cast<DemandFile*>(file_.data()); }

    SharedFile file_;
};

// A count taken by a short-lived channel of its own, for callers outside the Supervisor's loop.
std::int32_t countLeasesOnce();

}  // namespace vextra
