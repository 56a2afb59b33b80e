// What people read about the camera: its state, its source, what decodes it. Pure.
#pragma once

#include <cstdint>
#include <string_view>

#include "core/shared_status.h"

namespace vextra {

// Whether the last frame still counts as the present; not when there was none. Pure.
bool frameIsRecent(Tick lastFrameTick, Tick now);

// What the user reads about the state. Pure.
struct StatusView {
    BrokerStatus status = BrokerStatus::kIdle;
    std::int32_t leaseCount = 0;
    Tick lastFrameTick = 0;
    Tick now = 0;
};
std::wstring_view statusLabel(const StatusView& view);
std::wstring_view backendLabel(std::uint32_t effectiveBackend);
// The same for the diagnostic report, which says what "none" means.
std::wstring_view reportBackendLabel(std::uint32_t effectiveBackend);
// The kind of source without anything of its address.
std::wstring_view protectedSourceLabel(SourceKind source);

}  // namespace vextra
