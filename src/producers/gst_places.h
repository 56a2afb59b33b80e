// Where a GStreamer runtime is looked for and where its plugins and their list lie; what it has to hold, and
// which of its decoders are left out. Pure.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vextra {

// What the search starts from. Variables of the environment as they stand; empty: not set.
struct GstSearch {
    std::wstring installRoot = {};
    std::wstring msvcRoot = {};  // GSTREAMER_1_0_ROOT_MSVC_X86_64
    std::wstring x64Root = {};   // GSTREAMER_1_0_ROOT_X86_64
    std::wstring programFiles = {};
    std::wstring path = {};
};

// The folders that may hold the libraries, in the order in which they are tried. Each with backslashes only,
// and none at its end but in a drive's root.
std::vector<std::wstring> gstCandidateFolders(const GstSearch& search);

// The plugins of the libraries in `binFolder`, one of those folders.
std::wstring gstPluginFolder(std::wstring_view binFolder);

// Where GStreamer keeps its list of that runtime's plugins, the same for every case of its letters. Each has
// its own: with a list that is current no plugin is loaded to be looked at, and a runtime that is found
// wanting can be unloaded again before the next is tried.
std::wstring gstRegistryFile(std::wstring_view dataFolder, std::wstring_view binFolder);

// A runtime before this one counts as absent: its layouts were never compared with gst_abi.h.
constexpr std::uint32_t kGstMajor = 1;
constexpr std::uint32_t kGstLeastMinor = 18;

// What the pipeline is made of, and what the source element makes inside it.
inline constexpr const char* kGstRequiredElements[] = {"uridecodebin", "decodebin", "queue",   "videoconvert",
                                                       "videoscale",   "videorate", "appsink", "rtspsrc"};
// One of these is enough.
inline constexpr const char* kGstHttpSources[] = {"souphttpsrc", "curlhttpsrc", "winhttpsrc"};

// The value of GST_PLUGIN_FEATURE_RANK while a runtime is loaded. Decoders that leave their pictures in the
// memory of a graphics card outrank the others, and the pipeline takes pictures in ordinary memory only: with
// them it would end in "no suitable plugins found". The user's own value, which may be empty, follows, since
// the last word on an element counts.
std::wstring gstFeatureRanks(std::wstring_view usersValue);

}  // namespace vextra
