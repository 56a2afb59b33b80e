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
        if (*bytes > kMaxJsonBodyBytes - body.size())
            return std::nullopt;
        body.append(reinterpret_cast<const char*>(piece.data()), *bytes);
    }
    return std::nullopt;
}

}  // namespace

std::optional<std::string> fetchJson(const UpdateCheckRequest& request, const std::atomic<bool>& cancel) {
    HttpsTransfer transfer;
    const Budget budget(transfer, request.totalTimeoutMs, cancel);
    if (cancel || !transfer.open(kJsonTransfer, request.manifestUrl.view(), request.operationTimeoutMs) ||
        !transfer.send() || !receiveHead(transfer, budget) || !isJsonOfAllowedSize(transfer))
        return std::nullopt;
    return readBody(transfer, budget, request.operationTimeoutMs);
}

}  // namespace vextra
