#include <windows.h>

#include <initguid.h>
// The identifiers, in this file.
#include <oleacc.h>

#include "ui/accessible_names_win.h"

#include <gtest/gtest.h>

#include "import_swap_win.h"
#include "test_window_win.h"

#ifdef __GNUC__  // no interface of COM has a virtual destructor
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
#endif

namespace vextra {
namespace {

// The service that keeps names for screen readers, as far as it is asked; Wine has none that works.
class RecordingService : public IAccPropServices {
public:
    HWND window = nullptr;
    DWORD object = 0;
    DWORD child = 1;
    MSAAPROPID property{};
    std::wstring name;
    int cleared = 0;
    int references = 0;
    HRESULT answer = S_OK;

    HRESULT STDMETHODCALLTYPE SetHwndPropStr(HWND of, DWORD objectId, DWORD childId, MSAAPROPID what,
                                             LPCWSTR text) override {
        note(of, objectId, childId, what);
        name = text;
        return answer;
    }
    HRESULT STDMETHODCALLTYPE ClearHwndProps(HWND of, DWORD objectId, DWORD childId, const MSAAPROPID* what,
                                             int count) override {
        note(of, objectId, childId, *what);
        cleared += count;
        return answer;
    }
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(++references); }
    ULONG STDMETHODCALLTYPE Release() override { return static_cast<ULONG>(--references); }

    // Nobody asks for these.
    HRESULT STDMETHODCALLTYPE SetPropValue(const BYTE*, DWORD, MSAAPROPID, VARIANT) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE SetPropServer(const BYTE*, DWORD, const MSAAPROPID*, int, IAccPropServer*,
                                            AnnoScope) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE ClearProps(const BYTE*, DWORD, const MSAAPROPID*, int) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE SetHwndProp(HWND, DWORD, DWORD, MSAAPROPID, VARIANT) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE SetHwndPropServer(HWND, DWORD, DWORD, const MSAAPROPID*, int, IAccPropServer*,
                                                AnnoScope) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE ComposeHwndIdentityString(HWND, DWORD, DWORD, BYTE**, DWORD*) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE DecomposeHwndIdentityString(const BYTE*, DWORD, HWND*, DWORD*,
                                                          DWORD*) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE SetHmenuProp(HMENU, DWORD, MSAAPROPID, VARIANT) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetHmenuPropStr(HMENU, DWORD, MSAAPROPID, LPCWSTR) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE SetHmenuPropServer(HMENU, DWORD, const MSAAPROPID*, int, IAccPropServer*,
                                                 AnnoScope) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE ClearHmenuProps(HMENU, DWORD, const MSAAPROPID*, int) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE ComposeHmenuIdentityString(HMENU, DWORD, BYTE**, DWORD*) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE DecomposeHmenuIdentityString(const BYTE*, DWORD, HMENU*, DWORD*) override {
        return E_NOTIMPL;
    }

private:
    void note(HWND of, DWORD objectId, DWORD childId, const MSAAPROPID& what) {
        window = of;
        object = objectId;
        child = childId;
        property = what;
    }
};

RecordingService* serviceOfTheSystem = nullptr;  // null: it has none

HRESULT WINAPI createService(REFCLSID service, IUnknown*, DWORD, REFIID kind, void** created) {
    if (serviceOfTheSystem == nullptr || !IsEqualGUID(service, CLSID_AccPropServices) ||
        !IsEqualGUID(kind, IID_IAccPropServices)) {
        *created = nullptr;
        return REGDB_E_CLASSNOTREG;
    }
    serviceOfTheSystem->AddRef();
    *created = serviceOfTheSystem;
    return S_OK;
}

class AccessibleNamesTest : public testing::Test {
protected:
    AccessibleNamesTest() { serviceOfTheSystem = &service; }
    ~AccessibleNamesTest() override { serviceOfTheSystem = nullptr; }

    const test::ImportSwap<HRESULT WINAPI(REFCLSID, IUnknown*, DWORD, REFIID, void**)> com{"CoCreateInstance",
                                                                                           &createService};
    RecordingService service;
    const HWND control = reinterpret_cast<HWND>(0x4321);
};

TEST_F(AccessibleNamesTest, AreSetOnTheControlItself) {
    const AccessibleNames names;
    EXPECT_TRUE(names.set(control, std::wstring_view(L"Usuário RTSP and more", 7)));
    EXPECT_EQ(service.window, control);
    EXPECT_EQ(service.object, static_cast<DWORD>(OBJID_CLIENT));
    EXPECT_EQ(service.child, DWORD{CHILDID_SELF});
    EXPECT_TRUE(IsEqualGUID(service.property, PROPID_ACC_NAME));
    EXPECT_EQ(service.name, L"Usuário");
}

TEST_F(AccessibleNamesTest, AreClearedWhereTheyWereSet) {
    const AccessibleNames names;
    names.clear(control);
    EXPECT_EQ(service.cleared, 1);
    EXPECT_EQ(service.window, control);
    EXPECT_EQ(service.object, static_cast<DWORD>(OBJID_CLIENT));
    EXPECT_EQ(service.child, DWORD{CHILDID_SELF});
    EXPECT_TRUE(IsEqualGUID(service.property, PROPID_ACC_NAME));
}

TEST_F(AccessibleNamesTest, SayWhenAServiceRefuses) {
    service.answer = E_NOTIMPL;
    EXPECT_FALSE(AccessibleNames().set(control, L"name"));
}

TEST_F(AccessibleNamesTest, GiveTheServiceBack) {
    {
        const AccessibleNames names;
        EXPECT_EQ(service.references, 1);
    }
    EXPECT_EQ(service.references, 0);
}

TEST_F(AccessibleNamesTest, AreMissedSilentlyWithoutAService) {
    serviceOfTheSystem = nullptr;
    const AccessibleNames names;
    EXPECT_FALSE(names.set(control, L"name"));
    names.clear(control);
}

}  // namespace
}  // namespace vextra
