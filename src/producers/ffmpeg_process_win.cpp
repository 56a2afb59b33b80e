#include <algorithm>
#include <array>
#include <optional>
#include <utility>
#include <vector>

#include "base/system_types.h"
#include "producers/ffmpeg_process_win.h"

namespace vextra {
namespace {

constexpr DWORD kOutputPipeBytes = 0x100000;  // a frame passes in four pieces
constexpr DWORD kErrorReadBytes = 4096;
constexpr int kErrorReadsPerPoll = 4;
constexpr DWORD kJobEndWaitMs = 2000;
constexpr DWORD kTerminateWaitMs = 1000;

std::int32_t lastResult() {
    return hresultFromWindowsError(GetLastError());
}

// A list with the one attribute that matters: exactly these handles are inherited, whatever else the broker
// holds.
class HandleListAttribute {
public:
    HandleListAttribute() = default;
    HandleListAttribute(const HandleListAttribute&) = delete;
    HandleListAttribute& operator=(const HandleListAttribute&) = delete;
    ~HandleListAttribute() {
        if (list_ != nullptr)
            DeleteProcThreadAttributeList(list_);
    }

    // False on failure, with GetLastError set. `handles` must outlive this object.
    bool create(std::array<HANDLE, 3>& handles) {
        SIZE_T bytes = 0;
        InitializeProcThreadAttributeList(nullptr, 1, 0, &bytes);
        storage_.resize(bytes);
        const auto list = reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(storage_.data());
        if (!InitializeProcThreadAttributeList(list, 1, 0, &bytes))
            return false;
        list_ = list;
        return UpdateProcThreadAttribute(list_, 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, handles.data(),
                                         handles.size() * sizeof(HANDLE), nullptr, nullptr) != FALSE;
    }
    LPPROC_THREAD_ATTRIBUTE_LIST get() const { return list_; }

private:
    std::vector<std::byte> storage_;
    LPPROC_THREAD_ATTRIBUTE_LIST list_ = nullptr;
};

struct Pipe {
    UniqueHandle read;
    UniqueHandle write;
};

// A pipe whose write end the child inherits and whose read end it does not.
std::optional<Pipe> createChildPipe(SECURITY_ATTRIBUTES& inheritable, DWORD bufferBytes) {
    Pipe pipe;
    HANDLE read = nullptr;
    HANDLE write = nullptr;
    if (!CreatePipe(&read, &write, &inheritable, bufferBytes))
        return std::nullopt;
    pipe.read.reset(read);
    pipe.write.reset(write);
    SetHandleInformation(read, HANDLE_FLAG_INHERIT, 0);
    return pipe;
}

// A decoder that crashes has to end, not to wait for a box of error reporting. A child takes over its
// parent's mode as it is when it is created, and there is one mode for all threads of a process: so it is set
// for that long only, since it also keeps our own crashes from being reported. Should another thread crash in
// between, that one report is lost, and nothing else; no other thread sets the mode.
class ErrorModeForDecoder {
public:
    ErrorModeForDecoder() : before_(GetErrorMode()) { SetErrorMode(before_ | SEM_NOGPFAULTERRORBOX); }
    ~ErrorModeForDecoder() { SetErrorMode(before_); }
    ErrorModeForDecoder(const ErrorModeForDecoder&) = delete;
    ErrorModeForDecoder& operator=(const ErrorModeForDecoder&) = delete;

private:
    const UINT before_;
};

bool killOnClose(HANDLE job) {
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    return SetInformationJobObject(job, JobObjectExtendedLimitInformation, &limits, sizeof limits) != FALSE;
}

}  // namespace

std::wstring ffmpegExecutablePath(std::wstring_view installRoot) {
    return std::wstring(installRoot) + L"\\deps\\ffmpeg.exe";
}

bool ffmpegIsInstalled(std::wstring_view installRoot) {
    return GetFileAttributesW(ffmpegExecutablePath(installRoot).c_str()) != INVALID_FILE_ATTRIBUTES;
}

FfmpegProcess::FfmpegProcess(std::wstring installRoot, ProducerReports reports)
    : installRoot_(std::move(installRoot)), reports_(std::move(reports)) {}

bool FfmpegProcess::start(const FfmpegInput& input) {
    stop();
    if (!ffmpegIsInstalled(installRoot_)) {
        reports_.showStatus(L"FFmpeg ausente: instale o pacote completo (deps/ffmpeg.exe).");
        return false;
    }
    if (launch(ffmpegExecutablePath(installRoot_), input))
        return true;
    stop();
    return false;
}

bool FfmpegProcess::launch(const std::wstring& executable, const FfmpegInput& input) {
    SecretText commandLine = ffmpegCommandLine(executable, input);

    SECURITY_ATTRIBUTES inheritable{sizeof inheritable, nullptr, TRUE};
    std::optional<Pipe> output = createChildPipe(inheritable, kOutputPipeBytes);
    if (!output)
        return false;
    std::optional<Pipe> error = createChildPipe(inheritable, 0);
    if (!error)
        return false;
    outputRead_ = std::move(output->read);
    errorRead_ = std::move(error->read);
    const auto launchFailed = [&] {
        reports_.log(EventCode::kFfmpegLaunchFailed, lastResult());
        return false;
    };
    const UniqueFile nothing(CreateFileW(L"NUL", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                         &inheritable, OPEN_EXISTING, 0, nullptr));
    if (!nothing)
        return launchFailed();
    std::array<HANDLE, 3> childHandles{nothing.get(), output->write.get(), error->write.get()};
    HandleListAttribute attributes;
    if (!attributes.create(childHandles))
        return launchFailed();
    job_.reset(CreateJobObjectW(nullptr, nullptr));
    if (!job_ || !killOnClose(job_.get()))
        return launchFailed();

    STARTUPINFOEXW startup{};
    static_assert(sizeof startup == 112);
    startup.StartupInfo.cb = sizeof startup;
    startup.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
    startup.StartupInfo.hStdInput = childHandles[0];
    startup.StartupInfo.hStdOutput = childHandles[1];
    startup.StartupInfo.hStdError = childHandles[2];
    startup.lpAttributeList = attributes.get();
    constexpr DWORD kFlags =
        CREATE_NO_WINDOW | EXTENDED_STARTUPINFO_PRESENT | BELOW_NORMAL_PRIORITY_CLASS | CREATE_SUSPENDED;
    static_assert(kFlags == 0x08084004);
    // With its backslash, for "C:" alone would be wherever this process happens to be on that drive.
    const std::wstring workingFolder = installRoot_ + L"\\";
    PROCESS_INFORMATION child{};
    {
        const ErrorModeForDecoder mode;
        if (!CreateProcessW(executable.c_str(), commandLine.data(), nullptr, nullptr, TRUE, kFlags, nullptr,
                            workingFolder.c_str(), &startup.StartupInfo, &child))
            return launchFailed();
    }
    process_.reset(child.hProcess);
    processId_ = child.dwProcessId;
    const UniqueHandle thread(child.hThread);

    // Suspended until it is in the job: it can never run outside it. A broker that is killed right here
    // leaves it there, suspended and outside.
    if (!AssignProcessToJobObject(job_.get(), process_.get())) {
        reports_.log(EventCode::kFfmpegJobAssignFailed, lastResult());
        TerminateProcess(process_.get(), 0);
        return false;
    }
    if (ResumeThread(thread.get()) == static_cast<DWORD>(-1))
        return launchFailed();
    reports_.log(EventCode::kFfmpegStart, 0);
    return true;
}

// The decoder's messages hold addresses and are thrown away; but a full pipe would stop it.
void FfmpegProcess::drainStandardError() {
    for (int i = 0; i < kErrorReadsPerPoll; ++i) {
        std::byte discarded[kErrorReadBytes];
        DWORD waiting = 0;
        DWORD taken = 0;
        if (!PeekNamedPipe(errorRead_.get(), nullptr, 0, nullptr, &waiting, nullptr) || waiting == 0 ||
            !ReadFile(errorRead_.get(), discarded, std::min(waiting, kErrorReadBytes), &taken, nullptr))
            return;
    }
}

std::int32_t FfmpegProcess::read(std::byte* buffer, std::uint32_t capacityBytes) {
    drainStandardError();
    if (!process_ || WaitForSingleObject(process_.get(), 0) == WAIT_OBJECT_0)
        return -1;
    DWORD waiting = 0;
    if (!PeekNamedPipe(outputRead_.get(), nullptr, 0, nullptr, &waiting, nullptr))
        return -1;
    if (waiting == 0)
        return 0;
    DWORD taken = 0;
    if (!ReadFile(outputRead_.get(), buffer, std::min<DWORD>(capacityBytes, waiting), &taken, nullptr))
        return -1;
    return static_cast<std::int32_t>(taken);
}

void FfmpegProcess::stop() {
    if (job_) {
        TerminateJobObject(job_.get(), 0);
        job_.reset();
    }
    if (process_) {
        if (WaitForSingleObject(process_.get(), kJobEndWaitMs) == WAIT_TIMEOUT)
            TerminateProcess(process_.get(), 0);
        WaitForSingleObject(process_.get(), kTerminateWaitMs);
        process_.reset();
    }
    processId_ = 0;
    outputRead_.reset();
    errorRead_.reset();
}

}  // namespace vextra
