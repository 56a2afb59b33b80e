// The part of GStreamer's binary interface that the backend uses, for 64-bit Windows: the runtime is found
// and loaded when the broker runs, so there is no header of GStreamer to compile against. Names and layouts
// are GStreamer's own (gstreamer.freedesktop.org/documentation) and have been the same from 1.18 to 1.28.
// Pure.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vextra {

// Known by their addresses only. Elements, bins and sinks are one type here: the calls check it themselves.
struct GstElement;
struct GstElementFactory;
struct GstBus;
struct GstMessage;
struct GstRegistry;
struct GstCaps;
struct GstStructure;
struct GstSample;
struct GstBuffer;

struct GError {
    std::uint32_t domain;
    std::int32_t code;
    char* message;
};
static_assert(sizeof(GError) == 16 && offsetof(GError, code) == 4 && offsetof(GError, message) == 8);

struct GstMapInfo {
    void* memory;
    std::int32_t flags;
    std::byte* data;
    std::uint64_t size;  // bytes that may be read at `data`
    std::uint64_t maxsize;
    void* userData[4];
    void* reserved[4];
};
static_assert(sizeof(GstMapInfo) == 104 && offsetof(GstMapInfo, flags) == 8);
static_assert(offsetof(GstMapInfo, data) == 16 && offsetof(GstMapInfo, size) == 24);
static_assert(offsetof(GstMapInfo, maxsize) == 32 && offsetof(GstMapInfo, userData) == 40);
static_assert(offsetof(GstMapInfo, reserved) == 72);

struct GstVideoMeta {
    std::byte meta[16];
    GstBuffer* buffer;
    std::int32_t flags;   // 0: a plain progressive picture
    std::int32_t format;  // as gst_video_format_from_string numbers them
    std::int32_t id;
    std::uint32_t width;   // pixels
    std::uint32_t height;  // pixels
    std::uint32_t planes;
    std::uint64_t offset[4];  // bytes
    std::int32_t stride[4];   // bytes; negative where rows are stored from the bottom
    void* map;
    void* unmap;
    std::byte alignment[32];
};
static_assert(sizeof(GstVideoMeta) == 144 && offsetof(GstVideoMeta, buffer) == 16);
static_assert(offsetof(GstVideoMeta, flags) == 24 && offsetof(GstVideoMeta, format) == 28);
static_assert(offsetof(GstVideoMeta, id) == 32 && offsetof(GstVideoMeta, width) == 36);
static_assert(offsetof(GstVideoMeta, height) == 40 && offsetof(GstVideoMeta, planes) == 44);
static_assert(offsetof(GstVideoMeta, offset) == 48 && offsetof(GstVideoMeta, stride) == 80);
static_assert(offsetof(GstVideoMeta, map) == 96 && offsetof(GstVideoMeta, unmap) == 104);
static_assert(offsetof(GstVideoMeta, alignment) == 112);

constexpr std::int32_t kGstFalse = 0;
constexpr std::int32_t kGstDebugLevelNone = 0;
constexpr std::int32_t kGstStateNull = 1;
constexpr std::int32_t kGstStatePlaying = 4;
constexpr std::int32_t kGstStateChangeFailure = 0;  // success, asynchronous and no preroll are 1 to 3
constexpr std::int32_t kGstMessageError = 2;
constexpr std::int32_t kGstMapRead = 1;

using GstSourceSetup = void (*)(GstElement* bin, GstElement* source, void* userData);

// The entry points. All are resolved, or there is no table (see GstRuntime).
struct GstApi {
    std::int32_t (*gst_init_check)(std::int32_t* count, char*** arguments, GError** error);
    void (*gst_version)(std::uint32_t* major, std::uint32_t* minor, std::uint32_t* micro,
                        std::uint32_t* nano);
    void (*gst_debug_set_active)(std::int32_t active);
    void (*gst_debug_set_default_threshold)(std::int32_t level);
    GstElementFactory* (*gst_element_factory_find)(const char* name);
    void (*gst_object_unref)(void* object);
    void (*gst_mini_object_unref)(void* object);
    GstElement* (*gst_parse_launch)(const char* description, GError** error);
    GstElement* (*gst_bin_get_by_name)(GstElement* bin, const char* name);
    std::int32_t (*gst_element_set_state)(GstElement* element, std::int32_t state);
    GstBus* (*gst_element_get_bus)(GstElement* element);
    GstMessage* (*gst_bus_pop_filtered)(GstBus* bus, std::int32_t types);
    GstRegistry* (*gst_registry_get)();
    std::int32_t (*gst_registry_scan_path)(GstRegistry* registry, const char* folderUtf8);
    GstElementFactory* (*gst_element_get_factory)(GstElement* element);  // borrowed
    char* (*gst_object_get_name)(void* object);                          // for g_free
    GstCaps* (*gst_caps_from_string)(const char* text);
    GstStructure* (*gst_caps_get_structure)(const GstCaps* caps, std::uint32_t index);        // borrowed
    const char* (*gst_structure_get_string)(const GstStructure* structure, const char* key);  // borrowed
    std::int32_t (*gst_structure_get_int)(const GstStructure* structure, const char* key,
                                          std::int32_t* value);
    std::int32_t (*gst_structure_get_fraction)(const GstStructure* structure, const char* key,
                                               std::int32_t* numerator, std::int32_t* denominator);
    GstCaps* (*gst_sample_get_caps)(GstSample* sample);      // borrowed
    GstBuffer* (*gst_sample_get_buffer)(GstSample* sample);  // borrowed
    std::int32_t (*gst_buffer_map)(GstBuffer* buffer, GstMapInfo* info, std::int32_t flags);
    void (*gst_buffer_unmap)(GstBuffer* buffer, GstMapInfo* info);
    GstSample* (*gst_app_sink_try_pull_sample)(GstElement* sink, std::uint64_t timeoutNs);
    std::int32_t (*gst_app_sink_is_eos)(GstElement* sink);
    GstVideoMeta* (*gst_buffer_get_video_meta)(GstBuffer* buffer);  // borrowed, may be null
    std::int32_t (*gst_video_meta_map)(GstVideoMeta* meta, std::uint32_t plane, GstMapInfo* info, void** data,
                                       std::int32_t* stride, std::int32_t flags);
    std::int32_t (*gst_video_meta_unmap)(GstVideoMeta* meta, std::uint32_t plane, GstMapInfo* info);
    std::int32_t (*gst_video_format_from_string)(const char* name);
    // Name and value in turns, ended by a null pointer. A value has to have the property's own width: 64-bit
    // properties take 64-bit values.
    void (*g_object_set)(void* object, const char* firstName, ...);
    // Returns a gulong, which has 4 bytes on Windows; 0 is failure.
    std::uint32_t (*g_signal_connect_data)(void* object, const char* signal, GstSourceSetup handler,
                                           void* userData, void* destroy, std::int32_t flags);
    void (*g_error_free)(GError* error);
    void (*g_free)(void* memory);
};
constexpr std::size_t kGstEntryPoints = 35;
static_assert(sizeof(GstApi) == kGstEntryPoints * sizeof(void*));

// In loading order: each needs those before it.
enum class GstLibrary : std::uint32_t { kGlib = 0, kGobject, kGstreamer, kApp, kVideo };
inline constexpr const wchar_t* kGstLibraryNames[] = {L"glib-2.0-0.dll", L"gobject-2.0-0.dll",
                                                      L"gstreamer-1.0-0.dll", L"gstapp-1.0-0.dll",
                                                      L"gstvideo-1.0-0.dll"};

// Calls `visit(library, name, member)` for each entry point in the order in which they are looked up, until
// one returns false. True when none did.
template <typename Visit>
bool visitGstEntryPoints(GstApi& api, Visit visit) {
    using enum GstLibrary;
    return visit(kGstreamer, "gst_init_check", api.gst_init_check) &&
           visit(kGstreamer, "gst_version", api.gst_version) &&
           visit(kGstreamer, "gst_debug_set_active", api.gst_debug_set_active) &&
           visit(kGstreamer, "gst_debug_set_default_threshold", api.gst_debug_set_default_threshold) &&
           visit(kGstreamer, "gst_element_factory_find", api.gst_element_factory_find) &&
           visit(kGstreamer, "gst_object_unref", api.gst_object_unref) &&
           visit(kGstreamer, "gst_mini_object_unref", api.gst_mini_object_unref) &&
           visit(kGstreamer, "gst_parse_launch", api.gst_parse_launch) &&
           visit(kGstreamer, "gst_bin_get_by_name", api.gst_bin_get_by_name) &&
           visit(kGstreamer, "gst_element_set_state", api.gst_element_set_state) &&
           visit(kGstreamer, "gst_element_get_bus", api.gst_element_get_bus) &&
           visit(kGstreamer, "gst_bus_pop_filtered", api.gst_bus_pop_filtered) &&
           visit(kGstreamer, "gst_registry_get", api.gst_registry_get) &&
           visit(kGstreamer, "gst_registry_scan_path", api.gst_registry_scan_path) &&
           visit(kGstreamer, "gst_element_get_factory", api.gst_element_get_factory) &&
           visit(kGstreamer, "gst_object_get_name", api.gst_object_get_name) &&
           visit(kGstreamer, "gst_caps_from_string", api.gst_caps_from_string) &&
           visit(kGstreamer, "gst_caps_get_structure", api.gst_caps_get_structure) &&
           visit(kGstreamer, "gst_structure_get_string", api.gst_structure_get_string) &&
           visit(kGstreamer, "gst_structure_get_int", api.gst_structure_get_int) &&
           visit(kGstreamer, "gst_structure_get_fraction", api.gst_structure_get_fraction) &&
           visit(kGstreamer, "gst_sample_get_caps", api.gst_sample_get_caps) &&
           visit(kGstreamer, "gst_sample_get_buffer", api.gst_sample_get_buffer) &&
           visit(kGstreamer, "gst_buffer_map", api.gst_buffer_map) &&
           visit(kGstreamer, "gst_buffer_unmap", api.gst_buffer_unmap) &&
           visit(kApp, "gst_app_sink_try_pull_sample", api.gst_app_sink_try_pull_sample) &&
           visit(kApp, "gst_app_sink_is_eos", api.gst_app_sink_is_eos) &&
           visit(kVideo, "gst_buffer_get_video_meta", api.gst_buffer_get_video_meta) &&
           visit(kVideo, "gst_video_meta_map", api.gst_video_meta_map) &&
           visit(kVideo, "gst_video_meta_unmap", api.gst_video_meta_unmap) &&
           visit(kVideo, "gst_video_format_from_string", api.gst_video_format_from_string) &&
           visit(kGobject, "g_object_set", api.g_object_set) &&
           visit(kGobject, "g_signal_connect_data", api.g_signal_connect_data) &&
           visit(kGlib, "g_error_free", api.g_error_free) && visit(kGlib, "g_free", api.g_free);
}

}  // namespace vextra
