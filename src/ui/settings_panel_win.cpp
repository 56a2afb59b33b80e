#include "ui/settings_panel_win.h"

#include <span>

namespace vextra {
namespace {

// The panel says more of a source than its bare label.
constexpr const wchar_t* kSourceEntries[] = {
    L"Perfil interno Vextra (padrão)",
    L"Câmera direta • IPv4 + stream",
    L"URL personalizada",
    L"Teste sintético • sem rede",
};
constexpr const wchar_t* kTransportEntries[] = {L"TCP (recomendado)", L"UDP"};

static_assert(std::size(kSourceEntries) == kSourceKinds.size());

// Where each value of the form is on the panel.
struct ListField {
    ControlId id;
    std::int32_t SettingsForm::*selection;
};
constexpr ListField kLists[] = {
    {kIdSource, &SettingsForm::source},
    {kIdStream, &SettingsForm::stream},
    {kIdTransport, &SettingsForm::transport},
    {kIdDecoder, &SettingsForm::decoder},
};
struct TextField {
    ControlId id;
    SecretText SettingsForm::*text;
};
constexpr TextField kFields[] = {
    {kIdDirectIp, &SettingsForm::directIp},
    {kIdDirectUser, &SettingsForm::directUser},
    {kIdDirectPassword, &SettingsForm::directPassword},
    {kIdCustomUrl, &SettingsForm::customUrl},
    {kIdLatency, &SettingsForm::latencyMs},
    {kIdDeadline, &SettingsForm::firstFrameDeadlineMs},
    {kIdManifestUrl, &SettingsForm::updateManifestUrl},
};

void addEntry(HWND list, const wchar_t* text) {
    SendMessageW(list, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(text));
}

template <typename Value, std::size_t N>
void addLabels(HWND list, const std::array<NamedChoice<Value>, N>& choices) {
    for (const NamedChoice<Value>& choice : choices)
        addEntry(list, choice.label.data());  // the labels are literals, hence terminated
}

}  // namespace

void SettingsPanel::fillLists() {
    for (const wchar_t* entry : kSourceEntries)
        addEntry(controls_[kIdSource], entry);
    addLabels(controls_[kIdStream], kStreams);
    for (const wchar_t* entry : kTransportEntries)
        addEntry(controls_[kIdTransport], entry);
    addLabels(controls_[kIdDecoder], kDecoderBackends);
}

void SettingsPanel::fill(const SettingsForm& form) {
    hideUrl();
    for (const ListField& list : kLists)
        controls_.select(list.id, form.*list.selection);
    for (const TextField& field : kFields)
        controls_.setSecretText(field.id, form.*field.text);
    controls_.setChecked(kIdUpdateDisabled, form.updateDisabled);
}

SettingsForm SettingsPanel::read() const {
    SettingsForm form;
    for (const ListField& list : kLists)
        form.*list.selection = controls_.selection(list.id);
    for (const TextField& field : kFields)
        form.*field.text = controls_.secretText(field.id);
    form.updateDisabled = controls_.checked(kIdUpdateDisabled);
    return form;
}

SourceKind SettingsPanel::selectedSource() const {
    const int selected = controls_.selection(kIdSource);
    return selected < 0 ? SourceKind::kInternalProfile : static_cast<SourceKind>(selected);
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
