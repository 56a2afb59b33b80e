// Any bytes as an address: no crash, and the same verdict as a second writing of the rules gives.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "update/strict_url.h"

namespace {

// The rules again, as a machine that takes the text byte by byte and never looks back further than it notes.
class Walker {
public:
    bool takes(std::string_view url) {
        constexpr std::string_view kScheme = "https://";
        if (url.size() > 8192 || !url.starts_with(kScheme))
            return false;
        for (const char c : url.substr(kScheme.size())) {
            if (c < 0x21 || c > 0x7E || c == '\\' || c == '#' || !step(c))
                return false;
        }
        return escapeLeft_ == 0 && mayEnd();
    }

private:
    enum class At { kStart, kHost, kAddress, kBehindAddress, kPort, kRest };

    bool step(char c) {
        const bool endsAuthority = c == '/' || c == '?';
        if (at_ != At::kRest && (endsAuthority ? mayEnd() : c == ':' && mayNamePort())) {
            at_ = endsAuthority ? At::kRest : At::kPort;
            return true;
        }
        switch (at_) {
            case At::kStart: return begin(c);
            case At::kHost: return takeHost(c);
            case At::kAddress: return takeAddress(c);
            case At::kBehindAddress: return false;
            case At::kPort: return takePort(c);
            case At::kRest: return takeRest(c);
        }
        return false;
    }
    bool begin(char c) {
        at_ = c == '[' ? At::kAddress : At::kHost;
        last_ = '.';  // a host begins with neither a dot nor, by the same rule, a hyphen
        return c == '[' || (c != '-' && takeHost(c));
    }
    bool takeHost(char c) {
        const bool twoDots = c == '.' && last_ == '.';
        last_ = c;
        return !twoDots && (isOneOf(c, kLettersAndDigits) || c == '.' || c == '-');
    }
    bool takeAddress(char c) {
        colonSeen_ = colonSeen_ || c == ':';
        if (c == ']')
            at_ = At::kBehindAddress;
        return c == ']' ? colonSeen_ : isOneOf(c, kHexDigits) || c == ':' || c == '.';
    }
    bool takePort(char c) {
        port_ = port_ * 10 + (c - '0');
        return c >= '0' && c <= '9' && ++portDigits_ <= 5;
    }
    bool takeRest(char c) {
        if (escapeLeft_ == 0) {
            escapeLeft_ = c == '%' ? 2 : 0;
            escapeIsZero_ = true;
            return true;
        }
        escapeIsZero_ = escapeIsZero_ && c == '0';
        return isOneOf(c, kHexDigits) && (--escapeLeft_ > 0 || !escapeIsZero_);
    }

    bool mayNamePort() const { return at_ != At::kPort && mayEnd(); }
    bool mayEnd() const {
        switch (at_) {
            case At::kHost: return last_ != '.' && last_ != '-';
            case At::kPort: return portDigits_ > 0 && port_ >= 1 && port_ <= 65'535;
            case At::kBehindAddress:
            case At::kRest: return true;
            default: return false;
        }
    }

    static constexpr std::string_view kHexDigits = "0123456789abcdefABCDEF";
    static constexpr std::string_view kLettersAndDigits =
        "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
    static bool isOneOf(char c, std::string_view set) { return set.find(c) != std::string_view::npos; }

    At at_ = At::kStart;
    char last_ = 0;  // of the host
    bool colonSeen_ = false;
    long port_ = 0;
    int portDigits_ = 0;
    int escapeLeft_ = 0;
    bool escapeIsZero_ = false;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view url(reinterpret_cast<const char*>(data), size);
    if (vextra::isStrictHttpsUrl(url) != Walker().takes(url))
        std::abort();
    return 0;
}
