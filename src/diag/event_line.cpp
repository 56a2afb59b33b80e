#include "diag/event_line.h"

#include <cstdio>

namespace vextra {
namespace {

// What snprintf would have written is taken for what it wrote: so everything has to fit.
constexpr std::string_view kLongestNumbers =
    "tick=18446744073709551615  hr=0xFFFFFFFF frames=18446744073709551615 pid=4294967295\n";
static_assert(kLongestNumbers.size() + kLongestEventText < sizeof LogLine::text);

}  // namespace

LogLine formatEventLine(const EventFields& fields) {
    LogLine line;
    line.length = std::snprintf(line.text, sizeof line.text, "tick=%llu %s hr=0x%08lX frames=%llu pid=%lu\n",
                                static_cast<unsigned long long>(fields.tickMs), eventText(fields.code).data(),
                                static_cast<unsigned long>(static_cast<std::uint32_t>(fields.value)),
                                static_cast<unsigned long long>(fields.framesPublished),
                                static_cast<unsigned long>(fields.processId));
    return line;
}

LogLine formatFrameLine(const FrameEvidence& evidence) {
    LogLine line;
    line.length =
        std::snprintf(line.text, sizeof line.text, "producer_frame=%llu fnv1a64=%016llX tick=%llu bytes=%u\n",
                      static_cast<unsigned long long>(evidence.frameNumber),
                      static_cast<unsigned long long>(evidence.fnv1a64),
                      static_cast<unsigned long long>(evidence.tickMs), evidence.bytes);
    return line;
}

}  // namespace vextra
