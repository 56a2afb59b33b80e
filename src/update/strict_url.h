// Which addresses the update channel talks to. Narrower than any URL standard on purpose: an address that two
// programs could read in two ways is refused before anything is sent. Usable at compile time: the channel's
// own origin is judged while the broker is built. Pure.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "base/text.h"

namespace vextra {

constexpr std::size_t kMaxUpdateUrlBytes = 8192;

namespace detail {

inline constexpr std::string_view kScheme = "https://";

constexpr bool isPlainByte(char c) {
    return c >= 0x21 && c <= 0x7E && c != '\\' && c != '#';
}

constexpr bool isUsablePort(std::string_view port) {
    if (port.empty() || port.size() > 5 || !std::ranges::all_of(port, isAsciiDigit))
        return false;
    std::uint32_t value = 0;
    for (const char digit : port)
        value = value * 10 + static_cast<std::uint32_t>(digit - '0');
    return value >= 1 && value <= 65'535;
}

// What follows the host inside the authority: nothing, or a colon and a port.
constexpr bool isUsablePortPart(std::string_view part) {
    return part.empty() || (part.front() == ':' && isUsablePort(part.substr(1)));
}

constexpr bool isIpv6Authority(std::string_view authority) {
    const std::size_t close = authority.find(']');
    if (close == std::string_view::npos)
        return false;
    const std::string_view address = authority.substr(1, close - 1);
    const auto belongs = [](char c) { return hexDigitValue(c) >= 0 || c == ':' || c == '.'; };
    return address.find(':') != std::string_view::npos && std::ranges::all_of(address, belongs) &&
           isUsablePortPart(authority.substr(close + 1));
}

constexpr bool isHostName(std::string_view host) {
    const auto belongs = [](char c) { return isAsciiLetter(c) || isAsciiDigit(c) || c == '.' || c == '-'; };
    const auto isEdge = [](char c) { return c != '.' && c != '-'; };
    return !host.empty() && std::ranges::all_of(host, belongs) && isEdge(host.front()) &&
           isEdge(host.back()) && host.find("..") == std::string_view::npos;
}

constexpr bool isStrictAuthority(std::string_view authority) {
    if (authority.empty() || authority.find_first_of("@%") != std::string_view::npos)
        return false;
    if (authority.front() == '[')
        return isIpv6Authority(authority);
    const std::size_t colon = std::min(authority.find(':'), authority.size());
    return isHostName(authority.substr(0, colon)) && isUsablePortPart(authority.substr(colon));
}

// Every '%' begins a whole escape, and none of them is the zero byte, at which some readers would stop.
constexpr bool hasWholeEscapes(std::string_view text) {
    for (std::size_t at = text.find('%'); at != std::string_view::npos; at = text.find('%', at + 3)) {
        if (text.size() - at < 3)
            return false;
        const int high = hexDigitValue(text[at + 1]);
        const int low = hexDigitValue(text[at + 2]);
        if (high < 0 || low < 0 || high + low == 0)
            return false;
    }
    return true;
}

}  // namespace detail

// True for "https://", a host name or a bracketed IPv6 address, an optional port from 1 to 65535, and a path
// and query with whole escapes; no user information, no fragment, printable ASCII only.
constexpr bool isStrictHttpsUrl(std::string_view url) {
    if (url.size() > kMaxUpdateUrlBytes || !url.starts_with(detail::kScheme) ||
        !std::ranges::all_of(url, detail::isPlainByte))
        return false;
    const std::string_view afterScheme = url.substr(detail::kScheme.size());
    const std::size_t authorityEnd = std::min(afterScheme.find_first_of("/?"), afterScheme.size());
    return detail::isStrictAuthority(afterScheme.substr(0, authorityEnd)) &&
           detail::hasWholeEscapes(afterScheme.substr(authorityEnd));
}

}  // namespace vextra
