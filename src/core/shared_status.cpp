#include "core/shared_status.h"

#include "bridge/bridge_layout.h"

namespace vextra {

void keepPreviewFrame(SharedStatus& shared, const std::byte* pixels) {
    const std::lock_guard guard(shared.statusLock);
    shared.previewFrame.assign(pixels, pixels + kFrameBytes);
}

void copyPreviewFrame(SharedStatus& shared, std::vector<std::byte>& to) {
    const std::lock_guard guard(shared.statusLock);
    to = shared.previewFrame;
}

bool replaceStatusText(SharedStatus& shared, std::wstring_view text) {
    const std::lock_guard guard(shared.statusLock);
    if (shared.statusText == text)
        return false;
    shared.statusText = text;
    return true;
}

std::wstring statusTextNow(SharedStatus& shared) {
    const std::lock_guard guard(shared.statusLock);
    return shared.statusText;
}

void replaceFailureReason(SharedStatus& shared, std::wstring_view reason) {
    const std::lock_guard guard(shared.statusLock);
    shared.failureReason = reason;
}

std::wstring failureReasonNow(SharedStatus& shared) {
    const std::lock_guard guard(shared.statusLock);
    return shared.failureReason;
}

bool renewFailureReason(SharedStatus& shared, std::wstring& known) {
    const std::lock_guard guard(shared.statusLock);
    if (shared.failureReason == known)
        return false;
    known = shared.failureReason;
    return true;
}

BrokerSettings settingsNow(SharedStatus& shared) {
    const std::lock_guard guard(shared.settingsLock);
    return shared.settings;
}

SourceKind sourceNow(SharedStatus& shared) {
    const std::lock_guard guard(shared.settingsLock);
    return shared.settings.source;
}

void replaceSettings(SharedStatus& shared, const BrokerSettings& settings) {
    const std::lock_guard guard(shared.settingsLock);
    shared.settings = settings;
}

}  // namespace vextra
