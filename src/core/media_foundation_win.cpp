#include "core/media_foundation_win.h"

#include <mfapi.h>

#include "base/system_types.h"
#include "base/system_win.h"

namespace vextra {

std::int32_t MediaFoundation::startup() {
    library_ = loadSystemLibrary(L"mfplat.dll");
    const auto start = entryPoint<decltype(MFStartup)>(library_, "MFStartup");
    if (start == nullptr)
        return hresultFromWindowsError(GetLastError());
    return static_cast<std::int32_t>(start(MF_VERSION, MFSTARTUP_FULL));
}

std::int32_t MediaFoundation::shutdown() {
    const auto stop = entryPoint<decltype(MFShutdown)>(library_, "MFShutdown");
    if (stop == nullptr)
        return hresultFromWindowsError(ERROR_PROC_NOT_FOUND);
    return static_cast<std::int32_t>(stop());
}

}  // namespace vextra
