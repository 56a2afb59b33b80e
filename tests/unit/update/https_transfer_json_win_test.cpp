// Against a real server with a real authority: what the system's HTTPS does is part of what is tested.
#include "update/https_transfer_win.h"

#include <windows.h>

#include <winhttp.h>

#include <gtest/gtest.h>

#include <map>

#include "base/text.h"
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

template <typename Function>
Function* realWinHttp(const char* name) {
    return reinterpret_cast<Function*>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"winhttp.dll"), name)));
}

class FetchJson : public testing::Test {
protected:
    void SetUp() override {
        VEXTRA_SKIP_WITHOUT_UPDATE_SERVER();
        server.emplace(*UpdateServer::find());
        folder.emplace(*server);
    }

    std::string url(std::string_view kind = "good") const {
        return server->origin(kind) + folder->place() + "/document.json";
    }
    static std::optional<std::string> fetchFrom(const std::string& url,
                                                const TransferLimits& limits = kJsonLimits,
                                                const std::atomic<bool>& cancel = never) {
        return fetchJson(SecretText(widenedAscii(url)), limits, cancel);
    }
    std::optional<std::string> fetch(std::string_view kind = "good") const { return fetchFrom(url(kind)); }
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
    EXPECT_EQ(fetchFrom(url() + "?a=b%2F&c"), kBody);
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
    ASSERT_EQ(fetchFrom(target), kBody);
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

int bodyCalls = 0;
using QueryDataAvailable = BOOL WINAPI(HINTERNET, LPDWORD);
BOOL WINAPI countBodyCalls(HINTERNET request, LPDWORD available) {
    ++bodyCalls;
    return realWinHttp<QueryDataAvailable>("WinHttpQueryDataAvailable")(request, available);
}

// Also when its length is that of a small one, but for the bits that 32 do not hold.
TEST_F(FetchJson, ReadsNothingOfABodyThatIsAnnouncedTooLarge) {
    const ImportSwap<QueryDataAvailable> swap("WinHttpQueryDataAvailable", countBodyCalls);
    bodyCalls = 0;
    const std::uint64_t wrapped = (std::uint64_t{1} << 32) + std::string_view(kBody).size();
    for (const std::uint64_t length : {std::uint64_t{65'537}, wrapped, std::uint64_t{99'999'999'999}})
        EXPECT_EQ(fetchWith("{\"length\":" + std::to_string(length) + "}"), std::nullopt) << length;
    EXPECT_EQ(bodyCalls, 0);
    EXPECT_EQ(fetchWith(""), kBody);
    EXPECT_GT(bodyCalls, 0);
}

TEST_F(FetchJson, TakesNoEmptyBody) {
    EXPECT_EQ(fetchWith("", ""), std::nullopt);
    EXPECT_EQ(fetchWith(R"({"length":"none"})", ""), std::nullopt);
}

TEST_F(FetchJson, GivesUpAServerThatDrips) {
    folder->put("document.json", std::string(30, 'x'), R"({"drip":0.1,"length":"none"})");
    const Tick begin = GetTickCount64();
    EXPECT_EQ(fetchFrom(url(), {.operationTimeoutMs = 500, .totalTimeoutMs = 1000}), std::nullopt);
    EXPECT_LT(GetTickCount64() - begin, 2000u);
}

TEST_F(FetchJson, GivesUpAServerThatStalls) {
    folder->put("document.json", std::string(5000, 'x'), R"({"stall":4500})");
    const Tick begin = GetTickCount64();
    EXPECT_EQ(fetchFrom(url(), {.operationTimeoutMs = 500, .totalTimeoutMs = 5000}), std::nullopt);
    EXPECT_LT(GetTickCount64() - begin, 5000u);
}

// --- What comes between two steps ---

// At the end of one step the clock of this program jumps, or the broker ends; what is called from then on is
// counted.
enum class Step { kNone = 1, kSend, kHead, kPiece, kEndOfBody };
Step eventfulStep = Step::kNone;
Tick clockJumpMs = 0;
std::atomic<bool> brokerEnds{false};
bool happened = false;
int callsAfterwards = 0;

template <typename Function>
Function* passOn(const char* name) {
    callsAfterwards += happened ? 1 : 0;
    return realWinHttp<Function>(name);
}
void atEndOf(Step step) {
    if (step != eventfulStep)
        return;
    happened = true;
    brokerEnds = clockJumpMs == 0;
}
BOOL WINAPI sendEventfully(HINTERNET request, LPCWSTR headers, DWORD headersLength, LPVOID optional,
                           DWORD optionalLength, DWORD totalLength, DWORD_PTR context) {
    const BOOL sent = passOn<decltype(sendEventfully)>("WinHttpSendRequest")(
        request, headers, headersLength, optional, optionalLength, totalLength, context);
    atEndOf(Step::kSend);
    return sent;
}
BOOL WINAPI receiveEventfully(HINTERNET request, LPVOID reserved) {
    const BOOL received = passOn<decltype(receiveEventfully)>("WinHttpReceiveResponse")(request, reserved);
    atEndOf(Step::kHead);
    return received;
}
BOOL WINAPI askEventfully(HINTERNET request, LPDWORD available) {
    const BOOL known = passOn<decltype(askEventfully)>("WinHttpQueryDataAvailable")(request, available);
    if (*available == 0)
        atEndOf(Step::kEndOfBody);
    return known;
}
BOOL WINAPI readEventfully(HINTERNET request, LPVOID buffer, DWORD bytes, LPDWORD taken) {
    const BOOL read = passOn<decltype(readEventfully)>("WinHttpReadData")(request, buffer, bytes, taken);
    atEndOf(Step::kPiece);
    return read;
}
ULONGLONG WINAPI jumpingClock() {
    const ULONGLONG now = realFunction<ULONGLONG WINAPI()>("GetTickCount64")();
    return happened ? now + clockJumpMs : now;
}

class EventfulFetch : public FetchJson {
protected:
    // A jump of nothing: the broker ends instead.
    std::optional<std::string> fetchWithEventAt(Step step, Tick jumpMs) {
        folder->put("document.json", kBody);
        eventfulStep = step;
        clockJumpMs = jumpMs;
        happened = false;
        brokerEnds = false;
        callsAfterwards = 0;
        const std::optional<std::string> body = fetchFrom(url(), kJsonLimits, brokerEnds);
        EXPECT_TRUE(happened);
        return body;
    }

    static constexpr Step kSteps[] = {Step::kSend, Step::kHead, Step::kPiece, Step::kEndOfBody};
    const ImportSwap<ULONGLONG WINAPI()> clock_{"GetTickCount64", jumpingClock};
    const ImportSwap<decltype(sendEventfully)> send_{"WinHttpSendRequest", sendEventfully};
    const ImportSwap<decltype(receiveEventfully)> receive_{"WinHttpReceiveResponse", receiveEventfully};
    const ImportSwap<decltype(askEventfully)> ask_{"WinHttpQueryDataAvailable", askEventfully};
    const ImportSwap<decltype(readEventfully)> read_{"WinHttpReadData", readEventfully};
};

TEST_F(EventfulFetch, EndsAfterTheStepInWhichItsTimeIsOver) {
    for (const Step step : kSteps) {
        EXPECT_EQ(fetchWithEventAt(step, 15'000), std::nullopt) << static_cast<int>(step);
        EXPECT_EQ(callsAfterwards, 0) << static_cast<int>(step);
    }
}

TEST_F(EventfulFetch, EndsAfterTheStepInWhichTheBrokerEnds) {
    for (const Step step : kSteps) {
        EXPECT_EQ(fetchWithEventAt(step, 0), std::nullopt) << static_cast<int>(step);
        EXPECT_EQ(callsAfterwards, 0) << static_cast<int>(step);
    }
}

TEST_F(EventfulFetch, GoesOnWhileThereIsTime) {
    for (const Step step : kSteps)
        EXPECT_EQ(fetchWithEventAt(step, 14'000), kBody) << static_cast<int>(step);
}

TEST_F(FetchJson, SendsNothingOnceTheBrokerEnds) {
    folder->put("document.json", kBody);
    const std::atomic<bool> cancelled{true};
    EXPECT_EQ(fetchFrom(url(), kJsonLimits, cancelled), std::nullopt);
    EXPECT_EQ(folder->requests("document.json"), "");
}

// --- How long a step may take ---

std::map<DWORD, DWORD> lastOption;

using SetOption = BOOL WINAPI(HINTERNET, DWORD, LPVOID, DWORD);
BOOL WINAPI noteOption(HINTERNET handle, DWORD option, LPVOID buffer, DWORD bytes) {
    lastOption[option] = *static_cast<DWORD*>(buffer);
    return realWinHttp<SetOption>("WinHttpSetOption")(handle, option, buffer, bytes);
}

TEST_F(EventfulFetch, WaitsForNoReadLongerThanItsTimeLasts) {
    const ImportSwap<SetOption> options("WinHttpSetOption", noteOption);
    EXPECT_EQ(fetchWithEventAt(Step::kHead, 1), kBody);
    EXPECT_EQ(lastOption[WINHTTP_OPTION_RECEIVE_TIMEOUT], 3000u);
    EXPECT_EQ(fetchWithEventAt(Step::kHead, 14'000), kBody);
    EXPECT_LE(lastOption[WINHTTP_OPTION_RECEIVE_TIMEOUT], 1000u);
    EXPECT_GT(lastOption[WINHTTP_OPTION_RECEIVE_TIMEOUT], 0u);
}

TEST_F(EventfulFetch, WaitsForNoHeadLongerThanItsTimeLasts) {
    const ImportSwap<SetOption> options("WinHttpSetOption", noteOption);
    EXPECT_EQ(fetchWithEventAt(Step::kSend, 1), kBody);
    EXPECT_GT(lastOption[WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT], 10'000u);
    EXPECT_LT(lastOption[WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT], 15'000u);
    EXPECT_EQ(fetchWithEventAt(Step::kSend, 14'000), kBody);
    EXPECT_LE(lastOption[WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT], 1000u);
    EXPECT_GT(lastOption[WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT], 0u);
}

DWORD refusedOption = 0;
BOOL WINAPI refuseOneOption(HINTERNET handle, DWORD option, LPVOID buffer, DWORD bytes) {
    return option != refusedOption &&
           realWinHttp<SetOption>("WinHttpSetOption")(handle, option, buffer, bytes);
}

TEST_F(FetchJson, WaitsForNothingWithoutALimit) {
    folder->put("document.json", kBody);
    const ImportSwap<SetOption> options("WinHttpSetOption", refuseOneOption);
    for (const DWORD option : {WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT, WINHTTP_OPTION_RECEIVE_TIMEOUT}) {
        refusedOption = option;
        EXPECT_EQ(fetch(), std::nullopt) << option;
    }
    refusedOption = 0;
    EXPECT_EQ(fetch(), kBody);
}

// --- Servers that are not what they should be ---

TEST_F(FetchJson, GivesUpAServerThatIsCutOff) {
    EXPECT_EQ(fetchWith(R"({"cut":0})"), std::nullopt);
    EXPECT_EQ(fetchWith(R"({"cut":10})"), std::nullopt);
}

TEST_F(FetchJson, TakesNoBodyThatIsShorterThanAnnounced) {
    const std::size_t size = std::string_view(kBody).size();
    EXPECT_EQ(fetchWith("{\"length\":" + std::to_string(size + 1) + "}"), std::nullopt);
    EXPECT_EQ(fetchWith("{\"length\":" + std::to_string(size) + "}"), kBody);
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
    EXPECT_EQ(fetchFrom(plain), std::nullopt);
    std::string user = url();
    user.insert(8, "u:p@");
    EXPECT_EQ(fetchFrom(user), std::nullopt);
    EXPECT_EQ(folder->requests("document.json"), "");
}

TEST_F(FetchJson, FailsWhereNobodyListens) {
    EXPECT_EQ(fetchFrom("https://localhost:1/document.json"), std::nullopt);
    EXPECT_EQ(fetchFrom("https://updates.vextra.invalid/document.json"), std::nullopt);
}

TEST_F(FetchJson, FetchesMissingFilesAsNothing) {
    EXPECT_EQ(fetch(), std::nullopt);
}

}  // namespace
}  // namespace vextra
