#include "update/https_transfer_win.h"

#include <algorithm>
#include <array>

#include "update/json_reader.h"

namespace vextra {
namespace {

constexpr std::size_t kMaxHeaderUnits = 256;  // its terminator included

DWORD protocolFlags(TlsVersions versions) {
    return versions == TlsVersions::k12Only
               ? WINHTTP_FLAG_SECURE_PROTOCOL_TLS1_2
               : WINHTTP_FLAG_SECURE_PROTOCOL_TLS1_2 | WINHTTP_FLAG_SECURE_PROTOCOL_TLS1_3;
}

bool setOption(const UniqueInternetHandle& handle, DWORD option, DWORD value) {
    return WinHttpSetOption(handle.get(), option, &value, sizeof value) != FALSE;
}

std::optional<std::wstring> textHeader(const UniqueInternetHandle& request, DWORD header) {
    wchar_t text[kMaxHeaderUnits];
    DWORD bytes = sizeof text;
    if (!WinHttpQueryHeaders(request.get(), header, WINHTTP_HEADER_NAME_BY_INDEX, text, &bytes,
                             WINHTTP_NO_HEADER_INDEX))
        return std::nullopt;
    return std::wstring(text, bytes / sizeof(wchar_t));
}

std::optional<DWORD> statusCode(const UniqueInternetHandle& request) {
    DWORD value = 0;
    DWORD bytes = sizeof value;
    if (!WinHttpQueryHeaders(request.get(), WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER,
                             WINHTTP_HEADER_NAME_BY_INDEX, &value, &bytes, WINHTTP_NO_HEADER_INDEX))
        return std::nullopt;
    return value;
}

bool isAllowed(const URL_COMPONENTS& parts, AddressCheck check) {
    return parts.nScheme == INTERNET_SCHEME_HTTPS &&
           (check == AddressCheck::kSchemeOnly ||
            (parts.dwHostNameLength != 0 && parts.dwUserNameLength == 0 && parts.dwPasswordLength == 0));
}

// The path and the query as they stand; the query may hold a token of the user's server.
SecretText objectName(const URL_COMPONENTS& parts) {
    SecretText name;
    name.append({parts.lpszUrlPath, parts.dwUrlPathLength});
    if (name.empty())
        name.append(L'/');
    name.append({parts.lpszExtraInfo, parts.dwExtraInfoLength});
    return name;
}

}  // namespace

bool HttpsTransfer::open(const TransferProfile& profile, std::wstring_view url, std::uint32_t timeoutMs) {
    constexpr DWORD kWanted = static_cast<DWORD>(-1);  // a pointer into the address and its length
    URL_COMPONENTS parts{};
    parts.dwStructSize = sizeof parts;
    parts.dwSchemeLength = kWanted;
    parts.dwHostNameLength = kWanted;
    parts.dwUserNameLength = kWanted;
    parts.dwPasswordLength = kWanted;
    parts.dwUrlPathLength = kWanted;
    parts.dwExtraInfoLength = kWanted;
    // A length of 0 would mean: up to the terminator.
    return !url.empty() && WinHttpCrackUrl(url.data(), static_cast<DWORD>(url.size()), 0, &parts) &&
           isAllowed(parts, profile.addressCheck) && openSession(profile, timeoutMs) &&
           openRequest(profile, parts);
}

bool HttpsTransfer::openSession(const TransferProfile& profile, std::uint32_t timeoutMs) {
    startTick_ = GetTickCount64();
    session_.reset(WinHttpOpen(profile.userAgent, WINHTTP_ACCESS_TYPE_AUTOMATIC_PROXY, WINHTTP_NO_PROXY_NAME,
                               WINHTTP_NO_PROXY_BYPASS, 0));
    const int timeout = static_cast<int>(timeoutMs);
    return session_ && WinHttpSetTimeouts(session_.get(), timeout, timeout, timeout, timeout) &&
           setOption(session_, WINHTTP_OPTION_SECURE_PROTOCOLS, protocolFlags(profile.tls));
}

bool HttpsTransfer::openRequest(const TransferProfile& profile, const URL_COMPONENTS& parts) {
    const std::wstring host(parts.lpszHostName, parts.dwHostNameLength);
    connection_.reset(WinHttpConnect(session_.get(), host.c_str(), parts.nPort, 0));
    if (!connection_)
        return false;
    const wchar_t* acceptTypes[] = {profile.acceptType, nullptr};
    request_.reset(WinHttpOpenRequest(
        connection_.get(), L"GET", objectName(parts).c_str(), nullptr, WINHTTP_NO_REFERER,
        profile.acceptType != nullptr ? acceptTypes : WINHTTP_DEFAULT_ACCEPT_TYPES, WINHTTP_FLAG_SECURE));
    return request_ &&
           setOption(request_, WINHTTP_OPTION_DISABLE_FEATURE,
                     WINHTTP_DISABLE_COOKIES | WINHTTP_DISABLE_REDIRECTS | WINHTTP_DISABLE_AUTHENTICATION) &&
           setOption(request_, WINHTTP_OPTION_AUTOLOGON_POLICY, WINHTTP_AUTOLOGON_SECURITY_LEVEL_HIGH);
}

bool HttpsTransfer::send() {
    return WinHttpSendRequest(request_.get(), WINHTTP_NO_ADDITIONAL_HEADERS, 0, WINHTTP_NO_REQUEST_DATA, 0, 0,
                              0) != FALSE;
}

bool HttpsTransfer::setHeadTimeout(std::uint32_t timeoutMs) {
    return setOption(request_, WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT, timeoutMs);
}

bool HttpsTransfer::receiveHead() {
    return WinHttpReceiveResponse(request_.get(), nullptr) && statusCode(request_) == HTTP_STATUS_OK;
}

std::optional<std::wstring> HttpsTransfer::contentType() const {
    return textHeader(request_, WINHTTP_QUERY_CONTENT_TYPE);
}

// As text: read by the system, a number has 32 bits.
std::optional<std::uint64_t> HttpsTransfer::contentLength() const {
    const std::optional<std::wstring> text = textHeader(request_, WINHTTP_QUERY_CONTENT_LENGTH);
    return text ? contentLengthFrom(*text) : std::nullopt;
}

bool HttpsTransfer::setReceiveTimeout(std::uint32_t timeoutMs) {
    return setOption(request_, WINHTTP_OPTION_RECEIVE_TIMEOUT, timeoutMs);
}

// WinHttpReadData returns when the whole buffer is full, and its timeout begins anew with everything that
// arrives: a server that drips would hold it for hours.
std::optional<std::size_t> HttpsTransfer::read(std::span<std::byte> buffer) {
    DWORD available = 0;
    if (!WinHttpQueryDataAvailable(request_.get(), &available))
        return std::nullopt;
    const DWORD wanted = std::min(available, static_cast<DWORD>(buffer.size()));
    DWORD taken = 0;
    if (wanted != 0 && !WinHttpReadData(request_.get(), buffer.data(), wanted, &taken))
        return std::nullopt;
    return taken;
}

// --- Documents ---

namespace {

bool isJsonOfAllowedSize(const HttpsTransfer& transfer) {
    const auto type = transfer.contentType();
    return type && isJsonContentType(*type) && transfer.contentLength().value_or(0) <= kMaxJsonDocumentBytes;
}

// The time that a document may take: a server that sends a byte now and then keeps every single step within
// its timeout.
class Budget {
public:
    Budget(const HttpsTransfer& transfer, std::uint32_t totalMs, const std::atomic<bool>& cancel)
        : transfer_(transfer), totalMs_(totalMs), cancel_(cancel) {}

    // 0: it is over, or the broker ends.
    std::uint32_t leftMs() const {
        const Tick elapsed = transfer_.elapsedMs();
        return cancel_ || elapsed >= totalMs_ ? 0 : static_cast<std::uint32_t>(totalMs_ - elapsed);
    }

private:
    const HttpsTransfer& transfer_;
    const std::uint32_t totalMs_;
    const std::atomic<bool>& cancel_;
};

bool receiveHead(HttpsTransfer& transfer, const Budget& budget) {
    const std::uint32_t left = budget.leftMs();
    return left != 0 && transfer.setHeadTimeout(left) && transfer.receiveHead();
}

// The system takes a connection that breaks off for the end of the body.
bool isWhole(const std::string& body, const HttpsTransfer& transfer) {
    return !body.empty() && body.size() == transfer.contentLength().value_or(body.size());
}

// A length that was announced is no promise: what comes is counted.
std::optional<std::string> readBody(HttpsTransfer& transfer, const Budget& budget,
                                    std::uint32_t operationTimeoutMs) {
    std::string body;
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): what is read fills it
    std::array<std::byte, kJsonReadBytes> piece;
    while (const std::uint32_t left = budget.leftMs()) {
        if (!transfer.setReceiveTimeout(std::min(left, operationTimeoutMs)))
            return std::nullopt;
        const std::optional<std::size_t> bytes = transfer.read(piece);
        if (!bytes)
            return std::nullopt;
        if (*bytes == 0)
            return isWhole(body, transfer) && budget.leftMs() != 0 ? std::optional(body) : std::nullopt;
        if (*bytes > kMaxJsonDocumentBytes - body.size())
            return std::nullopt;
        body.append(reinterpret_cast<const char*>(piece.data()), *bytes);
    }
    return std::nullopt;
}

}  // namespace

std::optional<std::string> fetchJson(const SecretText& url, const TransferLimits& limits,
                                     const std::atomic<bool>& cancel) {
    HttpsTransfer transfer;
    const Budget budget(transfer, limits.totalTimeoutMs, cancel);
    if (cancel || !transfer.open(kJsonTransfer, url.view(), limits.operationTimeoutMs) || !transfer.send() ||
        !receiveHead(transfer, budget) || !isJsonOfAllowedSize(transfer))
        return std::nullopt;
    return readBody(transfer, budget, limits.operationTimeoutMs);
}

}  // namespace vextra
