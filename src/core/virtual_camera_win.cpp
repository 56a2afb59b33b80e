#include "core/virtual_camera_win.h"

#include "base/product.h"
#include "base/system_types.h"
#include "base/system_win.h"

namespace vextra {
namespace {

// What the camera's media source is registered under, and what applications list.
constexpr wchar_t kSourceId[] = VEXTRA_CAMERA_CLASS_W;
constexpr wchar_t kFriendlyName[] = VEXTRA_CAMERA_NAME_W;
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
    UniqueTaskText text;
    UINT32 length = 0;
    const HRESULT result = camera_->GetAllocatedString(kVideoCaptureSymbolicLink, text.put(), &length);
    if (FAILED(result))
        return result;
    if (!text)
        return E_POINTER;
    link.assign(text.get(), length);
    return result;
}

void VirtualCamera::discard() {
    camera_->Shutdown();
    camera_.reset();
}

}  // namespace vextra
