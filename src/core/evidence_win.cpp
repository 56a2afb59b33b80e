#include "core/evidence_win.h"

#include <string_view>

#include "base/fnv1a.h"
#include "bridge/bridge_layout.h"
#include "core/run_outputs.h"

namespace vextra {
namespace {

constexpr std::uint64_t kDumpEveryFrames = 64;

}  // namespace

void recordFrameEvidence(EventLog& log, const std::wstring& folder, const std::byte* pixels,
                         std::uint64_t frameNumber, Tick now) {
    log.writeFrame({frameNumber, fnv1a64({pixels, kFrameBytes}), now, kFrameBytes});
    if (frameNumber == 1 || frameNumber % kDumpEveryFrames == 0) {
        writeOutputFile(folder + L"\\producer-" + std::to_wstring(frameNumber) + L".bgra",
                        {reinterpret_cast<const char*>(pixels), kFrameBytes});
    }
}

}  // namespace vextra
