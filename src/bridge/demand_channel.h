// Who is watching: the leases that media sources hold in demand.bin.
#pragma once

#include <cstdint>

#include "bridge/bridge_layout.h"
#include "bridge/shared_file_win.h"

namespace vextra {

// Each instance is used by one thread only.
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

    // The lease that this instance holds as a writer; the broker never sets it. See releaseLease.
    std::uint64_t heldLeaseId = 0;
    std::int32_t heldSlot = -1;

private:
    DemandFile* view() const { return static_cast<DemandFile*>(file_.data()); }

    SharedFile file_;
    FileAccess access_ = FileAccess::kReadOnly;
};

// A count taken by a short-lived channel of its own, for callers outside the Supervisor's loop.
std::int32_t countLeasesOnce();

}  // namespace vextra
