#include "consumer/png_file_win.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <objbase.h>
#include <wincodec.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "bridge/bridge_layout.h"

namespace vextra {
namespace {

namespace fs = std::filesystem;

fs::path testFile() {
    wchar_t folder[MAX_PATH + 1];
    GetTempPathW(ARRAYSIZE(folder), folder);
    return fs::path(folder) / (L"vextra-câmera-" + std::to_wstring(GetCurrentProcessId()) + L".png");
}

// Every pixel another, alpha anything but opaque.
std::vector<std::byte> pattern() {
    std::vector<std::byte> pixels(kFrameBytes);
    std::size_t at = 0;
    for (std::uint32_t y = 0; y < kFrameHeightPx; ++y) {
        for (std::uint32_t x = 0; x < kFrameWidthPx; ++x) {
            for (const std::uint32_t channel : {x, y, x / 256 + 16 * (y / 256), 0u})
                pixels[at++] = static_cast<std::byte>(channel & 0xFF);
        }
    }
    return pixels;
}

// The picture in a file as BGRA, by the system's own decoder.
std::vector<std::byte> decode(const fs::path& path) {
    std::vector<std::byte> pixels(kFrameBytes);
    IWICImagingFactory* factory = nullptr;
    IWICBitmapDecoder* decoder = nullptr;
    IWICBitmapFrameDecode* frame = nullptr;
    IWICBitmapSource* converted = nullptr;
    EXPECT_EQ(
        CoCreateInstance(CLSID_WICImagingFactory, nullptr, CLSCTX_INPROC_SERVER, IID_PPV_ARGS(&factory)),
        S_OK);
    if (factory == nullptr)
        return {};
    factory->CreateDecoderFromFilename(path.c_str(), nullptr, GENERIC_READ, WICDecodeMetadataCacheOnLoad,
                                       &decoder);
    if (decoder != nullptr && SUCCEEDED(decoder->GetFrame(0, &frame)))
        WICConvertBitmapSource(GUID_WICPixelFormat32bppBGRA, frame, &converted);
    const bool decoded =
        converted != nullptr && SUCCEEDED(converted->CopyPixels(nullptr, kFrameStrideBytes, kFrameBytes,
                                                                reinterpret_cast<BYTE*>(pixels.data())));
    for (IUnknown* object : {static_cast<IUnknown*>(converted), static_cast<IUnknown*>(frame),
                             static_cast<IUnknown*>(decoder), static_cast<IUnknown*>(factory)}) {
        if (object != nullptr)
            object->Release();
    }
    if (!decoded)
        pixels.clear();
    return pixels;
}

TEST(PngFile, HoldsThePictureOpaque) {
    const fs::path path = testFile();
    std::vector<std::byte> expected = pattern();
    ASSERT_TRUE(writePng(path.wstring(), expected));
    ASSERT_TRUE(writePng(path.wstring(), expected)) << "over the file of before";
    for (std::size_t alpha = 3; alpha < expected.size(); alpha += 4)
        expected[alpha] = std::byte{0xFF};

    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    EXPECT_TRUE(decode(path) == expected);
    CoUninitialize();
    fs::remove(path);
}

TEST(PngFile, RefusesAnythingButAWholeFrameAndAPlaceToWrite) {
    const std::vector<std::byte> pixels = pattern();
    EXPECT_FALSE(writePng(testFile().wstring(), std::span(pixels).first(pixels.size() - 1)));
    EXPECT_FALSE(writePng(L"C:\\no such folder\\frame.png", pixels));
}

}  // namespace
}  // namespace vextra
