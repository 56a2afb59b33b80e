// Times and result codes as the system counts them.
#pragma once

#include <cstdint>

namespace vextra {

// Milliseconds since the machine started (GetTickCount64): one clock for all processes of a machine, which is
// why ages can be judged across the files shared with the camera's media source.
using Tick = std::uint64_t;

// A Windows error code as an HRESULT: a positive code c becomes 0x80070000 | (c & 0xFFFF); zero and values
// that already are failing HRESULTs stay as they are.
constexpr std::int32_t hresultFromWindowsError(std::uint32_t code) {
    const auto value = static_cast<std::int32_t>(code);
    return value > 0 ? static_cast<std::int32_t>(0x80070000u | (code & 0xFFFFu)) : value;
}

// The three codes that the broker itself reports.
constexpr std::int32_t kResultAccessDenied = static_cast<std::int32_t>(0x80070005u);
constexpr std::int32_t kResultProducerNotStarted = static_cast<std::int32_t>(0x80070002u);
constexpr std::int32_t kResultProducerStalled = static_cast<std::int32_t>(0x800705B4u);

}  // namespace vextra
