// What the main window tells a screen reader of all that it only paints. UI thread only.
#pragma once

#include <optional>
#include <string_view>

#include "ui/accessibility_win.h"
#include "ui/control_set_win.h"
#include "ui/window_view.h"

namespace vextra {

// Each call tells only what differs from the last one, and allocates nothing where nothing does: a timer may
// make them.
class SpokenWindow {
public:
    explicit SpokenWindow(const ControlSet& controls) : controls_(controls) {}

    // As soon as the controls are made, and before they are destroyed; in between there is something to tell.
    void begin(Panel panel, std::wstring_view defaultManifestUrl);
    void end();

    void describeCamera(const WindowState& state);   // on the first tab
    void describeFigures(const WindowState& state);  // on the last one
    void describeSource(SourceKind selected);        // on the list of sources
    void describeFailure(std::wstring_view reason);  // on the status line; empty: none

    void selectPanel(Panel panel);
    void setAdvanced(bool open);
    // Of any control: some say themselves whether they have the focus.
    void moveFocus(ControlId id, bool focused);
    // That the status line's text is another now.
    void announceStatus() const;

private:
    void tellTabs() const;
    void tellAdvanced() const;

    const ControlSet& controls_;
    std::optional<Accessibility> system_;  // from `begin` to `end`
    Panel panel_ = Panel::kCamera;
    bool advancedOpen_ = false;
    std::optional<ControlId> focused_;
    std::optional<SpokenCamera> camera_;
    std::optional<SpokenFigures> figures_;
    std::optional<SourceKind> source_;
};

}  // namespace vextra
