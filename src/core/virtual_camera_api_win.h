// The virtual camera's part of Media Foundation, which this build's compiler has no header for: what a newer
// mfvirtualcamera.h declares, in this program's namespace, so that nothing breaks where there is one.
//
// Names, parameters and numbers are those of the pages of Microsoft's Win32 reference named beside each; the
// order of an interface's methods is that of its table, not the alphabetical one of its page.
#pragma once

#include <windows.h>

#include <devpropdef.h>
#include <mfidl.h>

#include <cstdint>
#include <type_traits>

namespace vextra {

// Page "MFVirtualCameraType enumeration (mfvirtualcamera.h)"
enum MFVirtualCameraType : std::int32_t { MFVirtualCameraType_SoftwareCameraSource = 0 };

// Page "MFVirtualCameraLifetime enumeration (mfvirtualcamera.h)"
enum MFVirtualCameraLifetime : std::int32_t {
    MFVirtualCameraLifetime_Session = 0,
    MFVirtualCameraLifetime_System = 1,
};

// Page "MFVirtualCameraAccess enumeration (mfvirtualcamera.h)"
enum MFVirtualCameraAccess : std::int32_t {
    MFVirtualCameraAccess_CurrentUser = 0,
    MFVirtualCameraAccess_AllUsers = 1,
};

static_assert(MFVirtualCameraType_SoftwareCameraSource == 0 && MFVirtualCameraLifetime_System == 1 &&
              MFVirtualCameraAccess_CurrentUser == 0);
static_assert(sizeof(MFVirtualCameraType) == sizeof(int) && sizeof(MFVirtualCameraLifetime) == sizeof(int) &&
              sizeof(MFVirtualCameraAccess) == sizeof(int));  // as C passes them

struct IMFCamSyncObject;  // never made here

#ifdef __GNUC__
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"  // COM objects release themselves
#endif

// Page "IMFVirtualCamera interface (mfvirtualcamera.h)"; from Windows 11 (build 22000) on. The methods stand
// in the order of the object's table: none may be left out or moved.
// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor): COM objects release themselves
struct DECLSPEC_UUID("1C08A864-EF6C-4C75-AF59-5F2D68DA9563") IMFVirtualCamera : public IMFAttributes {
    virtual HRESULT STDMETHODCALLTYPE AddDeviceSourceInfo(LPCWSTR deviceSourceInfo) = 0;
    virtual HRESULT STDMETHODCALLTYPE AddProperty(const DEVPROPKEY* key, DEVPROPTYPE type, const BYTE* data,
                                                  ULONG dataBytes) = 0;
    virtual HRESULT STDMETHODCALLTYPE AddRegistryEntry(LPCWSTR entryName, LPCWSTR subkeyPath, DWORD type,
                                                       const BYTE* data, ULONG dataBytes) = 0;
    virtual HRESULT STDMETHODCALLTYPE Start(IMFAsyncCallback* callback) = 0;
    virtual HRESULT STDMETHODCALLTYPE Stop() = 0;
    virtual HRESULT STDMETHODCALLTYPE Remove() = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMediaSource(IMFMediaSource** mediaSource) = 0;
    virtual HRESULT STDMETHODCALLTYPE SendCameraProperty(REFGUID propertySet, ULONG propertyId,
                                                         ULONG propertyFlags, void* payload,
                                                         ULONG payloadBytes, void* data, ULONG dataBytes,
                                                         ULONG* dataWritten) = 0;
    virtual HRESULT STDMETHODCALLTYPE CreateSyncEvent(REFGUID eventSet, ULONG eventId, ULONG eventFlags,
                                                      HANDLE event, IMFCamSyncObject** syncObject) = 0;
    virtual HRESULT STDMETHODCALLTYPE CreateSyncSemaphore(REFGUID eventSet, ULONG eventId, ULONG eventFlags,
                                                          HANDLE semaphore, LONG adjustment,
                                                          IMFCamSyncObject** syncObject) = 0;
    virtual HRESULT STDMETHODCALLTYPE Shutdown() = 0;
};

#ifdef __GNUC__
#pragma GCC diagnostic pop
#endif

static_assert(std::is_base_of_v<IMFAttributes, IMFVirtualCamera> &&
              sizeof(IMFVirtualCamera) == sizeof(void*));  // a pointer to the table, and nothing before it

// Page "MFCreateVirtualCamera function (mfvirtualcamera.h)"; mfsensorgroup.dll exports it. Without categories
// the camera is a video camera like any other.
inline constexpr wchar_t kVirtualCameraLibrary[] = L"mfsensorgroup.dll";
inline constexpr char kCreateVirtualCamera[] = "MFCreateVirtualCamera";
using MFCreateVirtualCameraFunction = HRESULT WINAPI(MFVirtualCameraType type,
                                                     MFVirtualCameraLifetime lifetime,
                                                     MFVirtualCameraAccess access, LPCWSTR friendlyName,
                                                     LPCWSTR sourceId, const GUID* categories,
                                                     ULONG categoryCount, IMFVirtualCamera** virtualCamera);

// Page "MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE_VIDCAP_SYMBOLIC_LINK attribute"; the value is mfidl.h's, which
// declares it for a library that the broker does not link.
inline constexpr GUID kVideoCaptureSymbolicLink{
    0x58F0AAD8, 0x22BF, 0x4F8A, {0xBB, 0x3D, 0xD2, 0xC4, 0x97, 0x8C, 0x6E, 0x2F}};

}  // namespace vextra
