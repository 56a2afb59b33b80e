// The broker's only persistent trace: one short line an event, a constant code and at most one number. Free
// text, addresses, names and paths have no way in, which is why the user may paste the log anywhere.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>

#include "diag/event_line.h"

namespace vextra {

// Safe on any thread once opened. Failing to open or write is silent: the broker works without its log.
class EventLog {
public:
    enum class OpenMode { kReplace = 1, kAppend = 2 };

    // For a run that publishes no frames.
    EventLog() : EventLog(kNoFrames) {}
    // `framesPublished` is printed in every line as it stands at that moment.
    explicit EventLog(const std::atomic<std::uint64_t>& framesPublished)
        : framesPublished_(framesPublished) {}

    // Others may read and write the file meanwhile. Main thread, before other threads exist.
    void open(const std::wstring& path, OpenMode mode);
    void close();

    // Dropped while no file is open. Every line is flushed at once.
    void write(EventCode code, std::int32_t value = 0);
    void writeFrame(const FrameEvidence& evidence);

    // The last 12,000 bytes of the opened file, read separately; the first line may be cut. Empty on failure.
    std::wstring tailForDisplay() const;

private:
    struct CloseFile {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };
    void writeLine(const LogLine& line);

    static inline const std::atomic<std::uint64_t> kNoFrames{0};
    const std::atomic<std::uint64_t>& framesPublished_;
    std::wstring path_;  // set by open
    std::mutex logLock_;
    std::unique_ptr<std::FILE, CloseFile> stream_;  // guarded by logLock_
};

}  // namespace vextra
