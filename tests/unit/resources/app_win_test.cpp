// What is built into the broker's program, read as any other program would read it.
#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <set>
#include <string>
#include <string_view>

#include "broker_fixture_win.h"
#include "ui/painter_win.h"

namespace vextra {
namespace {

// One picture of a group of icons, as resources hold it; 0 stands for 256.
#pragma pack(push, 2)
struct IconEntry {
    std::uint8_t width;
    std::uint8_t height;
    std::uint8_t colours;
    std::uint8_t reserved;
    std::uint16_t planes;
    std::uint16_t bits;
    std::uint32_t bytes;
    std::uint16_t id;
};
#pragma pack(pop)
static_assert(sizeof(IconEntry) == 14);
constexpr std::size_t kIconGroupHeaderBytes = 6;

class BrokerResources : public testing::Test {
protected:
    BrokerResources() {
        wchar_t tests[MAX_PATH]{};
        GetModuleFileNameW(nullptr, tests, MAX_PATH);
        const std::filesystem::path built = std::filesystem::path(tests).parent_path().parent_path();
        broker.reset(LoadLibraryExW((built / L"bin" / L"CameraVirtualVextraMF.exe").c_str(), nullptr,
                                    LOAD_LIBRARY_AS_DATAFILE | LOAD_LIBRARY_AS_IMAGE_RESOURCE));
        if (!broker)
            failSetUp("the broker's program");
    }
    std::string_view resource(LPCWSTR type, WORD number) const {
        const HRSRC found = FindResourceW(broker.get(), MAKEINTRESOURCEW(number), type);
        if (found == nullptr)
            return {};
        const HGLOBAL loaded = LoadResource(broker.get(), found);
        return {static_cast<const char*>(LockResource(loaded)), SizeofResource(broker.get(), found)};
    }
    bool manifestSays(std::string_view text) const {
        return resource(RT_MANIFEST, 1).find(text) != std::string_view::npos;
    }

    UniqueLibrary broker;
};

TEST_F(BrokerResources, HoldTheBannerInItsFullSize) {
    const std::string_view banner = resource(RT_BITMAP, 102);
    BITMAPINFOHEADER header{};
    ASSERT_GE(banner.size(), sizeof header);
    std::memcpy(&header, banner.data(), sizeof header);
    EXPECT_EQ(header.biWidth, 2290);
    EXPECT_EQ(std::abs(header.biHeight), 472);
    EXPECT_EQ(header.biBitCount, 24);
}

TEST_F(BrokerResources, HoldTheIconInEverySizeThatASystemAsksFor) {
    const std::string_view group = resource(RT_GROUP_ICON, 1);
    ASSERT_GE(group.size(), kIconGroupHeaderBytes);
    std::set<int> sizes;
    for (std::size_t at = kIconGroupHeaderBytes; at + sizeof(IconEntry) <= group.size();
         at += sizeof(IconEntry)) {
        IconEntry entry{};
        std::memcpy(&entry, group.data() + at, sizeof entry);
        EXPECT_EQ(entry.width, entry.height);
        EXPECT_EQ(resource(RT_ICON, entry.id).size(), entry.bytes);
        sizes.insert(entry.width == 0 ? 256 : entry.width);
    }
    EXPECT_EQ(sizes, (std::set{16, 20, 24, 32, 40, 48, 64, 128, 256}));
}

TEST_F(BrokerResources, AskForTheControlsOfTheirTime) {
    EXPECT_TRUE(manifestSays("Microsoft.Windows.Common-Controls\" version=\"6.0.0.0\""));
}

TEST_F(BrokerResources, AskToBeScaledByNobody) {
    EXPECT_TRUE(manifestSays(">PerMonitorV2</dpiAwareness>"));
}

TEST_F(BrokerResources, AskForNoMoreRightsThanTheCallersOwn) {
    EXPECT_TRUE(manifestSays("level=\"asInvoker\" uiAccess=\"false\""));
}

TEST_F(BrokerResources, GiveThePainterItsBanner) {
    const Painter painter(broker.get());
    const UniqueMemoryDc dc(CreateCompatibleDC(nullptr));
    BITMAPINFO format{};
    format.bmiHeader = {sizeof format.bmiHeader, 300, -90, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
    void* bits = nullptr;
    const UniqueBitmap bitmap(CreateDIBSection(dc.get(), &format, DIB_RGB_COLORS, &bits, nullptr, 0));
    ASSERT_TRUE(bitmap);
    const Selection selected(dc.get(), bitmap.get());
    painter.paint(dc.get(), {300, 90}, 96, {}, nullptr);
    GdiFlush();
    const auto inked = [&](int x, int y) {
        std::uint32_t pixel = 0;
        std::memcpy(&pixel, static_cast<const std::byte*>(bits) + 4 * (std::ptrdiff_t{300} * y + x), 4);
        return (pixel & 0xFFFFFF) != 0xFFFFFF;
    };
    int within = 0;
    for (int y = 0; y < 86; ++y) {
        for (int x = 0; x < 300; ++x) {
            const bool inBanner = x >= 28 && x < 278 && y >= 18 && y < 70;
            if (inBanner)
                within += inked(x, y) ? 1 : 0;
            else
                ASSERT_FALSE(inked(x, y)) << x << "," << y;
        }
    }
    EXPECT_GT(within, 250);
}

}  // namespace
}  // namespace vextra
