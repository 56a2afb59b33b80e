#include "update/update_check.h"

#include <gtest/gtest.h>

#include <map>
#include <vector>

#include "manifest_text.h"

namespace vextra {
namespace {

using test::ManifestText;
using test::testChannel;

constexpr const char* kRunningVersion = "0.2.0-beta.5";  // of the broker that asks, whichever is built here
constexpr const char* kManifestUrl = "https://updates.example:8443/camera-virtual-vextra-mf/beta.json";

UpdateCheckRequest defaultRequest() {
    UpdateCheckRequest request = updateCheckRequest({}, testChannel());
    request.currentVersion = kRunningVersion;
    return request;
}

// A server that hands out documents, and a verifier that knows one signature.
class UpdateCheck : public testing::Test {
protected:
    void publish(const ManifestText& text, const std::string& signatureJson = R"({"signature":"good"})") {
        documents[kManifestUrl] = text.json();
        const auto manifest = parseUpdateManifest(text.json());
        if (manifest)
            documents[signatureDocumentUrl(*manifest)] = signatureJson;
    }
    UpdateCheckResult run() { return run(defaultRequest()); }
    UpdateCheckResult run(const UpdateCheckRequest& request) {
        return runUpdateCheck(
            request, testChannel(),
            {.fetchJson = [this](const SecretText& url,
                                 const TransferLimits& limits) { return fetch(url, limits); },
             .verifySignature =
                 [this](std::string_view message, std::string_view signature, const EcPoint& publicKey) {
                     EXPECT_EQ(publicKey, testChannel().publicKey);
                     messages.emplace_back(message);
                     return signature == "good";
                 }});
    }
    std::optional<std::string> fetch(const SecretText& url, const TransferLimits& limits) {
        fetched.emplace_back(url.view().begin(), url.view().end());
        timeouts.push_back({limits.operationTimeoutMs, limits.totalTimeoutMs});
        const auto found = documents.find(fetched.back());
        return found == documents.end() ? std::nullopt : std::optional(found->second);
    }
    void expectRefused(const wchar_t* message) {
        const UpdateCheckResult result = run();
        EXPECT_EQ(result.code, UpdateCode::kRefused);
        EXPECT_EQ(result.message, message);
        EXPECT_EQ(result.manifest.version, "");
    }
    UpdateCode codeWith(const UpdateCheckRequest& request) { return run(request).code; }

    std::map<std::string, std::string> documents;
    std::vector<std::string> fetched;
    std::vector<std::pair<std::uint32_t, std::uint32_t>> timeouts;
    std::vector<std::string> messages;
};

UpdateCheckRequest requestFor(std::wstring_view url) {
    UpdateCheckRequest request = defaultRequest();
    request.manifestUrl.assign(url);
    return request;
}
UpdateCheckRequest requestWithTimeouts(std::uint32_t operationMs, std::uint32_t totalMs) {
    UpdateCheckRequest request = defaultRequest();
    request.limits = {.operationTimeoutMs = operationMs, .totalTimeoutMs = totalMs};
    return request;
}

TEST_F(UpdateCheck, AsksTheChannelUnlessTheSettingsNameAnotherPlace) {
    const UpdateCheckRequest request = updateCheckRequest({}, testChannel());
    EXPECT_EQ(std::wstring(request.manifestUrl.view()),
              L"https://updates.example:8443/camera-virtual-vextra-mf/beta.json");
    EXPECT_EQ(request.currentVersion, VEXTRA_VERSION);
    EXPECT_EQ(request.limits.operationTimeoutMs, 3000u);
    EXPECT_EQ(request.limits.totalTimeoutMs, 15'000u);
    EXPECT_EQ(
        std::wstring(updateCheckRequest(SecretText(L"https://mirror/x"), testChannel()).manifestUrl.view()),
        L"https://mirror/x");
}

TEST_F(UpdateCheck, OffersANewerVersionWithItsVerifiedSignature) {
    publish(ManifestText::forVersion("0.2.1"));
    const UpdateCheckResult result = run();
    EXPECT_EQ(result.code, UpdateCode::kAvailable);
    EXPECT_EQ(result.message, L"Nova versão MF disponível. Abra Diagnóstico para baixar e instalar.");
    EXPECT_EQ(result.manifest.version, "0.2.1");
    EXPECT_EQ(result.manifest.signature, "good");
    UpdateManifest unsignedManifest = result.manifest;
    unsignedManifest.signature.clear();
    EXPECT_EQ(messages, std::vector{buildSignedMessage(unsignedManifest)});
}

TEST_F(UpdateCheck, FetchesTheManifestAndThenItsSignatureWithTheSameTimeouts) {
    publish(ManifestText::forVersion("0.2.1"));
    run(requestWithTimeouts(250, 30'000));
    EXPECT_EQ(
        fetched,
        (std::vector<std::string>{
            kManifestUrl, "https://updates.example:8443/camera-virtual-vextra-mf/0.2.1/Setup.exe.sig.json"}));
    EXPECT_EQ(timeouts, (std::vector<std::pair<std::uint32_t, std::uint32_t>>{{250, 30'000}, {250, 30'000}}));
}

TEST_F(UpdateCheck, ComparesWithTheRunningVersion) {
    using enum UpdateCode;
    const std::pair<const char*, UpdateCode> kCases[] = {
        {"0.2.0-beta.5", kUpToDate},   {"0.2.0-beta.4", kUpToDate},  {"0.1.9", kUpToDate},
        {"0.2.0-beta.5+9", kUpToDate}, {"0.2.0-beta.6", kAvailable}, {"0.2.0", kAvailable},
        {"0.3.0-alpha", kAvailable},   {"0.2.0-beta.10", kAvailable}};
    for (const auto& [version, code] : kCases) {
        publish(ManifestText::forVersion(version));
        const UpdateCheckResult result = run();
        EXPECT_EQ(result.code, code) << version;
        EXPECT_EQ(result.manifest.version, version);
        EXPECT_EQ(result.manifest.signature, "good");
        if (code == kUpToDate) {
            EXPECT_EQ(result.message, L"Nenhuma versão MF mais recente no canal configurado.");
        }
    }
}

TEST_F(UpdateCheck, SaysWhenThereIsNoAddress) {
    const UpdateCheckResult result = run(requestFor(L""));
    EXPECT_EQ(result.code, UpdateCode::kNotConfigured);
    EXPECT_EQ(result.message, L"Verificação MF não configurada para esta consulta.");
    EXPECT_TRUE(fetched.empty());
}

TEST_F(UpdateCheck, SendsNothingToAnAddressThatIsNotStrict) {
    for (const wchar_t* url : {L"http://updates.example/beta.json", L"https://updates.example/bét.json", L"x",
                               L"https://u:p@updates.example/beta.json", L"https://updates.example/#x"}) {
        const UpdateCheckResult result = run(requestFor(url));
        EXPECT_EQ(result.code, UpdateCode::kInvalidRequest);
        EXPECT_EQ(result.message, L"Configuração de atualização inválida: exige HTTPS e versão MF válida.");
    }
    EXPECT_TRUE(fetched.empty());
}

TEST_F(UpdateCheck, SendsNothingToAnAddressOfMoreThan8192Units) {
    std::wstring url = L"https://h/";
    url.resize(8193, L'a');
    EXPECT_EQ(codeWith(requestFor(url)), UpdateCode::kInvalidRequest);
    EXPECT_TRUE(fetched.empty());
    url.pop_back();
    EXPECT_EQ(codeWith(requestFor(url)), UpdateCode::kUnreachable);
}

TEST_F(UpdateCheck, SendsNothingForAVersionThatIsNone) {
    UpdateCheckRequest request = updateCheckRequest({}, testChannel());
    request.currentVersion = "0.2";
    EXPECT_EQ(codeWith(request), UpdateCode::kInvalidRequest);
    EXPECT_TRUE(fetched.empty());
}

TEST_F(UpdateCheck, HoldsTheTimeoutsToTheirRanges) {
    using enum UpdateCode;
    const struct {
        std::uint32_t operationMs, totalMs;
        UpdateCode code;
    } kCases[] = {{250, 250, kUnreachable},          {10'000, 10'000, kUnreachable},
                  {3000, 30'000, kUnreachable},      {249, 15'000, kInvalidRequest},
                  {10'001, 15'000, kInvalidRequest}, {3000, 30'001, kInvalidRequest},
                  {3000, 2999, kInvalidRequest},     {0, 0, kInvalidRequest}};
    for (const auto& [operationMs, totalMs, code] : kCases)
        EXPECT_EQ(codeWith(requestWithTimeouts(operationMs, totalMs)), code) << operationMs << ' ' << totalMs;
    EXPECT_EQ(fetched.size(), 3u);
}

TEST_F(UpdateCheck, SaysWhenTheManifestCannotBeFetched) {
    const UpdateCheckResult result = run();
    EXPECT_EQ(result.code, UpdateCode::kUnreachable);
    EXPECT_EQ(result.message, L"Não foi possível verificar a atualização MF com segurança.");
    EXPECT_EQ(fetched.size(), 1u);
}

TEST_F(UpdateCheck, RefusesAnInvalidManifestWithoutAskingForItsSignature) {
    ManifestText text = ManifestText::forVersion("0.2.1");
    text.moreInRoot = R"(,"x":1)";
    publish(text);
    expectRefused(L"Manifesto inválido para CameraVirtualVextraMF/beta.");
    EXPECT_EQ(fetched.size(), 1u);
}

TEST_F(UpdateCheck, RefusesAnInstallerOutsideTheChannelWithoutAskingForItsSignature) {
    ManifestText text = ManifestText::forVersion("0.2.1");
    text.url = "\"https://elsewhere.example/camera-virtual-vextra-mf/0.2.1/Setup.exe\"";
    publish(text);
    expectRefused(L"Instalador fora do canal MF oficial; atualização recusada.");
    EXPECT_EQ(fetched.size(), 1u);
}

// A setting moves the manifest alone.
TEST_F(UpdateCheck, HoldsAManifestFromElsewhereToTheSameChannel) {
    const std::string elsewhere = "https://elsewhere.example";
    publish(ManifestText::forVersion("0.2.1"));
    documents[elsewhere + "/a.json"] = ManifestText::forVersion("0.2.1").json();
    documents[elsewhere + "/b.json"] = ManifestText::forVersion("0.2.1", {elsewhere, {}}).json();
    EXPECT_EQ(codeWith(requestFor(L"https://elsewhere.example/a.json")), UpdateCode::kAvailable);
    EXPECT_EQ(codeWith(requestFor(L"https://elsewhere.example/b.json")), UpdateCode::kRefused);
}

TEST_F(UpdateCheck, RefusesWithoutASignatureDocument) {
    constexpr const wchar_t* kMissing = L"Assinatura da atualização indisponível; instalação não autorizada.";
    publish(ManifestText::forVersion("0.2.1"));
    const std::string manifest = documents[kManifestUrl];
    documents = {{kManifestUrl, manifest}};
    expectRefused(kMissing);
    for (const char* document : {"", "[]", "{}", R"({"signature":"good","key_id":"1"})",
                                 R"({"signature":true})", R"({"signature":"good"} x)", "\"good\""}) {
        publish(ManifestText::forVersion("0.2.1"), document);
        expectRefused(kMissing);
    }
    EXPECT_TRUE(messages.empty());
}

TEST_F(UpdateCheck, RefusesASignatureThatIsNoneOrDoesNotVerify) {
    for (const char* document : {R"({"signature":"bad"})", R"({"signature":1})", R"({"Signature":"good"})",
                                 R"({"signature":{}})", R"({"key_id":"good"})"}) {
        publish(ManifestText::forVersion("0.2.1"), document);
        expectRefused(L"Assinatura da atualização inválida; instalação recusada.");
    }
    EXPECT_EQ(messages.size(), 1u);
}

// Also of versions that would not be offered: the channel is judged as a whole.
TEST_F(UpdateCheck, VerifiesTheSignatureOfAnOldVersionToo) {
    publish(ManifestText::forVersion("0.1.0"), R"({"signature":"bad"})");
    EXPECT_EQ(run().code, UpdateCode::kRefused);
}

}  // namespace
}  // namespace vextra
