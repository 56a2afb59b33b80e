// What a run with an evidence folder keeps of its frames: a hash of each in the log, and some of them whole.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "base/system_types.h"
#include "diag/event_log.h"

namespace vextra {

// Writes the hash line, and for frame 1 and every 64th the raw pixels to <folder>\producer-<number>.bgra.
// Supervisor's thread. Failing to write is silent.
void recordFrameEvidence(EventLog& log, const std::wstring& folder, const std::byte* pixels,
                         std::uint64_t frameNumber, Tick now);

}  // namespace vextra
