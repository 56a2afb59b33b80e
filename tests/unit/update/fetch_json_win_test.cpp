// Against a real server with a real authority: what the system's HTTPS does is part of what is tested.
#include "update/fetch_json.h"

#include <windows.h>

#include <winhttp.h>

#include <gtest/gtest.h>

#include "base/ascii.h"
#include "import_swap_win.h"
#include "update_server_win.h"

namespace vextra {
namespace {

using test::ImportSwap;
using test::realFunction;
using test::ServedFolder;
using test::UpdateServer;

const std::atomic<bool> never{false};
constexpr const char* kBody = "{ \"signature\": \"0f\" }";

class FetchJson : public testing::Test {
protected:
    void SetUp() override {
        VEXTRA_SKIP_WITHOUT_UPDATE_SERVER();
        server.emplace(*UpdateServer::find());
        folder.emplace(*server);
    }

    UpdateCheckRequest requestOf(const std::string& url) const {
        UpdateCheckRequest request;
        request.manifestUrl.assign(widenedAscii(url));
        return request;
    }
    std::string url(std::string_view kind = "good") const {
        return server->origin(kind) + folder->place() + "/document.json";
    }
    std::optional<std::string> fetch(std::string_view kind = "good") const {
        return fetchJson(requestOf(url(kind)), never);
    }
    std::optional<std::string> fetchWith(std::string_view reply, std::string_view body = kBody) const {
        folder->put("document.json", body, reply);
        return fetch();
    }

    std::optional<UpdateServer> server;
    std::optional<ServedFolder> folder;
};

TEST_F(FetchJson, GivesTheBodyAsItIs) {
    EXPECT_EQ(fetchWith(""), kBody);
    EXPECT_EQ(fetchWith("", "\xEF\xBB\xBF\xFF{}"), "\xEF\xBB\xBF\xFF{}");  // bytes, not text
}

TEST_F(FetchJson, IntroducesItselfAndSendsNothingMore) {
    fetchWith("");
    const std::string request = folder->requests("document.json");
    EXPECT_NE(request.find("\"line\": \"GET " + folder->place() + "/document.json HTTP/1.1\""),
              std::string::npos)
        << request;
    EXPECT_NE(request.find("\"User-Agent\": \"CameraVirtualVextraMF/0.2 beta\""), std::string::npos)
        << request;
    EXPECT_NE(request.find("\"Accept\": \"application/json\""), std::string::npos) << request;
    for (const char* header : {"Cookie", "Authorization", "Referer"})
        EXPECT_EQ(request.find(header), std::string::npos) << request;
}

TEST_F(FetchJson, SendsTheQueryUnchanged) {
    folder->put("document.json", kBody);
    EXPECT_EQ(fetchJson(requestOf(url() + "?a=b%2F&c"), never), kBody);
    EXPECT_NE(folder->requests("document.json").find("/document.json?a=b%2F&c HTTP/1.1"), std::string::npos);
}

TEST_F(FetchJson, SendsNoCookieBack) {
    fetchWith(R"({"headers":{"Set-Cookie":"a=b; Path=/"}})");
    EXPECT_EQ(fetch(), kBody);
    EXPECT_EQ(folder->requests("document.json").find("Cookie"), std::string::npos);
}

TEST_F(FetchJson, TakesStatus200Alone) {
    for (int status = 201; status < 600; ++status)
        EXPECT_EQ(fetchWith("{\"status\":" + std::to_string(status) + "}"), std::nullopt) << status;
    EXPECT_EQ(fetchWith("{\"status\":200}"), kBody);
}

TEST_F(FetchJson, FollowsNoRedirect) {
    folder->put("target.json", kBody);
    const std::string target = server->origin() + folder->place() + "/target.json";
    ASSERT_EQ(fetchJson(requestOf(target), never), kBody);
    const std::string asked = folder->requests("target.json");
    for (const int status : {301, 302, 303, 307, 308}) {
        EXPECT_EQ(fetchWith("{\"status\":" + std::to_string(status) + ",\"headers\":{\"Location\":\"" +
                            target + "\"}}"),
                  std::nullopt)
            << status;
    }
    EXPECT_EQ(folder->requests("target.json"), asked);
}

TEST_F(FetchJson, AnswersNoDemandForCredentials) {
    for (const char* scheme : {"Basic realm=\\\"x\\\"", "NTLM", "Negotiate"}) {
        EXPECT_EQ(
            fetchWith(std::string(R"({"status":401,"headers":{"WWW-Authenticate":")") + scheme + "\"}}"),
            std::nullopt);
    }
    EXPECT_EQ(folder->requests("document.json").find("Authorization"), std::string::npos);
}

TEST_F(FetchJson, TakesTheTypeJsonAlone) {
    for (const char* type : {"application/json", "APPLICATION/JSON  ; charset=utf-8", "application/json;x"})
        EXPECT_EQ(fetchWith(std::string(R"({"type":")") + type + "\"}"), kBody) << type;
    for (const char* type : {"text/plain", "application/json5", "text/html", "application/octet-stream"})
        EXPECT_EQ(fetchWith(std::string(R"({"type":")") + type + "\"}"), std::nullopt) << type;
    EXPECT_EQ(fetchWith(R"({"type":null})"), std::nullopt);
}

TEST_F(FetchJson, TakesATypeOf255UnitsAtMost) {
    const std::string head = "application/json;";
    EXPECT_EQ(fetchWith(R"({"type":")" + head + std::string(255 - head.size(), 'x') + "\"}"), kBody);
    EXPECT_EQ(fetchWith(R"({"type":")" + head + std::string(256 - head.size(), 'x') + "\"}"), std::nullopt);
}

TEST_F(FetchJson, Takes65536BytesAtMostAnnouncedOrNot) {
    const std::string largest(65'536, 'x');
    for (const char* reply : {"", R"({"length":"none"})"}) {
        EXPECT_TRUE(fetchWith(reply, largest) == largest) << reply;
        EXPECT_FALSE(fetchWith(reply, largest + 'x')) << reply;
    }
}

TEST_F(FetchJson, ReadsNothingOfABodyThatIsAnnouncedTooLarge) {
    EXPECT_EQ(fetchWith(R"({"length":65537})"), std::nullopt);
    EXPECT_EQ(fetchWith(R"({"length":99999999999})"), std::nullopt);
}

TEST_F(FetchJson, TakesNoEmptyBody) {
    EXPECT_EQ(fetchWith("", ""), std::nullopt);
    EXPECT_EQ(fetchWith(R"({"length":"none"})", ""), std::nullopt);
}

TEST_F(FetchJson, GivesUpAServerThatDrips) {
    folder->put("document.json", std::string(30, 'x'), R"({"drip":0.1,"length":"none"})");
    UpdateCheckRequest request = requestOf(url());
    request.operationTimeoutMs = 500;
    request.totalTimeoutMs = 1000;
    const Tick begin = GetTickCount64();
    EXPECT_EQ(fetchJson(request, never), std::nullopt);
    // Wine reads until its buffer is full and so learns late that the time is over; it must not succeed,
    // though.
    if (!runsUnderWine()) {
        EXPECT_LT(GetTickCount64() - begin, 2000u);
    }
}

TEST_F(FetchJson, GivesUpAServerThatStalls) {
    folder->put("document.json", std::string(5000, 'x'), R"({"stall":4500})");
    UpdateCheckRequest request = requestOf(url());
    request.operationTimeoutMs = 500;
    request.totalTimeoutMs = 5000;
    const Tick begin = GetTickCount64();
    EXPECT_EQ(fetchJson(request, never), std::nullopt);
    EXPECT_LT(GetTickCount64() - begin, 5000u);
}

// The clock of this program alone runs ahead, so that the order of the limits is seen without waiting.
Tick clockAhead = 0;
int clockCallsUntilAhead = 0;
ULONGLONG WINAPI tickAhead() {
    const ULONGLONG now = realFunction<ULONGLONG WINAPI()>("GetTickCount64")();
    return clockCallsUntilAhead-- > 0 ? now : now + clockAhead;
}

TEST_F(FetchJson, FailsWhenItsTimeIsOverAtAnyStep) {
    folder->put("document.json", kBody);
    const ImportSwap<ULONGLONG WINAPI()> clock("GetTickCount64", tickAhead);
    clockAhead = 15'000;
    // The clock is read at the start, after sending, before each read, and at the end of the body.
    for (const int calls : {1, 2, 3, 4}) {
        clockCallsUntilAhead = calls;
        EXPECT_EQ(fetch(), std::nullopt) << calls;
    }
    clockCallsUntilAhead = 5;
    EXPECT_EQ(fetch(), kBody);
    clockAhead = 14'000;
    clockCallsUntilAhead = 1;
    EXPECT_EQ(fetch(), kBody);
}

DWORD lastReceiveTimeoutMs = 0;

using SetOption = BOOL WINAPI(HINTERNET, DWORD, LPVOID, DWORD);
BOOL WINAPI noteReceiveTimeout(HINTERNET handle, DWORD option, LPVOID buffer, DWORD bytes) {
    if (option == WINHTTP_OPTION_RECEIVE_TIMEOUT)
        lastReceiveTimeoutMs = *static_cast<DWORD*>(buffer);
    const auto real = reinterpret_cast<SetOption*>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"winhttp.dll"), "WinHttpSetOption")));
    return real(handle, option, buffer, bytes);
}

TEST_F(FetchJson, WaitsForNoReadLongerThanItsTimeLasts) {
    folder->put("document.json", kBody);
    const ImportSwap<SetOption> options("WinHttpSetOption", noteReceiveTimeout);
    EXPECT_EQ(fetch(), kBody);
    EXPECT_EQ(lastReceiveTimeoutMs, 3000u);
    const ImportSwap<ULONGLONG WINAPI()> clock("GetTickCount64", tickAhead);
    clockAhead = 14'000;
    clockCallsUntilAhead = 1;
    EXPECT_EQ(fetch(), kBody);
    EXPECT_LE(lastReceiveTimeoutMs, 1000u);
    EXPECT_GT(lastReceiveTimeoutMs, 0u);
}

TEST_F(FetchJson, GivesUpAServerThatIsCutOff) {
    // Nothing of the body: an end without a body. In its middle: at best a beginning, which no reader takes.
    EXPECT_EQ(fetchWith(R"({"cut":0})"), std::nullopt);
    const std::string half = fetchWith(R"({"cut":10})").value_or("");
    EXPECT_FALSE(parseJsonDocument(half)) << half;
}

TEST_F(FetchJson, TrustsNoStrangersCertificate) {
    folder->put("document.json", kBody);
    for (const char* kind : {"untrusted", "expired", "wronghost"})
        EXPECT_EQ(fetch(kind), std::nullopt) << kind;
    EXPECT_EQ(folder->requests("document.json"), "");
    EXPECT_EQ(fetch("good"), kBody);
}

TEST_F(FetchJson, SpeaksNoOldTls) {
    folder->put("document.json", kBody);
    EXPECT_EQ(fetch("tls11"), std::nullopt);
    EXPECT_EQ(fetch("tls12"), kBody);
}

TEST_F(FetchJson, SpeaksTls13Too) {
    folder->put("document.json", kBody);
    if (runsUnderWine() && !fetch("tls13"))
        GTEST_SKIP() << "this Wine speaks no TLS 1.3";
    EXPECT_EQ(fetch("tls13"), kBody);
}

TEST_F(FetchJson, SpeaksToHttpsServersAlone) {
    folder->put("document.json", kBody);
    std::string plain = url();
    plain.erase(4, 1);
    EXPECT_EQ(fetchJson(requestOf(plain), never), std::nullopt);
    std::string user = url();
    user.insert(8, "u:p@");
    EXPECT_EQ(fetchJson(requestOf(user), never), std::nullopt);
    EXPECT_EQ(folder->requests("document.json"), "");
}

TEST_F(FetchJson, FailsWhereNobodyListens) {
    EXPECT_EQ(fetchJson(requestOf("https://localhost:1/document.json"), never), std::nullopt);
    EXPECT_EQ(fetchJson(requestOf("https://updates.vextra.invalid/document.json"), never), std::nullopt);
}

TEST_F(FetchJson, FetchesMissingFilesAsNothing) {
    EXPECT_EQ(fetch(), std::nullopt);
}

}  // namespace
}  // namespace vextra
