// One of the five libraries of a runtime that is no runtime: each call goes on to the GStreamer of the test
// that loaded it (fake_gstreamer.h). VEXTRA_STUB_LIBRARY says which one this is; it exports what that one
// does.
#include <windows.h>

#include <cstdarg>
#include <cstdlib>

#include "stub_gstreamer/fake_gstreamer.h"

namespace {

using namespace vextra;

test::StubWorld& world() {
    char address[32] = {};
    GetEnvironmentVariableA(test::kStubWorldVariable, address, sizeof address);
    return *reinterpret_cast<test::StubWorld*>(std::strtoull(address, nullptr, 16));
}

const GstApi& api() {
    return world().api;
}

}  // namespace

#define STUB_EXPORT extern "C" __declspec(dllexport)

#if VEXTRA_STUB_LIBRARY == 0  // GLib

STUB_EXPORT void g_error_free(GError* error) {
    api().g_error_free(error);
}
STUB_EXPORT void g_free(void* memory) {
    api().g_free(memory);
}

#elif VEXTRA_STUB_LIBRARY == 1  // GObject

STUB_EXPORT void g_object_set(void* object, const char* firstName, ...) {
    va_list rest;
    va_start(rest, firstName);
    world().setProperties(object, firstName, rest);
    va_end(rest);
}
STUB_EXPORT std::uint32_t g_signal_connect_data(void* object, const char* signal, GstSourceSetup handler,
                                                void* userData, void* destroy, std::int32_t flags) {
    return api().g_signal_connect_data(object, signal, handler, userData, destroy, flags);
}

#elif VEXTRA_STUB_LIBRARY == 2  // GStreamer

STUB_EXPORT std::int32_t gst_init_check(std::int32_t* count, char*** arguments, GError** error) {
    return api().gst_init_check(count, arguments, error);
}
STUB_EXPORT void gst_version(std::uint32_t* major, std::uint32_t* minor, std::uint32_t* micro,
                             std::uint32_t* nano) {
    api().gst_version(major, minor, micro, nano);
}
STUB_EXPORT void gst_debug_set_active(std::int32_t active) {
    api().gst_debug_set_active(active);
}
STUB_EXPORT void gst_debug_set_default_threshold(std::int32_t level) {
    api().gst_debug_set_default_threshold(level);
}
STUB_EXPORT GstElementFactory* gst_element_factory_find(const char* name) {
    return api().gst_element_factory_find(name);
}
STUB_EXPORT void gst_object_unref(void* object) {
    api().gst_object_unref(object);
}
STUB_EXPORT void gst_mini_object_unref(void* object) {
    api().gst_mini_object_unref(object);
}
STUB_EXPORT GstElement* gst_parse_launch(const char* description, GError** error) {
    return api().gst_parse_launch(description, error);
}
STUB_EXPORT GstElement* gst_bin_get_by_name(GstElement* bin, const char* name) {
    return api().gst_bin_get_by_name(bin, name);
}
STUB_EXPORT std::int32_t gst_element_set_state(GstElement* element, std::int32_t state) {
    return api().gst_element_set_state(element, state);
}
STUB_EXPORT GstBus* gst_element_get_bus(GstElement* element) {
    return api().gst_element_get_bus(element);
}
STUB_EXPORT GstMessage* gst_bus_pop_filtered(GstBus* bus, std::int32_t types) {
    return api().gst_bus_pop_filtered(bus, types);
}
STUB_EXPORT GstRegistry* gst_registry_get() {
    return api().gst_registry_get();
}
STUB_EXPORT std::int32_t gst_registry_scan_path(GstRegistry* registry, const char* folder) {
    return api().gst_registry_scan_path(registry, folder);
}
STUB_EXPORT GstElementFactory* gst_element_get_factory(GstElement* element) {
    return api().gst_element_get_factory(element);
}
STUB_EXPORT char* gst_object_get_name(void* object) {
    return api().gst_object_get_name(object);
}
STUB_EXPORT GstCaps* gst_caps_from_string(const char* text) {
    return api().gst_caps_from_string(text);
}
STUB_EXPORT GstStructure* gst_caps_get_structure(const GstCaps* caps, std::uint32_t index) {
    return api().gst_caps_get_structure(caps, index);
}
STUB_EXPORT const char* gst_structure_get_string(const GstStructure* structure, const char* key) {
    return api().gst_structure_get_string(structure, key);
}
STUB_EXPORT std::int32_t gst_structure_get_int(const GstStructure* structure, const char* key,
                                               std::int32_t* value) {
    return api().gst_structure_get_int(structure, key, value);
}
STUB_EXPORT std::int32_t gst_structure_get_fraction(const GstStructure* structure, const char* key,
                                                    std::int32_t* numerator, std::int32_t* denominator) {
    return api().gst_structure_get_fraction(structure, key, numerator, denominator);
}
STUB_EXPORT GstCaps* gst_sample_get_caps(GstSample* sample) {
    return api().gst_sample_get_caps(sample);
}
STUB_EXPORT GstBuffer* gst_sample_get_buffer(GstSample* sample) {
    return api().gst_sample_get_buffer(sample);
}
STUB_EXPORT std::int32_t gst_buffer_map(GstBuffer* buffer, GstMapInfo* info, std::int32_t flags) {
    return api().gst_buffer_map(buffer, info, flags);
}
STUB_EXPORT void gst_buffer_unmap(GstBuffer* buffer, GstMapInfo* info) {
    api().gst_buffer_unmap(buffer, info);
}

#elif VEXTRA_STUB_LIBRARY == 3  // the app library

STUB_EXPORT GstSample* gst_app_sink_try_pull_sample(GstElement* sink, std::uint64_t timeoutNs) {
    return api().gst_app_sink_try_pull_sample(sink, timeoutNs);
}
STUB_EXPORT std::int32_t gst_app_sink_is_eos(GstElement* sink) {
    return api().gst_app_sink_is_eos(sink);
}

#elif VEXTRA_STUB_LIBRARY == 4  // the video library

STUB_EXPORT GstVideoMeta* gst_buffer_get_video_meta(GstBuffer* buffer) {
    return api().gst_buffer_get_video_meta(buffer);
}
STUB_EXPORT std::int32_t gst_video_meta_map(GstVideoMeta* meta, std::uint32_t plane, GstMapInfo* info,
                                            void** data, std::int32_t* stride, std::int32_t flags) {
    return api().gst_video_meta_map(meta, plane, info, data, stride, flags);
}
STUB_EXPORT std::int32_t gst_video_meta_unmap(GstVideoMeta* meta, std::uint32_t plane, GstMapInfo* info) {
    return api().gst_video_meta_unmap(meta, plane, info);
}
STUB_EXPORT std::int32_t gst_video_format_from_string(const char* name) {
    return api().gst_video_format_from_string(name);
}

#endif
