// A GStreamer runtime that the user installed: found, checked and loaded when it is first wanted.
#pragma once

#include <windows.h>

#include <array>
#include <string>

#include "base/unique_win.h"
#include "producers/gst_abi.h"

namespace vextra {

using UniqueDllDirectory = Unique<DLL_DIRECTORY_COOKIE, &RemoveDllDirectory>;

struct GstRuntimePlaces {
    std::wstring installRoot;  // a runtime of the broker's own may lie in its deps\gstreamer
    std::wstring dataFolder;   // for the list of plugins, which is the broker's own
};

// Loading runs foreign code in this process and may take seconds on a cold disk: never on the window's
// thread. SetDefaultDllDirectories with LOAD_LIBRARY_SEARCH_USER_DIRS has to have been called before;
// otherwise the plugins do not find their libraries, and no element exists.
class GstRuntime {
public:
    // The process's one runtime, looked for by the first call, with that call's places. Never unloaded:
    // threads and types of GStreamer live until the process ends. Any thread; the others wait for the first.
    static const GstRuntime& instance(const GstRuntimePlaces& places);

    // Looks for a runtime and loads the first that holds all that the pipeline needs.
    explicit GstRuntime(const GstRuntimePlaces& places);
    ~GstRuntime() { unload(); }
    GstRuntime(const GstRuntime&) = delete;
    GstRuntime& operator=(const GstRuntime&) = delete;

    // Nothing changes any more once the constructor has returned: any thread may ask.
    bool available() const { return available_; }
    const GstApi* api() const { return available_ ? &api_ : nullptr; }
    // Of the libraries; empty: none. Which of several runtimes was taken is asked by tests alone.
    const std::wstring& folder() const { return folder_; }

    // Gives the libraries back. For a runtime in which nothing plays; one that was accepted stays.
    void unload();

private:
    bool loadFrom(const std::wstring& folder);
    bool loadLibraries();
    bool resolve();
    bool initialise();
    bool scanPlugins();
    bool hasElements() const;
    bool hasElement(const char* name) const;

    std::wstring folder_;
    UniqueDllDirectory directory_;
    std::array<UniqueLibrary, std::size(kGstLibraryNames)> libraries_;  // by GstLibrary
    GstApi api_{};
    bool available_ = false;
};

}  // namespace vextra
