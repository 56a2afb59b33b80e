#include "producers/gst_places.h"

#include <span>

#include "base/fnv1a.h"

namespace vextra {
namespace {

constexpr std::wstring_view kBin = L"\\bin";

// Neither relative nor on another machine: whoever can write to such a place could plant libraries there.
bool isAbsoluteDrivePath(std::wstring_view entry) {
    return entry.size() >= 3 && entry[1] == L':' && (entry[2] == L'\\' || entry[2] == L'/');
}

// Without the variable, the folders named with it would lie at the root of some drive.
void addRoot(std::wstring_view base, std::wstring_view suffix, std::vector<std::wstring>& folders) {
    if (!base.empty())
        folders.push_back(std::wstring(base).append(suffix).append(kBin));
}

// Elements by family and codec; cards beyond the first have a number in the name.
constexpr std::wstring_view kCardFamilies[] = {L"d3d11", L"d3d12", L"nv", L"qsv", L"msdk", L"va", L"amf"};
constexpr std::wstring_view kCardCodecs[] = {L"h264", L"h265", L"vp8", L"vp9", L"av1", L"mpeg2", L"jpeg"};
constexpr std::wstring_view kCardSuffixes[] = {L"dec", L"sldec", L"device1dec", L"device2dec"};

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
        if (isAbsoluteDrivePath(entry))
            folders.emplace_back(entry);
        rest.remove_prefix(entry.size() == rest.size() ? entry.size() : entry.size() + 1);
    }
    return folders;
}

std::wstring gstPluginFolder(std::wstring_view binFolder) {
    const std::size_t cut = binFolder.find_last_of(L"\\/");
    return std::wstring(binFolder.substr(0, cut)) + L"\\lib\\gstreamer-1.0";
}

std::wstring gstRegistryFile(std::wstring_view dataFolder, std::wstring_view binFolder) {
    constexpr wchar_t kDigits[] = L"0123456789abcdef";
    std::uint64_t hash = fnv1a64(std::as_bytes(std::span(binFolder)));
    std::wstring name;
    for (int digit = 0; digit < 16; ++digit, hash >>= 4)
        name.push_back(kDigits[hash & 15]);
    return std::wstring(dataFolder).append(L"\\gstreamer-").append(name).append(L".registry");
}

std::wstring gstFeatureRanks(std::wstring_view usersValue) {
    std::wstring ranks;
    for (const std::wstring_view family : kCardFamilies) {
        for (const std::wstring_view codec : kCardCodecs) {
            for (const std::wstring_view suffix : kCardSuffixes) {
                ranks.append(ranks.empty() ? L"" : L",");
                ranks.append(family).append(codec).append(suffix).append(L":NONE");
            }
        }
    }
    if (!usersValue.empty())
        ranks.append(L",").append(usersValue);
    return ranks;
}

}  // namespace vextra
