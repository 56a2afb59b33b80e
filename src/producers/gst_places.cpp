#include "producers/gst_places.h"

#include <algorithm>
#include <array>
#include <span>

#include "base/fnv1a.h"
#include "base/text.h"

namespace vextra {
namespace {

constexpr std::wstring_view kBin = L"\\bin";

// Not relative, nor named by a server: such an entry means another folder for each working directory, or one
// that strangers fill. Where a drive's letter leads is not looked at: it may be mapped to a server.
bool isAbsoluteDrivePath(std::wstring_view entry) {
    return entry.size() >= 3 && entry[1] == L':' && (entry[2] == L'\\' || entry[2] == L'/');
}

// In the one spelling that every function of the loader takes: with backslashes, none twice but in front of a
// server's name, none at the end.
std::wstring inLoadersSpelling(std::wstring_view folder) {
    std::wstring spelled;
    for (const wchar_t given : folder) {
        const wchar_t unit = given == L'/' ? L'\\' : given;
        if (unit != L'\\' || spelled.size() < 2 || spelled.back() != L'\\')
            spelled.push_back(unit);
    }
    while (spelled.ends_with(L'\\'))
        spelled.pop_back();
    return spelled;
}

// Without the variable, the folders named with it would lie at the root of some drive.
void addRoot(std::wstring_view base, std::wstring_view suffix, std::vector<std::wstring>& folders) {
    if (!base.empty())
        folders.push_back(inLoadersSpelling(base).append(suffix).append(kBin));
}

void addEntryOfPath(std::wstring_view entry, std::vector<std::wstring>& folders) {
    if (!isAbsoluteDrivePath(entry))
        return;
    std::wstring folder = inLoadersSpelling(entry);
    if (folder.ends_with(L':'))  // by itself the drive's current folder
        folder.push_back(L'\\');
    folders.push_back(std::move(folder));
}

// The decoders of the plugins d3d11, d3d12, nvcodec, qsv and vulkan, as their names begin.
constexpr std::wstring_view kCardDecoders[] = {
    L"d3d11h264", L"d3d11h265", L"d3d11vp8", L"d3d11vp9",   L"d3d11av1",    L"d3d11mpeg2",   L"d3d12h264",
    L"d3d12h265", L"d3d12vp8",  L"d3d12vp9", L"d3d12av1",   L"d3d12mpeg2",  L"nvh264",       L"nvh265",
    L"nvvp8",     L"nvvp9",     L"nvav1",    L"nvjpeg",     L"nvmpegvideo", L"nvmpeg2video", L"nvmpeg4video",
    L"nvh264sl",  L"nvh265sl",  L"nvvp8sl",  L"nvvp9sl",    L"nvav1sl",     L"qsvh264",      L"qsvh265",
    L"qsvvp9",    L"qsvav1",    L"qsvjpeg",  L"vulkanh264", L"vulkanh265",  L"vulkanvp9",    L"vulkanav1"};
// How such names end: that of the first card's decoder, and those of further cards'.
constexpr std::wstring_view kCardEndings[] = {L"dec",        L"device1dec", L"device2dec", L"device3dec",
                                              L"device4dec", L"device5dec", L"device6dec", L"device7dec"};
// The decoders of the plugins va and msdk on the first card.
constexpr std::wstring_view kFirstCardsDecoders[] = {
    L"vah264dec",  L"vah265dec",  L"vavp8dec",     L"vavp9dec",     L"vaav1dec",
    L"vampeg2dec", L"vajpegdec",  L"msdkh264dec",  L"msdkh265dec",  L"msdkvp8dec",
    L"msdkvp9dec", L"msdkav1dec", L"msdkmpeg2dec", L"msdkmjpegdec", L"msdkvc1dec"};

}  // namespace

std::vector<std::wstring> gstCandidateFolders(const GstSearch& search) {
    std::vector<std::wstring> folders;
    addRoot(search.installRoot, L"\\deps\\gstreamer", folders);
    addRoot(search.msvcRoot, L"", folders);
    addRoot(search.x64Root, L"", folders);
    addRoot(search.programFiles, L"\\gstreamer\\1.0\\msvc_x86_64", folders);
    addRoot(search.programFiles, L"\\gstreamer\\1.0\\mingw_x86_64", folders);
    addRoot(L"C:\\gstreamer\\1.0\\msvc_x86_64", L"", folders);
    addRoot(L"C:\\gstreamer\\1.0\\mingw_x86_64", L"", folders);
    for (std::wstring_view rest = search.path; !rest.empty();) {
        const std::wstring_view entry = rest.substr(0, rest.find(L';'));
        addEntryOfPath(entry, folders);
        rest.remove_prefix(entry.size() == rest.size() ? entry.size() : entry.size() + 1);
    }
    return folders;
}

std::wstring gstPluginFolder(std::wstring_view binFolder) {
    const std::size_t cut = binFolder.find_last_of(L"\\/");
    return std::wstring(binFolder.substr(0, cut)) + L"\\lib\\gstreamer-1.0";
}

std::wstring gstRegistryFile(std::wstring_view dataFolder, std::wstring_view binFolder) {
    std::wstring folder(binFolder);
    std::ranges::transform(folder, folder.begin(), asciiLowered<wchar_t>);
    // As the lists that are there already are named: the lowest digit first.
    std::uint64_t hash = fnv1a64(std::as_bytes(std::span(folder)));
    std::array<std::byte, sizeof hash> highestFirst{};
    for (auto byte = highestFirst.rbegin(); byte != highestFirst.rend(); ++byte, hash >>= 8)
        *byte = static_cast<std::byte>(hash & 0xFF);
    std::wstring name = widenedAscii(lowerHex(highestFirst));
    std::ranges::reverse(name);
    return std::wstring(dataFolder).append(L"\\gstreamer-").append(name).append(L".registry");
}

std::wstring gstFeatureRanks(std::wstring_view usersValue) {
    std::wstring ranks;
    const auto leaveOut = [&](std::wstring_view beginning, std::wstring_view ending) {
        ranks.append(beginning).append(ending).append(L":NONE,");
    };
    for (const std::wstring_view beginning : kCardDecoders) {
        for (const std::wstring_view ending : kCardEndings)
            leaveOut(beginning, ending);
    }
    for (const std::wstring_view name : kFirstCardsDecoders)
        leaveOut(name, L"");
    if (usersValue.empty())
        ranks.pop_back();
    return ranks.append(usersValue);
}

}  // namespace vextra
