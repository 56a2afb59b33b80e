// Any bytes as an address: no crash, and the same verdict as a second writing of the rules gives.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "update/strict_url.h"

namespace {

// The rules again, in the shape of a state machine that walks the text once.
bool walks(std::string_view url) {
    enum class At { kHost, kAddress, kBehindAddress, kPort, kRest } at = At::kHost;
    constexpr std::string_view kHex = "0123456789abcdefABCDEF";
    constexpr std::string_view kScheme = "https://";
    if (url.size() > 8192 || url.substr(0, 8) != kScheme || url.size() == 8)
        return false;
    std::size_t begin = 8;
    long port = 0;
    bool colonSeen = false;
    std::size_t i = begin;
    const auto hostEnds = [&] {
        const std::string_view host = url.substr(begin, i - begin);
        return !host.empty() && host.front() != '.' && host.front() != '-' && host.back() != '.' &&
               host.back() != '-';
    };
    const auto portEnds = [&] { return i > begin && i - begin <= 5 && port >= 1 && port <= 65'535; };
    if (url[i] == '[') {
        at = At::kAddress;
        ++i;
    }
    for (; i < url.size(); ++i) {
        const char c = url[i];
        if (c < 0x21 || c > 0x7E || c == '\\' || c == '#')
            return false;
        const bool endsAuthority = c == '/' || c == '?';
        if (at == At::kHost && (endsAuthority || c == ':')) {
            if (!hostEnds())
                return false;
            at = endsAuthority ? At::kRest : At::kPort;
            begin = i + 1;
        } else if (at == At::kHost) {
            const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
            if ((!letter && c != '.' && c != '-') || (c == '.' && i > begin && url[i - 1] == '.'))
                return false;
        } else if (at == At::kAddress) {
            if (c == ']' && colonSeen)
                at = At::kBehindAddress;
            else if (kHex.find(c) == std::string_view::npos && c != ':' && c != '.')
                return false;
            colonSeen = colonSeen || c == ':';
        } else if (at == At::kBehindAddress) {
            if (!endsAuthority && c != ':')
                return false;
            at = endsAuthority ? At::kRest : At::kPort;
            begin = i + 1;
        } else if (at == At::kPort && endsAuthority) {
            if (!portEnds())
                return false;
            at = At::kRest;
        } else if (at == At::kPort) {
            if (c < '0' || c > '9' || port > 65'535)
                return false;
            port = port * 10 + (c - '0');
        }
        if (at == At::kRest && c == '%') {
            if (i + 2 >= url.size() || kHex.find(url[i + 1]) == std::string_view::npos ||
                kHex.find(url[i + 2]) == std::string_view::npos || (url[i + 1] == '0' && url[i + 2] == '0'))
                return false;
        }
    }
    return at == At::kRest || at == At::kBehindAddress || (at == At::kHost && hostEnds()) ||
           (at == At::kPort && portEnds());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view url(reinterpret_cast<const char*>(data), size);
    if (vextra::isStrictHttpsUrl(url) != walks(url))
        std::abort();
    return 0;
}
