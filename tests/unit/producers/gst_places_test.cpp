#include "producers/gst_places.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

namespace vextra {
namespace {

using Folders = std::vector<std::wstring>;

const Folders kFixed{L"C:\\gstreamer\\1.0\\msvc_x86_64\\bin", L"C:\\gstreamer\\1.0\\mingw_x86_64\\bin"};

// Of a machine where nothing but PATH is set.
Folders fromPath(const std::wstring& path) {
    Folders folders = gstCandidateFolders({.path = path});
    EXPECT_EQ(Folders(folders.begin(), folders.begin() + 2), kFixed);
    return {folders.begin() + 2, folders.end()};
}

TEST(GstCandidates, AreRootsInOrderThenThePath) {
    EXPECT_EQ(gstCandidateFolders({.installRoot = L"D:\\Câmera",
                                   .msvcRoot = L"E:\\msvc",
                                   .x64Root = L"E:\\mingw",
                                   .programFiles = L"C:\\Program Files",
                                   .path = L"D:\\one;D:\\two"}),
              (Folders{L"D:\\Câmera\\deps\\gstreamer\\bin", L"E:\\msvc\\bin", L"E:\\mingw\\bin",
                       L"C:\\Program Files\\gstreamer\\1.0\\msvc_x86_64\\bin",
                       L"C:\\Program Files\\gstreamer\\1.0\\mingw_x86_64\\bin",
                       L"C:\\gstreamer\\1.0\\msvc_x86_64\\bin", L"C:\\gstreamer\\1.0\\mingw_x86_64\\bin",
                       L"D:\\one", L"D:\\two"}));
}

TEST(GstCandidates, OfVariablesThatAreNotSetAreNone) {
    EXPECT_EQ(gstCandidateFolders({}), kFixed);
}

TEST(GstCandidates, OfThePathAreItsEntriesWithNothingAddedToThem) {
    EXPECT_EQ(fromPath(L"C:\\a b;d:\\x\\bin"), (Folders{L"C:\\a b", L"d:\\x\\bin"}));
}

// As installers write a root, and people an entry of the path. The loader's flags want backslashes.
TEST(GstCandidates, HaveBackslashesAndNoneTwiceOrAtTheEnd) {
    EXPECT_EQ(fromPath(L"C:\\gst\\bin\\;d:/x/y/;E:\\\\z//w\\\\"),
              (Folders{L"C:\\gst\\bin", L"d:\\x\\y", L"E:\\z\\w"}));
    const Folders ofRoots = gstCandidateFolders({.installRoot = L"D:\\Câmera\\",
                                                 .msvcRoot = L"C:\\gstreamer\\1.0\\msvc_x86_64\\",
                                                 .x64Root = L"E:/mingw/"});
    EXPECT_EQ(Folders(ofRoots.begin(), ofRoots.begin() + 3),
              (Folders{L"D:\\Câmera\\deps\\gstreamer\\bin", L"C:\\gstreamer\\1.0\\msvc_x86_64\\bin",
                       L"E:\\mingw\\bin"}));
}

TEST(GstCandidates, OfADrivesRootAreNotTheDrivesCurrentFolder) {
    EXPECT_EQ(fromPath(L"C:\\;d:/"), (Folders{L"C:\\", L"d:\\"}));
    EXPECT_EQ(gstCandidateFolders({.x64Root = L"E:\\"}).front(), L"E:\\bin");
}

TEST(GstCandidates, OfARootOnAServerKeepItsName) {
    EXPECT_EQ(gstCandidateFolders({.x64Root = L"\\\\server\\share\\"}).front(), L"\\\\server\\share\\bin");
    EXPECT_EQ(gstCandidateFolders({.x64Root = L"//server/share"}).front(), L"\\\\server\\share\\bin");
}

TEST(GstCandidates, NeverAreRelativeEntriesOfThePath) {
    EXPECT_EQ(fromPath(L"bin;.;..\\x;\\rooted;C:relative;C:;;\"C:\\quoted\""), Folders{});
}

TEST(GstCandidates, NeverAreNetworkEntriesOfThePath) {
    EXPECT_EQ(fromPath(L"\\\\server\\share\\bin;//server/share;\\\\?\\C:\\x;\\\\.\\pipe\\x"), Folders{});
}

TEST(GstCandidates, MayStandAnywhereInThePath) {
    EXPECT_EQ(fromPath(L";;x;C:\\a;\\\\s\\b;C:\\c;"), (Folders{L"C:\\a", L"C:\\c"}));
}

TEST(GstPluginFolder, LiesBesideTheLibraries) {
    EXPECT_EQ(gstPluginFolder(L"C:\\gst\\bin"), L"C:\\gst\\lib\\gstreamer-1.0");
    EXPECT_EQ(gstPluginFolder(L"C:/gst/bin"), L"C:/gst\\lib\\gstreamer-1.0");
    EXPECT_EQ(gstPluginFolder(L"C:\\gst/1.0\\bin"), L"C:\\gst/1.0\\lib\\gstreamer-1.0");
    EXPECT_EQ(gstPluginFolder(L"C:\\"), L"C:\\lib\\gstreamer-1.0");
}

TEST(GstPluginFolder, OfAnEntryThatEndsInASeparatorLiesThereToo) {
    EXPECT_EQ(gstPluginFolder(fromPath(L"C:\\gst\\bin\\").front()), L"C:\\gst\\lib\\gstreamer-1.0");
}

TEST(GstElements, AreTheOnesOfThePipelineAndItsSources) {
    EXPECT_TRUE(
        std::ranges::equal(kGstRequiredElements,
                           std::vector<std::string_view>{"uridecodebin", "decodebin", "queue", "videoconvert",
                                                         "videoscale", "videorate", "appsink", "rtspsrc"}));
    EXPECT_TRUE(std::ranges::equal(
        kGstHttpSources, std::vector<std::string_view>{"souphttpsrc", "curlhttpsrc", "winhttpsrc"}));
}

TEST(GstRegistryFile, LiesInTheDataFolderOnePerRuntime) {
    const std::wstring one = gstRegistryFile(L"D:\\data", L"C:\\gst\\bin");
    EXPECT_TRUE(one.starts_with(L"D:\\data\\gstreamer-"));
    EXPECT_TRUE(one.ends_with(L".registry"));
    EXPECT_EQ(one.find(L'\\', 8), std::wstring::npos);
    EXPECT_EQ(gstRegistryFile(L"D:\\data", L"C:\\gst\\bin"), one);
    EXPECT_NE(gstRegistryFile(L"D:\\data", L"C:\\gst2\\bin"), one);
    EXPECT_EQ(gstRegistryFile(L"D:\\data", L"c:\\GST\\Bin"), one);
}

// --- Ranks ---

std::vector<std::wstring> entries(const std::wstring& ranks) {
    std::vector<std::wstring> found;
    std::wistringstream stream(ranks);
    for (std::wstring entry; std::getline(stream, entry, L',');)
        found.push_back(entry);
    return found;
}

bool excludes(const std::wstring& element) {
    return std::ranges::count(entries(gstFeatureRanks(L"")), element + L":NONE") == 1;
}

// As gst-inspect-1.0 prints them, or the plugins' sources make them.
TEST(GstRanks, LeaveOutDecodersWithMemoryOfTheCard) {
    for (const wchar_t* element :
         {L"d3d11h264dec",    L"d3d11h265dec",  L"d3d11vp8dec",  L"d3d11vp9dec",    L"d3d11av1dec",
          L"d3d11mpeg2dec",   L"d3d12h264dec",  L"d3d12h265dec", L"d3d12vp8dec",    L"d3d12vp9dec",
          L"d3d12av1dec",     L"d3d12mpeg2dec", L"nvh264dec",    L"nvh265dec",      L"nvvp8dec",
          L"nvvp9dec",        L"nvav1dec",      L"nvjpegdec",    L"nvmpegvideodec", L"nvmpeg2videodec",
          L"nvmpeg4videodec", L"nvh264sldec",   L"nvh265sldec",  L"nvvp8sldec",     L"nvvp9sldec",
          L"qsvh264dec",      L"qsvh265dec",    L"qsvvp9dec",    L"qsvjpegdec",     L"vulkanh264dec",
          L"vulkanh265dec",   L"vah264dec",     L"vah265dec",    L"vavp8dec",       L"vavp9dec",
          L"vaav1dec",        L"vampeg2dec",    L"vajpegdec",    L"msdkh264dec",    L"msdkh265dec",
          L"msdkvp8dec",      L"msdkvp9dec",    L"msdkav1dec",   L"msdkmpeg2dec",   L"msdkmjpegdec",
          L"msdkvc1dec"})
        EXPECT_TRUE(excludes(element)) << std::string(element, element + std::wstring_view(element).size());
}

TEST(GstRanks, LeaveOutDecodersOfFurtherCards) {
    for (const wchar_t* element :
         {L"d3d11h264device1dec", L"d3d12h265device2dec", L"nvh264device1dec", L"nvh264sldevice1dec",
          L"nvmpeg4videodevice1dec", L"nvav1device3dec", L"qsvh264device4dec", L"qsvjpegdevice7dec"})
        EXPECT_TRUE(excludes(element)) << std::string(element, element + std::wstring_view(element).size());
}

TEST(GstRanks, LeaveDecodersInSoftwareAlone) {
    for (const wchar_t* element : {L"openh264dec", L"avdec_h264", L"jpegdec", L"vp9dec"})
        EXPECT_FALSE(excludes(element));
}

TEST(GstRanks, EndWithTheUsersOwn) {
    EXPECT_TRUE(gstFeatureRanks(L"nvh264dec:PRIMARY,x:1").ends_with(L":NONE,nvh264dec:PRIMARY,x:1"));
}

TEST(GstRanks, WithoutTheUsersOwnAreWellFormed) {
    for (const std::wstring& entry : entries(gstFeatureRanks(L"")))
        EXPECT_TRUE(entry.ends_with(L"dec:NONE"));
    EXPECT_FALSE(gstFeatureRanks(L"").ends_with(L','));
}

}  // namespace
}  // namespace vextra
