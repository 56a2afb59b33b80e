// The thread on which the Supervisor lives, with its doors opened to the real system.
#pragma once

#include <cstdint>
#include <string>

#include "base/unique_win.h"
#include "core/shared_status.h"
#include "diag/event_log.h"
#include "producers/gst_runtime_win.h"

namespace vextra {

struct SupervisorThreadSetup {
    SharedStatus* shared = nullptr;  // outlives the thread, as do the log and the handles
    EventLog* log = nullptr;
    HANDLE wakeEvent = nullptr;   // auto-reset
    HANDLE stopSignal = nullptr;  // auto-reset
    std::wstring installRoot;
    std::wstring evidenceFolder;  // empty: off
    GstRuntimePlaces gstreamerPlaces;
};

// There is at most one at a time. Main thread only.
class SupervisorThread {
public:
    explicit SupervisorThread(SupervisorThreadSetup setup);
    SupervisorThread(const SupervisorThread&) = delete;
    SupervisorThread& operator=(const SupervisorThread&) = delete;
    ~SupervisorThread();  // waits for the thread, without limit

    // `window` hears of its news. The thread ends after it took SupervisorCommand::kQuit. False when one runs
    // already, or when the system has no thread to give.
    bool start(HWND window);

    // Whether none runs any more, for which this waits so long; 0 only looks. A thread that hangs in a
    // foreign library does not end: its process has to, for what is shared with it must not go before it.
    bool waitForEnd(std::uint32_t limitMs);

private:
    static unsigned __stdcall run(void* self) noexcept;

    const SupervisorThreadSetup setup_;
    HWND window_ = nullptr;  // written before the thread begins
    UniqueHandle thread_;
};

// Puts a command into the mailbox and wakes the Supervisor. Any thread.
void sendCommand(SharedStatus& shared, HANDLE wakeEvent, SupervisorCommand command);

// Replaces the status line; `window` hears of it only when the text really changed, so that a refusal that is
// repeated without a pause does not flood its queue. Any thread.
void showStatusText(SharedStatus& shared, HWND window, std::wstring_view text);

}  // namespace vextra
