// One GET over HTTPS, step by step: certificates are checked by the system, and neither redirects nor cookies
// nor credentials leave this machine. One thread, which a call blocks until its step is done or its timeout
// over; resolving, connecting and the TLS handshake are together one step.
#pragma once

#include <windows.h>

#include <winhttp.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "base/secret.h"
#include "base/system_types.h"
#include "base/unique_win.h"
#include "update/transfer_profile.h"

namespace vextra {

using UniqueInternetHandle = Unique<HINTERNET, &WinHttpCloseHandle>;

// Every call that says false or nothing ends the transfer.
class HttpsTransfer {
public:
    // Splits the address and prepares the request; nothing is sent yet. `timeoutMs` is that of each of
    // resolve, connect, send and receive.
    bool open(const TransferProfile& profile, std::wstring_view url, std::uint32_t timeoutMs);
    bool send();
    // How long the head of the response may take as a whole. Not 0, which has a meaning of its own.
    bool setHeadTimeout(std::uint32_t timeoutMs);
    // The head of the response. True only for status 200.
    bool receiveHead();

    std::optional<std::wstring> contentType() const;  // of 255 units at most
    std::optional<std::uint64_t> contentLength() const;

    bool setReceiveTimeout(std::uint32_t timeoutMs);
    // What has arrived, as far as it has room; waits only while there is nothing. The number of bytes; 0 at
    // the end of the body.
    std::optional<std::size_t> read(std::span<std::byte> buffer);

    // Since just before the session was opened.
    Tick elapsedMs() const { return GetTickCount64() - startTick_; }

private:
    bool openSession(const TransferProfile& profile, std::uint32_t timeoutMs);
    bool openRequest(const TransferProfile& profile, const URL_COMPONENTS& parts);

    Tick startTick_ = 0;
    UniqueInternetHandle session_;  // closed after what was opened from it
    UniqueInternetHandle connection_;
    UniqueInternetHandle request_;
};

// The body of a small document, as bytes: 1 to 65,536 of them, received whole within the total timeout with
// status 200 and the type JSON. Nothing otherwise, without a reason; never tried again. Any thread; blocks
// for about the total timeout and one step at most, and for about one step once `cancel` is set.
std::optional<std::string> fetchJson(const SecretText& url, const TransferLimits& limits,
                                     const std::atomic<bool>& cancel);

}  // namespace vextra
