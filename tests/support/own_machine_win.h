// What exists once on a machine or in a session, and what tests do with it only where it is theirs: the
// broker's key, its window, lock and stop signal. A person who runs the tests keeps what is installed and
// what runs.
#pragma once

#include <windows.h>

#include <cstdio>
#include <cstdlib>

#include "bridge/bridge_location.h"
#include "core/instance_win.h"
#include "start_process_win.h"

namespace vextra::test {

// A value in the broker's key that nothing but tests writes: a key of theirs that a killed test left behind
// is told from an installer's by it.
inline constexpr wchar_t kTestsMark[] = L"MadeByTests";

// True when the broker's key is there and no test has made it.
inline bool isProvisionedBySomebody() {
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kBrokerRegistryKey, 0, KEY_QUERY_VALUE | KEY_WOW64_64KEY, &key) !=
        ERROR_SUCCESS)
        return false;
    RegCloseKey(key);
    return readBrokerRegistryValue(kTestsMark).empty();
}

// Ends the program, before the test that asked has touched anything.
[[noreturn]] inline void refuseToTest(const char* because) {
    std::fprintf(stderr, "These tests are not for this machine: %s Nothing was touched.\n", because);
    std::fflush(stderr);
    std::_Exit(EXIT_FAILURE);
}

// At the start of a test that takes the broker's names of this session for itself. A test that was killed may
// have left a broker that is just ending.
inline void refuseWhereABrokerRuns() {
    constexpr int kLooks = 50;
    constexpr DWORD kPauseMs = 100;
    for (int look = 0; FindWindowW(kMainWindowClass, nullptr) != nullptr || openStopSignal(); ++look) {
        if (look == kLooks)
            refuseToTest("a broker runs here, which they would command and end. Quit it first.");
        Sleep(kPauseMs);
    }
}

// At the start of a test that provisions the machine. Under Wine the machine is a prefix for tests and
// trials.
inline void refuseSomebodysMachine() {
    if (!runsUnderWine() && isProvisionedBySomebody())
        refuseToTest(
            "an installed broker would lose its registry key. Use another, or undo the installation "
            "with vextra-provision --remove.");
    refuseWhereABrokerRuns();
}

}  // namespace vextra::test
