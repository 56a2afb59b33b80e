#include <windows.h>

#include <share.h>

#include <algorithm>
#include <cstdint>

#include "base/text.h"
#include "diag/event_log.h"

namespace vextra {
namespace {

constexpr std::int64_t kTailBytes = 12'000;

}  // namespace

void EventLog::open(const std::wstring& path, OpenMode mode) {
    const std::lock_guard guard(logLock_);
    path_ = path;
    // N: no process that this one starts inherits the handle.
    stream_.reset(_wfsopen(path.c_str(), mode == OpenMode::kReplace ? L"wbN" : L"abN", _SH_DENYNO));
}

void EventLog::close() {
    const std::lock_guard guard(logLock_);
    stream_.reset();
}

void EventLog::write(EventCode code, std::int32_t value) {
    const std::lock_guard guard(logLock_);
    if (stream_)
        writeLine(
            formatEventLine({code, value, GetTickCount64(), framesPublished_.load(), GetCurrentProcessId()}));
}

void EventLog::writeFrame(const FrameEvidence& evidence) {
    const std::lock_guard guard(logLock_);
    if (stream_)
        writeLine(formatFrameLine(evidence));
}

void EventLog::writeLine(const LogLine& line) {
    std::fwrite(line.text, 1, static_cast<std::size_t>(line.length), stream_.get());
    std::fflush(stream_.get());
}

std::wstring EventLog::tailForDisplay() const {
    const std::unique_ptr<std::FILE, CloseFile> file(_wfsopen(path_.c_str(), L"rbN", _SH_DENYNO));
    // In 64 bits: the log has no limit, and a refusal that lasts for hours makes it grow past 2 GiB.
    if (!file || _fseeki64(file.get(), 0, SEEK_END) != 0)
        return {};
    const std::int64_t size = _ftelli64(file.get());
    if (size <= 0 || _fseeki64(file.get(), std::max(size - kTailBytes, std::int64_t{0}), SEEK_SET) != 0)
        return {};
    std::string bytes(kTailBytes, '\0');
    bytes.resize(std::fread(bytes.data(), 1, bytes.size(), file.get()));
    return wideFromUtf8(bytes);
}

}  // namespace vextra
