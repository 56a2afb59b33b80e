#include "config/source_url.h"

#include <cstdint>

#include "base/text.h"

namespace vextra {
namespace {

bool isKnownScheme(std::wstring_view scheme) {
    for (const std::wstring_view known : {L"http", L"https", L"rtsp", L"rtsps"}) {
        if (equalsIgnoringAsciiCase(scheme, known))
            return true;
    }
    return false;
}

bool isUsablePort(std::wstring_view port) {
    if (port.empty() || port.size() > 5)
        return false;
    std::uint32_t value = 0;
    for (const wchar_t unit : port) {
        if (!isAsciiDigit(unit))
            return false;
        value = value * 10 + static_cast<std::uint32_t>(unit - L'0');
    }
    return value >= 1 && value <= 65'535;
}

bool isUsableHostAndPort(std::wstring_view hostAndPort) {
    if (hostAndPort.empty())
        return false;
    if (hostAndPort.front() == L'[')  // an IPv6 literal; what follows its bracket is left to the decoder
        return hostAndPort.find(L']', 2) != std::wstring_view::npos;
    const std::size_t colon = hostAndPort.find(L':');
    if (colon == std::wstring_view::npos)
        return true;
    return colon > 0 && isUsablePort(hostAndPort.substr(colon + 1));
}

SecretText directCameraUrl(const BrokerSettings& settings) {
    SecretText url;
    if (!isValidIpv4(settings.directIp.view()))
        return url;
    url.append(L"rtsp://");
    if (!settings.directUser.empty()) {
        url.append(percentEncode(settings.directUser.view()).view());
        url.append(L':');  // also in front of an empty password
        url.append(percentEncode(settings.directPassword.view()).view());
        url.append(L'@');
    }
    url.append(settings.directIp.view());
    url.append(L":554/stream");
    url.append(static_cast<wchar_t>(L'0' + settings.stream));
    return url;
}

}  // namespace

bool isValidIpv4(std::wstring_view text) {
    if (text.empty() || text.size() > 15)
        return false;
    int dots = 0;
    int digits = 0;
    int value = 0;
    for (const wchar_t unit : text) {
        if (unit == L'.') {
            if (digits == 0 || value > 255)
                return false;
            ++dots;
            digits = 0;
            value = 0;
        } else {
            if (!isAsciiDigit(unit) || ++digits > 3)
                return false;
            value = value * 10 + (unit - L'0');
        }
    }
    return dots == 3 && digits > 0 && value <= 255;
}

bool isUsableSourceUrl(std::wstring_view url) {
    if (url.empty() || url.size() > kMaxUrlUnits)
        return false;
    for (const wchar_t unit : url) {
        if (unit <= 32 || unit == 127 || unit == L'\\' || unit == L'"')
            return false;
    }
    const std::size_t schemeEnd = url.find(L"://");
    if (schemeEnd == std::wstring_view::npos || !isKnownScheme(url.substr(0, schemeEnd)))
        return false;
    std::wstring_view authority = url.substr(schemeEnd + 3);
    authority = authority.substr(0, authority.find_first_of(L"/?#"));
    const std::size_t at = authority.rfind(L'@');
    return isUsableHostAndPort(at == std::wstring_view::npos ? authority : authority.substr(at + 1));
}

SecretText sourceUrl(const BrokerSettings& settings) {
    switch (settings.source) {
        case SourceKind::kInternalProfile: return settings.profileUrl;
        case SourceKind::kDirectCamera: return directCameraUrl(settings);
        case SourceKind::kCustomUrl: return settings.customUrl;
        case SourceKind::kSyntheticTest: break;
    }
    return {};
}

SecretText percentEncode(std::wstring_view text) {
    SecretUtf8 bytes;
    if (!appendUtf8(text, bytes))
        return {};
    constexpr std::string_view kUnreservedMarks = "-._~";
    constexpr wchar_t kHexDigits[] = L"0123456789ABCDEF";
    SecretText encoded;
    encoded.reserve(bytes.size() * 3);
    for (const char byte : bytes.view()) {
        const auto value = static_cast<unsigned char>(byte);
        if (isAsciiLetter(value) || isAsciiDigit(value) ||
            kUnreservedMarks.find(byte) != std::string_view::npos) {
            encoded.append(static_cast<wchar_t>(value));
        } else {
            encoded.append(L'%');
            encoded.append(kHexDigits[value >> 4]);
            encoded.append(kHexDigits[value & 15]);
        }
    }
    return encoded;
}

}  // namespace vextra
