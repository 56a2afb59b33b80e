// What the GStreamer backend asks for and what it takes: the fixed pipeline, what a source may be, and the
// one shape of a frame. Everything a runtime hands over is checked here before a byte of it is used. Pure.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "base/secret.h"
#include "producers/backend_choice.h"
#include "producers/gst_abi.h"

namespace vextra {

// The queue and the sink drop the oldest, so that a slow reader always gets the newest picture.
inline constexpr char kGstPipelineText[] =
    "uridecodebin name=source ! queue max-size-buffers=2 max-size-bytes=0 max-size-time=0 leaky=downstream ! "
    "videoconvert ! videoscale ! videorate ! "
    "video/x-raw,format=BGRA,width=1280,height=720,framerate=16/1,pixel-aspect-ratio=1/1,"
    "interlace-mode=progressive ! "
    "appsink name=frames max-buffers=1 drop=true sync=true emit-signals=false wait-on-eos=false";

constexpr std::uint32_t kGstMaxLatencyMs = 10'000;
constexpr std::uint64_t kGstPullTimeoutNs = 125'000'000;  // two frames
constexpr std::uint64_t kGstRtspTimeoutUs = 5'000'000;

// GStreamer's own flags.
enum class GstRtspLowerTransport : std::uint32_t { kUdp = 1, kTcp = 4 };

struct GstInput {
    std::wstring_view url;
    RtspTransport transport = RtspTransport::kTcp;
    std::uint32_t latencyMs = 0;  // used by RTSP only
};

// Empty when such a start may be tried, otherwise why not, in the user's words.
std::wstring_view gstStartRefusal(const GstInput& input, bool runtimeAvailable);

std::wstring_view gstAvailabilityText(bool runtimeAvailable);

// The address as the source element takes it: UTF-8, and the scheme in small letters, for GStreamer compares
// it as it stands. Empty when it is no text.
SecretUtf8 gstSourceUri(std::wstring_view url);

// Fields of a sample's caps; a null text or a 0 is one that the caps do not have.
struct GstFrameCaps {
    const char* interlaceMode = nullptr;
    const char* format = nullptr;
    std::int32_t width = 0;
    std::int32_t height = 0;
    std::int32_t rateNumerator = 0;
    std::int32_t rateDenominator = 0;
};
bool gstCapsInContract(const GstFrameCaps& caps);

// `bgra`: the number of that format in the runtime at hand.
bool gstMetaInContract(const GstVideoMeta& meta, std::int32_t bgra);

// A mapped plane. With a negative stride the rows are stored from the bottom, `topRow` is the last of them,
// and the others lie before it.
struct GstPlane {
    const std::byte* memory = nullptr;
    std::uint64_t sizeBytes = 0;  // of `memory`
    const std::byte* topRow = nullptr;
    std::int32_t strideBytes = 0;
};

// Copies 720 rows, top row first and without padding, into kFrameBytes at `destination`; null only checks.
// False, and nothing is copied, when a row would not lie inside the mapped memory.
bool gstCopyPlane(const GstPlane& plane, std::byte* destination);

// The same for memory that says nothing of its shape: it has to be one frame exactly.
bool gstCopyPacked(const std::byte* memory, std::uint64_t sizeBytes, std::byte* destination);

}  // namespace vextra
