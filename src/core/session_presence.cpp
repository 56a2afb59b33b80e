#include "core/session_presence.h"

#include "core/shared_status.h"

namespace vextra {
namespace {

std::uint32_t withBit(std::uint32_t away, std::uint32_t bit, std::optional<bool> set) {
    if (!set)
        return away;
    return *set ? away | bit : away & ~bit;
}

}  // namespace

std::uint32_t sessionAwayAfter(std::uint32_t away, SessionNews news, const SessionAnswer& answer) {
    switch (news) {
        case SessionNews::kLocked: return away | kSessionLocked;
        case SessionNews::kUnlocked: return away & ~kSessionLocked;
        case SessionNews::kDisconnected: return away | kSessionDisconnected;
        case SessionNews::kConnected:
            return withBit(away & ~kSessionDisconnected, kSessionLocked, answer.locked);
        case SessionNews::kNone: break;
    }
    return withBit(withBit(away, kSessionLocked, answer.locked), kSessionDisconnected, answer.disconnected);
}

}  // namespace vextra
