#include "config/settings_apply.h"

#include <string>
#include <utility>

#include "base/text.h"

namespace vextra {
namespace {

// Wider than either field's own range: what lies between is refused by validateSettings, with its message.
constexpr std::uint32_t kMaxTypedNumber = 30'000;

struct TypedNumber {
    SecretText SettingsForm::*text;
    std::uint32_t BrokerSettings::*number;
};
constexpr TypedNumber kTypedNumbers[] = {
    {&SettingsForm::latencyText, &BrokerSettings::latencyMs},
    {&SettingsForm::firstFrameDeadlineText, &BrokerSettings::firstFrameDeadlineMs},
};

// False when a text is no number; everything else is judged by validateSettings.
bool readNumbers(const SettingsForm& form, BrokerSettings& record) {
    for (const TypedNumber& typed : kTypedNumbers) {
        const SecretText& text = form.*typed.text;
        const auto number = parseWholeNumber(text.c_str(), text.size());
        if (!number || *number > kMaxTypedNumber)
            return false;
        record.*typed.number = *number;
    }
    return true;
}

}  // namespace

SettingsForm formFromSettings(const BrokerSettings& settings) {
    SettingsForm form{.settings = settings, .latencyText = {}, .firstFrameDeadlineText = {}};
    for (const TypedNumber& typed : kTypedNumbers)
        (form.*typed.text).assign(std::to_wstring(settings.*typed.number));
    return form;
}

ApplyResult applySettings(const SettingsForm& form, const CameraUse& use,
                          const std::function<bool(const BrokerSettings&)>& save) {
    if (!cameraIsIdle(use)) {
        return {
            ApplyOutcome::kBlocked,
            L"Aplicação bloqueada: pare a prévia e aguarde o fim da captura externa. Nenhuma reunião será "
            L"interrompida.",
            {}};
    }
    BrokerSettings record = form.settings;
    if (!readNumbers(form, record))
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

std::vector<SettingsEvent> settingsEvents(const ApplyResult& result) {
    const auto event = [](EventCode code, auto number) {
        return SettingsEvent{code, static_cast<std::int32_t>(number)};
    };
    switch (result.outcome) {
        case ApplyOutcome::kBlocked: return {{EventCode::kSettingsApplyBlocked}};
        case ApplyOutcome::kNotNumbers: return {};
        case ApplyOutcome::kRejected:
            return {{EventCode::kSettingsRejected},
                    event(EventCode::kSettingsSource, result.record.source),
                    event(EventCode::kSettingsStream, result.record.stream),
                    event(EventCode::kSettingsDecoder, result.record.decoder),
                    event(EventCode::kSettingsLatency, result.record.latencyMs),
                    event(EventCode::kSettingsFirstDeadline, result.record.firstFrameDeadlineMs)};
        case ApplyOutcome::kSaveFailed: return {{EventCode::kSettingsSaveFailed}};
        case ApplyOutcome::kApplied: return {{EventCode::kSettingsApplied}};
    }
    return {};
}

ReloadResult reloadSettings(const CameraUse& use, const std::function<bool(BrokerSettings&)>& load) {
    if (!cameraIsIdle(use))
        return {L"Recarregar bloqueado durante captura/prévia.", {}};
    BrokerSettings stored;
    if (!load(stored))
        return {L"Nenhuma configuração salva pôde ser lida; nada foi alterado.", {}};
    return {L"Configuração salva recarregada, sem iniciar captura.", std::move(stored)};
}

}  // namespace vextra
