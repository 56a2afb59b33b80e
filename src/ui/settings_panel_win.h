// The controls of the settings panel as a form. UI thread only.
#pragma once

#include "config/settings_apply.h"
#include "ui/control_set_win.h"

namespace vextra {

class SettingsPanel {
public:
    explicit SettingsPanel(ControlSet& controls) : controls_(controls) {}

    void fillLists();
    void fill(const SettingsForm& form);  // masked, whatever was revealed of the last one
    // What has no control stays as `current` has it.
    SettingsForm read(BrokerSettings current) const;

    // What the source list shows, saved or not.
    SourceKind selectedSource() const;

    void toggleUrl() { showUrl(!urlRevealed_); }
    void hideUrl() { showUrl(false); }  // behind bullets
    void toggleAdvanced() { advancedShown_ = !advancedShown_; }
    bool advancedShown() const { return advancedShown_; }

private:
    void showUrl(bool revealed);

    ControlSet& controls_;
    bool urlRevealed_ = false;
    bool advancedShown_ = false;
};

}  // namespace vextra
