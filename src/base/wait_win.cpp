#include "base/wait_win.h"

namespace vextra {
namespace {

// CREATE_WAITABLE_TIMER_HIGH_RESOLUTION (Windows 10 1803 and later); not every SDK's headers have it.
constexpr DWORD kHighResolution = 0x2;
constexpr LONGLONG kHundredNsPerMs = 10'000;

}  // namespace

WakeWait::WakeWait(HANDLE wakeEvent)
    : wakeEvent_(wakeEvent),
      timer_(CreateWaitableTimerExW(nullptr, nullptr, kHighResolution, TIMER_MODIFY_STATE | SYNCHRONIZE)) {}

void WakeWait::waitShort(std::uint32_t ms) {
    LARGE_INTEGER due{};
    due.QuadPart = -(static_cast<LONGLONG>(ms) * kHundredNsPerMs);  // negative: from now
    if (!timer_ || !SetWaitableTimer(timer_.get(), &due, 0, nullptr, nullptr, FALSE)) {
        waitPlain(ms);
        return;
    }
    const HANDLE either[] = {wakeEvent_, timer_.get()};
    WaitForMultipleObjects(2, either, FALSE, INFINITE);
}

void WakeWait::waitPlain(std::uint32_t ms) {
    WaitForSingleObject(wakeEvent_, ms);
}

}  // namespace vextra
