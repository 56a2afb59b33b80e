// The system's service for annotations, as far as a program of ours asks it: Wine has none that works. What
// it was told can be read back.
#pragma once

#include <windows.h>

#include <oleacc.h>

#include <algorithm>
#include <string>
#include <variant>
#include <vector>

#include "import_swap_win.h"

#ifdef __GNUC__  // no interface of COM has a virtual destructor
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
#endif

namespace vextra::test {

// LiveSetting_Property_GUID and HelpText_Property_GUID of UI Automation
inline constexpr GUID kLiveSettingProperty{
    0xC12BCD8E, 0x2A8E, 0x4950, {0x8A, 0xE7, 0x36, 0x25, 0x11, 0x1D, 0x58, 0xEB}};
inline constexpr GUID kHelpTextProperty{
    0x08555685, 0x0977, 0x45C7, {0xA7, 0xA6, 0xAB, 0xAF, 0x56, 0x84, 0x12, 0x1A}};

class RecordingAnnotations : public IAccPropServices {
public:
    using Value = std::variant<std::monostate, std::wstring, long>;  // monostate: nothing

    // What the control itself says by annotation.
    Value value(HWND control, const GUID& property) const {
        const auto at = find(control, property);
        return at != entries_.end() ? at->value : Value{};
    }
    std::wstring text(HWND control, const GUID& property) const {
        const Value found = value(control, property);
        return std::holds_alternative<std::wstring>(found) ? std::get<std::wstring>(found) : std::wstring();
    }
    long number(HWND control, const GUID& property) const {
        const Value found = value(control, property);
        return std::holds_alternative<long>(found) ? std::get<long>(found) : 0;
    }
    std::size_t entries() const { return entries_.size(); }

    int calls = 0;       // of any kind
    int references = 0;  // to this
    HRESULT answer = S_OK;

    HRESULT STDMETHODCALLTYPE SetHwndPropStr(HWND of, DWORD object, DWORD child, MSAAPROPID property,
                                             LPCWSTR text) override {
        return keep(of, object, child, property, std::wstring(text));
    }
    HRESULT STDMETHODCALLTYPE SetHwndProp(HWND of, DWORD object, DWORD child, MSAAPROPID property,
                                          VARIANT number) override {
        return number.vt == VT_I4 ? keep(of, object, child, property, long{number.lVal}) : E_INVALIDARG;
    }
    HRESULT STDMETHODCALLTYPE ClearHwndProps(HWND of, DWORD object, DWORD child, const MSAAPROPID* properties,
                                             int count) override {
        ++calls;
        if (FAILED(answer) || !isTheControlItself(object, child))
            return FAILED(answer) ? answer : E_INVALIDARG;
        for (int i = 0; i < count; ++i) {
            if (const auto at = find(of, properties[i]); at != entries_.end())
                entries_.erase(at);
        }
        return answer;
    }
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(++references); }
    ULONG STDMETHODCALLTYPE Release() override { return static_cast<ULONG>(--references); }

    // The broker does not ask for these.
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
    struct Entry {
        HWND control;
        GUID property;
        Value value;
    };

    static bool isTheControlItself(DWORD object, DWORD child) {
        return object == static_cast<DWORD>(OBJID_CLIENT) && child == CHILDID_SELF;
    }
    std::vector<Entry>::const_iterator find(HWND control, const GUID& property) const {
        return std::find_if(entries_.begin(), entries_.end(), [&](const Entry& entry) {
            return entry.control == control && IsEqualGUID(entry.property, property);
        });
    }
    HRESULT keep(HWND of, DWORD object, DWORD child, const GUID& property, Value value) {
        ++calls;
        if (FAILED(answer) || !isTheControlItself(object, child))
            return FAILED(answer) ? answer : E_INVALIDARG;
        if (const auto at = find(of, property); at != entries_.end())
            entries_.erase(at);
        entries_.push_back({of, property, std::move(value)});
        return answer;
    }

    std::vector<Entry> entries_;
};

// While this lives it is the system's service, for this program. One at a time.
class AnnotationService {
public:
    AnnotationService() { present_ = &service; }
    ~AnnotationService() { present_ = nullptr; }
    AnnotationService(const AnnotationService&) = delete;
    AnnotationService& operator=(const AnnotationService&) = delete;

    void remove() { present_ = nullptr; }  // as on a system that has none

    RecordingAnnotations service;

private:
    static HRESULT WINAPI create(REFCLSID wanted, IUnknown*, DWORD, REFIID kind, void** created) {
        if (present_ == nullptr || !IsEqualGUID(wanted, CLSID_AccPropServices) ||
            !IsEqualGUID(kind, IID_IAccPropServices)) {
            *created = nullptr;
            return REGDB_E_CLASSNOTREG;
        }
        present_->AddRef();
        *created = present_;
        return S_OK;
    }

    inline static RecordingAnnotations* present_ = nullptr;
    const ImportSwap<HRESULT WINAPI(REFCLSID, IUnknown*, DWORD, REFIID, void**)> com_{"CoCreateInstance",
                                                                                      &create};
};

}  // namespace vextra::test
