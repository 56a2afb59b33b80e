#include "core/instance_win.h"

#include <gtest/gtest.h>

#include <aclapi.h>
#include <sddl.h>

#include <set>

#include "broker_fixture_win.h"
#include "core/window_messages_win.h"
#include "import_swap_win.h"
#include "own_machine_win.h"

namespace vextra {
namespace {

class InstanceLockFile : public testing::Test {
protected:
    TemporaryFolder folder;
    const std::wstring path = folder / L"app.lock";
};

TEST_F(InstanceLockFile, HoldsTheProcessIdAndNothingElse) {
    const InstanceLock lock = takeInstanceLock(folder.path());
    ASSERT_TRUE(lock);
    const DWORD id = GetCurrentProcessId();
    EXPECT_EQ(readFile(path), std::string(reinterpret_cast<const char*>(&id), 4));
}

TEST_F(InstanceLockFile, CutsOffWhatAnEarlierBrokerLeft) {
    writeFile(path, "much longer than four bytes");
    const InstanceLock lock = takeInstanceLock(folder.path());
    EXPECT_EQ(readFile(path).size(), 4u);
}

TEST_F(InstanceLockFile, IsTakenOnce) {
    const InstanceLock first = takeInstanceLock(folder.path());
    EXPECT_TRUE(first);
    EXPECT_FALSE(takeInstanceLock(folder.path()));
    EXPECT_EQ(readInstanceLock(folder.path()), GetCurrentProcessId());
}

TEST_F(InstanceLockFile, IsFreeAgainWhenItsHolderEnds) {
    { const InstanceLock first = takeInstanceLock(folder.path()); }
    EXPECT_TRUE(takeInstanceLock(folder.path()));
}

TEST_F(InstanceLockFile, NamesNobodyOnceItIsLetGo) {
    { const InstanceLock lock = takeInstanceLock(folder.path()); }
    EXPECT_EQ(readFile(path), "");
    EXPECT_EQ(readInstanceLock(folder.path()), 0u);
}

// The old id would be taken for that of the broker that runs.
TEST_F(InstanceLockFile, NamesNobodyWhenTheIdCannotBeWritten) {
    writeFile(path, std::string_view("\x04\x03\x02\x01", 4));
    const test::RefusedImport<decltype(WriteFile)> refused("WriteFile");
    const InstanceLock lock = takeInstanceLock(folder.path());
    EXPECT_TRUE(lock);
    EXPECT_EQ(readInstanceLock(folder.path()), 0u);
}

TEST_F(InstanceLockFile, MayBeReadButNotWrittenNorDeletedByOthers) {
    const InstanceLock lock = takeInstanceLock(folder.path());
    EXPECT_TRUE(openFile(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING));
    EXPECT_FALSE(openFile(path, GENERIC_WRITE, kShareAll, OPEN_EXISTING));
    EXPECT_FALSE(DeleteFileW(path.c_str()));
}

TEST_F(InstanceLockFile, CannotBeTakenWithoutItsFolder) {
    EXPECT_FALSE(takeInstanceLock(folder / L"missing"));
}

TEST_F(InstanceLockFile, IsReadWhileItIsHeld) {
    const InstanceLock lock = takeInstanceLock(folder.path());
    EXPECT_EQ(readInstanceLock(folder.path()), GetCurrentProcessId());
}

TEST_F(InstanceLockFile, IsReadFromItsFirstFourBytes) {
    writeFile(path, std::string_view("\x04\x03\x02\x01xyz", 7));
    EXPECT_EQ(readInstanceLock(folder.path()), 0x01020304u);
}

TEST_F(InstanceLockFile, NamesNobodyWhenItIsMissingOrTooShort) {
    EXPECT_EQ(readInstanceLock(folder.path()), 0u);
    EXPECT_FALSE(fileExists(path));
    writeFile(path, "");
    EXPECT_EQ(readInstanceLock(folder.path()), 0u);
    writeFile(path, "\x01\x02\x03");
    EXPECT_EQ(readInstanceLock(folder.path()), 0u);
}

// --- The stop signal ---

class SessionWideStopSignal : public testing::Test {
protected:
    SessionWideStopSignal() { test::refuseWhereABrokerRuns(); }
};

std::wstring signalName() {
    return L"Local\\VextraMfBetaStop_" + currentUserSidString();
}

bool isSet(const UniqueHandle& event) {
    return WaitForSingleObject(event.get(), 0) == WAIT_OBJECT_0;
}

TEST_F(SessionWideStopSignal, CarriesTheUsersSidInItsName) {
    const UniqueHandle signal = createStopSignal();
    ASSERT_TRUE(signal);
    const UniqueHandle byName(OpenEventW(EVENT_MODIFY_STATE, FALSE, signalName().c_str()));
    ASSERT_TRUE(byName);
    SetEvent(byName.get());
    EXPECT_TRUE(isSet(signal));
}

TEST_F(SessionWideStopSignal, IsClearAtFirst) {
    const UniqueHandle signal = createStopSignal();
    EXPECT_FALSE(isSet(signal));
}

TEST_F(SessionWideStopSignal, IsClearedByWhoeverTakesIt) {
    const UniqueHandle signal = createStopSignal();
    SetEvent(signal.get());
    EXPECT_TRUE(isSet(signal));
    EXPECT_FALSE(isSet(signal));
}

// Without its list of who may set it, any program could end the broker.
TEST_F(SessionWideStopSignal, IsNotMadeForNobodyNorWithoutItsAccessList) {
    {
        const test::RefusedImport<decltype(OpenProcessToken)> refused("OpenProcessToken");
        EXPECT_FALSE(createStopSignal());
    }
    const test::RefusedImport<decltype(ConvertStringSecurityDescriptorToSecurityDescriptorW)> refused(
        "ConvertStringSecurityDescriptorToSecurityDescriptorW");
    EXPECT_FALSE(createStopSignal());
}

TEST_F(SessionWideStopSignal, IsNotThereWithoutABroker) {
    EXPECT_FALSE(openStopSignal());
}

TEST_F(SessionWideStopSignal, IsOpenedOnlyToBeSet) {
    const UniqueHandle signal = createStopSignal();
    const UniqueHandle asker = openStopSignal();
    ASSERT_TRUE(asker);
    EXPECT_TRUE(SetEvent(asker.get()));
    EXPECT_EQ(WaitForSingleObject(asker.get(), 0), WAIT_FAILED);
    EXPECT_TRUE(isSet(signal));
}

struct AccessList {
    PACL list = nullptr;
    SECURITY_DESCRIPTOR_CONTROL control = 0;
    UniqueLocalMemory owner;
};

AccessList accessListOf(const UniqueHandle& object) {
    AccessList result;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    const DWORD status = GetSecurityInfo(object.get(), SE_KERNEL_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                                         nullptr, &result.list, nullptr, &descriptor);
    if (status != ERROR_SUCCESS)
        failSetUp("access list", status);
    result.owner.reset(descriptor);
    DWORD revision = 0;
    GetSecurityDescriptorControl(descriptor, &result.control, &revision);
    return result;
}

TEST_F(SessionWideStopSignal, IsForTheSystemAdministratorsAndTheUserOnly) {
    const UniqueHandle signal = createStopSignal();
    const AccessList access = accessListOf(signal);
    ASSERT_NE(access.list, nullptr);
    std::set<std::wstring> trusted;
    for (DWORD i = 0; i < access.list->AceCount; ++i) {
        void* raw = nullptr;
        ASSERT_TRUE(GetAce(access.list, i, &raw));
        auto* const entry = static_cast<ACCESS_ALLOWED_ACE*>(raw);
        EXPECT_EQ(entry->Header.AceType, ACCESS_ALLOWED_ACE_TYPE);
        EXPECT_TRUE(entry->Mask == EVENT_ALL_ACCESS || entry->Mask == GENERIC_ALL) << std::hex << entry->Mask;
        wchar_t* sid = nullptr;
        ASSERT_TRUE(ConvertSidToStringSidW(&entry->SidStart, &sid));
        const UniqueLocalMemory sidOwner(sid);
        trusted.insert(sid);
    }
    EXPECT_EQ(trusted, (std::set<std::wstring>{L"S-1-5-18", L"S-1-5-32-544", currentUserSidString()}));
    EXPECT_EQ(access.list->AceCount, 3);
}

TEST_F(SessionWideStopSignal, InheritsNoOtherEntries) {
    if (runsUnderWine())
        GTEST_SKIP() << "Wine does not keep the mark of a protected access list";
    const UniqueHandle signal = createStopSignal();
    EXPECT_NE(accessListOf(signal).control & SE_DACL_PROTECTED, 0);
}

// --- The tests' own guard ---

TEST(TestMachine, IsSomebodysWhenItWasProvisionedByNoTest) {
    const ScratchMachineHive registry;
    EXPECT_FALSE(test::isProvisionedBySomebody());
    registry.set(kOwnerSidValue, currentUserSidString());
    EXPECT_TRUE(test::isProvisionedBySomebody());
    registry.set(test::kTestsMark, L"yes");
    EXPECT_FALSE(test::isProvisionedBySomebody());
}

// --- The running broker's window ---

int showMessages = 0;
DWORD letToTheForeground = 0;
bool messageWasThereBefore = false;

BOOL WINAPI allowedForeground(DWORD processId) {
    letToTheForeground = processId;
    MSG message{};
    messageWasThereBefore =
        PeekMessageW(&message, nullptr, kMessageShowWindow, kMessageShowWindow, PM_NOREMOVE) != FALSE;
    return TRUE;
}

LRESULT CALLBACK countShowMessages(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == kMessageShowWindow && wParam == 0 && lParam == 0)
        ++showMessages;
    return DefWindowProcW(window, message, wParam, lParam);
}

// A window of the broker's class, in this process.
class SessionWideRunningBroker : public testing::Test {
protected:
    SessionWideRunningBroker() {
        test::refuseWhereABrokerRuns();
        WNDCLASSW windowClass{};
        windowClass.lpfnWndProc = &countShowMessages;
        windowClass.hInstance = GetModuleHandleW(nullptr);
        windowClass.lpszClassName = L"VextraMfBetaF7E23FCF";
        if (RegisterClassW(&windowClass) == 0)
            failSetUp("class");
        window = CreateWindowExW(0, windowClass.lpszClassName, L"", WS_OVERLAPPED, 0, 0, 1, 1, nullptr,
                                 nullptr, windowClass.hInstance, nullptr);
        if (window == nullptr)
            failSetUp("window");
        showMessages = 0;
    }
    ~SessionWideRunningBroker() override {
        DestroyWindow(window);
        UnregisterClassW(L"VextraMfBetaF7E23FCF", GetModuleHandleW(nullptr));
    }
    HWND window = nullptr;
};

TEST_F(SessionWideRunningBroker, IsAskedToShowItsWindow) {
    showRunningBroker();
    EXPECT_EQ(showMessages, 0) << "posted, not sent: a broker that hangs must not hang its second start";
    for (MSG message{}; PeekMessageW(&message, window, 0, 0, PM_REMOVE);)
        DispatchMessageW(&message);
    EXPECT_EQ(showMessages, 1);
}

// Windows grants it for the moment after the user started the second process, and to no other process.
TEST_F(SessionWideRunningBroker, GetsTheRightToTheForegroundBeforeItIsAsked) {
    const test::ImportSwap<BOOL WINAPI(DWORD)> foreground("AllowSetForegroundWindow", &allowedForeground);
    showRunningBroker();
    EXPECT_EQ(letToTheForeground, GetCurrentProcessId());
    EXPECT_FALSE(messageWasThereBefore);
}

}  // namespace
}  // namespace vextra
