#include <windows.h>

#include <wtsapi32.h>

#include <cstddef>

#include "base/unique_win.h"
#include "core/session_presence.h"

namespace vextra {
namespace {

// The beginning of WTSINFOEXW, which mingw-w64 lacks:
// learn.microsoft.com/windows/win32/api/wtsapi32/ns-wtsapi32-wtsinfoex_level1_w
struct SessionInfo {
    DWORD level;
    DWORD unused;  // what follows is aligned for its times, in 64 bits
    ULONG sessionId;
    std::int32_t state;  // WTS_CONNECTSTATE_CLASS
    std::int32_t flags;
};
static_assert(offsetof(SessionInfo, sessionId) == 8 && offsetof(SessionInfo, flags) == 16);
constexpr auto kSessionInfoClass = static_cast<WTS_INFO_CLASS>(25);  // WTSSessionInfoEx
constexpr std::int32_t kFlagsLocked = 0, kFlagsUnlocked = 1;         // any other: not known

using UniqueSessionText = Unique<wchar_t*, &WTSFreeMemory>;

}  // namespace

SessionAnswer askAboutSession() {
    UniqueSessionText memory;
    DWORD bytes = 0;
    if (!WTSQuerySessionInformationW(WTS_CURRENT_SERVER_HANDLE, WTS_CURRENT_SESSION, kSessionInfoClass,
                                     memory.put(), &bytes) ||
        !memory || bytes < sizeof(SessionInfo))
        return {};
    const auto& info = *reinterpret_cast<const SessionInfo*>(memory.get());
    SessionAnswer answer;
    if (info.level != 1)
        return answer;
    if (info.flags == kFlagsLocked || info.flags == kFlagsUnlocked)
        answer.locked = info.flags == kFlagsLocked;
    if (info.state == WTSActive || info.state == WTSDisconnected)
        answer.disconnected = info.state == WTSDisconnected;
    return answer;
}

}  // namespace vextra
