// What people read about the camera: its state, its source, what decodes it. Pure.
#pragma once

#include <cstdint>
#include <string_view>

#include "core/shared_status.h"
#include "producers/backend_choice.h"

namespace vextra {

// What the label of the state depends on, read once.
struct StatusView {
    BrokerStatus status = BrokerStatus::kIdle;
    std::int32_t leaseCount = 0;
    Tick lastFrameTick = 0;
    Tick now = 0;
};
StatusView statusNow(const SharedStatus& shared, Tick now);

// Whether the last frame still counts as the present; not when there was none.
bool frameIsRecent(Tick lastFrameTick, Tick now);

std::wstring_view statusLabel(const StatusView& view);
std::wstring_view backendLabel(EffectiveBackend backend);
// The same for the diagnostic report, which says what "none" means.
std::wstring_view reportBackendLabel(EffectiveBackend backend);
// The kind of source without anything of its address.
std::wstring_view protectedSourceLabel(SourceKind source);

}  // namespace vextra
