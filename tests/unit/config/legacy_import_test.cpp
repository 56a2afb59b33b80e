#include "config/legacy_import.h"

#include <gtest/gtest.h>

#include <map>
#include <vector>

namespace vextra {
namespace {

constexpr wchar_t kLatency[] = L"CAMERA_VIRTUAL_VEXTRA_GSTREAMER_LATENCY_MS";
constexpr wchar_t kGrace[] = L"CAMERA_VIRTUAL_VEXTRA_FIRST_FRAME_FALLBACK_GRACE_SECONDS";
constexpr wchar_t kUpdateDisabled[] = L"CAMERA_VIRTUAL_VEXTRA_UPDATE_DISABLED";
constexpr wchar_t kSource[] = L"CAMERA_VIRTUAL_VEXTRA_SOURCE";
constexpr wchar_t kStream[] = L"CAMERA_VIRTUAL_VEXTRA_DIRECT_STREAM";
constexpr wchar_t kBackend[] = L"CAMERA_VIRTUAL_VEXTRA_DECODER_BACKEND";
constexpr wchar_t kDecoder[] = L"CAMERA_VIRTUAL_VEXTRA_DECODER";

using Variables = std::map<std::wstring, std::wstring>;

// Begins with a record that validates whatever the other fields say.
class LegacyImport : public testing::Test {
protected:
    LegacyImport() { settings.source = SourceKind::kSyntheticTest; }

    bool import(const Variables& variables) {
        return importLegacyVariables(
            [&](const wchar_t* name) {
                const auto found = variables.find(name);
                return SecretText(found == variables.end() ? std::wstring_view{} : found->second);
            },
            settings);
    }

    BrokerSettings settings;
};

TEST_F(LegacyImport, WithoutVariablesChangesNothing) {
    settings.latencyMs = 77;
    settings.updateDisabled = true;
    settings.directUser.assign(L"kept");
    EXPECT_TRUE(import({}));
    EXPECT_EQ(settings.latencyMs, 77u);
    EXPECT_TRUE(settings.updateDisabled);
    EXPECT_EQ(settings.directUser.view(), L"kept");
}

TEST_F(LegacyImport, FailsWhenTheRecordAsItIsMayNotBeUsed) {
    settings = {};  // an internal profile without an address
    EXPECT_FALSE(import({}));
}

TEST_F(LegacyImport, FillsEveryField) {
    EXPECT_TRUE(import({{kSource, L"custom"},
                        {L"CAMERA_VIRTUAL_VEXTRA_URL", L"rtsp://profile/á"},
                        {L"CAMERA_VIRTUAL_VEXTRA_DIRECT_IP", L"10.0.0.1"},
                        {kStream, L"stream2"},
                        {L"CAMERA_VIRTUAL_VEXTRA_CUSTOM_URL", L"http://custom/x"},
                        {kBackend, L"auto"},
                        {kLatency, L"120"},
                        {kGrace, L"9"},
                        {kUpdateDisabled, L"1"},
                        {L"CAMERA_VIRTUAL_VEXTRA_UPDATE_MANIFEST_URL", L"https://m"}}));
    EXPECT_EQ(settings.source, SourceKind::kCustomUrl);
    EXPECT_EQ(settings.profileUrl.view(), L"rtsp://profile/á");
    EXPECT_EQ(settings.directIp.view(), L"10.0.0.1");
    EXPECT_EQ(settings.stream, 2u);
    EXPECT_EQ(settings.customUrl.view(), L"http://custom/x");
    EXPECT_EQ(settings.decoder, DecoderBackend::kAutomatic);
    EXPECT_EQ(settings.latencyMs, 120u);
    EXPECT_EQ(settings.firstFrameDeadlineMs, 9000u);
    EXPECT_TRUE(settings.updateDisabled);
    EXPECT_EQ(settings.updateManifestUrl.view(), L"https://m");
}

TEST_F(LegacyImport, KnowsItsSources) {
    const Variables addresses = {{L"CAMERA_VIRTUAL_VEXTRA_URL", L"http://p"},
                                 {L"CAMERA_VIRTUAL_VEXTRA_DIRECT_IP", L"1.2.3.4"},
                                 {L"CAMERA_VIRTUAL_VEXTRA_CUSTOM_URL", L"http://c"}};
    const std::pair<const wchar_t*, SourceKind> kKnown[] = {{L"blueiris", SourceKind::kInternalProfile},
                                                            {L"direct", SourceKind::kDirectCamera},
                                                            {L"custom", SourceKind::kCustomUrl}};
    for (const auto& [word, kind] : kKnown) {
        Variables variables = addresses;
        variables[kSource] = word;
        EXPECT_TRUE(import(variables));
        EXPECT_EQ(settings.source, kind);
    }
}

TEST_F(LegacyImport, FailsAtAnyOtherWord) {
    for (const wchar_t* name : {kSource, kStream, kBackend, kDecoder}) {
        for (const wchar_t* word : {L"Direct", L"DIRECT", L"test", L"0", L"1", L" direct", L"direct ",
                                    L"Stream1", L"stream", L"stream3", L"FFmpeg", L"ffmpeg ", L"2"})
            EXPECT_FALSE(import({{name, word}})) << name << "=" << word;
    }
}

TEST_F(LegacyImport, StopsAtTheFirstValueThatItDoesNotUnderstand) {
    EXPECT_FALSE(import({{L"CAMERA_VIRTUAL_VEXTRA_URL", L"http://before"},
                         {kStream, L"stream9"},
                         {L"CAMERA_VIRTUAL_VEXTRA_CUSTOM_URL", L"http://after"},
                         {kLatency, L"99"}}));
    EXPECT_EQ(settings.profileUrl.view(), L"http://before");
    EXPECT_TRUE(settings.customUrl.empty());
    EXPECT_EQ(settings.latencyMs, 50u);
}

TEST_F(LegacyImport, ReadsTheOlderDecoderVariableOnlyWithoutTheNewer) {
    EXPECT_TRUE(import({{kDecoder, L"gstreamer"}}));
    EXPECT_EQ(settings.decoder, DecoderBackend::kGstreamer);
    EXPECT_TRUE(import({{kBackend, L"auto"}, {kDecoder, L"ffmpeg"}}));
    EXPECT_EQ(settings.decoder, DecoderBackend::kAutomatic);
    EXPECT_TRUE(import({{kBackend, L"ffmpeg"}, {kDecoder, L"nonsense"}}));
    EXPECT_EQ(settings.decoder, DecoderBackend::kFfmpeg);
    EXPECT_FALSE(import({{kBackend, L"nonsense"}, {kDecoder, L"ffmpeg"}}));
    EXPECT_TRUE(import({{kBackend, L""}, {kDecoder, L"auto"}}));
    EXPECT_EQ(settings.decoder, DecoderBackend::kAutomatic);
}

TEST_F(LegacyImport, ReadsNumbersAsTheStandardConversionDoes) {
    const struct {
        const wchar_t* text;
        std::uint32_t value;
    } kTaken[] = {{L"0", 0},  {L"5000", 5000}, {L"007", 7},         {L" 12", 12},        {L"\t\r\n 9", 9},
                  {L"+8", 8}, {L"-0", 0},      {L"-4294967295", 1}, {L"-4294967246", 50}};
    for (const auto& [text, value] : kTaken) {
        EXPECT_TRUE(import({{kLatency, text}})) << text;
        EXPECT_EQ(settings.latencyMs, value) << text;
    }
    for (const wchar_t* text :
         {L"7s", L"7 ", L"x", L"0x10", L"1.5", L"+-1", L"- 1", L"+", L"-", L" ", L"1,000"}) {
        settings.latencyMs = 33;
        EXPECT_FALSE(import({{kLatency, text}})) << text;
        EXPECT_EQ(settings.latencyMs, 33u) << text;
        EXPECT_FALSE(import({{kGrace, text}})) << text;
    }
}

// Understood, and then refused by the ranges. (What a negative number beyond 32 bits gives is up to the C
// library.)
TEST_F(LegacyImport, StopsNumbersAtTheLargestOf32Bits) {
    for (const wchar_t* text : {L"4294967295", L"4294967296", L"4294967346", L"-1", L"18446744073709551615",
                                L"18446744073709551616", L"99999999999999999999999999"}) {
        settings.latencyMs = 33;
        EXPECT_FALSE(import({{kLatency, text}})) << text;
        EXPECT_EQ(settings.latencyMs, 4'294'967'295u) << text;
    }
}

TEST_F(LegacyImport, TakesTheFirstFrameGraceInSeconds) {
    EXPECT_TRUE(import({{kGrace, L"7"}}));
    EXPECT_EQ(settings.firstFrameDeadlineMs, 7000u);
    EXPECT_TRUE(import({{kGrace, L"1"}}));
    EXPECT_EQ(settings.firstFrameDeadlineMs, 1000u);
    EXPECT_TRUE(import({{kGrace, L"30"}}));
    EXPECT_EQ(settings.firstFrameDeadlineMs, 30'000u);
    EXPECT_FALSE(import({{kGrace, L"31"}}));
    EXPECT_EQ(settings.firstFrameDeadlineMs, 31'000u);
    EXPECT_FALSE(import({{kGrace, L"0"}}));
}

TEST_F(LegacyImport, MultipliesTheGraceIn32Bits) {
    EXPECT_TRUE(import({{kGrace, L"4294974"}}));  // 4,294,974,000 less 2^32
    EXPECT_EQ(settings.firstFrameDeadlineMs, 6704u);
}

TEST_F(LegacyImport, RefusesALatencyOutOfRange) {
    EXPECT_TRUE(import({{kLatency, L"5000"}}));
    EXPECT_FALSE(import({{kLatency, L"5001"}}));
}

TEST_F(LegacyImport, ClearsTheUpdateFlagAtAnyWordButTwo) {
    for (const wchar_t* word : {L"1", L"true"}) {
        settings.updateDisabled = false;
        EXPECT_TRUE(import({{kUpdateDisabled, word}}));
        EXPECT_TRUE(settings.updateDisabled) << word;
    }
    for (const wchar_t* word : {L"yes", L"True", L"TRUE", L"0", L"false", L"2", L"1 ", L" "}) {
        settings.updateDisabled = true;
        EXPECT_TRUE(import({{kUpdateDisabled, word}}));
        EXPECT_FALSE(settings.updateDisabled) << word;
    }
}

TEST_F(LegacyImport, ValidatesTheResult) {
    EXPECT_FALSE(import({{kSource, L"direct"}, {L"CAMERA_VIRTUAL_VEXTRA_DIRECT_IP", L"1.2.3"}}));
    EXPECT_TRUE(import({{kSource, L"direct"}, {L"CAMERA_VIRTUAL_VEXTRA_DIRECT_IP", L"1.2.3.4"}}));
    EXPECT_FALSE(import({{L"CAMERA_VIRTUAL_VEXTRA_UPDATE_MANIFEST_URL", L"http://m"}}));
}

TEST_F(LegacyImport, LeavesCredentialsAndTransportAlone) {
    settings.rtspUdp = true;
    settings.directUser.assign(L"user");
    settings.directPassword.assign(L"password");
    EXPECT_TRUE(import({{kSource, L"direct"}, {L"CAMERA_VIRTUAL_VEXTRA_DIRECT_IP", L"1.2.3.4"}}));
    EXPECT_TRUE(settings.rtspUdp);
    EXPECT_EQ(settings.directUser.view(), L"user");
    EXPECT_EQ(settings.directPassword.view(), L"password");
}

TEST_F(LegacyImport, AsksForNoOtherVariable) {
    std::vector<std::wstring> asked;
    importLegacyVariables(
        [&](const wchar_t* name) {
            asked.emplace_back(name);
            return SecretText();
        },
        settings);
    EXPECT_FALSE(asked.empty());
    for (const std::wstring& name : asked)
        EXPECT_TRUE(name.starts_with(L"CAMERA_VIRTUAL_VEXTRA_")) << name.size();
}

}  // namespace
}  // namespace vextra
