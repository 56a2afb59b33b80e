#include <windows.h>

#include <initguid.h>
// The identifiers, in this file.
#include <oleacc.h>

#include <iterator>
#include <string>

#include "ui/accessibility_win.h"

namespace vextra {
namespace {

// Of UI Automation, as its headers have them; older ones lack them.
constexpr GUID kLiveSetting{0xC12BCD8E,
                            0x2A8E,
                            0x4950,
                            {0x8A, 0xE7, 0x36, 0x25, 0x11, 0x1D, 0x58, 0xEB}};  // LiveSetting_Property_GUID
constexpr GUID kHelpText{
    0x08555685, 0x0977, 0x45C7, {0xA7, 0xA6, 0xAB, 0xAF, 0x56, 0x84, 0x12, 0x1A}};  // HelpText_Property_GUID
constexpr long kPolite = 1;

// Readers of either interface ask for one of them.
constexpr const MSAAPROPID* kDescriptions[] = {&PROPID_ACC_DESCRIPTION, &kHelpText};

constexpr DWORD kClient = static_cast<DWORD>(OBJID_CLIENT);

VARIANT numberOf(long value) {
    VARIANT number{};
    number.vt = VT_I4;
    number.lVal = value;
    return number;
}

}  // namespace

Accessibility::Accessibility() {
    void* services = nullptr;
    if (SUCCEEDED(CoCreateInstance(CLSID_AccPropServices, nullptr, CLSCTX_INPROC_SERVER, IID_IAccPropServices,
                                   &services)))
        services_.reset(static_cast<IAccPropServices*>(services));
}

Accessibility::~Accessibility() = default;

bool Accessibility::setName(HWND control, std::wstring_view name) const {
    return services_ && SUCCEEDED(services_.get()->SetHwndPropStr(
                            control, kClient, CHILDID_SELF, PROPID_ACC_NAME, std::wstring(name).c_str()));
}

bool Accessibility::setDescription(HWND control, std::wstring_view description) const {
    if (!services_)
        return false;
    const std::wstring text(description);
    bool taken = true;
    for (const MSAAPROPID* property : kDescriptions) {
        const HRESULT result =
            text.empty()
                ? services_.get()->ClearHwndProps(control, kClient, CHILDID_SELF, property, 1)
                : services_.get()->SetHwndPropStr(control, kClient, CHILDID_SELF, *property, text.c_str());
        taken = SUCCEEDED(result) && taken;
    }
    return taken;
}

bool Accessibility::setTab(HWND control, const SpokenTab& state) const {
    return services_ &&
           SUCCEEDED(services_.get()->SetHwndProp(control, kClient, CHILDID_SELF, PROPID_ACC_ROLE,
                                                  numberOf(ROLE_SYSTEM_PAGETAB))) &&
           setState(control, STATE_SYSTEM_FOCUSABLE | STATE_SYSTEM_SELECTABLE |
                                 (state.selected ? STATE_SYSTEM_SELECTED : 0) |
                                 (state.focused ? STATE_SYSTEM_FOCUSED : 0));
}

bool Accessibility::setFold(HWND button, const SpokenFold& state) const {
    return setState(button, STATE_SYSTEM_FOCUSABLE |
                                (state.open ? STATE_SYSTEM_EXPANDED : STATE_SYSTEM_COLLAPSED) |
                                (state.focused ? STATE_SYSTEM_FOCUSED : 0));
}

bool Accessibility::setPoliteRegion(HWND control) const {
    return services_ && SUCCEEDED(services_.get()->SetHwndProp(control, kClient, CHILDID_SELF, kLiveSetting,
                                                               numberOf(kPolite)));
}

void Accessibility::clear(HWND control) const {
    constexpr const MSAAPROPID* kAll[] = {&PROPID_ACC_NAME, &PROPID_ACC_DESCRIPTION, &kHelpText,
                                          &PROPID_ACC_ROLE, &PROPID_ACC_STATE,       &kLiveSetting};
    if (!services_)
        return;
    for (const MSAAPROPID* property : kAll)
        services_.get()->ClearHwndProps(control, kClient, CHILDID_SELF, property, 1);
}

// In place of the control's own, the focus included: a reader that does not find it there takes no notice.
bool Accessibility::setState(HWND control, long state) const {
    return services_ && SUCCEEDED(services_.get()->SetHwndProp(control, kClient, CHILDID_SELF,
                                                               PROPID_ACC_STATE, numberOf(state)));
}

}  // namespace vextra
