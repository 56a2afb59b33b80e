// The GStreamer of a process that has no test in it: the running broker's. What it is like is told by
// `stub-gstreamer.txt` beside the libraries, lines `key=value`, all optional, read when the runtime is
// initialised and at each start of a pipeline:
//
//   initMs=N          initialising takes so long
//   start=X           plays (default) | refused: the pipeline cannot be played
//   frames=N|endless  frames that come, 16 a second; the default is endless
//   then=X            hang (default) | error: on the bus | end: of the stream
//
// What it saw while it was initialised is written to `stub-gstreamer.record`, in one piece, before initMs
// passes: errorMode=N, helper=X (GST_REGISTRY_FORK).
#include <windows.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>

#include "base/text.h"
#include "stub_gstreamer/fake_gstreamer.h"

namespace vextra::test {
namespace {

constexpr DWORD kFrameMs = 62;
constexpr std::uint32_t kEndless = std::numeric_limits<std::uint32_t>::max();

std::wstring besideThisLibrary(const wchar_t* name) {
    HMODULE self = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<LPCWSTR>(&besideThisLibrary), &self);
    std::wstring path(32'768, L'\0');
    path.resize(GetModuleFileNameW(self, path.data(), static_cast<DWORD>(path.size())));
    return path.substr(0, path.rfind(L'\\') + 1) + name;
}

// Empty: not told.
std::string told(const std::string& key) {
    std::ifstream file(std::filesystem::path(besideThisLibrary(L"stub-gstreamer.txt")));
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with(key + "="))
            return line.substr(key.size() + 1);
    }
    return {};
}

class LoneGstreamer {
public:
    LoneGstreamer() {
        the_ = this;
        GstApi& api = fake_.world().api;
        plain_ = api;
        api.gst_init_check = [](std::int32_t* count, char*** arguments, GError** error) {
            writeRecord();
            Sleep(static_cast<DWORD>(std::atoi(told("initMs").c_str())));
            return the_->plain_.gst_init_check(count, arguments, error);
        };
        api.gst_parse_launch = [](const char* text, GError** error) {
            the_->readBehaviour();
            return the_->plain_.gst_parse_launch(text, error);
        };
        api.gst_app_sink_try_pull_sample = [](GstElement* sink, std::uint64_t timeoutNs) {
            the_->nextFrame();
            return the_->plain_.gst_app_sink_try_pull_sample(sink, timeoutNs);
        };
        // The other libraries of the runtime find it as they find a test's.
        char address[32];
        std::snprintf(address, sizeof address, "%" PRIxPTR, reinterpret_cast<std::uintptr_t>(&fake_.world()));
        SetEnvironmentVariableA(kStubWorldVariable, address);
    }

private:
    static void writeRecord() {
        char helper[16] = {};
        GetEnvironmentVariableA("GST_REGISTRY_FORK", helper, sizeof helper);
        std::ofstream(std::filesystem::path(besideThisLibrary(L"stub-gstreamer.record")), std::ios::binary)
            << "errorMode=" + std::to_string(GetErrorMode()) + "\nhelper=" + helper + "\n";
    }
    void readBehaviour() {
        const std::string frames = told("frames");
        framesLeft_ = frames.empty() || frames == "endless"
                          ? kEndless
                          : static_cast<std::uint32_t>(std::strtoul(frames.c_str(), nullptr, 10));
        then_ = told("then");
        fake_.stateChange = told("start") == "refused" ? kGstStateChangeFailure : kAsynchronous;
        fake_.busHasError = false;
        fake_.streamEnded = false;
    }
    void nextFrame() {
        Sleep(kFrameMs);
        if (framesLeft_ == 0) {
            fake_.busHasError = then_ == "error";
            fake_.streamEnded = then_ == "end";
            return;
        }
        if (framesLeft_ != kEndless)
            --framesLeft_;
        fake_.calls.clear();
        fake_.sample = FakeGstreamer::goodSample();
    }

    static constexpr std::int32_t kAsynchronous = 2;
    static inline LoneGstreamer* the_ = nullptr;
    FakeGstreamer fake_;
    GstApi plain_{};
    std::uint32_t framesLeft_ = kEndless;
    std::string then_;
};

LoneGstreamer lone;

}  // namespace
}  // namespace vextra::test
