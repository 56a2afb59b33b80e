#include "core/media_foundation_win.h"

#include <mfapi.h>

#include "base/hresult.h"

namespace vextra {
namespace {

template <typename Function>
Function* entryPoint(HMODULE library, const char* name) {
    return reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(library, name)));
}

}  // namespace

std::int32_t MediaFoundation::startup() {
    library_ = LoadLibraryExW(L"mfplat.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    const auto start = library_ != nullptr ? entryPoint<decltype(MFStartup)>(library_, "MFStartup") : nullptr;
    if (start == nullptr)
        return hresultFromWindowsError(GetLastError());
    return static_cast<std::int32_t>(start(MF_VERSION, MFSTARTUP_FULL));
}

std::int32_t MediaFoundation::shutdown() {
    const auto stop =
        library_ != nullptr ? entryPoint<decltype(MFShutdown)>(library_, "MFShutdown") : nullptr;
    if (stop == nullptr)
        return hresultFromWindowsError(ERROR_PROC_NOT_FOUND);
    return static_cast<std::int32_t>(stop());
}

}  // namespace vextra
