#include "ui/tray_icon_win.h"

#include <gtest/gtest.h>

#include <shellapi.h>

#include <utility>
#include <vector>

#include "shell_record_win.h"
#include "test_window_win.h"

namespace vextra {
namespace {

using test::LoggedCodes;

// --- What the shell is asked for ---

class TrayIconRecord : public testing::Test {
protected:
    // An image of the tray's own, to be freed by it.
    static UniqueIcon image() { return UniqueIcon(CopyIcon(LoadIconW(nullptr, IDI_APPLICATION))); }
    void add(std::wstring_view statusLabel) { tray.add(window, image(), statusLabel); }

    const test::ShellRecord shell;
    std::vector<test::ShellCall>& shellCalls = test::ShellRecord::calls();
    LoggedCodes logged;
    TrayIcon tray{logged.log()};
    const HWND window = reinterpret_cast<HWND>(0x1234);
};

TEST_F(TrayIconRecord, OfAnAddNamesWindowIconAndTip) {
    UniqueIcon icon = image();
    const HICON handle = icon.get();
    tray.add(window, std::move(icon), L"Ao vivo • imagem recente");
    ASSERT_EQ(shellCalls.size(), 1u);
    const auto& [operation, record] = shellCalls[0];
    EXPECT_EQ(operation, DWORD{NIM_ADD});
    EXPECT_EQ(record.cbSize, sizeof(NOTIFYICONDATAW));
    EXPECT_EQ(record.hWnd, window);
    EXPECT_EQ(record.uID, 1u);
    EXPECT_EQ(record.uFlags, UINT{NIF_MESSAGE | NIF_ICON | NIF_TIP});
    EXPECT_EQ(record.uCallbackMessage, 0x8002u);
    EXPECT_EQ(record.hIcon, handle);
    EXPECT_STREQ(record.szTip, L"Vextra MF beta • Dispositivo persistente • Ao vivo • imagem recente");
    EXPECT_STREQ(record.szInfo, L"");
}

TEST_F(TrayIconRecord, OfARefreshIsTheSameWithANewTip) {
    add(L"a");
    tray.refresh(L"b");
    ASSERT_EQ(shellCalls.size(), 2u);
    const auto& [operation, record] = shellCalls[1];
    EXPECT_EQ(operation, DWORD{NIM_MODIFY});
    EXPECT_EQ(record.hWnd, window);
    EXPECT_EQ(record.uID, 1u);
    EXPECT_EQ(record.uFlags, UINT{NIF_MESSAGE | NIF_ICON | NIF_TIP});
    EXPECT_STREQ(record.szTip, L"Vextra MF beta • Dispositivo persistente • b");
}

TEST_F(TrayIconRecord, IsSentAgainOnlyWhenTheTipHasChanged) {
    add(L"a");
    tray.refresh(L"a");
    EXPECT_EQ(shellCalls.size(), 1u);
    tray.refresh(L"b");
    tray.refresh(L"b");
    EXPECT_EQ(shellCalls.size(), 2u);
    shell.refuseAll();
    tray.refresh(L"c");
    shell.takeAll();
    tray.refresh(L"c");
    EXPECT_EQ(shellCalls.size(), 4u) << "what the shell did not take is sent once more";
}

TEST_F(TrayIconRecord, OfANoticeIsABalloonThatInforms) {
    add(L"a");
    tray.refresh(L"a", &kStillRunningNotice);
    ASSERT_EQ(shellCalls.size(), 2u);
    const auto& [operation, record] = shellCalls[1];
    EXPECT_EQ(operation, DWORD{NIM_MODIFY});
    EXPECT_EQ(record.uFlags, UINT{NIF_MESSAGE | NIF_ICON | NIF_TIP | NIF_INFO});
    EXPECT_STREQ(record.szInfoTitle, L"Vextra continua na bandeja");
    EXPECT_STREQ(record.szInfo,
                 L"Fechar a janela não desliga a câmera. Use Sair no menu da bandeja para encerrar.");
    EXPECT_EQ(record.dwInfoFlags, DWORD{NIIF_INFO});
}

TEST_F(TrayIconRecord, CutsWhatTheFieldsCannotHold) {
    const std::wstring text(300, L'é');
    const TrayNotice notice{text, text};
    add(text);
    tray.refresh(text, &notice);
    const NOTIFYICONDATAW& record = shellCalls.at(1).record;
    EXPECT_EQ(std::wstring(record.szTip).size(), 127u);
    EXPECT_EQ(std::wstring(record.szInfoTitle), std::wstring(62, L'é') + L"…");
    EXPECT_EQ(std::wstring(record.szInfo), std::wstring(254, L'é') + L"…");
}

TEST_F(TrayIconRecord, OfARemovalNamesTheSameIcon) {
    add(L"a");
    tray.remove();
    ASSERT_EQ(shellCalls.size(), 2u);
    EXPECT_EQ(shellCalls[1].operation, DWORD{NIM_DELETE});
    EXPECT_EQ(shellCalls[1].record.hWnd, window);
    EXPECT_EQ(shellCalls[1].record.uID, 1u);
    EXPECT_EQ(logged.text(), "TRAY_ADD_OK 0x00000000\nTRAY_REMOVE 0x00000000\n");
}

TEST_F(TrayIconRecord, IsNotSentWhileTheIconIsAbsent) {
    tray.refresh(L"before any add");
    shell.refuseAll();
    add(L"a");
    tray.refresh(L"after a failed add", &kStillRunningNotice);
    ASSERT_EQ(shellCalls.size(), 1u);
    EXPECT_EQ(logged.text(), "TRAY_ADD_FAILED 0x00000000\n");
}

TEST_F(TrayIconRecord, OfASecondAddComesAfterARemovalThatMayFail) {
    add(L"a");
    shellCalls.clear();
    shell.refuse(NIM_DELETE);
    tray.addAgain(image(), L"b");
    ASSERT_EQ(shellCalls.size(), 2u);
    EXPECT_EQ(shellCalls[0].operation, DWORD{NIM_DELETE});
    EXPECT_EQ(shellCalls[0].record.hWnd, window);
    EXPECT_EQ(shellCalls[0].record.uID, 1u);
    EXPECT_EQ(shellCalls[1].operation, DWORD{NIM_ADD});
    EXPECT_STREQ(shellCalls[1].record.szTip, L"Vextra MF beta • Dispositivo persistente • b");
    EXPECT_TRUE(tray.present());
    EXPECT_EQ(logged.text(), "TRAY_ADD_OK 0x00000000\nTRAY_ADD_OK 0x00000000\n")
        << "a removal that was not asked for";
}

TEST_F(TrayIconRecord, OfASecondAddThatFailsMeansThatTheIconIsGone) {
    add(L"a");
    shell.refuse(NIM_ADD);
    tray.addAgain(image(), L"a");
    EXPECT_FALSE(tray.present());
    EXPECT_EQ(logged.text(), "TRAY_ADD_OK 0x00000000\nTRAY_ADD_FAILED 0x00000000\n");
}

TEST_F(TrayIconRecord, IsTriedAgainInSilenceUntilItIsTaken) {
    shell.refuse(NIM_ADD);
    add(L"a");
    shellCalls.clear();
    tray.addIfAbsent(L"b");
    tray.addIfAbsent(L"b");
    EXPECT_EQ(shellCalls.size(), 4u) << "a removal and an add each time";
    EXPECT_EQ(logged.text(), "TRAY_ADD_FAILED 0x00000000\n");
    shell.takeAll();
    tray.addIfAbsent(L"c");
    EXPECT_TRUE(tray.present());
    EXPECT_EQ(shellCalls.back().operation, DWORD{NIM_ADD});
    EXPECT_STREQ(shellCalls.back().record.szTip, L"Vextra MF beta • Dispositivo persistente • c");
    EXPECT_EQ(logged.text(), "TRAY_ADD_FAILED 0x00000000\nTRAY_ADD_OK 0x00000000\n");
}

TEST_F(TrayIconRecord, IsNotTriedAgainWhereItWasTakenOrRemovedOnPurpose) {
    tray.addIfAbsent(L"before any add");
    EXPECT_EQ(shellCalls.size(), 0u);
    add(L"a");
    tray.addIfAbsent(L"a");
    EXPECT_EQ(shellCalls.size(), 1u);
    tray.remove();
    tray.addIfAbsent(L"a");
    EXPECT_EQ(shellCalls.size(), 2u);
}

TEST_F(TrayIconRecord, OfAnotherImageIsSentToAnIconThatIsThere) {
    add(L"a");
    UniqueIcon larger = image();
    const HICON handle = larger.get();
    tray.replaceImage(std::move(larger));
    ASSERT_EQ(shellCalls.size(), 2u);
    EXPECT_EQ(shellCalls[1].operation, DWORD{NIM_MODIFY});
    EXPECT_EQ(shellCalls[1].record.hIcon, handle);
    EXPECT_STREQ(shellCalls[1].record.szTip, L"Vextra MF beta • Dispositivo persistente • a");
    tray.remove();
    tray.replaceImage(image());
    EXPECT_EQ(shellCalls.size(), 3u) << "not to one that is gone";
}

TEST_F(TrayIconRecord, OfAFailedRefreshIsForgotten) {
    add(L"a");
    shell.refuseAll();
    tray.refresh(L"b");
    EXPECT_TRUE(tray.present());
    EXPECT_EQ(logged.text(), "TRAY_ADD_OK 0x00000000\n");
}

TEST_F(TrayIconRecord, OfAFailedRemovalStillMeansThatTheIconIsGone) {
    add(L"a");
    shell.refuseAll();
    tray.remove();
    EXPECT_FALSE(tray.present());
    EXPECT_EQ(logged.text(), "TRAY_ADD_OK 0x00000000\nTRAY_REMOVE 0x00000000\n");
}

// --- In the session's own notification area ---

class SessionWideTrayIcon : public testing::Test {
protected:
    void TearDown() override {
        if (tray.present())
            tray.remove();
    }
    void add(TrayIcon& which) {
        which.add(window.handle(), UniqueIcon(CopyIcon(LoadIconW(nullptr, IDI_APPLICATION))), L"Ao vivo");
    }

    test::TestWindow window;
    LoggedCodes logged;
    TrayIcon tray{logged.log()};
};

TEST_F(SessionWideTrayIcon, IsThereAfterAnAdd) {
    EXPECT_FALSE(tray.present());
    add(tray);
    EXPECT_TRUE(tray.present());
    EXPECT_EQ(logged.text(), "TRAY_ADD_OK 0x00000000\n");
}

TEST_F(SessionWideTrayIcon, IsNotAddedTwice) {
    add(tray);
    LoggedCodes secondLogged;
    TrayIcon second(secondLogged.log());
    add(second);
    EXPECT_FALSE(second.present());
    EXPECT_EQ(secondLogged.text(), "TRAY_ADD_FAILED 0x00000000\n");
    EXPECT_TRUE(tray.present());
}

TEST_F(SessionWideTrayIcon, IsThereWhenTheShellIsAnnouncedThatNeverWent) {
    add(tray);
    tray.addAgain(UniqueIcon(CopyIcon(LoadIconW(nullptr, IDI_APPLICATION))), L"Ao vivo");
    EXPECT_TRUE(tray.present());
    EXPECT_EQ(logged.text(), "TRAY_ADD_OK 0x00000000\nTRAY_ADD_OK 0x00000000\n");
}

TEST_F(SessionWideTrayIcon, ComesBackAfterItWasRemoved) {
    add(tray);
    tray.remove();
    EXPECT_FALSE(tray.present());
    add(tray);
    EXPECT_TRUE(tray.present());
    EXPECT_EQ(logged.text(), "TRAY_ADD_OK 0x00000000\nTRAY_REMOVE 0x00000000\nTRAY_ADD_OK 0x00000000\n");
}

TEST_F(SessionWideTrayIcon, TakesANewTipAndANoticeSilently) {
    add(tray);
    tray.refresh(L"Pausada");
    tray.refresh(L"Pausada", &kStillRunningNotice);
    EXPECT_TRUE(tray.present());
    EXPECT_EQ(logged.text(), "TRAY_ADD_OK 0x00000000\n");
}

}  // namespace
}  // namespace vextra
