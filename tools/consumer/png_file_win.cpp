#include "consumer/png_file_win.h"

#include <windows.h>

#include <wincodec.h>

#include <vector>

#include "base/unique_win.h"
#include "bridge/bridge_layout.h"

namespace vextra {
namespace {

constexpr std::uint32_t kRgbStrideBytes = kFrameWidthPx * 3;

std::vector<BYTE> withoutAlpha(std::span<const std::byte> bgra) {
    std::vector<BYTE> bgr;
    bgr.reserve(std::size_t{kRgbStrideBytes} * kFrameHeightPx);
    for (std::size_t i = 0; i + 3 < bgra.size(); i += 4) {
        for (std::size_t channel = 0; channel < 3; ++channel)
            bgr.push_back(static_cast<BYTE>(bgra[i + channel]));
    }
    return bgr;
}

HRESULT encode(const std::wstring& path, std::vector<BYTE>& bgr) {
    UniqueCom<IWICImagingFactory> factory;
    UniqueCom<IWICStream> stream;
    UniqueCom<IWICBitmapEncoder> encoder;
    UniqueCom<IWICBitmapFrameEncode> frame;
    WICPixelFormatGUID format = GUID_WICPixelFormat24bppBGR;
    HRESULT result =
        CoCreateInstance(CLSID_WICImagingFactory, nullptr, CLSCTX_INPROC_SERVER, IID_PPV_ARGS(factory.put()));
    const auto then = [&result](auto&& step) {
        if (SUCCEEDED(result))
            result = step();
    };
    then([&] { return factory->CreateStream(stream.put()); });
    then([&] { return stream->InitializeFromFilename(path.c_str(), GENERIC_WRITE); });
    then([&] { return factory->CreateEncoder(GUID_ContainerFormatPng, nullptr, encoder.put()); });
    then([&] { return encoder->Initialize(stream.get(), WICBitmapEncoderNoCache); });
    then([&] { return encoder->CreateNewFrame(frame.put(), nullptr); });
    then([&] { return frame->Initialize(nullptr); });
    then([&] { return frame->SetSize(kFrameWidthPx, kFrameHeightPx); });
    then([&] { return frame->SetPixelFormat(&format); });
    then([&] { return IsEqualGUID(format, GUID_WICPixelFormat24bppBGR) ? S_OK : E_FAIL; });
    then([&] {
        return frame->WritePixels(kFrameHeightPx, kRgbStrideBytes, static_cast<UINT>(bgr.size()), bgr.data());
    });
    then([&] { return frame->Commit(); });
    then([&] { return encoder->Commit(); });
    return result;
}

}  // namespace

bool writePng(const std::wstring& path, std::span<const std::byte> pixels) {
    if (pixels.size() != kFrameBytes)
        return false;
    const ComApartment apartment(COINIT_MULTITHREADED);
    std::vector<BYTE> bgr = withoutAlpha(pixels);
    return SUCCEEDED(encode(path, bgr));
}

}  // namespace vextra
