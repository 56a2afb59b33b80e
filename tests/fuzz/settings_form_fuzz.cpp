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

namespace {

using vextra::ApplyOutcome;
using vextra::BrokerSettings;
using vextra::SecretText;
using vextra::SettingsForm;
using vextra::SourceKind;
using vextra::test::expect;

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

bool same(const BrokerSettings& a, const BrokerSettings& b) {
    return a.source == b.source && a.stream == b.stream && a.decoder == b.decoder &&
           a.latencyMs == b.latencyMs && a.firstFrameDeadlineMs == b.firstFrameDeadlineMs &&
           a.rtspUdp == b.rtspUdp && a.updateDisabled == b.updateDisabled && a.profileUrl == b.profileUrl &&
           a.directIp == b.directIp && a.directUser == b.directUser && a.directPassword == b.directPassword &&
           a.customUrl == b.customUrl && a.updateManifestUrl == b.updateManifestUrl;
}

// The saving that the store does, without a disk: only what can be loaded again is saved.
bool isStorable(const BrokerSettings& settings) {
    const auto again = vextra::parseSettings(vextra::serializeSettings(settings));
    expect(!again || same(*again, settings));
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

bool sameTexts(const SettingsForm& a, const SettingsForm& b) {
    return a.directIp == b.directIp && a.customUrl == b.customUrl && a.directUser == b.directUser &&
           a.directPassword == b.directPassword && a.updateManifestUrl == b.updateManifestUrl;
}

SettingsForm formOf(const Values& values) {
    SettingsForm form;
    form.source = values.number("source");
    form.stream = values.number("stream");
    form.transport = values.number("transport");
    form.decoder = values.number("decoder");
    form.directIp = values.text("ip");
    form.customUrl = values.text("url");
    form.directUser = values.text("user");
    form.directPassword = values.text("password");
    form.latencyMs = values.text("latency");
    form.firstFrameDeadlineMs = values.text("deadline");
    form.updateManifestUrl = values.text("manifest");
    form.updateDisabled = values.number("no-updates") == 1;
    return form;
}

void checkApplied(const SettingsForm& form, const BrokerSettings& record, const BrokerSettings& before) {
    expect(mayBeUsed(record));
    expect(record.profileUrl == before.profileUrl);
    const SettingsForm shown = vextra::formFromSettings(record);
    expect(sameTexts(shown, form) && shown.updateDisabled == form.updateDisabled);
    expect(shown.source == form.source && shown.stream == form.stream && shown.decoder == form.decoder);
    expect(shown.transport == (form.transport == 1 ? 1 : 0));
    expectNumber(record.latencyMs, form.latencyMs, 1);
    expectNumber(record.firstFrameDeadlineMs, form.firstFrameDeadlineMs, 1);

    const auto again = vextra::applySettings(shown, record, kIdle, isStorable);
    expect(again.outcome == ApplyOutcome::kApplied);
    expect(same(again.record, record));
}

void checkForm(const Values& values) {
    const SettingsForm form = formOf(values);
    BrokerSettings current;
    current.profileUrl = values.text("profile");
    const vextra::CameraUse use{values.number("episode") == 1, values.number("preview") == 1,
                                values.number("leases")};
    std::optional<BrokerSettings> saved;
    bool asked = false;
    const auto result = vextra::applySettings(form, current, use, [&](const BrokerSettings& record) {
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
    if (!saved)
        return;
    expect(same(result.record, *saved));
    checkApplied(form, result.record, current);
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
