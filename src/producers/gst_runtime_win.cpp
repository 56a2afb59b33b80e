#include "producers/gst_runtime_win.h"

#include <algorithm>
#include <optional>
#include <type_traits>
#include <vector>

#include "base/system_win.h"
#include "base/text.h"
#include "producers/gst_places.h"

namespace vextra {
namespace {

// For this process, until this ends: a decoder that is started later inherits nothing of it.
class TemporaryVariable {
public:
    TemporaryVariable(const wchar_t* name, const std::wstring& value)
        : name_(name), before_(environmentVariable(name)) {
        SetEnvironmentVariableW(name_, value.c_str());
    }
    ~TemporaryVariable() { SetEnvironmentVariableW(name_, before_ ? before_->c_str() : nullptr); }
    TemporaryVariable(const TemporaryVariable&) = delete;
    TemporaryVariable& operator=(const TemporaryVariable&) = delete;

private:
    const wchar_t* const name_;
    const std::optional<std::wstring> before_;
};

// GStreamer keeps a list of its plugins in the user's profile. Another program that could not load them there
// leaves a list without them, so ours is a file of our own. A list that the user named is used as it is.
class OwnRegistry {
public:
    OwnRegistry(const std::wstring& dataFolder, const std::wstring& binFolder) {
        if (!environmentVariable(L"GST_REGISTRY_1_0") && !environmentVariable(L"GST_REGISTRY"))
            registry_.emplace(L"GST_REGISTRY_1_0", gstRegistryFile(dataFolder, binFolder));
    }

private:
    std::optional<TemporaryVariable> registry_;
};

bool isFile(const std::wstring& path) {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

// The library in its MSVC spelling or, where that does not exist, its MinGW one. Empty: neither.
std::wstring libraryFile(const std::wstring& folder, const wchar_t* name) {
    for (const wchar_t* prefix : {L"\\", L"\\lib"}) {
        if (std::wstring path = folder + prefix + name; isFile(path))
            return path;
    }
    return {};
}

GstSearch searchOfThisMachine(const std::wstring& installRoot) {
    return {.installRoot = installRoot,
            .msvcRoot = environmentVariable(L"GSTREAMER_1_0_ROOT_MSVC_X86_64").value_or(L""),
            .x64Root = environmentVariable(L"GSTREAMER_1_0_ROOT_X86_64").value_or(L""),
            .programFiles = environmentVariable(L"ProgramFiles").value_or(L""),
            .path = environmentVariable(L"PATH").value_or(L"")};
}

}  // namespace

const GstRuntime& GstRuntime::instance(const GstRuntimePlaces& places) {
    static const GstRuntime* const runtime = new GstRuntime(places);  // never deleted, never unloaded
    return *runtime;
}

GstRuntime::GstRuntime(const GstRuntimePlaces& places) {
    const TemporaryVariable ranks(
        L"GST_PLUGIN_FEATURE_RANK",
        gstFeatureRanks(environmentVariable(L"GST_PLUGIN_FEATURE_RANK").value_or(L"")));
    // From 1.24 on a process of its own looks at the plugins, outside the job that ends our decoders: with
    // the broker killed it would go on, and the Supervisor may wait a minute for each plugin that hangs in
    // it.
    const TemporaryVariable noHelperProcess(L"GST_REGISTRY_FORK", L"no");
    const std::vector<std::wstring> folders = gstCandidateFolders(searchOfThisMachine(places.installRoot));
    available_ = std::ranges::any_of(folders, [&](const std::wstring& folder) {
        const OwnRegistry registry(places.dataFolder, folder);
        if (loadFrom(folder))
            return true;
        // Also after its initialisation: a library that stays would be taken for the next runtime's by name.
        unload();
        return false;
    });
}

bool GstRuntime::loadFrom(const std::wstring& folder) {
    folder_ = folder;
    if (libraryFile(folder, kGstLibraryNames[static_cast<std::size_t>(GstLibrary::kGstreamer)]).empty())
        return false;
    directory_.reset(AddDllDirectory(folder.c_str()));
    return directory_ && loadLibraries() && resolve() && initialise() && scanPlugins() && hasElements();
}

bool GstRuntime::loadLibraries() {
    std::array<std::wstring, std::size(kGstLibraryNames)> files;
    for (std::size_t i = 0; i < files.size(); ++i) {
        files[i] = libraryFile(folder_, kGstLibraryNames[i]);
        // One of this name may still be there from a runtime that was rejected late, for GStreamer never lets
        // go of a plugin. The others would be bound to it by its name, not to their own.
        if (files[i].empty() || GetModuleHandleW(files[i].c_str() + folder_.size() + 1) != nullptr)
            return false;
    }
    for (std::size_t i = 0; i < files.size(); ++i) {
        // What it imports comes from its own folder or the system's, never from the search path.
        libraries_[i].reset(LoadLibraryExW(
            files[i].c_str(), nullptr, LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_DEFAULT_DIRS));
        if (!libraries_[i])
            return false;
    }
    return true;
}

bool GstRuntime::resolve() {
    return visitGstEntryPoints(api_, [this](GstLibrary library, const char* name, auto& function) {
        using Function = std::remove_pointer_t<std::remove_reference_t<decltype(function)>>;
        function = entryPoint<Function>(libraries_[static_cast<std::size_t>(library)].get(), name);
        return function != nullptr;
    });
}

bool GstRuntime::initialise() {
    std::uint32_t major = 0;
    std::uint32_t minor = 0;
    std::uint32_t micro = 0;
    std::uint32_t nano = 0;
    api_.gst_version(&major, &minor, &micro, &nano);
    if (major != kGstMajor || minor < kGstLeastMinor)
        return false;
    // Before and after: initialising reads GST_DEBUG, and its lines would hold addresses.
    const auto silence = [this] {
        api_.gst_debug_set_active(kGstFalse);
        api_.gst_debug_set_default_threshold(kGstDebugLevelNone);
    };
    silence();
    GError* error = nullptr;
    const bool initialised = api_.gst_init_check(nullptr, nullptr, &error) != kGstFalse;
    if (error != nullptr)
        api_.g_error_free(error);
    if (initialised)
        silence();
    return initialised;
}

bool GstRuntime::scanPlugins() {
    const SecretUtf8 folder = toUtf8Strict(gstPluginFolder(folder_));
    if (folder.empty())
        return false;
    api_.gst_registry_scan_path(api_.gst_registry_get(), folder.c_str());  // false: nothing has changed
    return true;
}

bool GstRuntime::hasElement(const char* name) const {
    GstElementFactory* const factory = api_.gst_element_factory_find(name);
    if (factory == nullptr)
        return false;
    api_.gst_object_unref(factory);
    return true;
}

bool GstRuntime::hasElements() const {
    const auto exists = [this](const char* name) { return hasElement(name); };
    return std::ranges::all_of(kGstRequiredElements, exists) && std::ranges::any_of(kGstHttpSources, exists);
}

void GstRuntime::unload() {
    available_ = false;
    std::for_each(libraries_.rbegin(), libraries_.rend(), [](auto& library) { library.reset(); });
    directory_.reset();
    api_ = {};
    folder_.clear();
}

}  // namespace vextra
