#include <windows.h>

#include <share.h>

#include "base/text_win.h"
#include "diag/event_log.h"

namespace vextra {
namespace {

constexpr long kTailBytes = 12'000;

}  // namespace

void EventLog::open(const std::wstring& path, OpenMode mode) {
    const std::lock_guard guard(logLock_);
    path_ = path;
    stream_.reset(_wfsopen(path.c_str(), mode == OpenMode::kReplace ? L"wb" : L"ab", _SH_DENYNO));
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
    const std::unique_ptr<std::FILE, CloseFile> file(_wfsopen(path_.c_str(), L"rb", _SH_DENYNO));
    if (!file || std::fseek(file.get(), 0, SEEK_END) != 0)
        return {};
    const long size = std::ftell(file.get());
    if (size <= 0 || std::fseek(file.get(), size > kTailBytes ? size - kTailBytes : 0, SEEK_SET) != 0)
        return {};
    std::string bytes(kTailBytes, '\0');
    bytes.resize(std::fread(bytes.data(), 1, bytes.size(), file.get()));
    return wideFromUtf8(bytes);
}

}  // namespace vextra
