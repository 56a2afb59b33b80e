#include "config/settings_apply.h"

#include <string>
#include <utility>

#include "base/text.h"

namespace vextra {
namespace {

// Wider than either field's own range: what lies between is refused by validateSettings, with its message.
constexpr std::uint32_t kMaxTypedNumber = 30'000;

bool readNumber(const SecretText& text, std::uint32_t& number) {
    const auto value = parseWholeNumber(text.c_str(), text.size());
    if (!value || *value > kMaxTypedNumber)
        return false;
    number = *value;
    return true;
}

SecretText textOf(std::uint32_t number) {
    return SecretText(std::to_wstring(number));
}

// False when a number field holds no number; everything else is judged by validateSettings.
bool readForm(const SettingsForm& form, BrokerSettings& settings) {
    // No selection becomes a number that no record may hold.
    settings.source = static_cast<SourceKind>(form.source);
    settings.stream = static_cast<std::uint32_t>(form.stream) + 1;
    settings.rtspUdp = form.transport == 1;
    settings.decoder = static_cast<DecoderBackend>(form.decoder);
    settings.directIp = form.directIp;
    settings.customUrl = form.customUrl;
    settings.directUser = form.directUser;
    settings.directPassword = form.directPassword;
    settings.updateManifestUrl = form.updateManifestUrl;
    settings.updateDisabled = form.updateDisabled;
    return readNumber(form.latencyMs, settings.latencyMs) &&
           readNumber(form.firstFrameDeadlineMs, settings.firstFrameDeadlineMs);
}

}  // namespace

SettingsForm formFromSettings(const BrokerSettings& settings) {
    SettingsForm form;
    form.source = static_cast<std::int32_t>(settings.source);
    form.stream = static_cast<std::int32_t>(settings.stream) - 1;
    form.transport = settings.rtspUdp ? 1 : 0;
    form.decoder = static_cast<std::int32_t>(settings.decoder);
    form.directIp = settings.directIp;
    form.customUrl = settings.customUrl;
    form.directUser = settings.directUser;
    form.directPassword = settings.directPassword;
    form.latencyMs = textOf(settings.latencyMs);
    form.firstFrameDeadlineMs = textOf(settings.firstFrameDeadlineMs);
    form.updateManifestUrl = settings.updateManifestUrl;
    form.updateDisabled = settings.updateDisabled;
    return form;
}

ApplyResult applySettings(const SettingsForm& form, const BrokerSettings& current, const CameraUse& use,
                          const std::function<bool(const BrokerSettings&)>& save) {
    if (!cameraIsIdle(use)) {
        return {
            ApplyOutcome::kBlocked,
            L"Aplicação bloqueada: pare a prévia e aguarde o fim da captura externa. Nenhuma reunião será "
            L"interrompida.",
            {}};
    }
    BrokerSettings record = current;
    if (!readForm(form, record))
        return {ApplyOutcome::kNotNumbers, L"Latência e prazo devem ser números inteiros (ms).", {}};
    if (const std::wstring_view refusal = validateSettings(record); !refusal.empty())
        return {ApplyOutcome::kRejected, refusal, std::move(record)};
    if (!save(record)) {
        return {ApplyOutcome::kSaveFailed,
                L"Não foi possível salvar. Configuração anterior preservada; verifique a pasta do usuário.",
                {}};
    }
    return {ApplyOutcome::kApplied,
            L"Configuração salva e aplicada. Conexão somente por demanda ou prévia explícita.",
            std::move(record)};
}

}  // namespace vextra
