#include "core/instance_win.h"

#include "base/system_win.h"
#include "core/window_messages_win.h"

namespace vextra {
namespace {

std::wstring lockPath(const std::wstring& dataFolder) {
    return dataFolder + L"\\app.lock";
}

std::wstring stopSignalName(const std::wstring& userSid) {
    return L"Local\\" VEXTRA_OBJECT_PREFIX_W L"Stop_" + userSid;
}

}  // namespace

void closeInstanceLock(HANDLE file) {
    SetFilePointer(file, 0, nullptr, FILE_BEGIN);
    SetEndOfFile(file);
    const UniqueFile owner(file);
}

InstanceLock takeInstanceLock(const std::wstring& dataFolder) {
    InstanceLock file(CreateFileW(lockPath(dataFolder).c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ,
                                  nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file)
        return {};
    const DWORD processId = GetCurrentProcessId();
    static_assert(sizeof processId == 4);
    DWORD written = 0;
    // On a disk that takes nothing the file is empty, for it ends where the writing did: the broker runs, and
    // no maintenance command finds it.
    WriteFile(file.get(), &processId, sizeof processId, &written, nullptr);
    SetEndOfFile(file.get());
    FlushFileBuffers(file.get());
    return file;
}

std::uint32_t readInstanceLock(const std::wstring& dataFolder) {
    // The holder writes, so the reader has to allow writing.
    const UniqueFile file(CreateFileW(lockPath(dataFolder).c_str(), GENERIC_READ,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD processId = 0;
    DWORD taken = 0;
    if (!file || !ReadFile(file.get(), &processId, sizeof processId, &taken, nullptr) ||
        taken != sizeof processId)
        return 0;
    return processId;
}

void showRunningBroker() {
    const HWND window = FindWindowW(kMainWindowClass, nullptr);
    if (window == nullptr)
        return;
    // The user has just started this process, so it may come to the foreground, and only with that right does
    // a window rise above others'.
    DWORD processId = 0;
    GetWindowThreadProcessId(window, &processId);
    AllowSetForegroundWindow(processId);
    PostMessageW(window, kMessageShowWindow, 0, 0);
}

UniqueHandle createStopSignal() {
    const std::wstring sid = currentUserSidString();
    if (sid.empty())
        return {};
    const std::wstring sddl = L"D:P(A;;GA;;;SY)(A;;GA;;;BA)(A;;GA;;;" + sid + L")";
    const UniqueLocalMemory descriptor = descriptorFromSddl(sddl);
    if (!descriptor)
        return {};
    SECURITY_ATTRIBUTES attributes{sizeof attributes, descriptor.get(), FALSE};
    return UniqueHandle(CreateEventW(&attributes, FALSE, FALSE, stopSignalName(sid).c_str()));
}

UniqueHandle openStopSignal() {
    return UniqueHandle(
        OpenEventW(EVENT_MODIFY_STATE, FALSE, stopSignalName(currentUserSidString()).c_str()));
}

}  // namespace vextra
