#include <cstdio>
#include <memory>

#include "base/fnv1a.h"
#include "bridge/bridge_layout.h"
#include "core/run_outputs.h"

namespace vextra {
namespace {

constexpr std::uint64_t kDumpEveryFrames = 64;

}  // namespace

bool writeOutputFile(const std::wstring& path, std::string_view bytes) {
    struct CloseFile {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };
    const std::unique_ptr<std::FILE, CloseFile> file(_wfopen(path.c_str(), L"wbN"));
    if (!file)
        return false;
    return std::fwrite(bytes.data(), 1, bytes.size(), file.get()) == bytes.size() &&
           std::fflush(file.get()) == 0;
}

void recordFrameEvidence(EventLog& log, const std::wstring& folder, const std::byte* pixels,
                         std::uint64_t frameNumber, Tick now) {
    log.writeFrame({frameNumber, fnv1a64({pixels, kFrameBytes}), now, kFrameBytes});
    if (frameNumber == 1 || frameNumber % kDumpEveryFrames == 0) {
        writeOutputFile(folder + L"\\producer-" + std::to_wstring(frameNumber) + L".bgra",
                        {reinterpret_cast<const char*>(pixels), kFrameBytes});
    }
}

}  // namespace vextra
