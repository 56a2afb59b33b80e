#include "config/legacy_import.h"

#include <optional>

#include "base/text.h"

namespace vextra {
namespace {

constexpr std::uint32_t kMsPerSecond = 1000;

// The variables, taken one after the other until one is not understood.
class LegacyImport {
public:
    explicit LegacyImport(const ReadVariable& read) : read_(read) {}

    void text(const wchar_t* name, SecretText& field) {
        if (const SecretText value = take(name); !value.empty())
            field = value;
    }
    template <typename Choices, typename Field>
    void keyword(const wchar_t* name, const Choices& choices, Field& field) {
        const SecretText value = take(name);
        if (value.empty())
            return;
        for (const auto& choice : choices) {
            if (choice.keyword == value.view()) {
                field = choice.value;
                return;
            }
        }
        understood_ = false;
    }
    void number(const wchar_t* name, std::uint32_t unit, std::uint32_t& field) {
        const SecretText value = take(name);
        if (value.empty())
            return;
        const std::optional<std::uint32_t> parsed = parseWholeNumber(value.c_str(), value.size());
        understood_ = parsed.has_value();
        if (parsed)
            field = *parsed * unit;  // wraps at 2^32, as earlier releases did
    }
    void flag(const wchar_t* name, bool& field) {
        if (const SecretText value = take(name); !value.empty())
            field = value.view() == L"1" || value.view() == L"true";
    }
    bool isSet(const wchar_t* name) const { return !read_(name).empty(); }
    bool understood() const { return understood_; }

private:
    SecretText take(const wchar_t* name) const { return understood_ ? read_(name) : SecretText(); }

    const ReadVariable& read_;
    bool understood_ = true;
};

}  // namespace

bool importLegacyVariables(const ReadVariable& read, BrokerSettings& settings) {
    LegacyImport variables(read);
    variables.keyword(L"CAMERA_VIRTUAL_VEXTRA_SOURCE", kSourceKinds, settings.source);
    variables.text(L"CAMERA_VIRTUAL_VEXTRA_URL", settings.profileUrl);
    variables.text(L"CAMERA_VIRTUAL_VEXTRA_DIRECT_IP", settings.directIp);
    variables.keyword(L"CAMERA_VIRTUAL_VEXTRA_DIRECT_STREAM", kStreams, settings.stream);
    variables.text(L"CAMERA_VIRTUAL_VEXTRA_CUSTOM_URL", settings.customUrl);
    const wchar_t* const decoder = variables.isSet(L"CAMERA_VIRTUAL_VEXTRA_DECODER_BACKEND")
                                       ? L"CAMERA_VIRTUAL_VEXTRA_DECODER_BACKEND"
                                       : L"CAMERA_VIRTUAL_VEXTRA_DECODER";
    variables.keyword(decoder, kDecoderBackends, settings.decoder);
    variables.number(L"CAMERA_VIRTUAL_VEXTRA_GSTREAMER_LATENCY_MS", 1, settings.latencyMs);
    variables.number(L"CAMERA_VIRTUAL_VEXTRA_FIRST_FRAME_FALLBACK_GRACE_SECONDS", kMsPerSecond,
                     settings.firstFrameDeadlineMs);
    variables.flag(L"CAMERA_VIRTUAL_VEXTRA_UPDATE_DISABLED", settings.updateDisabled);
    variables.text(L"CAMERA_VIRTUAL_VEXTRA_UPDATE_MANIFEST_URL", settings.updateManifestUrl);
    return variables.understood() && validateSettings(settings).empty();
}

}  // namespace vextra
