// The decoder as a child process that writes raw frames into a pipe.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "base/unique_win.h"
#include "producers/ffmpeg_command.h"
#include "producers/producer.h"

namespace vextra {

// One child at a time. It runs in a job that ends it when the broker ends, however the broker ends. Used by
// one thread only (the Supervisor's), which for the moment of a start also sets the process's error mode.
class FfmpegProcess {
public:
    // `installRoot` holds deps\ffmpeg.exe and becomes the child's working directory.
    FfmpegProcess(std::wstring installRoot, ProducerReports reports);
    ~FfmpegProcess() { stop(); }
    FfmpegProcess(const FfmpegProcess&) = delete;
    FfmpegProcess& operator=(const FfmpegProcess&) = delete;

    // Stops what runs, then launches. True when the child runs inside its job; otherwise nothing is left
    // over.
    bool start(const FfmpegInput& input);

    // Takes what already waits in the pipe: the number of bytes put at the start of `buffer`, 0 when nothing
    // is ready, -1 when the child has ended or its pipe is broken. Never blocks.
    std::int32_t read(std::byte* buffer, std::uint32_t capacityBytes);

    // Ends the child (it has up to 3 s to be gone) and closes everything. Harmless when nothing runs.
    void stop();

    // 0 when none runs. No reader in the broker: tests follow the child by it, as a debugger would.
    std::uint32_t processId() const { return processId_; }

private:
    bool launch(const std::wstring& executable, const FfmpegInput& input);
    void drainStandardError();

    const std::wstring installRoot_;
    const ProducerReports reports_;
    UniqueHandle process_;
    std::uint32_t processId_ = 0;
    UniqueHandle job_;
    UniqueHandle outputRead_;
    UniqueHandle errorRead_;
};

// Where a broker with this install root looks for its decoder.
std::wstring ffmpegExecutablePath(std::wstring_view installRoot);
bool ffmpegIsInstalled(std::wstring_view installRoot);

}  // namespace vextra
