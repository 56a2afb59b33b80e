#include "config/legacy_import.h"

#include <cwchar>
#include <limits>
#include <optional>

namespace vextra {
namespace {

constexpr std::uint32_t kMsPerSecond = 1000;

// The whole value as the C library reads it: leading white space and a sign pass, and a negative number
// wraps.
std::optional<std::uint32_t> parseUnsigned(const SecretText& text) {
    wchar_t* end = nullptr;
    const unsigned long value = std::wcstoul(text.c_str(), &end, 10);
    if (end != text.c_str() + text.size())
        return std::nullopt;
    // On Windows an unsigned long has 32 bits and stops at the largest; elsewhere it is made to.
    constexpr std::uint32_t kLargest = std::numeric_limits<std::uint32_t>::max();
    if constexpr (sizeof value > sizeof kLargest) {
        const bool negative = text.view().find(L'-') != std::wstring_view::npos;
        if ((negative ? 0 - value : value) > kLargest)
            return kLargest;
    }
    return static_cast<std::uint32_t>(value);
}

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
        const std::optional<std::uint32_t> parsed = parseUnsigned(value);
        understood_ = parsed.has_value();
        if (parsed)
            field = *parsed * unit;  // in 32 bits, as ever
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
