// The two line formats of the event log. Pure.
#pragma once

#include <cstdint>
#include <string_view>

#include "base/system_types.h"
#include "diag/event_codes.h"

namespace vextra {

// One formatted line, held without allocation: the log is written on every pass of a refusal loop.
struct LogLine {
    char text[160];
    int length = 0;  // bytes, line feed included, terminator not

    std::string_view view() const { return {text, static_cast<std::size_t>(length)}; }
};

struct EventFields {
    EventCode code = EventCode::kAppStart;
    std::int32_t value = 0;  // an HRESULT or a small number; printed as its 32-bit pattern
    Tick tickMs = 0;
    std::uint64_t framesPublished = 0;
    std::uint32_t processId = 0;
};
LogLine formatEventLine(const EventFields& fields);

// What an evidence run adds for every complete frame.
struct FrameEvidence {
    std::uint64_t frameNumber = 0;
    std::uint64_t fnv1a64 = 0;
    Tick tickMs = 0;
    std::uint32_t bytes = 0;
};
LogLine formatFrameLine(const FrameEvidence& evidence);

}  // namespace vextra
