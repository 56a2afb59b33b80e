// Any four lines as an address, an IPv4 address, a user and a password: the same verdicts as a second writing
// of the rules gives; what a built address carries decodes to what went in; and a decoder gets exactly the
// arguments that were meant, the address as one of them, whatever the address holds.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/text.h"
#include "config/source_url.h"
#include "fuzz_text.h"
#include "producers/ffmpeg_command.h"
#include "split_arguments.h"

namespace {

using vextra::SecretText;
using vextra::test::expect;

using Words = std::vector<std::wstring>;

constexpr wchar_t kExecutable[] = L"C:\\Program Files\\Vextra\\deps\\ffmpeg.exe";
constexpr std::size_t kLongestCommandLine = 32'766;  // units that CreateProcessW takes, less the final zero
constexpr std::wstring_view kUnreserved =
    L"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";

Words splitAt(std::wstring_view text, wchar_t separator) {
    Words parts(1);
    for (const wchar_t unit : text) {
        if (unit == separator)
            parts.emplace_back();
        else
            parts.back() += unit;
    }
    return parts;
}

bool isNumber(const std::wstring& text, std::size_t mostDigits, unsigned long least, unsigned long most) {
    const bool digits = !text.empty() && text.size() <= mostDigits &&
                        text.find_first_not_of(L"0123456789") == std::wstring::npos;
    return digits && std::stoul(text) >= least && std::stoul(text) <= most;
}

bool isFourNumbers(std::wstring_view text) {
    const Words parts = splitAt(text, L'.');
    return parts.size() == 4 &&
           std::ranges::all_of(parts, [](const std::wstring& part) { return isNumber(part, 3, 0, 255); });
}

std::wstring lowered(std::wstring_view text) {
    std::wstring result(text);
    std::ranges::transform(result, result.begin(),
                           [](wchar_t c) { return c >= L'A' && c <= L'Z' ? c + 32 : c; });
    return result;
}

// The rules for addresses again: cut at the scheme, then read forward.
bool isUsable(std::wstring_view url) {
    const auto isForbidden = [](wchar_t c) { return c < 0x21 || c == 0x7F || c == L'\\' || c == L'"'; };
    if (url.size() > 8192 || std::ranges::any_of(url, isForbidden))
        return false;
    for (const std::wstring_view scheme : {L"http://", L"https://", L"rtsp://", L"rtsps://"}) {
        if (!lowered(url.substr(0, scheme.size())).starts_with(scheme))
            continue;
        std::wstring host;
        for (std::size_t i = scheme.size();
             i < url.size() && url[i] != L'/' && url[i] != L'?' && url[i] != L'#'; ++i) {
            host += url[i];
            if (url[i] == L'@')
                host.clear();
        }
        if (host.starts_with(L'['))
            return host.find(L']', 2) != std::wstring::npos;
        const Words nameAndPort = splitAt(host, L':');
        return !nameAndPort[0].empty() &&
               (nameAndPort.size() == 1 ||
                (nameAndPort.size() == 2 && isNumber(nameAndPort[1], 5, 1, 65'535)));
    }
    return false;
}

bool isWellFormed(std::wstring_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool pair =
            (text[i] & 0xFC00) == 0xD800 && i + 1 < text.size() && (text[i + 1] & 0xFC00) == 0xDC00;
        if (!pair && (text[i] & 0xF800) == 0xD800)
            return false;
        i += pair ? 1 : 0;
    }
    return true;
}

// Nothing when a character stands there that has to be escaped, or an escape that is none.
std::optional<std::wstring> percentDecoded(std::wstring_view text) {
    constexpr std::wstring_view kHexDigits = L"0123456789ABCDEF";
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != L'%') {
            if (kUnreserved.find(text[i]) == std::wstring_view::npos)
                return std::nullopt;
            bytes += static_cast<char>(text[i]);
            continue;
        }
        const std::size_t high = i + 2 < text.size() ? kHexDigits.find(text[i + 1]) : std::wstring_view::npos;
        const std::size_t low = i + 2 < text.size() ? kHexDigits.find(text[i + 2]) : std::wstring_view::npos;
        if (high == std::wstring_view::npos || low == std::wstring_view::npos)
            return std::nullopt;
        bytes += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return vextra::test::unitsOf(bytes);
}

void checkDirectCamera(const vextra::BrokerSettings& settings) {
    const SecretText url = vextra::sourceUrl(settings);
    expect(url.empty() != isFourNumbers(settings.directIp.view()));
    if (url.empty())
        return;
    if (settings.directUser.size() <= vextra::kMaxUserUnits &&
        settings.directPassword.size() <= vextra::kMaxPasswordUnits)
        expect(vextra::isUsableSourceUrl(url.view()));
    const std::wstring end = std::wstring(settings.directIp.view()) + L":554/stream2";
    if (settings.directUser.empty()) {
        expect(url.view() == L"rtsp://" + end);
        return;
    }
    const Words credentialsAndEnd = splitAt(url.view().substr(7), L'@');
    expect(url.view().starts_with(L"rtsp://") && credentialsAndEnd.size() == 2 &&
           credentialsAndEnd[1] == end);
    const Words credentials = splitAt(credentialsAndEnd[0], L':');
    expect(credentials.size() == 2);
    const auto carries = [](const std::wstring& encoded, std::wstring_view text) {
        return percentDecoded(encoded) == (isWellFormed(text) ? text : std::wstring_view());
    };
    expect(carries(credentials[0], settings.directUser.view()));
    expect(carries(credentials[1], settings.directPassword.view()));
}

Words meantArguments(std::wstring_view url, bool udp) {
    Words words{kExecutable, L"-hide_banner", L"-loglevel", L"error", L"-nostdin", L"-threads", L"2"};
    const std::wstring start = lowered(url.substr(0, 8));
    if (start.starts_with(L"rtsp://") || start.starts_with(L"rtsps://"))
        words.insert(words.end(), {L"-rtsp_transport", udp ? L"udp" : L"tcp"});
    words.insert(words.end(),
                 {L"-rw_timeout", L"5000000", L"-i", std::wstring(url), L"-an", L"-sn", L"-dn", L"-vf"});
    words.insert(words.end(), {L"scale=1280:720:force_original_aspect_ratio=decrease,"
                               L"pad=1280:720:(ow-iw)/2:(oh-ih)/2,fps=16",
                               L"-pix_fmt", L"bgra", L"-threads", L"2", L"-filter_threads", L"1", L"-f",
                               L"rawvideo", L"pipe:1"});
    return words;
}

void checkAddress(std::wstring_view url, bool udp) {
    const bool usable = isUsable(url);
    expect(vextra::isUsableSourceUrl(url) == usable);

    const SecretText line = vextra::ffmpegCommandLine(
        kExecutable, {false, url, udp ? vextra::RtspTransport::kUdp : vextra::RtspTransport::kTcp});
    expect(vextra::test::splitArguments(line.view()) == meantArguments(url, udp));
    // A zero would end the line for the system.
    expect(!usable ||
           (line.size() <= kLongestCommandLine && line.view().find(L'\0') == std::wstring_view::npos));

    const vextra::SecretUtf8 utf8 = vextra::toUtf8Strict(url);
    const bool convertible =
        url.size() <= 8192 && url.find(L'\0') == std::wstring_view::npos && isWellFormed(url);
    expect(vextra::test::unitsOf(utf8.view()) == (convertible ? url : std::wstring_view()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    const auto nextText = [&] { return SecretText(vextra::test::unitsOf(vextra::test::takeLine(rest))); };
    vextra::BrokerSettings settings;
    settings.source = vextra::SourceKind::kDirectCamera;
    settings.stream = 2;
    settings.customUrl = nextText();
    settings.directIp = nextText();
    settings.directUser = nextText();
    settings.directPassword = nextText();

    expect(vextra::isValidIpv4(settings.directIp.view()) == isFourNumbers(settings.directIp.view()));
    checkDirectCamera(settings);
    checkAddress(settings.customUrl.view(), settings.directIp.empty());
    return 0;
}
