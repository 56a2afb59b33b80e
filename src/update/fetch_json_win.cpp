#include <windows.h>

#include <algorithm>
#include <array>

#include "update/fetch_json.h"
#include "update/https_transfer_win.h"

namespace vextra {
namespace {

bool isJsonOfAllowedSize(const HttpsTransfer& transfer) {
    const auto type = transfer.contentType();
    return type && isJsonContentType(*type) && transfer.contentLength().value_or(0) <= kMaxJsonBodyBytes;
}

// A length that was announced is no promise: what comes is counted. So is the time, for a server that sends a
// byte now and then keeps every single read within its timeout.
std::optional<std::string> readBody(HttpsTransfer& transfer, const UpdateCheckRequest& request) {
    std::string body;
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): what is read fills it
    std::array<std::byte, kJsonReadBytes> piece;
    for (Tick elapsed = transfer.elapsedMs(); elapsed < request.totalTimeoutMs;
         elapsed = transfer.elapsedMs()) {
        const auto left = static_cast<std::uint32_t>(request.totalTimeoutMs - elapsed);
        if (!transfer.setReceiveTimeout(std::min(left, request.operationTimeoutMs)))
            return std::nullopt;
        const std::optional<std::size_t> bytes = transfer.read(piece);
        if (!bytes)
            return std::nullopt;
        if (*bytes == 0)
            return !body.empty() && transfer.elapsedMs() < request.totalTimeoutMs ? std::optional(body)
                                                                                  : std::nullopt;
        if (*bytes > kMaxJsonBodyBytes - body.size())
            return std::nullopt;
        body.append(reinterpret_cast<const char*>(piece.data()), *bytes);
    }
    return std::nullopt;
}

}  // namespace

std::optional<std::string> fetchJson(const UpdateCheckRequest& request) {
    HttpsTransfer transfer;
    if (!transfer.open(kJsonTransfer, request.manifestUrl.view(), request.operationTimeoutMs) ||
        !transfer.send() || transfer.elapsedMs() >= request.totalTimeoutMs || !transfer.receiveHead() ||
        !isJsonOfAllowedSize(transfer))
        return std::nullopt;
    return readBody(transfer, request);
}

}  // namespace vextra
