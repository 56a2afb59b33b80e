#include "producers/gst_contract.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "base/text.h"
#include "bridge/bridge_layout.h"

namespace vextra {
namespace {

// Only these: other schemes would make the source element open files or devices.
constexpr std::wstring_view kSchemes[] = {L"rtsp://", L"rtsps://", L"http://", L"https://"};

bool isNetworkAddress(std::wstring_view url) {
    return std::ranges::any_of(kSchemes, [&](std::wstring_view scheme) {
        return url.size() > scheme.size() && equalsIgnoringAsciiCase(url.substr(0, scheme.size()), scheme);
    });
}

bool equals(const char* text, std::string_view wanted) {
    return text != nullptr && text == wanted;
}

}  // namespace

std::wstring_view gstAvailabilityText(bool runtimeAvailable) {
    return runtimeAvailable ? L"GStreamer disponível (codec da origem ainda depende do runtime)."
                            : L"GStreamer indisponível: runtime x64 ou plugins obrigatórios não encontrados.";
}

std::wstring_view gstStartRefusal(const GstInput& input, bool runtimeAvailable) {
    // No setting gives a third.
    if (input.transport != RtspTransport::kTcp && input.transport != RtspTransport::kUdp)
        return L"Transporte inválido: use TCP ou UDP.";
    if (input.latencyMs > kGstMaxLatencyMs)
        return L"Latência GStreamer deve estar entre 0 e 10000 ms.";
    if (!runtimeAvailable)
        return gstAvailabilityText(runtimeAvailable);
    if (!isNetworkAddress(input.url))
        return L"Origem inválida: informe uma URL HTTP, HTTPS, RTSP ou RTSPS.";
    return {};
}

SecretUtf8 gstSourceUri(std::wstring_view url) {
    SecretUtf8 uri = toUtf8Strict(url);
    const std::size_t schemeEnd = std::min(uri.view().find(':'), uri.size());
    std::transform(uri.data(), uri.data() + schemeEnd, uri.data(), asciiLowered<char>);
    return uri;
}

bool gstCapsInContract(const GstFrameCaps& caps) {
    return equals(caps.interlaceMode, "progressive") && equals(caps.format, "BGRA") &&
           caps.width == std::int32_t{kFrameWidthPx} && caps.height == std::int32_t{kFrameHeightPx} &&
           caps.rateNumerator == std::int32_t{kFramesPerSecond} && caps.rateDenominator == 1;
}

bool gstMetaInContract(const GstVideoMeta& meta, std::int32_t bgra) {
    return meta.width == kFrameWidthPx && meta.height == kFrameHeightPx && meta.planes == 1 &&
           meta.flags == 0 && meta.format == bgra;
}

bool gstCopyPlane(const GstPlane& plane, std::byte* destination) {
    constexpr std::int64_t kRowBytes = kFrameStrideBytes;
    constexpr std::int64_t kLastRow = kFrameHeightPx - 1;
    // The one number without a magnitude.
    if (plane.strideBytes == std::numeric_limits<std::int32_t>::min())
        return false;
    const std::int64_t stride = plane.strideBytes;
    if (std::max(stride, -stride) < kRowBytes || plane.sizeBytes < kFrameBytes ||
        plane.sizeBytes > std::uint64_t{std::numeric_limits<std::int64_t>::max()})
        return false;

    // As numbers: pointers may be compared inside one block only, and that is what is in doubt.
    const auto memory = reinterpret_cast<std::uintptr_t>(plane.memory);
    const auto top = reinterpret_cast<std::uintptr_t>(plane.topRow);
    if (plane.memory == nullptr || top < memory || top - memory > plane.sizeBytes)
        return false;
    const auto topOffset = static_cast<std::int64_t>(top - memory);
    const std::int64_t bottomOffset = topOffset + kLastRow * stride;
    if (std::min(topOffset, bottomOffset) < 0 ||
        std::max(topOffset, bottomOffset) > static_cast<std::int64_t>(plane.sizeBytes) - kRowBytes)
        return false;

    if (destination == nullptr)
        return true;
    for (std::int64_t row = 0; row <= kLastRow; ++row)
        std::memcpy(destination + row * kRowBytes, plane.memory + topOffset + row * stride, kRowBytes);
    return true;
}

bool gstCopyPacked(const std::byte* memory, std::uint64_t sizeBytes, std::byte* destination) {
    return sizeBytes == kFrameBytes &&
           gstCopyPlane({memory, sizeBytes, memory, std::int32_t{kFrameStrideBytes}}, destination);
}

}  // namespace vextra
