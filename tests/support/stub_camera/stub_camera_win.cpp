// The stub mfsensorgroup.dll: a virtual camera that writes down how it was called (stub_camera.h). It does
// not know the broker's declaration of the interface: its table is filled by number, so that a method in the
// wrong place is seen as a call of the wrong method.
#define INITGUID
#include <windows.h>

#include <mfapi.h>
#include <mfidl.h>
#include <objbase.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <string>
#include <utility>

#include "base/text.h"
#include "base/unique_win.h"
#include "stub_camera/stub_camera.h"

namespace {

using namespace vextra;

std::wstring variable(const wchar_t* name) {
    wchar_t value[1024] = L"";
    const DWORD length = GetEnvironmentVariableW(name, value, ARRAYSIZE(value));
    return {value, length < ARRAYSIZE(value) ? length : 0};
}

void record(const std::wstring& line) {
    const UniqueFile file(CreateFileW(variable(test::kCameraRecordVariable).c_str(), FILE_APPEND_DATA,
                                      FILE_SHARE_READ, nullptr, OPEN_ALWAYS, 0, nullptr));
    const std::string bytes = utf8FromWide(line + L"\n");
    DWORD written = 0;
    WriteFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
}

// What the test wants this call to answer; `otherwise` when it wants nothing.
HRESULT answer(const std::wstring& call, HRESULT otherwise = S_OK) {
    const std::wstring wanted = variable(test::kCameraAnswerVariable);
    if (!wanted.starts_with(call + L"="))
        return otherwise;
    return static_cast<HRESULT>(std::wcstoul(wanted.c_str() + call.size() + 1, nullptr, 16));
}

std::wstring apartment() {
    APTTYPE type{};
    APTTYPEQUALIFIER qualifier{};
    if (FAILED(CoGetApartmentType(&type, &qualifier)))
        return L"none";
    return type == APTTYPE_MTA ? L"multithreaded" : L"other";
}

// Work queues exist only between MFStartup and MFShutdown.
std::wstring mediaFoundationRuns() {
    using Lock = HRESULT WINAPI(DWORD*);
    using Unlock = HRESULT WINAPI(DWORD);
    const HMODULE library = GetModuleHandleW(L"mfplat.dll");
    if (library == nullptr)
        return L"no";
    const auto allocate =
        reinterpret_cast<Lock*>(reinterpret_cast<void*>(GetProcAddress(library, "MFAllocateWorkQueue")));
    const auto unlock =
        reinterpret_cast<Unlock*>(reinterpret_cast<void*>(GetProcAddress(library, "MFUnlockWorkQueue")));
    DWORD queue = 0;
    if (FAILED(allocate(&queue)))
        return L"no";
    unlock(queue);
    return L"yes";
}

std::wstring textOrNull(const wchar_t* text) {
    return text != nullptr ? L"\"" + std::wstring(text) + L"\"" : L"null";
}

// --- The camera ---

struct Camera {
    const void* const* table;
    int references;
};

ULONG STDMETHODCALLTYPE addReference(Camera* camera) {
    return static_cast<ULONG>(++camera->references);
}

ULONG STDMETHODCALLTYPE releaseReference(Camera* camera) {
    const int left = --camera->references;
    record(L"release left=" + std::to_wstring(left) + L" mf=" + mediaFoundationRuns());
    return static_cast<ULONG>(left);
}

HRESULT STDMETHODCALLTYPE getAllocatedString(Camera*, const GUID& key, wchar_t** text, UINT32* length) {
    const bool link = key == MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE_VIDCAP_SYMBOLIC_LINK;
    record(std::wstring(L"link attribute=") + (link ? L"symbolic-link" : L"other"));
    if (const HRESULT result = answer(L"link"); FAILED(result))
        return result;
    *text = static_cast<wchar_t*>(CoTaskMemAlloc(sizeof test::kCameraLink));
    std::memcpy(*text, test::kCameraLink, sizeof test::kCameraLink);
    *length = ARRAYSIZE(test::kCameraLink) - 1;
    return S_OK;
}

HRESULT STDMETHODCALLTYPE startCamera(Camera*, const void* callback) {
    record(std::wstring(L"start callback=") + (callback != nullptr ? L"some" : L"null"));
    return answer(L"start");
}

HRESULT STDMETHODCALLTYPE removeCamera(Camera*) {
    record(L"remove");
    return answer(L"remove");
}

HRESULT STDMETHODCALLTYPE shutDownCamera(Camera*) {
    record(L"shutdown");
    return answer(L"shutdown");
}

template <std::size_t Slot>
HRESULT STDMETHODCALLTYPE unexpected(Camera*) {
    record(L"unexpected slot=" + std::to_wstring(Slot));
    return E_NOTIMPL;
}

// Three methods of IUnknown, thirty of IMFAttributes, eleven of the camera's own.
constexpr std::size_t kSlots = 3 + 30 + 11;
using Table = std::array<const void*, kSlots>;

template <std::size_t... Slot>
Table unexpectedTable(std::index_sequence<Slot...>) {
    return {reinterpret_cast<const void*>(&unexpected<Slot>)...};
}

Table cameraTable() {
    Table table = unexpectedTable(std::make_index_sequence<kSlots>{});
    table[1] = reinterpret_cast<const void*>(&addReference);
    table[2] = reinterpret_cast<const void*>(&releaseReference);
    table[13] = reinterpret_cast<const void*>(&getAllocatedString);
    table[36] = reinterpret_cast<const void*>(&startCamera);
    table[38] = reinterpret_cast<const void*>(&removeCamera);
    table[43] = reinterpret_cast<const void*>(&shutDownCamera);
    return table;
}

}  // namespace

extern "C" __declspec(dllexport) HRESULT WINAPI
    MFCreateVirtualCamera(int type, int lifetime, int access, const wchar_t* friendlyName,
                          const wchar_t* sourceId, const GUID* categories, ULONG categoryCount,
                          void** camera) {
    static const Table table = cameraTable();
    static Camera made{table.data(), 1};
    record(L"create type=" + std::to_wstring(type) + L" lifetime=" + std::to_wstring(lifetime) + L" access=" +
           std::to_wstring(access) + L" name=" + textOrNull(friendlyName) + L" source=" +
           textOrNull(sourceId) + L" categories=" + (categories != nullptr ? L"some" : L"null") + L" count=" +
           std::to_wstring(categoryCount) + L" apartment=" + apartment() + L" mf=" + mediaFoundationRuns());
    constexpr HRESULT kNoWish = 1;
    const HRESULT wanted = answer(L"create", kNoWish);
    *camera = wanted == kNoWish ? &made : nullptr;
    return wanted == kNoWish ? S_OK : wanted;
}
