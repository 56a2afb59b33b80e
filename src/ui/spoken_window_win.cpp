#include "ui/spoken_window_win.h"

#include <string>

namespace vextra {
namespace {

constexpr Panel kPanels[] = {Panel::kCamera, Panel::kSettings, Panel::kDiagnostics};

void raise(DWORD event, HWND control) {
    NotifyWinEvent(event, control, OBJID_CLIENT, CHILDID_SELF);
}

}  // namespace

void SpokenWindow::begin(Panel panel, std::wstring_view defaultManifestUrl) {
    system_.emplace();
    for (const Control& control : kControls) {
        if (!control.label.text.empty())
            system_->setName(controls_[control.id], control.label.text);
    }
    system_->setDescription(controls_[kIdCustomUrl], sourceHint(SourceKind::kCustomUrl));
    system_->setDescription(controls_[kIdManifestUrl], emptyManifestHint(defaultManifestUrl));
    system_->setPoliteRegion(controls_[kIdStatusLine]);
    panel_ = panel;
    tellTabs();
    tellAdvanced();
}

void SpokenWindow::end() {
    if (!system_)
        return;
    for (const Control& control : kControls)
        system_->clear(controls_[control.id]);
    system_.reset();
}

void SpokenWindow::describeCamera(const WindowState& state) {
    const SpokenCamera now = spokenCamera(state);
    if (!system_ || camera_ == now)
        return;
    camera_ = now;
    system_->setDescription(controls_[kIdTabCamera], textOf(now));
}

void SpokenWindow::describeFigures(const WindowState& state) {
    const SpokenFigures now = spokenFigures(state);
    if (!system_ || figures_ == now)
        return;
    figures_ = now;
    system_->setDescription(controls_[kIdTabDiagnostics], textOf(now));
}

void SpokenWindow::describeSource(SourceKind selected) {
    if (!system_ || source_ == selected)
        return;
    source_ = selected;
    system_->setDescription(controls_[kIdSource], sourceHint(selected));
}

void SpokenWindow::describeFailure(std::wstring_view reason) {
    if (system_)
        system_->setDescription(controls_[kIdStatusLine], reason);
}

void SpokenWindow::selectPanel(Panel panel) {
    if (panel == panel_)
        return;
    panel_ = panel;
    tellTabs();
    raise(EVENT_OBJECT_SELECTION, controls_[tabOf(panel)]);
}

void SpokenWindow::setAdvanced(bool open) {
    advancedOpen_ = open;
    tellAdvanced();
    raise(EVENT_OBJECT_STATECHANGE, controls_[kIdAdvanced]);
}

void SpokenWindow::moveFocus(ControlId id, bool focused) {
    if (focused)
        focused_ = id;
    else if (focused_ == id)
        focused_.reset();
    if (id == kIdAdvanced)
        tellAdvanced();
    else
        tellTabs();
}

void SpokenWindow::announceStatus() const {
    raise(EVENT_OBJECT_LIVEREGIONCHANGED, controls_[kIdStatusLine]);
}

void SpokenWindow::tellTabs() const {
    if (!system_)
        return;
    for (const Panel panel : kPanels)
        system_->setTab(controls_[tabOf(panel)], {panel == panel_, focused_ == tabOf(panel)});
}

void SpokenWindow::tellAdvanced() const {
    if (system_)
        system_->setFold(controls_[kIdAdvanced], {advancedOpen_, focused_ == kIdAdvanced});
}

}  // namespace vextra
