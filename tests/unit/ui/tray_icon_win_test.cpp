#include "ui/tray_icon_win.h"

#include <gtest/gtest.h>

#include <shellapi.h>

#include <regex>
#include <vector>

#include "import_swap_win.h"
#include "test_window_win.h"

namespace vextra {
namespace {

// The codes of what was logged, in order.
class LoggedCodes {
public:
    LoggedCodes() { log_.open(path_, EventLog::OpenMode::kReplace); }

    EventLog& log() { return log_; }
    std::string text() const {
        const std::string lines = readFile(path_);
        static const std::regex kLine(R"(tick=\d+ (\w+) hr=(0x\w+) .*)");
        std::string codes;
        for (std::sregex_iterator line(lines.begin(), lines.end(), kLine), end; line != end; ++line)
            codes += (*line)[1].str() + " " + (*line)[2].str() + "\n";
        return codes;
    }

private:
    TemporaryFolder folder_;
    const std::wstring path_ = folder_ / L"app.log";
    std::atomic<std::uint64_t> frames_{0};
    EventLog log_{frames_};
};

// --- What the shell is asked for, with a shell of the test's own ---

struct ShellCall {
    DWORD operation;
    NOTIFYICONDATAW record;
};
std::vector<ShellCall> shellCalls;
BOOL shellAnswer = TRUE;

BOOL WINAPI recordingShell(DWORD operation, NOTIFYICONDATAW* record) {
    shellCalls.push_back({operation, *record});
    return shellAnswer;
}

class TrayIconRecord : public testing::Test {
protected:
    TrayIconRecord() {
        shellCalls.clear();
        shellAnswer = TRUE;
    }
    const test::ImportSwap<BOOL WINAPI(DWORD, NOTIFYICONDATAW*)> shell{"Shell_NotifyIconW", &recordingShell};
    LoggedCodes logged;
    TrayIcon tray{logged.log()};
    const HWND window = reinterpret_cast<HWND>(0x1234);
    const HICON icon = reinterpret_cast<HICON>(0x5678);
};

TEST_F(TrayIconRecord, OfAnAddNamesWindowIconAndTip) {
    tray.add(window, icon, L"Ao vivo • imagem recente");
    ASSERT_EQ(shellCalls.size(), 1u);
    const auto& [operation, record] = shellCalls[0];
    EXPECT_EQ(operation, DWORD{NIM_ADD});
    EXPECT_EQ(record.cbSize, sizeof(NOTIFYICONDATAW));
    EXPECT_EQ(record.hWnd, window);
    EXPECT_EQ(record.uID, 1u);
    EXPECT_EQ(record.uFlags, UINT{NIF_MESSAGE | NIF_ICON | NIF_TIP});
    EXPECT_EQ(record.uCallbackMessage, 0x8002u);
    EXPECT_EQ(record.hIcon, icon);
    EXPECT_STREQ(record.szTip, L"Vextra MF beta • Dispositivo persistente • Ao vivo • imagem recente");
    EXPECT_STREQ(record.szInfo, L"");
}

TEST_F(TrayIconRecord, OfARefreshIsTheSameWithANewTip) {
    tray.add(window, icon, L"a");
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
    tray.add(window, icon, L"a");
    tray.refresh(L"a");
    EXPECT_EQ(shellCalls.size(), 1u);
    tray.refresh(L"b");
    tray.refresh(L"b");
    EXPECT_EQ(shellCalls.size(), 2u);
    shellAnswer = FALSE;
    tray.refresh(L"c");
    shellAnswer = TRUE;
    tray.refresh(L"c");
    EXPECT_EQ(shellCalls.size(), 4u) << "what the shell did not take is sent once more";
}

TEST_F(TrayIconRecord, OfANoticeIsABalloonThatInforms) {
    tray.add(window, icon, L"a");
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
    tray.add(window, icon, text);
    tray.refresh(text, &notice);
    const NOTIFYICONDATAW& record = shellCalls.at(1).record;
    EXPECT_EQ(std::wstring(record.szTip).size(), 127u);
    EXPECT_EQ(std::wstring(record.szInfoTitle), std::wstring(62, L'é') + L"…");
    EXPECT_EQ(std::wstring(record.szInfo), std::wstring(254, L'é') + L"…");
}

TEST_F(TrayIconRecord, OfARemovalNamesTheSameIcon) {
    tray.add(window, icon, L"a");
    tray.remove();
    ASSERT_EQ(shellCalls.size(), 2u);
    EXPECT_EQ(shellCalls[1].operation, DWORD{NIM_DELETE});
    EXPECT_EQ(shellCalls[1].record.hWnd, window);
    EXPECT_EQ(shellCalls[1].record.uID, 1u);
    EXPECT_EQ(logged.text(), "TRAY_ADD_OK 0x00000000\nTRAY_REMOVE 0x00000000\n");
}

TEST_F(TrayIconRecord, IsNotSentWhileTheIconIsAbsent) {
    tray.refresh(L"before any add");
    shellAnswer = FALSE;
    tray.add(window, icon, L"a");
    tray.refresh(L"after a failed add", &kStillRunningNotice);
    ASSERT_EQ(shellCalls.size(), 1u);
    EXPECT_EQ(logged.text(), "TRAY_ADD_FAILED 0x00000000\n");
}

TEST_F(TrayIconRecord, OfAFailedRefreshIsForgotten) {
    tray.add(window, icon, L"a");
    shellAnswer = FALSE;
    tray.refresh(L"b");
    EXPECT_TRUE(tray.present());
    EXPECT_EQ(logged.text(), "TRAY_ADD_OK 0x00000000\n");
}

TEST_F(TrayIconRecord, OfAFailedRemovalStillMeansThatTheIconIsGone) {
    tray.add(window, icon, L"a");
    shellAnswer = FALSE;
    tray.remove();
    EXPECT_FALSE(tray.present());
    EXPECT_EQ(logged.text(), "TRAY_ADD_OK 0x00000000\nTRAY_REMOVE 0x00000000\n");
}

// --- In the session's own notification area ---

class TrayIconOfTheSession : public testing::Test {
protected:
    void TearDown() override {
        if (tray.present())
            tray.remove();
    }
    void add(TrayIcon& which) { which.add(window.handle(), LoadIconW(nullptr, IDI_APPLICATION), L"Ao vivo"); }

    test::TestWindow window;
    LoggedCodes logged;
    TrayIcon tray{logged.log()};
};

TEST_F(TrayIconOfTheSession, IsThereAfterAnAdd) {
    EXPECT_FALSE(tray.present());
    add(tray);
    EXPECT_TRUE(tray.present());
    EXPECT_EQ(logged.text(), "TRAY_ADD_OK 0x00000000\n");
}

TEST_F(TrayIconOfTheSession, IsNotAddedTwice) {
    add(tray);
    LoggedCodes secondLogged;
    TrayIcon second(secondLogged.log());
    add(second);
    EXPECT_FALSE(second.present());
    EXPECT_EQ(secondLogged.text(), "TRAY_ADD_FAILED 0x00000000\n");
    EXPECT_TRUE(tray.present());
}

TEST_F(TrayIconOfTheSession, ComesBackAfterItWasRemoved) {
    add(tray);
    tray.remove();
    EXPECT_FALSE(tray.present());
    add(tray);
    EXPECT_TRUE(tray.present());
    EXPECT_EQ(logged.text(), "TRAY_ADD_OK 0x00000000\nTRAY_REMOVE 0x00000000\nTRAY_ADD_OK 0x00000000\n");
}

TEST_F(TrayIconOfTheSession, TakesANewTipAndANoticeSilently) {
    add(tray);
    tray.refresh(L"Pausada");
    tray.refresh(L"Pausada", &kStillRunningNotice);
    EXPECT_TRUE(tray.present());
    EXPECT_EQ(logged.text(), "TRAY_ADD_OK 0x00000000\n");
}

}  // namespace
}  // namespace vextra
