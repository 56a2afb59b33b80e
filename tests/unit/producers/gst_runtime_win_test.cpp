// The search and the loading, with stub libraries; real_gstreamer_win_test.cpp has a real runtime.
#include "producers/gst_runtime_win.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "import_swap_win.h"
#include "producers/gst_places.h"
#include "services_win.h"
#include "stub_gstreamer/stub_runtime_win.h"

namespace vextra::test {
namespace {

std::wstring valueOf(const wchar_t* name) {
    return variable(name).value_or(L"");
}

bool isLoaded(GstLibrary library, LibraryNames names = LibraryNames::kMinGw) {
    return GetModuleHandleW(libraryName(library, names).c_str()) != nullptr;
}

class GstRuntimeTest : public ::testing::Test {
protected:
    // In the place of GSTREAMER_1_0_ROOT_X86_64.
    void installRuntime(LibraryNames names = LibraryNames::kMinGw) {
        makeStubRuntime(bin(), names);
        machine_.set(L"GSTREAMER_1_0_ROOT_X86_64", runtimeRoot());
    }
    std::wstring runtimeRoot() const { return machine_.root / L"gstreamer câmera"; }
    std::wstring bin() const { return runtimeRoot() + L"\\bin"; }
    std::wstring library(GstLibrary which) const {
        return bin() + L"\\" + libraryName(which, LibraryNames::kMinGw);
    }
    GstRuntimePlaces places() const { return {machine_.installRoot(), machine_.dataFolder()}; }
    void expectRejected() {
        const GstRuntime runtime(places());
        EXPECT_FALSE(runtime.available());
        EXPECT_EQ(runtime.api(), nullptr);
        EXPECT_TRUE(runtime.folder().empty());
        for (const GstLibrary which : {GstLibrary::kGlib, GstLibrary::kGobject, GstLibrary::kGstreamer,
                                       GstLibrary::kApp, GstLibrary::kVideo})
            EXPECT_FALSE(isLoaded(which)) << static_cast<int>(which);
    }

    StubMachine machine_;
    FakeGstreamer& gstreamer_ = machine_.gstreamer;
};

// --- What is accepted ---

TEST_F(GstRuntimeTest, LoadsMinGwNames) {
    installRuntime(LibraryNames::kMinGw);
    const GstRuntime runtime(places());
    EXPECT_TRUE(runtime.available());
    EXPECT_EQ(runtime.folder(), bin());
}

TEST_F(GstRuntimeTest, LoadsMsvcNames) {
    installRuntime(LibraryNames::kMsvc);
    EXPECT_TRUE(GstRuntime(places()).available());
}

TEST_F(GstRuntimeTest, PrefersMsvcNamesLibraryByLibrary) {
    installRuntime(LibraryNames::kMinGw);
    std::filesystem::copy_file(library(GstLibrary::kVideo), bin() + L"\\gstvideo-1.0-0.dll");
    const GstRuntime runtime(places());
    EXPECT_TRUE(isLoaded(GstLibrary::kVideo, LibraryNames::kMsvc));
    EXPECT_FALSE(isLoaded(GstLibrary::kVideo, LibraryNames::kMinGw));
}

TEST_F(GstRuntimeTest, ResolvesEveryEntryPoint) {
    installRuntime();
    const GstRuntime runtime(places());
    ASSERT_NE(runtime.api(), nullptr);
    GstApi copy = *runtime.api();
    std::size_t resolved = 0;
    visitGstEntryPoints(copy, [&](GstLibrary, const char*, auto& entryPoint) {
        resolved += entryPoint != nullptr;
        return true;
    });
    EXPECT_EQ(resolved, kGstEntryPoints);
}

TEST_F(GstRuntimeTest, SilencesInitialisesScansAndLooksForElementsInThisOrder) {
    installRuntime();
    const GstRuntime runtime(places());
    std::vector<std::string> expected{"debug active 0", "debug level 0", "init", "debug active 0",
                                      "debug level 0"};
    const std::u8string plugins = std::filesystem::path(runtimeRoot() + L"\\lib\\gstreamer-1.0").u8string();
    expected.push_back("scan " + std::string(plugins.begin(), plugins.end()));
    for (const char* element : kGstRequiredElements)
        expected.push_back(std::string("find ") + element);
    expected.push_back("find souphttpsrc");
    EXPECT_EQ(gstreamer_.calls, expected);
    EXPECT_EQ(gstreamer_.handedOut, 0);
}

TEST_F(GstRuntimeTest, TakesTheOldestSupportedVersion) {
    installRuntime();
    gstreamer_.minor = 18;
    EXPECT_TRUE(GstRuntime(places()).available());
}

TEST_F(GstRuntimeTest, TakesARuntimeThatHasOnlyTheSecondHttpSource) {
    installRuntime();
    gstreamer_.missingElements = {"souphttpsrc", "winhttpsrc"};
    EXPECT_TRUE(GstRuntime(places()).available());
}

TEST_F(GstRuntimeTest, TakesARuntimeThatHasOnlyTheThirdHttpSource) {
    installRuntime();
    gstreamer_.missingElements = {"souphttpsrc", "curlhttpsrc"};
    EXPECT_TRUE(GstRuntime(places()).available());
}

TEST_F(GstRuntimeTest, UnloadGivesTheLibrariesBack) {
    installRuntime();
    GstRuntime runtime(places());
    ASSERT_TRUE(isLoaded(GstLibrary::kGlib));
    runtime.unload();
    EXPECT_FALSE(runtime.available());
    EXPECT_EQ(runtime.api(), nullptr);
    EXPECT_FALSE(isLoaded(GstLibrary::kGlib));
    EXPECT_FALSE(isLoaded(GstLibrary::kVideo));
}

// --- What is rejected ---

TEST_F(GstRuntimeTest, WithoutAnyRuntimeNothingIsAvailable) {
    expectRejected();
}

class MissingLibrary : public GstRuntimeTest, public ::testing::WithParamInterface<GstLibrary> {};

TEST_P(MissingLibrary, RejectsTheRuntime) {
    installRuntime();
    std::filesystem::remove(library(GetParam()));
    expectRejected();
    EXPECT_TRUE(gstreamer_.calls.empty());
}

TEST_P(MissingLibrary, RejectsTheRuntimeWhenItIsAFolder) {
    installRuntime();
    std::filesystem::remove(library(GetParam()));
    std::filesystem::create_directory(library(GetParam()));
    expectRejected();
}

TEST_P(MissingLibrary, RejectsTheRuntimeWhenItIsNoLibrary) {
    installRuntime();
    writeFile(library(GetParam()), "no library");
    expectRejected();
}

INSTANTIATE_TEST_SUITE_P(Each, MissingLibrary,
                         ::testing::Values(GstLibrary::kGlib, GstLibrary::kGobject, GstLibrary::kGstreamer,
                                           GstLibrary::kApp, GstLibrary::kVideo),
                         [](const auto& library) { return std::to_string(static_cast<int>(library.param)); });

TEST_F(GstRuntimeTest, EachOfTheEntryPointsIsRequired) {
    GstApi names{};
    std::size_t tried = 0;
    visitGstEntryPoints(names, [&](GstLibrary which, const char* name, auto&) {
        const std::wstring root = machine_.root / L"without-" + std::to_wstring(++tried);
        makeStubRuntime(root + L"\\bin", LibraryNames::kMinGw);
        removeExport(root + L"\\bin\\" + libraryName(which, LibraryNames::kMinGw), name);
        machine_.set(L"GSTREAMER_1_0_ROOT_X86_64", root);
        EXPECT_FALSE(GstRuntime(places()).available()) << name;
        EXPECT_TRUE(gstreamer_.calls.empty()) << name;
        return true;
    });
    EXPECT_EQ(tried, kGstEntryPoints);
}

TEST_F(GstRuntimeTest, RejectsVersion116) {
    installRuntime();
    gstreamer_.minor = 16;
    expectRejected();
    EXPECT_FALSE(gstreamer_.wasCalled("init"));
}

TEST_F(GstRuntimeTest, RejectsVersion20) {
    installRuntime();
    gstreamer_.major = 2;
    gstreamer_.minor = 0;
    expectRejected();
    EXPECT_FALSE(gstreamer_.wasCalled("init"));
}

TEST_F(GstRuntimeTest, RejectsVersion022) {
    installRuntime();
    gstreamer_.major = 0;
    expectRejected();
}

TEST_F(GstRuntimeTest, RejectsOneThatCannotInitialise) {
    installRuntime();
    gstreamer_.initialises = false;
    expectRejected();
    EXPECT_TRUE(gstreamer_.wasCalled("error freed"));
}

TEST_F(GstRuntimeTest, RejectsOneWithoutHttpSource) {
    installRuntime();
    gstreamer_.missingElements = {"souphttpsrc", "curlhttpsrc", "winhttpsrc"};
    expectRejected();
}

class MissingElement : public GstRuntimeTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(MissingElement, RejectsTheRuntime) {
    installRuntime();
    gstreamer_.missingElements = {GetParam()};
    expectRejected();
    EXPECT_EQ(gstreamer_.handedOut, 0);
}

INSTANTIATE_TEST_SUITE_P(Each, MissingElement, ::testing::ValuesIn(kGstRequiredElements),
                         [](const auto& element) { return std::string(element.param); });

// --- Where it is looked for ---

TEST_F(GstRuntimeTest, LooksInEveryPlaceInTurn) {
    const auto root = [&](const wchar_t* name) { return machine_.root / name; };
    machine_.set(L"GSTREAMER_1_0_ROOT_MSVC_X86_64", root(L"msvc"));
    machine_.set(L"GSTREAMER_1_0_ROOT_X86_64", root(L"x64"));
    machine_.set(L"PATH", root(L"one") + L";" + root(L"two"));
    std::vector<std::wstring> bins{machine_.installRoot() + L"\\deps\\gstreamer\\bin",
                                   root(L"msvc\\bin"),
                                   root(L"x64\\bin"),
                                   root(L"Program Files\\gstreamer\\1.0\\msvc_x86_64\\bin"),
                                   root(L"Program Files\\gstreamer\\1.0\\mingw_x86_64\\bin"),
                                   root(L"one"),
                                   root(L"two")};
    for (const std::wstring& bin : bins)
        makeStubRuntime(bin, LibraryNames::kMinGw);
    // Without the first one, the next is taken.
    for (const std::wstring& bin : bins) {
        EXPECT_EQ(GstRuntime(places()).folder(), bin);
        std::filesystem::remove_all(bin);
    }
    EXPECT_FALSE(GstRuntime(places()).available());
}

TEST_F(GstRuntimeTest, LooksOnAfterARejectedOne) {
    const std::wstring broken = machine_.root / L"broken";
    makeStubRuntime(broken + L"\\bin", LibraryNames::kMinGw);
    std::filesystem::remove(broken + L"\\bin\\libgstvideo-1.0-0.dll");
    machine_.set(L"GSTREAMER_1_0_ROOT_MSVC_X86_64", broken);
    installRuntime();
    const GstRuntime runtime(places());
    EXPECT_EQ(runtime.folder(), bin());
    wchar_t loaded[MAX_PATH] = {};
    GetModuleFileNameW(GetModuleHandleW(L"libglib-2.0-0.dll"), loaded, MAX_PATH);
    EXPECT_EQ(loaded, library(GstLibrary::kGlib));
}

// As it is after a runtime that was rejected once its plugins had been loaded.
TEST_F(GstRuntimeTest, RejectsOneOfWhichALibraryIsLoadedFromElsewhere) {
    const std::wstring elsewhere = machine_.root / L"elsewhere";
    makeStubRuntime(elsewhere, LibraryNames::kMinGw);
    const UniqueLibrary stays(LoadLibraryW((elsewhere + L"\\libgobject-2.0-0.dll").c_str()));
    ASSERT_TRUE(stays);
    installRuntime();
    EXPECT_FALSE(GstRuntime(places()).available());
    EXPECT_FALSE(isLoaded(GstLibrary::kGlib));
    EXPECT_TRUE(gstreamer_.calls.empty());
}

std::vector<std::wstring>* touched = nullptr;
DWORD WINAPI recordingGetFileAttributes(LPCWSTR path) {
    touched->push_back(path);
    return INVALID_FILE_ATTRIBUTES;
}
DLL_DIRECTORY_COOKIE WINAPI refusingAddDllDirectory(PCWSTR) {
    return nullptr;
}

TEST_F(GstRuntimeTest, NeverTouchesRelativeOrNetworkEntriesOfThePath) {
    machine_.set(L"PATH", L"relative;.;\\\\server\\share;//server/share;\\rooted;D:\\absolute");
    std::vector<std::wstring> paths;
    touched = &paths;
    {
        const ImportSwap<decltype(GetFileAttributesW)> swap("GetFileAttributesW",
                                                            &recordingGetFileAttributes);
        const GstRuntime runtime(places());
    }
    for (const std::wstring& path : paths) {
        const bool absolute = path.size() > 3 && path[1] == L':' && (path[2] == L'\\' || path[2] == L'/');
        EXPECT_TRUE(absolute) << std::filesystem::path(path).string();
    }
    EXPECT_EQ(std::ranges::count(paths, L"D:\\absolute\\gstreamer-1.0-0.dll"), 1);
}

TEST_F(GstRuntimeTest, RejectsAFolderThatTheSystemDoesNotTake) {
    installRuntime();
    const ImportSwap<decltype(AddDllDirectory)> swap("AddDllDirectory", &refusingAddDllDirectory);
    expectRejected();
    EXPECT_TRUE(gstreamer_.calls.empty());
}

std::vector<std::pair<std::wstring, DWORD>>* loads = nullptr;
HMODULE WINAPI recordingLoadLibraryEx(LPCWSTR path, HANDLE file, DWORD flags) {
    loads->emplace_back(path, flags);
    return realFunction<decltype(LoadLibraryExW)>("LoadLibraryExW")(path, file, flags);
}

// Whatever else is on the search path of the process, and however it came there.
TEST_F(GstRuntimeTest, LoadsByWholePathAndLooksForImportsBesideThatAndInTheSystemOnly) {
    installRuntime();
    std::vector<std::pair<std::wstring, DWORD>> seen;
    loads = &seen;
    {
        const ImportSwap<decltype(LoadLibraryExW)> swap("LoadLibraryExW", &recordingLoadLibraryEx);
        EXPECT_TRUE(GstRuntime(places()).available());
    }
    std::vector<std::pair<std::wstring, DWORD>> expected;
    for (const GstLibrary which : {GstLibrary::kGlib, GstLibrary::kGobject, GstLibrary::kGstreamer,
                                   GstLibrary::kApp, GstLibrary::kVideo})
        expected.emplace_back(library(which), 0x1100);
    EXPECT_EQ(seen, expected);
}

std::vector<DLL_DIRECTORY_COOKIE> added;
std::vector<DLL_DIRECTORY_COOKIE> removed;
DLL_DIRECTORY_COOKIE WINAPI recordingAddDllDirectory(PCWSTR folder) {
    added.push_back(realFunction<decltype(AddDllDirectory)>("AddDllDirectory")(folder));
    return added.back();
}
BOOL WINAPI recordingRemoveDllDirectory(DLL_DIRECTORY_COOKIE cookie) {
    removed.push_back(cookie);
    return realFunction<decltype(RemoveDllDirectory)>("RemoveDllDirectory")(cookie);
}

TEST_F(GstRuntimeTest, TakesItsFolderBackOutOfTheSearch) {
    installRuntime();
    added.clear();
    removed.clear();
    const ImportSwap<decltype(AddDllDirectory)> add("AddDllDirectory", &recordingAddDllDirectory);
    const ImportSwap<decltype(RemoveDllDirectory)> remove("RemoveDllDirectory", &recordingRemoveDllDirectory);
    GstRuntime runtime(places());
    ASSERT_TRUE(runtime.available());
    ASSERT_EQ(added.size(), 1u);
    EXPECT_TRUE(removed.empty());
    runtime.unload();
    EXPECT_EQ(removed, added);
}

// As installers write it. The folder must be one in every call that it is given to.
TEST_F(GstRuntimeTest, TakesARootWithABackslashAtItsEnd) {
    installRuntime();
    machine_.set(L"GSTREAMER_1_0_ROOT_X86_64", runtimeRoot() + L"\\");
    const GstRuntime runtime(places());
    EXPECT_TRUE(runtime.available());
    EXPECT_EQ(runtime.folder(), bin());
}

TEST_F(GstRuntimeTest, TakesAnEntryOfThePathWithSlashes) {
    makeStubRuntime(bin(), LibraryNames::kMinGw);
    std::wstring entry = bin() + L"/";
    std::ranges::replace(entry, L'\\', L'/');
    machine_.set(L"PATH", entry);
    EXPECT_EQ(GstRuntime(places()).folder(), bin());
}

// --- What is set while it loads, and only then ---

class GstLoadingVariables : public GstRuntimeTest {
protected:
    GstLoadingVariables() { installRuntime(); }
    // As they are while GStreamer initialises.
    struct Seen {
        std::wstring registry;
        std::wstring plainRegistry;
        std::wstring ranks;
        std::wstring helper;
        std::wstring helperAtScan;
    };
    Seen whileLoading() {
        static Seen seen;
        static decltype(GstApi::gst_init_check) next = nullptr;
        next = gstreamer_.world().api.gst_init_check;
        gstreamer_.world().api.gst_init_check = [](std::int32_t* count, char*** arguments, GError** error) {
            seen = {valueOf(L"GST_REGISTRY_1_0"), valueOf(L"GST_REGISTRY"),
                    valueOf(L"GST_PLUGIN_FEATURE_RANK"), valueOf(L"GST_REGISTRY_FORK"), L""};
            return next(count, arguments, error);
        };
        gstreamer_.world().api.gst_registry_scan_path = [](GstRegistry*, const char*) {
            seen.helperAtScan = valueOf(L"GST_REGISTRY_FORK");
            return kGstFalse;
        };
        const GstRuntime runtime(places());
        EXPECT_TRUE(runtime.available());
        return seen;
    }
};

TEST_F(GstLoadingVariables, NameAListOfPluginsInTheDataFolder) {
    EXPECT_EQ(whileLoading().registry, gstRegistryFile(machine_.dataFolder(), bin()));
}

TEST_F(GstLoadingVariables, LeaveOutDecodersOfTheGraphicsCard) {
    EXPECT_EQ(whileLoading().ranks, gstFeatureRanks(L""));
}

TEST_F(GstLoadingVariables, KeepTheUsersListOfPlugins) {
    const ScopedVariable users(L"GST_REGISTRY_1_0", L"C:\\mine.bin");
    EXPECT_EQ(whileLoading().registry, L"C:\\mine.bin");
    EXPECT_EQ(valueOf(L"GST_REGISTRY_1_0"), L"C:\\mine.bin");
}

TEST_F(GstLoadingVariables, KeepTheUsersListOfPluginsUnderItsOtherName) {
    const ScopedVariable users(L"GST_REGISTRY", L"C:\\mine.bin");
    EXPECT_EQ(whileLoading().registry, L"");
}

TEST_F(GstLoadingVariables, KeepAndExtendTheUsersRanks) {
    const ScopedVariable users(L"GST_PLUGIN_FEATURE_RANK", L"jpegdec:512");
    EXPECT_EQ(whileLoading().ranks, gstFeatureRanks(L"jpegdec:512"));
    EXPECT_EQ(valueOf(L"GST_PLUGIN_FEATURE_RANK"), L"jpegdec:512");
}

// It would be a process outside the decoder's job, and the broker's end would leave it behind.
TEST_F(GstLoadingVariables, LetNoHelperProcessLookAtThePlugins) {
    const Seen seen = whileLoading();
    EXPECT_EQ(seen.helper, L"no");
    EXPECT_EQ(seen.helperAtScan, L"no");
}

TEST_F(GstLoadingVariables, LetNoHelperProcessLookAtThePluginsWhateverTheUserSays) {
    const ScopedVariable users(L"GST_REGISTRY_FORK", L"yes");
    EXPECT_EQ(whileLoading().helper, L"no");
    EXPECT_EQ(valueOf(L"GST_REGISTRY_FORK"), L"yes");
}

TEST_F(GstLoadingVariables, AreGoneAfterwards) {
    whileLoading();
    EXPECT_EQ(valueOf(L"GST_REGISTRY_FORK"), L"");
    EXPECT_EQ(valueOf(L"GST_REGISTRY_1_0"), L"");
    EXPECT_EQ(valueOf(L"GST_PLUGIN_FEATURE_RANK"), L"");
}

// --- The process's one runtime ---

// Both the Supervisor and a self-test may be the first to ask. A test program has one such runtime for all
// its tests, so this one is alone in its process wherever it matters.
TEST_F(GstRuntimeTest, OfTheProcessIsLoadedOnceForThreadsThatAskAtTheSameTime) {
    installRuntime();
    static std::atomic<int> initialisations{0};
    static decltype(GstApi::gst_init_check) next = nullptr;
    next = gstreamer_.world().api.gst_init_check;
    gstreamer_.world().api.gst_init_check = [](std::int32_t* count, char*** arguments, GError** error) {
        ++initialisations;
        Sleep(200);  // time for the other thread to come along
        return next(count, arguments, error);
    };
    std::atomic<int> ready{0};  // not std::barrier, whose wait GCC's library for Windows loses now and then
    std::array<const GstApi*, 2> seen{};
    {
        std::array<std::jthread, 2> threads;
        for (std::size_t i = 0; i < threads.size(); ++i) {
            threads[i] = std::jthread([&, i] {
                for (++ready; ready < 2;)
                    std::this_thread::yield();
                seen[i] = GstRuntime::instance(places()).api();
            });
        }
    }
    EXPECT_EQ(initialisations, 1);
    EXPECT_NE(seen[0], nullptr);
    EXPECT_EQ(seen[0], seen[1]);
}

TEST_F(GstRuntimeTest, OfTheProcessIsLookedForOnce) {
    const GstRuntime& first = GstRuntime::instance(places());
    EXPECT_FALSE(first.available());
    installRuntime();  // too late
    EXPECT_EQ(&GstRuntime::instance(places()), &first);
    EXPECT_FALSE(first.available());
}

}  // namespace
}  // namespace vextra::test
