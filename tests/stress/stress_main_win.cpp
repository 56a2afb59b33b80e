// stress-tests                                          the tests
// stress-tests --role NAME BLOCK FILE NUMBER            a process that they start

#include <gtest/gtest.h>

#include <cwchar>
#include <string>

#include "start_process_win.h"
#include "stress_processes_win.h"

namespace vextra::stress {

RoleProcess::RoleProcess(const Role& role) {
    wchar_t program[1024];
    program[GetModuleFileNameW(nullptr, program, ARRAYSIZE(program) - 1)] = L'\0';
    std::wstring line = L"\"" + std::wstring(program) + L"\" --role " + role.name + L" " + role.block +
                        L" \"" + role.file + L"\" " + std::to_wstring(role.number);
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION started{};
    if (!startProcess([&] {
            return CreateProcessW(program, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                                  &startup, &started);
        }))
        failSetUp("process of a role");
    process_.reset(started.hProcess);
    thread_.reset(started.hThread);
}

bool RoleProcess::waitForEnd(DWORD timeoutMs) const {
    DWORD code = 1;
    return WaitForSingleObject(process_.get(), timeoutMs) == WAIT_OBJECT_0 &&
           GetExitCodeProcess(process_.get(), &code) && code == 0;
}

void RoleProcess::kill() {
    TerminateProcess(process_.get(), 99);
    WaitForSingleObject(process_.get(), 5000);
}

}  // namespace vextra::stress

int wmain(int count, wchar_t** arguments) {
    using namespace vextra::stress;
    if (count == 6 && std::wcscmp(arguments[1], L"--role") == 0) {
        const Role role{arguments[2], arguments[3], arguments[4],
                        static_cast<std::uint32_t>(std::wcstoul(arguments[5], nullptr, 10))};
        const int code = playBridgeRole(role);
        return code >= 0 ? code : playLeaseRole(role);
    }
    testing::InitGoogleTest(&count, arguments);
    return RUN_ALL_TESTS();
}
