// What the broker connects to and how: one record for the whole process, and the one routine that judges it.
// A new field is a member, a row of its kind below, and a row of docs/settings-format.md.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "base/secret.h"

namespace vextra {

// The numbers are those of the stored record.
enum class SourceKind : std::uint32_t {
    kInternalProfile = 0,
    kDirectCamera = 1,
    kCustomUrl = 2,
    kSyntheticTest = 3,
};

enum class DecoderBackend : std::uint32_t {
    kFfmpeg = 0,
    kGstreamer = 1,
    kAutomatic = 2,  // GStreamer when its runtime is there, FFmpeg otherwise or after it failed
};

// Field order is the order of the stored record. Copied as a whole under the settings lock.
struct BrokerSettings {
    SourceKind source = SourceKind::kInternalProfile;
    std::uint32_t stream = 1;  // of a direct camera: 1 main, 2 sub
    DecoderBackend decoder = DecoderBackend::kFfmpeg;
    std::uint32_t latencyMs = 50;
    std::uint32_t firstFrameDeadlineMs = 7000;
    bool rtspUdp = false;
    bool updateDisabled = false;
    SecretText profileUrl;  // never shown
    SecretText directIp;    // dotted IPv4
    SecretText directUser;
    SecretText directPassword;
    SecretText customUrl;
    SecretText updateManifestUrl;  // empty, or an https address that replaces the built-in one
};

constexpr std::size_t kMaxUserUnits = 256;
constexpr std::size_t kMaxPasswordUnits = 512;

// The numbers, with the ends of their ranges, the flags and the texts, each in the order of the stored
// record. The ranges are uneven on purpose: no latency at all may be asked for, a deadline below one second
// may not.
template <typename Visit>
constexpr void eachSettingsNumber(Visit visit) {
    visit(&BrokerSettings::source, SourceKind::kInternalProfile, SourceKind::kSyntheticTest);
    visit(&BrokerSettings::stream, 1u, 2u);
    visit(&BrokerSettings::decoder, DecoderBackend::kFfmpeg, DecoderBackend::kAutomatic);
    visit(&BrokerSettings::latencyMs, 0u, 5000u);
    visit(&BrokerSettings::firstFrameDeadlineMs, 1000u, 30'000u);
}
inline constexpr std::array kSettingsFlags{&BrokerSettings::rtspUdp, &BrokerSettings::updateDisabled};
inline constexpr std::array kSettingsTexts{&BrokerSettings::profileUrl, &BrokerSettings::directIp,
                                           &BrokerSettings::directUser, &BrokerSettings::directPassword,
                                           &BrokerSettings::customUrl,  &BrokerSettings::updateManifestUrl};

// A value with its word in environment variables (empty: none) and its entry in the panel's list. The numbers
// of a field's choices follow one another.
template <typename Value>
struct NamedChoice {
    Value value;
    std::wstring_view keyword;
    std::wstring_view label;
};

inline constexpr std::array<NamedChoice<SourceKind>, 4> kSourceKinds{{
    {SourceKind::kInternalProfile, L"blueiris", L"Perfil interno Vextra (padrão)"},
    {SourceKind::kDirectCamera, L"direct", L"Câmera direta • IPv4 + stream"},
    {SourceKind::kCustomUrl, L"custom", L"URL personalizada"},
    {SourceKind::kSyntheticTest, L"", L"Teste sintético • sem rede"},
}};

inline constexpr std::array<NamedChoice<DecoderBackend>, 3> kDecoderBackends{{
    {DecoderBackend::kFfmpeg, L"ffmpeg", L"FFmpeg"},
    {DecoderBackend::kGstreamer, L"gstreamer", L"GStreamer (opcional)"},
    {DecoderBackend::kAutomatic, L"auto", L"Auto • GStreamer/FFmpeg"},
}};

inline constexpr std::array<NamedChoice<std::uint32_t>, 2> kStreams{{
    {1, L"stream1", L"stream1"},
    {2, L"stream2", L"stream2"},
}};

inline constexpr std::array<NamedChoice<bool>, 2> kTransports{{
    {false, L"", L"TCP (recomendado)"},
    {true, L"", L"UDP"},
}};

// Whether the numbers are ones that a record may hold at all.
bool numbersInRange(const BrokerSettings& settings);

// Empty when the record may be saved and used; otherwise the message for the user. Import and apply
// ask here and nowhere else; loading asks for the numbers only, so that a record with an address that these
// rules have come to refuse since it was saved still opens.
std::wstring_view validateSettings(const BrokerSettings& settings);

}  // namespace vextra
