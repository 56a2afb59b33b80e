// A GStreamer that a test makes up: what it is like, the one sample that waits in its sink, and what was
// asked of it. Its table is used directly, or behind the libraries of stub_library_win.cpp.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "bridge/bridge_layout.h"
#include "producers/gst_abi.h"

namespace vextra::test {

// What a stub library needs to reach the test's GStreamer. A variadic call cannot be passed on as one.
struct StubWorld {
    GstApi api{};
    void (*setProperties)(void* object, const char* firstName, va_list rest) = nullptr;
};
// Names the address of the process's StubWorld, in hexadecimal.
inline constexpr char kStubWorldVariable[] = "VEXTRA_TEST_STUB_GSTREAMER";

// One at a time.
class FakeGstreamer {
public:
    FakeGstreamer();
    ~FakeGstreamer();
    FakeGstreamer(const FakeGstreamer&) = delete;
    FakeGstreamer& operator=(const FakeGstreamer&) = delete;

    StubWorld& world() { return world_; }
    const GstApi& api() const { return world_.api; }

    // --- What it is like ---

    std::uint32_t major = 1;
    std::uint32_t minor = 22;
    bool initialises = true;
    std::set<std::string> missingElements;
    enum class Parse { kWhole = 1, kWithError, kNothing };
    Parse parse = Parse::kWhole;
    std::set<std::string> missingNames;  // "frames", "source"
    bool hasBus = true;
    bool makesCaps = true;
    bool connects = true;
    std::int32_t stateChange = 2;  // asynchronous
    std::string sourceFactory = "rtspsrc";
    bool busHasError = false;
    bool streamEnded = false;

    struct Sample {
        bool hasCaps = true;
        bool hasBuffer = true;
        std::optional<std::string> interlaceMode = "progressive";
        std::optional<std::string> format = "BGRA";
        std::optional<std::int32_t> width = 1280;
        std::optional<std::int32_t> height = 720;
        std::optional<std::pair<std::int32_t, std::int32_t>> framerate = {{16, 1}};
        bool hasMeta = true;
        GstVideoMeta meta{};
        bool maps = true;
        std::vector<std::byte> memory;
        std::uint64_t mappedBytes = 0;
        std::size_t topRow = 0;  // offset in `memory`
        std::int32_t stride = 0;
    };
    std::optional<Sample> sample;  // taken by a pull

    // Row y of the picture holds the byte y modulo 251 throughout; padding holds 0xEE.
    static Sample sampleWithStride(std::int32_t stride);
    static Sample goodSample() { return sampleWithStride(kFrameStrideBytes); }

    static constexpr std::int32_t kBgraNumber = 12;

    // --- What was asked of it ---

    std::vector<std::string> calls;  // with their arguments, in order
    std::string pipelineText;
    int handedOut = 0;  // references not given back yet
    int mapped = 0;     // maps not undone yet
    std::int32_t state = kGstStateNull;

    bool wasCalled(const std::string& call) const;
    std::vector<std::string> callsThatBegin(const std::string& beginning) const;

private:
    friend struct FakeCalls;
    void note(std::string call) { calls.push_back(std::move(call)); }

    StubWorld world_;
    GError error_{};
    GstSourceSetup sourceSetup_ = nullptr;
    void* sourceSetupData_ = nullptr;
    Sample current_;  // the one that was pulled
};

}  // namespace vextra::test
