#include "ui/settings_panel_win.h"

#include <utility>

namespace vextra {
namespace {

// What each control of the panel holds. The lists are visited, for their fields are of different types.
template <typename Visit>
void eachList(Visit visit) {
    visit(kIdSource, &BrokerSettings::source, kSourceKinds);
    visit(kIdStream, &BrokerSettings::stream, kStreams);
    visit(kIdTransport, &BrokerSettings::rtspUdp, kTransports);
    visit(kIdDecoder, &BrokerSettings::decoder, kDecoderBackends);
}
struct TextField {
    ControlId id;
    SecretText BrokerSettings::*text;
};
constexpr TextField kTexts[] = {
    {kIdDirectIp, &BrokerSettings::directIp},
    {kIdDirectUser, &BrokerSettings::directUser},
    {kIdDirectPassword, &BrokerSettings::directPassword},
    {kIdCustomUrl, &BrokerSettings::customUrl},
    {kIdManifestUrl, &BrokerSettings::updateManifestUrl},
};
struct NumberField {
    ControlId id;
    SecretText SettingsForm::*text;
};
constexpr NumberField kNumbers[] = {
    {kIdLatency, &SettingsForm::latencyText},
    {kIdDeadline, &SettingsForm::firstFrameDeadlineText},
};

}  // namespace

void SettingsPanel::fillLists() {
    eachList([this](ControlId id, auto, const auto& choices) {
        for (const auto& choice : choices)  // the labels are literals, hence terminated
            SendMessageW(controls_[id], CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(choice.label.data()));
    });
}

void SettingsPanel::fill(const SettingsForm& form) {
    hideUrl();
    eachList([&](ControlId id, auto field, const auto& choices) {
        controls_.select(id, selectionOf(choices, form.settings.*field));
    });
    for (const TextField& field : kTexts)
        controls_.setSecretText(field.id, form.settings.*field.text);
    for (const NumberField& field : kNumbers)
        controls_.setSecretText(field.id, form.*field.text);
    controls_.setChecked(kIdUpdateDisabled, form.settings.updateDisabled);
}

SettingsForm SettingsPanel::read(BrokerSettings current) const {
    SettingsForm form{.settings = std::move(current), .latencyText = {}, .firstFrameDeadlineText = {}};
    eachList([&](ControlId id, auto field, const auto& choices) {
        form.settings.*field = selectedValue(choices, controls_.selection(id));
    });
    for (const TextField& field : kTexts)
        form.settings.*field.text = controls_.secretText(field.id);
    for (const NumberField& field : kNumbers)
        form.*field.text = controls_.secretText(field.id);
    form.settings.updateDisabled = controls_.checked(kIdUpdateDisabled);
    return form;
}

SourceKind SettingsPanel::selectedSource() const {
    const int selected = controls_.selection(kIdSource);
    return selected < 0 ? SourceKind::kInternalProfile : selectedValue(kSourceKinds, selected);
}

void SettingsPanel::showUrl(bool revealed) {
    if (revealed == urlRevealed_)
        return;
    urlRevealed_ = revealed;
    controls_.setMasking(kIdCustomUrl,
                         urlRevealed_ ? ControlSet::Masking::kPlain : ControlSet::Masking::kMasked);
    controls_.setText(kIdRevealUrl, urlRevealed_ ? kHideText : kRevealText);
}

}  // namespace vextra
