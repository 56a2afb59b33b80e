// Folders that look like a GStreamer runtime, with the stub libraries in them. For test programs; the
// libraries lie beside them.
#pragma once

#include <windows.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "broker_fixture_win.h"
#include "stub_gstreamer/fake_gstreamer.h"

namespace vextra::test {

inline constexpr const wchar_t* kStubLibraryFiles[] = {
    L"stub-glib.dll", L"stub-gobject.dll", L"stub-gstreamer.dll", L"stub-gstapp.dll", L"stub-gstvideo.dll"};

enum class LibraryNames { kMsvc = 1, kMinGw };

inline std::wstring libraryName(GstLibrary library, LibraryNames names) {
    const std::wstring name = kGstLibraryNames[static_cast<std::size_t>(library)];
    return names == LibraryNames::kMsvc ? name : L"lib" + name;
}

inline std::wstring besideThisProgram(std::wstring_view name) {
    std::wstring path(32'768, L'\0');
    path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
    return (std::filesystem::path(path).parent_path() / name).wstring();
}

// <root>\bin with all five.
inline void makeStubRuntime(const std::wstring& bin, LibraryNames names) {
    std::filesystem::create_directories(bin);
    for (std::size_t i = 0; i < std::size(kStubLibraryFiles); ++i) {
        std::filesystem::copy_file(besideThisProgram(kStubLibraryFiles[i]),
                                   bin + L"\\" + libraryName(static_cast<GstLibrary>(i), names));
    }
}

// <root>\bin for a running broker, whose GStreamer is told by `stub-gstreamer.txt` there what to be like (see
// lone_gstreamer_win.cpp).
inline void makeLoneRuntime(const std::wstring& bin) {
    makeStubRuntime(bin, LibraryNames::kMinGw);
    std::filesystem::copy_file(besideThisProgram(L"stub-gstreamer-alone.dll"),
                               bin + L"\\" + libraryName(GstLibrary::kGstreamer, LibraryNames::kMinGw),
                               std::filesystem::copy_options::overwrite_existing);
}

// The library exports everything but `name` afterwards: its last letter becomes another, which keeps the
// order of the names, as the loader needs it.
inline void removeExport(const std::wstring& library, const std::string& name) {
    std::string bytes = readFile(library);
    const std::string whole = '\0' + name + '\0';
    std::size_t found = 0;
    for (std::size_t at = bytes.find(whole); at != std::string::npos; at = bytes.find(whole, at + 1), ++found)
        bytes[at + name.size()] = '~';
    if (found == 0)
        failSetUp(name.c_str(), ERROR_PROC_NOT_FOUND);
    writeFile(library, bytes);
}

// A test's GStreamer within reach of the stub libraries, and no other runtime within reach of the search.
class StubMachine {
public:
    StubMachine() { hideRuntimes(); }
    StubMachine(const StubMachine&) = delete;
    StubMachine& operator=(const StubMachine&) = delete;

    FakeGstreamer gstreamer;
    TemporaryFolder root;

    std::wstring installRoot() const { return root / L"install"; }
    std::wstring dataFolder() const { return root / L"data"; }

    void set(const wchar_t* name, const std::wstring& value) { SetEnvironmentVariableW(name, value.c_str()); }

private:
    void hideRuntimes() {
        set(L"PATH", L"C:\\windows\\system32");
        set(L"ProgramFiles", root / L"Program Files");
        std::filesystem::create_directories(dataFolder());
    }
    static std::wstring address(const void* pointer) {
        wchar_t text[32];
        swprintf(text, std::size(text), L"%llx",
                 static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(pointer)));
        return text;
    }

    const ScopedVariable world_{L"VEXTRA_TEST_STUB_GSTREAMER", address(&gstreamer.world()).c_str()};
    const ScopedVariable msvc_{L"GSTREAMER_1_0_ROOT_MSVC_X86_64", nullptr};
    const ScopedVariable x64_{L"GSTREAMER_1_0_ROOT_X86_64", nullptr};
    const ScopedVariable programFiles_{L"ProgramFiles", nullptr};
    const ScopedVariable path_{L"PATH", nullptr};
    const ScopedVariable registry_{L"GST_REGISTRY_1_0", nullptr};
    const ScopedVariable plainRegistry_{L"GST_REGISTRY", nullptr};
    const ScopedVariable ranks_{L"GST_PLUGIN_FEATURE_RANK", nullptr};
    const ScopedVariable helper_{L"GST_REGISTRY_FORK", nullptr};
};

}  // namespace vextra::test
