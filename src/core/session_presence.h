// Whether the session's user is at it: what its messages and the system's own answers say, put together into
// SharedStatus::sessionAway. The door to the system is below.
#pragma once

#include <cstdint>
#include <optional>

namespace vextra {

enum class SessionNews : std::uint8_t {
    kNone = 1,  // no message: the system was asked, at the start or after a sleep
    kLocked,
    kUnlocked,
    kDisconnected,
    kConnected,
};

// Nothing where the system could not say.
struct SessionAnswer {
    std::optional<bool> locked;
    std::optional<bool> disconnected;
};

// --- Rule ---

// Session 0 belongs to services: a window or a box of ours would never be seen there. Unknown counts as it.
constexpr bool isInteractiveSession(std::optional<std::uint32_t> session) {
    return session.has_value() && *session != 0;
}

// Whether the system has to be asked about the session at such news: a message about one of its two states
// says all about that one, but a session may be connected with its lock still on.
constexpr bool needsAnswer(SessionNews news) {
    return news == SessionNews::kNone || news == SessionNews::kConnected;
}

// The kSession... bits after the news. What is not known stays as it was, at first open. `answer` is looked
// at only where it is needed.
std::uint32_t sessionAwayAfter(std::uint32_t away, SessionNews news, const SessionAnswer& answer);

// --- Door ---

// Of the caller's own session. Any thread.
SessionAnswer askAboutSession();

}  // namespace vextra
