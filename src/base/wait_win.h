// A short wait that keeps its word.
#pragma once

#include <cstdint>

#include "base/unique_win.h"

namespace vextra {

// Waits on a wake event. A plain 5 ms wait lasts 15.6 ms or more on Windows, above all while a process's
// windows are hidden, and a frame that needs four reads would then come too late; so short waits use a
// high-resolution timer beside the event. It is armed by a short wait only: idle, nothing of it runs. Used by
// one thread only.
class WakeWait {
public:
    // `wakeEvent` is borrowed and must outlive this object.
    explicit WakeWait(HANDLE wakeEvent);

    // Until the event is set or the time is over. Falls back on the plain wait where the timer cannot be
    // made.
    void waitShort(std::uint32_t ms);

    // The system's ordinary wait: cheap, and as coarse as its tick.
    void waitPlain(std::uint32_t ms);

private:
    const HANDLE wakeEvent_;
    UniqueHandle timer_;
};

}  // namespace vextra
