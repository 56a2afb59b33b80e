#include "core/virtual_camera_win.h"

#include <memory>

#include "base/system_library_win.h"
#include "base/system_types.h"

namespace vextra {
namespace {

// What the camera's media source is registered under, and what applications list.
constexpr wchar_t kSourceId[] = L"{F7E23FCF-2FFF-4D62-BB1C-50891180E2CC}";
constexpr wchar_t kFriendlyName[] = L"Camera Virtual Vextra MF 0.2 beta";
static_assert(sizeof kSourceId / sizeof kSourceId[0] == 38 + 1);  // a class id in text, with its braces

}  // namespace

std::int32_t VirtualCamera::create() {
    const auto createCamera = entryPoint<MFCreateVirtualCameraFunction>(
        loadSystemLibrary(kVirtualCameraLibrary), kCreateVirtualCamera);
    if (createCamera == nullptr)
        return hresultFromWindowsError(GetLastError());
    // For the whole life of the system and this user alone: no elevation needed, and no other account sees
    // it.
    const HRESULT result =
        createCamera(MFVirtualCameraType_SoftwareCameraSource, MFVirtualCameraLifetime_System,
                     MFVirtualCameraAccess_CurrentUser, kFriendlyName, kSourceId, nullptr, 0, camera_.put());
    return SUCCEEDED(result) && !camera_ ? E_POINTER : result;
}

std::int32_t VirtualCamera::start() {
    return camera_->Start(nullptr);
}

std::int32_t VirtualCamera::remove() {
    return camera_->Remove();
}

std::int32_t VirtualCamera::readLink(std::wstring& link) {
    LPWSTR text = nullptr;
    UINT32 length = 0;
    const HRESULT result = camera_->GetAllocatedString(kVideoCaptureSymbolicLink, &text, &length);
    const std::unique_ptr<wchar_t, decltype(&CoTaskMemFree)> owner(text, &CoTaskMemFree);
    if (FAILED(result))
        return result;
    if (text == nullptr)
        return E_POINTER;
    link.assign(text, length);
    return result;
}

void VirtualCamera::discard() {
    camera_->Shutdown();
    camera_.reset();
}

}  // namespace vextra
