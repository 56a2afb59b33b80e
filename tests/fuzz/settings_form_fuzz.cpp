// Any lines KEY=VALUE as the fields of the settings panel and as the environment variables of earlier
// releases: what is accepted holds what was said, obeys the rules of a record that may be used, and comes
// back from its stored form; what is refused is never saved; and a panel that is left as it was shown changes
// nothing.
#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "config/legacy_import.h"
#include "config/settings_apply.h"
#include "config/settings_record.h"
#include "config/source_url.h"
#include "fuzz_text.h"
#include "settings_samples.h"

namespace {

using vextra::ApplyOutcome;
using vextra::BrokerSettings;
using vextra::SecretText;
using vextra::SettingsForm;
using vextra::SourceKind;
using vextra::test::expect;
using vextra::test::sameSettings;

constexpr vextra::CameraUse kIdle{false, false, 0};

// The inputs' last word on a key; nothing and zero for those that are not there.
class Values {
public:
    explicit Values(std::string_view text) {
        while (!text.empty()) {
            const std::string_view line = vextra::test::takeLine(text);
            const std::size_t equals = std::min(line.find('='), line.size());
            values_[line.substr(0, equals)] = line.substr(std::min(equals + 1, line.size()));
        }
    }
    SecretText text(std::string_view key) const { return SecretText(vextra::test::unitsOf(bytes(key))); }
    std::int32_t number(std::string_view key) const {
        const std::string_view digits = bytes(key);
        std::int32_t value = 0;
        std::from_chars(digits.data(), digits.data() + digits.size(), value);
        return value;
    }

private:
    std::string_view bytes(std::string_view key) const {
        const auto found = values_.find(key);
        return found == values_.end() ? std::string_view() : found->second;
    }
    std::map<std::string_view, std::string_view> values_;
};

// What any record that is used has to be, said again.
bool mayBeUsed(const BrokerSettings& settings) {
    const std::wstring_view manifest = settings.updateManifestUrl.view();
    const bool direct = settings.source == SourceKind::kDirectCamera;
    const bool synthetic = settings.source == SourceKind::kSyntheticTest;
    return static_cast<std::uint32_t>(settings.source) <= 3 && settings.stream - 1 <= 1 &&
           static_cast<std::uint32_t>(settings.decoder) <= 2 && settings.latencyMs <= 5000 &&
           settings.firstFrameDeadlineMs - 1000 <= 29'000 &&
           (!direct || vextra::isValidIpv4(settings.directIp.view())) &&
           (synthetic || vextra::isUsableSourceUrl(vextra::sourceUrl(settings).view())) &&
           settings.directUser.size() <= 256 && settings.directPassword.size() <= 512 &&
           (manifest.empty() || manifest.substr(0, 8) == L"https://");
}

// The saving that the store does, without a disk: only what can be loaded again is saved.
bool isStorable(const BrokerSettings& settings) {
    const auto again = vextra::parseSettings(vextra::serializeSettings(settings));
    expect(!again || sameSettings(*again, settings));
    return again.has_value();
}

// The number that a field of nothing but digits says, or the largest there is.
std::optional<std::uint32_t> plainNumber(const SecretText& text) {
    if (text.empty() || text.view().find_first_not_of(L"0123456789") != std::wstring_view::npos)
        return std::nullopt;
    constexpr std::uint64_t kLargest = std::numeric_limits<std::uint32_t>::max();
    std::uint64_t value = 0;
    for (const wchar_t digit : text.view())
        value = std::min(value * 10 + static_cast<std::uint64_t>(digit - L'0'), kLargest);
    return static_cast<std::uint32_t>(value);
}

void expectNumber(std::uint32_t number, const SecretText& field, std::uint32_t unit) {
    if (const auto plain = plainNumber(field))
        expect(number == *plain * unit);
}

SettingsForm formOf(const Values& values) {
    SettingsForm form;
    BrokerSettings& settings = form.settings;
    settings.source = vextra::selectedValue(vextra::kSourceKinds, values.number("source"));
    settings.stream = vextra::selectedValue(vextra::kStreams, values.number("stream"));
    settings.rtspUdp = vextra::selectedValue(vextra::kTransports, values.number("transport"));
    settings.decoder = vextra::selectedValue(vextra::kDecoderBackends, values.number("decoder"));
    settings.profileUrl = values.text("profile");
    settings.directIp = values.text("ip");
    settings.customUrl = values.text("url");
    settings.directUser = values.text("user");
    settings.directPassword = values.text("password");
    settings.updateManifestUrl = values.text("manifest");
    settings.updateDisabled = values.number("no-updates") == 1;
    form.latencyText = values.text("latency");
    form.firstFrameDeadlineText = values.text("deadline");
    return form;
}

void checkApplied(const Values& values, const SettingsForm& form, const BrokerSettings& record) {
    expect(mayBeUsed(record));
    BrokerSettings meant = form.settings;  // what was chosen and typed, and the two numbers as they were read
    meant.latencyMs = record.latencyMs;
    meant.firstFrameDeadlineMs = record.firstFrameDeadlineMs;
    expect(sameSettings(record, meant));
    expectNumber(record.latencyMs, form.latencyText, 1);
    expectNumber(record.firstFrameDeadlineMs, form.firstFrameDeadlineText, 1);
    expect(static_cast<std::int32_t>(record.source) == values.number("source"));
    expect(static_cast<std::int32_t>(record.stream) == values.number("stream") + 1);
    expect(static_cast<std::int32_t>(record.decoder) == values.number("decoder"));
    expect(record.rtspUdp == (values.number("transport") == 1));

    const auto again = vextra::applySettings(vextra::formFromSettings(record), kIdle, isStorable);
    expect(again.outcome == ApplyOutcome::kApplied);
    expect(sameSettings(again.record, record));
}

void checkForm(const Values& values) {
    const SettingsForm form = formOf(values);
    const vextra::CameraUse use{values.number("episode") == 1, values.number("preview") == 1,
                                values.number("leases")};
    std::optional<BrokerSettings> saved;
    bool asked = false;
    const auto result = vextra::applySettings(form, use, [&](const BrokerSettings& record) {
        asked = true;
        if (isStorable(record))
            saved = record;
        return saved.has_value();
    });
    const bool idle = !use.episodeActive && !use.previewRuns && use.leaseCount == 0;
    expect((result.outcome == ApplyOutcome::kBlocked) == !idle);
    expect((result.outcome == ApplyOutcome::kApplied) == saved.has_value());
    expect((result.outcome == ApplyOutcome::kSaveFailed) == (asked && !saved));
    expect(result.outcome != ApplyOutcome::kRejected || !mayBeUsed(result.record));
    expect(!result.message.empty());
    const std::size_t events = vextra::settingsEvents(result).size();
    expect(events == (result.outcome == ApplyOutcome::kNotNumbers ? 0u
                      : result.outcome == ApplyOutcome::kRejected ? 6u
                                                                  : 1u));
    if (!saved)
        return;
    expect(sameSettings(result.record, *saved));
    checkApplied(values, form, result.record);
}

void checkImport(const Values& values) {
    constexpr std::string_view kPrefix = "CAMERA_VIRTUAL_VEXTRA_";
    const auto read = [&](std::string_view name) {
        // What the system has is never longer and ends at a zero.
        const SecretText value = values.text(name);
        return value.size() <= 8192 ? SecretText(value.c_str()) : SecretText();
    };
    BrokerSettings record;
    record.directUser.assign(L"operador");
    record.rtspUdp = true;
    const bool accepted = vextra::importLegacyVariables(
        [&](const wchar_t* name) {
            const std::wstring_view wide(name);
            return read(std::string(wide.begin(), wide.end()).substr(kPrefix.size()));
        },
        record);
    if (!accepted)
        return;
    expect(mayBeUsed(record) && isStorable(record));
    expect(record.profileUrl == read("URL") && record.directIp == read("DIRECT_IP"));
    expect(record.customUrl == read("CUSTOM_URL") && record.updateManifestUrl == read("UPDATE_MANIFEST_URL"));
    expect(record.directUser.view() == L"operador" && record.rtspUdp);
    expectNumber(record.latencyMs, read("GSTREAMER_LATENCY_MS"), 1);
    expectNumber(record.firstFrameDeadlineMs, read("FIRST_FRAME_FALLBACK_GRACE_SECONDS"), 1000);
    const SecretText source = read("SOURCE");
    expect(source.empty() ||
           source.view() == vextra::kSourceKinds[static_cast<std::size_t>(record.source)].keyword);
    const SecretText stream = read("DIRECT_STREAM");
    expect(stream.empty() || stream.view() == L"stream" + std::to_wstring(record.stream));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const Values values({reinterpret_cast<const char*>(data), size});
    checkForm(values);
    checkImport(values);
    return 0;
}
