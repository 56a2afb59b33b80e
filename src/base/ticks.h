// Time as the whole system counts it.
#pragma once

#include <cstdint>

namespace vextra {

// Milliseconds since the machine started (GetTickCount64): one clock for all processes of a machine, which is
// why ages can be judged across the files shared with the camera's media source.
using Tick = std::uint64_t;

}  // namespace vextra
