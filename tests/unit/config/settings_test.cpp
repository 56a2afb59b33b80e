#include "config/settings.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace vextra {
namespace {

constexpr wchar_t kOutOfRange[] = L"Parâmetros fora do intervalo permitido.";
constexpr wchar_t kNoIpv4[] = L"Informe um IPv4 válido: quatro números entre 0 e 255.";
constexpr wchar_t kNoProfile[] =
    L"Perfil interno ausente. Use URL personalizada ou provisione o perfil privado.";
constexpr wchar_t kNoUrl[] = L"Informe uma URL http, https, rtsp ou rtsps completa, sem espaços.";
constexpr wchar_t kLongCredentials[] = L"Credenciais muito longas.";
constexpr wchar_t kNoHttps[] = L"Manifesto MF deve usar HTTPS.";
constexpr wchar_t kAccepted[] = L"";

std::wstring messageFor(const BrokerSettings& settings) {
    return std::wstring(validateSettings(settings));
}

// A record that passes whatever the other fields say, so that a test changes the one field it is about.
BrokerSettings synthetic() {
    BrokerSettings settings;
    settings.source = SourceKind::kSyntheticTest;
    return settings;
}

BrokerSettings direct(std::wstring_view ip) {
    BrokerSettings settings;
    settings.source = SourceKind::kDirectCamera;
    settings.directIp.assign(ip);
    return settings;
}

BrokerSettings custom(std::wstring_view url) {
    BrokerSettings settings;
    settings.source = SourceKind::kCustomUrl;
    settings.customUrl.assign(url);
    return settings;
}

TEST(DefaultSettings, AreTheInternalProfileOnFfmpeg) {
    const BrokerSettings settings;
    EXPECT_EQ(settings.source, SourceKind::kInternalProfile);
    EXPECT_EQ(settings.stream, 1u);
    EXPECT_EQ(settings.decoder, DecoderBackend::kFfmpeg);
    EXPECT_EQ(settings.latencyMs, 50u);
    EXPECT_EQ(settings.firstFrameDeadlineMs, 7000u);
    EXPECT_FALSE(settings.rtspUdp);
    EXPECT_FALSE(settings.updateDisabled);
    EXPECT_TRUE(settings.profileUrl.empty());
    EXPECT_TRUE(settings.directIp.empty());
    EXPECT_TRUE(settings.directUser.empty());
    EXPECT_TRUE(settings.directPassword.empty());
    EXPECT_TRUE(settings.customUrl.empty());
    EXPECT_TRUE(settings.updateManifestUrl.empty());
}

TEST(SettingsNumbers, AreStoredUnderTheseValues) {
    EXPECT_EQ(static_cast<int>(SourceKind::kInternalProfile), 0);
    EXPECT_EQ(static_cast<int>(SourceKind::kDirectCamera), 1);
    EXPECT_EQ(static_cast<int>(SourceKind::kCustomUrl), 2);
    EXPECT_EQ(static_cast<int>(SourceKind::kSyntheticTest), 3);
    EXPECT_EQ(static_cast<int>(DecoderBackend::kFfmpeg), 0);
    EXPECT_EQ(static_cast<int>(DecoderBackend::kGstreamer), 1);
    EXPECT_EQ(static_cast<int>(DecoderBackend::kAutomatic), 2);
}

TEST(SettingsRanges, AcceptTheirEndsAndNothingBeyond) {
    const struct {
        const char* what;
        void (*change)(BrokerSettings&);
        const wchar_t* message;
    } kCases[] = {
        {"latency 0", [](BrokerSettings& s) { s.latencyMs = 0; }, kAccepted},
        {"latency 5000", [](BrokerSettings& s) { s.latencyMs = 5000; }, kAccepted},
        {"latency 5001", [](BrokerSettings& s) { s.latencyMs = 5001; }, kOutOfRange},
        {"latency max", [](BrokerSettings& s) { s.latencyMs = 0xFFFFFFFF; }, kOutOfRange},
        {"deadline 0", [](BrokerSettings& s) { s.firstFrameDeadlineMs = 0; }, kOutOfRange},
        {"deadline 999", [](BrokerSettings& s) { s.firstFrameDeadlineMs = 999; }, kOutOfRange},
        {"deadline 1000", [](BrokerSettings& s) { s.firstFrameDeadlineMs = 1000; }, kAccepted},
        {"deadline 30000", [](BrokerSettings& s) { s.firstFrameDeadlineMs = 30'000; }, kAccepted},
        {"deadline 30001", [](BrokerSettings& s) { s.firstFrameDeadlineMs = 30'001; }, kOutOfRange},
        {"stream 0", [](BrokerSettings& s) { s.stream = 0; }, kOutOfRange},
        {"stream 1", [](BrokerSettings& s) { s.stream = 1; }, kAccepted},
        {"stream 2", [](BrokerSettings& s) { s.stream = 2; }, kAccepted},
        {"stream 3", [](BrokerSettings& s) { s.stream = 3; }, kOutOfRange},
        {"decoder 2", [](BrokerSettings& s) { s.decoder = static_cast<DecoderBackend>(2); }, kAccepted},
        {"decoder 3", [](BrokerSettings& s) { s.decoder = static_cast<DecoderBackend>(3); }, kOutOfRange},
        {"source 3", [](BrokerSettings& s) { s.source = static_cast<SourceKind>(3); }, kAccepted},
        {"source 4", [](BrokerSettings& s) { s.source = static_cast<SourceKind>(4); }, kOutOfRange},
    };
    for (const auto& one : kCases) {
        BrokerSettings settings = synthetic();
        one.change(settings);
        EXPECT_EQ(messageFor(settings), one.message) << one.what;
    }
}

TEST(SettingsRanges, JudgeTheStreamWhateverTheSource) {
    for (std::uint32_t source = 0; source <= 3; ++source) {
        BrokerSettings settings = custom(L"http://h/");
        settings.source = static_cast<SourceKind>(source);
        settings.profileUrl.assign(L"http://h/");
        settings.directIp.assign(L"1.2.3.4");
        EXPECT_EQ(messageFor(settings), kAccepted) << source;
        settings.stream = 3;
        EXPECT_EQ(messageFor(settings), kOutOfRange) << source;
    }
}

TEST(DirectCamera, NeedsAnAddressBeforeItNeedsAUrl) {
    EXPECT_EQ(messageFor(direct(L"")), kNoIpv4);
    EXPECT_EQ(messageFor(direct(L"camera.local")), kNoIpv4);
    EXPECT_EQ(messageFor(direct(L"192.168.0.1")), kAccepted);
}

TEST(DirectCamera, WhoseUserCannotBeEncodedStillHasAUsableUrl) {
    BrokerSettings settings = direct(L"192.168.0.1");
    settings.directUser.assign(L"\xD800");
    EXPECT_EQ(messageFor(settings), kAccepted);
}

TEST(DirectCamera, WithLongCredentialsGetsTheUrlMessageFirst) {
    BrokerSettings settings = direct(L"192.168.0.1");
    settings.directUser.assign(std::wstring(3000, L'@'));  // 9000 units once encoded
    EXPECT_EQ(messageFor(settings), kNoUrl);
}

TEST(CustomSource, NeedsAUsableUrl) {
    EXPECT_EQ(messageFor(custom(L"")), kNoUrl);
    EXPECT_EQ(messageFor(custom(L"ftp://h/x")), kNoUrl);
    EXPECT_EQ(messageFor(custom(L"rtsp://cam/x")), kAccepted);
}

TEST(InternalProfile, NeedsAUsableUrl) {
    BrokerSettings settings;
    EXPECT_EQ(messageFor(settings), kNoProfile);
    settings.profileUrl.assign(L"rtsp://cam /x");
    EXPECT_EQ(messageFor(settings), kNoProfile);
    settings.profileUrl.assign(L"rtsp://cam/x");
    EXPECT_EQ(messageFor(settings), kAccepted);
}

TEST(SyntheticTest, NeedsNoUrl) {
    EXPECT_EQ(messageFor(synthetic()), kAccepted);
}

TEST(UnusedSources, AreNotJudged) {
    BrokerSettings settings = custom(L"http://h/");
    settings.profileUrl.assign(L"nonsense");
    settings.directIp.assign(L"nonsense");
    EXPECT_EQ(messageFor(settings), kAccepted);
}

TEST(Credentials, HaveALengthLimitWhateverTheSource) {
    BrokerSettings settings = synthetic();
    settings.directUser.assign(std::wstring(256, L'u'));
    settings.directPassword.assign(std::wstring(512, L'p'));
    EXPECT_EQ(messageFor(settings), kAccepted);
    settings.directUser.assign(std::wstring(257, L'u'));
    EXPECT_EQ(messageFor(settings), kLongCredentials);
    settings.directUser.assign(L"u");
    settings.directPassword.assign(std::wstring(513, L'p'));
    EXPECT_EQ(messageFor(settings), kLongCredentials);
}

TEST(UpdateManifestUrl, IsEmptyOrHttpsInLowerCase) {
    const struct {
        const wchar_t* url;
        const wchar_t* message;
    } kCases[] = {
        {L"", kAccepted},          {L"https://", kAccepted}, {L"https://h/m.json", kAccepted},
        {L"HTTPS://h", kNoHttps},  {L"http://h", kNoHttps},  {L"https:/h", kNoHttps},
        {L" https://h", kNoHttps}, {L"h", kNoHttps},
    };
    for (const auto& one : kCases) {
        BrokerSettings settings = synthetic();
        settings.updateManifestUrl.assign(one.url);
        EXPECT_EQ(messageFor(settings), one.message) << std::wstring(one.url);
    }
}

TEST(SettingsMessages, ComeInAFixedOrder) {
    BrokerSettings settings = direct(L"nonsense");  // wrong in every respect, then mended one by one
    settings.latencyMs = 5001;
    settings.directUser.assign(std::wstring(257, L'u'));
    settings.updateManifestUrl.assign(L"http://h");
    EXPECT_EQ(messageFor(settings), kOutOfRange);
    settings.latencyMs = 5000;
    EXPECT_EQ(messageFor(settings), kNoIpv4);
    settings.source = SourceKind::kCustomUrl;
    EXPECT_EQ(messageFor(settings), kNoUrl);
    settings.customUrl.assign(L"http://h");
    EXPECT_EQ(messageFor(settings), kLongCredentials);
    settings.directUser.clear();
    EXPECT_EQ(messageFor(settings), kNoHttps);
    settings.updateManifestUrl.clear();
    EXPECT_EQ(messageFor(settings), kAccepted);
}

template <typename Table>
void expectInOrder(const Table& table, std::uint32_t first, std::initializer_list<const wchar_t*> keywords,
                   std::initializer_list<const wchar_t*> labels) {
    ASSERT_EQ(table.size(), keywords.size());
    ASSERT_EQ(table.size(), labels.size());
    for (std::size_t i = 0; i < table.size(); ++i) {
        EXPECT_EQ(static_cast<std::uint32_t>(table[i].value), first + i);
        EXPECT_EQ(std::wstring(table[i].keyword), keywords.begin()[i]);
        EXPECT_EQ(std::wstring(table[i].label), labels.begin()[i]);
    }
}

TEST(SettingsChoices, AreListedInOrderOfTheirNumbersWithTheirWords) {
    expectInOrder(kSourceKinds, 0, {L"blueiris", L"direct", L"custom", L""},
                  {L"Perfil interno Vextra (padrão)", L"Câmera direta • IPv4 + stream", L"URL personalizada",
                   L"Teste sintético • sem rede"});
    expectInOrder(kDecoderBackends, 0, {L"ffmpeg", L"gstreamer", L"auto"},
                  {L"FFmpeg", L"GStreamer (opcional)", L"Auto • GStreamer/FFmpeg"});
    expectInOrder(kStreams, 1, {L"stream1", L"stream2"}, {L"stream1", L"stream2"});
    expectInOrder(kTransports, 0, {L"", L""}, {L"TCP (recomendado)", L"UDP"});
}

}  // namespace
}  // namespace vextra
