// What the system is asked for, call by call; nothing is sent.
#include "update/https_transfer_win.h"

#include <gtest/gtest.h>

#include <map>
#include <vector>

#include "import_swap_win.h"

namespace vextra {
namespace {

using test::ImportSwap;
using test::RefusedImport;

template <typename Function>
Function* realWinHttp(const char* name) {
    return reinterpret_cast<Function*>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"winhttp.dll"), name)));
}

struct Asked {
    std::wstring agent;
    DWORD access = 0, openFlags = 0;
    std::vector<int> timeouts;
    std::map<DWORD, DWORD> options;
    std::wstring host;
    INTERNET_PORT port = 0;
    std::wstring verb, object;
    bool referrer = false;
    std::vector<std::wstring> acceptTypes;
    DWORD requestFlags = 0;
    std::vector<HINTERNET> opened, closed;
};
Asked asked;

HINTERNET WINAPI noteOpen(LPCWSTR agent, DWORD access, LPCWSTR proxy, LPCWSTR bypass, DWORD flags) {
    asked.agent = agent;
    asked.access = access;
    asked.openFlags = flags;
    asked.opened.push_back(
        realWinHttp<decltype(noteOpen)>("WinHttpOpen")(agent, access, proxy, bypass, flags));
    return asked.opened.back();
}
BOOL WINAPI noteTimeouts(HINTERNET, int resolve, int connect, int send, int receive) {
    asked.timeouts = {resolve, connect, send, receive};
    return TRUE;
}
BOOL WINAPI noteOption(HINTERNET handle, DWORD option, LPVOID value, DWORD bytes) {
    asked.options[option] = *static_cast<DWORD*>(value);
    return realWinHttp<decltype(noteOption)>("WinHttpSetOption")(handle, option, value, bytes);
}
DWORD refusedOption = 0;
BOOL WINAPI refuseOneOption(HINTERNET handle, DWORD option, LPVOID value, DWORD bytes) {
    return option != refusedOption && noteOption(handle, option, value, bytes);
}
HINTERNET WINAPI noteConnect(HINTERNET session, LPCWSTR host, INTERNET_PORT port, DWORD reserved) {
    asked.host = host;
    asked.port = port;
    asked.opened.push_back(
        realWinHttp<decltype(noteConnect)>("WinHttpConnect")(session, host, port, reserved));
    return asked.opened.back();
}
HINTERNET WINAPI noteRequest(HINTERNET connection, LPCWSTR verb, LPCWSTR object, LPCWSTR version,
                             LPCWSTR referrer, LPCWSTR* acceptTypes, DWORD flags) {
    asked.verb = verb;
    asked.object = object;
    asked.referrer = version != nullptr || referrer != nullptr;
    for (LPCWSTR* type = acceptTypes; type != nullptr && *type != nullptr; ++type)
        asked.acceptTypes.emplace_back(*type);
    asked.requestFlags = flags;
    asked.opened.push_back(realWinHttp<decltype(noteRequest)>("WinHttpOpenRequest")(
        connection, verb, object, version, referrer, acceptTypes, flags));
    return asked.opened.back();
}
BOOL WINAPI noteClose(HINTERNET handle) {
    asked.closed.push_back(handle);
    return realWinHttp<decltype(noteClose)>("WinHttpCloseHandle")(handle);
}

class HttpsTransferCalls : public testing::Test {
protected:
    HttpsTransferCalls() { asked = {}; }

    // A transfer that is opened and given up.
    bool open(const TransferProfile& profile, std::wstring_view url, std::uint32_t timeoutMs = 1234) {
        HttpsTransfer transfer;
        return transfer.open(profile, url, timeoutMs);
    }

private:
    const ImportSwap<decltype(noteOpen)> open_{"WinHttpOpen", noteOpen};
    const ImportSwap<decltype(noteTimeouts)> timeouts_{"WinHttpSetTimeouts", noteTimeouts};
    const ImportSwap<decltype(noteOption)> option_{"WinHttpSetOption", noteOption};
    const ImportSwap<decltype(noteConnect)> connect_{"WinHttpConnect", noteConnect};
    const ImportSwap<decltype(noteRequest)> request_{"WinHttpOpenRequest", noteRequest};
    const ImportSwap<decltype(noteClose)> close_{"WinHttpCloseHandle", noteClose};
};

TEST_F(HttpsTransferCalls, AreForASynchronousSessionWithTheSystemsProxy) {
    EXPECT_TRUE(open(kJsonTransfer, L"https://h.example/x"));
    EXPECT_EQ(asked.agent, L"CameraVirtualVextraMF/0.2 beta");
    EXPECT_EQ(asked.access, DWORD{WINHTTP_ACCESS_TYPE_AUTOMATIC_PROXY});
    EXPECT_EQ(asked.openFlags, 0u);
    EXPECT_TRUE(open(kInstallerTransfer, L"https://h.example/x"));
    EXPECT_EQ(asked.agent, L"CameraVirtualVextraMF/" VEXTRA_VERSION_W);
}

TEST_F(HttpsTransferCalls, LimitEachOfTheFourSteps) {
    EXPECT_TRUE(open(kJsonTransfer, L"https://h.example/x", 777));
    EXPECT_EQ(asked.timeouts, std::vector<int>(4, 777));
}

TEST_F(HttpsTransferCalls, AllowTls12And13ForDocumentsAnd12ForInstallers) {
    EXPECT_TRUE(open(kJsonTransfer, L"https://h.example/x"));
    EXPECT_EQ(asked.options[WINHTTP_OPTION_SECURE_PROTOCOLS], 0x800u | 0x2000u);
    EXPECT_TRUE(open(kInstallerTransfer, L"https://h.example/x"));
    EXPECT_EQ(asked.options[WINHTTP_OPTION_SECURE_PROTOCOLS], 0x800u);
}

TEST_F(HttpsTransferCalls, TurnOffCookiesRedirectsAndCredentials) {
    for (const TransferProfile& profile : {kJsonTransfer, kInstallerTransfer}) {
        asked = {};
        EXPECT_TRUE(open(profile, L"https://h.example/x"));
        EXPECT_EQ(asked.options[WINHTTP_OPTION_DISABLE_FEATURE], 1u | 2u | 4u);
        EXPECT_EQ(asked.options[WINHTTP_OPTION_AUTOLOGON_POLICY],
                  DWORD{WINHTTP_AUTOLOGON_SECURITY_LEVEL_HIGH});
    }
}

TEST_F(HttpsTransferCalls, AskForTheObjectOfTheAddress) {
    const struct {
        const wchar_t* url;
        const wchar_t* host;
        INTERNET_PORT port;
        const wchar_t* object;
    } kCases[] = {{L"https://h.example", L"h.example", 443, L"/"},
                  {L"https://h.example/", L"h.example", 443, L"/"},
                  {L"https://h.example:8443/a/b", L"h.example", 8443, L"/a/b"},
                  {L"https://h.example/a?b=%2F&c", L"h.example", 443, L"/a?b=%2F&c"}};
    for (const auto& [url, host, port, object] : kCases) {
        EXPECT_TRUE(open(kJsonTransfer, url));
        EXPECT_EQ(asked.host, host);
        EXPECT_EQ(asked.port, port);
        EXPECT_EQ(asked.object, object);
        EXPECT_EQ(asked.verb, L"GET");
        EXPECT_FALSE(asked.referrer);
        EXPECT_EQ(asked.requestFlags, DWORD{WINHTTP_FLAG_SECURE});
    }
}

TEST_F(HttpsTransferCalls, NameATypeForDocumentsAlone) {
    EXPECT_TRUE(open(kJsonTransfer, L"https://h.example/x"));
    EXPECT_EQ(asked.acceptTypes, std::vector<std::wstring>{L"application/json"});
    asked = {};
    EXPECT_TRUE(open(kInstallerTransfer, L"https://h.example/x"));
    EXPECT_TRUE(asked.acceptTypes.empty());
}

TEST_F(HttpsTransferCalls, CloseTheRequestThenTheConnectionThenTheSession) {
    EXPECT_TRUE(open(kJsonTransfer, L"https://h.example/x"));
    ASSERT_EQ(asked.opened.size(), 3u);
    EXPECT_EQ(asked.closed, (std::vector<HINTERNET>{asked.opened[2], asked.opened[1], asked.opened[0]}));
}

// Above all, nothing is sent when a restriction does not take effect.
TEST_F(HttpsTransferCalls, EndAtTheFirstThatIsRefused) {
    const auto expectEnd = [&] { EXPECT_FALSE(open(kJsonTransfer, L"https://h.example/x")); };
    {
        const RefusedImport<decltype(WinHttpOpen)> refused("WinHttpOpen");
        expectEnd();
    }
    {
        const RefusedImport<decltype(WinHttpSetTimeouts)> refused("WinHttpSetTimeouts");
        expectEnd();
    }
    {
        const RefusedImport<decltype(WinHttpConnect)> refused("WinHttpConnect");
        expectEnd();
    }
    {
        const RefusedImport<decltype(WinHttpOpenRequest)> refused("WinHttpOpenRequest");
        expectEnd();
    }
    for (const DWORD option :
         {WINHTTP_OPTION_SECURE_PROTOCOLS, WINHTTP_OPTION_DISABLE_FEATURE, WINHTTP_OPTION_AUTOLOGON_POLICY}) {
        refusedOption = option;
        const ImportSwap<decltype(refuseOneOption)> refused("WinHttpSetOption", refuseOneOption);
        expectEnd();
    }
}

TEST_F(HttpsTransferCalls, AreNotMadeForAnythingButHttps) {
    for (const wchar_t* url : {L"http://h.example/x", L"ftp://h.example/x", L"h.example/x", L"", L"https"}) {
        EXPECT_FALSE(open(kJsonTransfer, url)) << std::wstring(url);
        EXPECT_FALSE(open(kInstallerTransfer, url)) << std::wstring(url);
    }
    EXPECT_TRUE(asked.opened.empty());
}

TEST_F(HttpsTransferCalls, AreNotMadeForDocumentsOfAUser) {
    for (const wchar_t* url : {L"https://u@h.example/x", L"https://u:p@h.example/x"})
        EXPECT_FALSE(open(kJsonTransfer, url)) << std::wstring(url);
    EXPECT_TRUE(asked.opened.empty());
}

}  // namespace
}  // namespace vextra
