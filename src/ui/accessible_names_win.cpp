#include <windows.h>

#include <initguid.h>
// The identifiers, in this file.
#include <oleacc.h>

#include <string>

#include "ui/accessible_names_win.h"

namespace vextra {

AccessibleNames::AccessibleNames() {
    void* services = nullptr;
    if (SUCCEEDED(CoCreateInstance(CLSID_AccPropServices, nullptr, CLSCTX_INPROC_SERVER, IID_IAccPropServices,
                                   &services)))
        services_.reset(static_cast<IAccPropServices*>(services));
}

AccessibleNames::~AccessibleNames() = default;

bool AccessibleNames::set(HWND control, std::wstring_view name) const {
    return services_ &&
           SUCCEEDED(services_.get()->SetHwndPropStr(control, static_cast<DWORD>(OBJID_CLIENT), CHILDID_SELF,
                                                     PROPID_ACC_NAME, std::wstring(name).c_str()));
}

void AccessibleNames::clear(HWND control) const {
    MSAAPROPID name = PROPID_ACC_NAME;
    if (services_)
        services_.get()->ClearHwndProps(control, static_cast<DWORD>(OBJID_CLIENT), CHILDID_SELF, &name, 1);
}

}  // namespace vextra
