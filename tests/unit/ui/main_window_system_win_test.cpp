// The main window in this process, where the system's answers can be exchanged: another screen, a shell that
// refuses, a timer that is not to be had.
#include "ui/main_window_win.h"

#include <gtest/gtest.h>

#include <wtsapi32.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "core/instance_win.h"
#include "core/window_messages_win.h"
#include "import_swap_win.h"
#include "shell_record_win.h"
#include "ui/preview_picture.h"
#include "ui/tray_text.h"

namespace vextra {
namespace {

// --- Answers of the system's ---

RECT workArea{};
BOOL WINAPI monitorWithThatWorkArea(HMONITOR, MONITORINFO* info) {
    info->rcMonitor = info->rcWork = workArea;
    info->dwFlags = MONITORINFOF_PRIMARY;
    return TRUE;
}

UINT windowDpi = 0;
UINT WINAPI thatDpi(HWND) {
    return windowDpi;
}

struct ImageCall {
    int width, height;
    UINT flags;
};
std::vector<ImageCall> imageCalls;
std::vector<HICON> freedIcons;
HANDLE WINAPI imageOfThatSize(HINSTANCE, LPCWSTR, UINT, int width, int height, UINT flags) {
    imageCalls.push_back({width, height, flags});
    return CopyIcon(LoadIconW(nullptr, IDI_APPLICATION));
}
BOOL WINAPI freedIcon(HICON icon) {
    freedIcons.push_back(icon);
    return TRUE;
}

int registrations = 0, unregistrations = 0, refusedRegistrations = 0;
BOOL WINAPI countedRegistration(HWND, DWORD) {
    ++registrations;
    return registrations > refusedRegistrations ? TRUE : FALSE;
}
BOOL WINAPI countedUnregistration(HWND) {
    ++unregistrations;
    return TRUE;
}

struct MenuLine {
    UINT id, state;
    std::wstring text;
};
std::vector<MenuLine> openedMenu;
BOOL WINAPI menuThatIsOnlyRead(HMENU menu, UINT, int, int, int, HWND, const RECT*) {
    openedMenu.clear();
    for (int i = 0; i < GetMenuItemCount(menu); ++i) {
        wchar_t text[128]{};
        MENUITEMINFOW item{};
        item.cbSize = sizeof item;
        item.fMask = MIIM_ID | MIIM_STATE | MIIM_STRING;
        item.dwTypeData = text;
        item.cch = static_cast<UINT>(std::size(text));
        GetMenuItemInfoW(menu, static_cast<UINT>(i), TRUE, &item);
        openedMenu.push_back({item.wID, item.fState, text});
    }
    return 0;
}

bool contains(const RECT& outer, const RECT& inner) {
    RECT both{};
    return UnionRect(&both, &outer, &inner) && EqualRect(&both, &outer);
}

class SessionWideMainWindowAndSystem : public testing::Test {
protected:
    SessionWideMainWindowAndSystem() {
        workArea = {0, 0, 2048, 1280};
        windowDpi = 96;
        imageCalls.clear();
        freedIcons.clear();
        registrations = unregistrations = refusedRegistrations = 0;
        fillPlaceholderFrame(shared.previewFrame);
        shared.settings.updateDisabled = true;
    }
    ~SessionWideMainWindowAndSystem() override {
        window.reset();
        UnregisterClassW(kMainWindowClass, GetModuleHandleW(nullptr));
    }

    bool make() {
        window = std::make_unique<MainWindow>(GetModuleHandleW(nullptr),
                                              MainWindowSetup{.shared = &shared,
                                                              .log = &logged.log(),
                                                              .wakeEvent = wakeEvent.get(),
                                                              .supervisor = &supervisor,
                                                              .dataFolder = folder.path(),
                                                              .channel = &channel});
        return window->create();
    }
    HWND handle() const { return window->handle(); }
    HWND control(ControlId id) const { return GetDlgItem(handle(), id); }
    void show() { window->showWithoutActivating(); }

    // Handles messages until `condition` holds, at most `limitMs` long.
    static bool handleMessagesUntil(const std::function<bool()>& condition, Tick limitMs) {
        const Tick end = GetTickCount64() + limitMs;
        while (!condition()) {
            if (GetTickCount64() >= end)
                return false;
            for (MSG message{}; PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE);)
                DispatchMessageW(&message);
            Sleep(5);
        }
        return true;
    }
    static void handleMessagesFor(Tick ms) {
        handleMessagesUntil([] { return false; }, ms);
    }
    void changeDpi(int dpi, RECT suggested) {
        SendMessageW(handle(), WM_DPICHANGED, static_cast<WPARAM>(MAKELONG(dpi, dpi)),
                     reinterpret_cast<LPARAM>(&suggested));
    }
    RECT place() const {
        RECT rect{};
        GetWindowRect(handle(), &rect);
        return rect;
    }
    RECT placeOf(ControlId id) const {
        RECT rect{};
        GetWindowRect(control(id), &rect);
        return rect;
    }

    TemporaryFolder folder;
    test::LoggedCodes logged;
    SharedStatus shared;
    const UniqueHandle wakeEvent{CreateEventW(nullptr, FALSE, FALSE, nullptr)};
    SupervisorThread supervisor{{}};
    const UpdateChannelIdentity channel{"https://updates.example", {}};
    const test::ShellRecord shell;
    const test::ImportSwap<BOOL WINAPI(HMONITOR, MONITORINFO*)> monitor{"GetMonitorInfoW",
                                                                        &monitorWithThatWorkArea};
    const test::ImportSwap<UINT WINAPI(HWND)> scale{"GetDpiForWindow", &thatDpi};
    const test::ImportSwap<BOOL WINAPI(HWND, DWORD)> registering{"WTSRegisterSessionNotification",
                                                                 &countedRegistration};
    const test::ImportSwap<BOOL WINAPI(HWND)> unregistering{"WTSUnRegisterSessionNotification",
                                                            &countedUnregistration};
    std::unique_ptr<MainWindow> window;
};

// --- Beginning and end ---

TEST_F(SessionWideMainWindowAndSystem, TakesWindowAndIconAlongWhenItGoes) {
    ASSERT_TRUE(make());
    const HWND was = handle();
    window.reset();
    EXPECT_FALSE(IsWindow(was));
    EXPECT_EQ(shell.count(NIM_DELETE), 1u);
    EXPECT_EQ(logged.count("TRAY_REMOVE"), 1u);
    EXPECT_EQ(unregistrations, 1);
}

TEST_F(SessionWideMainWindowAndSystem, RemovesItsIconOnceWhenItWasQuitBefore) {
    ASSERT_TRUE(make());
    SendMessageW(handle(), WM_COMMAND, kIdTrayQuit, 0);
    EXPECT_EQ(handle(), nullptr);
    window.reset();
    EXPECT_EQ(shell.count(NIM_DELETE), 1u);
    EXPECT_EQ(unregistrations, 1);
}

TEST_F(SessionWideMainWindowAndSystem, IsNotMadeWithoutItsTimer) {
    const test::RefusedImport<decltype(SetTimer)> refused("SetTimer");
    EXPECT_FALSE(make());
    EXPECT_EQ(shell.calls().size(), 0u) << "no icon of a window that is not there";
}

TEST_F(SessionWideMainWindowAndSystem, AsksAgainToHearOfTheSessionUntilItDoes) {
    refusedRegistrations = 2;
    ASSERT_TRUE(make());
    EXPECT_EQ(logged.count("SESSION_NOTIFY_FAILED"), 1u);
    ASSERT_TRUE(handleMessagesUntil([] { return registrations == 3; }, 4000));
    EXPECT_EQ(logged.count("SESSION_NOTIFY_REGISTERED"), 1u);
    EXPECT_EQ(logged.count("SESSION_NOTIFY_FAILED"), 1u) << "once, however often it is tried";
    handleMessagesFor(1500);
    EXPECT_EQ(registrations, 3) << "not again once it holds";
}

TEST_F(SessionWideMainWindowAndSystem, LeavesARegistrationAloneThatNeverHeld) {
    refusedRegistrations = 1000;
    ASSERT_TRUE(make());
    window.reset();
    EXPECT_EQ(unregistrations, 0);
}

// --- The tray ---

TEST_F(SessionWideMainWindowAndSystem, TriesItsIconAgainEachSecondWhileItIsAbsent) {
    shell.refuse(NIM_ADD);
    ASSERT_TRUE(make());
    EXPECT_TRUE(handleMessagesUntil([&] { return shell.count(NIM_ADD) == 3; }, 4000));
    shell.takeAll();
    EXPECT_TRUE(handleMessagesUntil([&] { return logged.count("TRAY_ADD_OK") == 1; }, 2000));
    EXPECT_EQ(logged.count("TRAY_ADD_FAILED"), 1u);
}

TEST_F(SessionWideMainWindowAndSystem, SaysWhenItHidesThatItStillRuns) {
    ASSERT_TRUE(make());
    show();
    SendMessageW(handle(), WM_CLOSE, 0, 0);
    EXPECT_FALSE(IsWindowVisible(handle()));
    const test::ShellCall last = shell.calls().back();
    EXPECT_EQ(last.operation, DWORD{NIM_MODIFY});
    EXPECT_NE(last.record.uFlags & NIF_INFO, 0u);
    EXPECT_STREQ(last.record.szInfoTitle, L"Vextra continua na bandeja");
}

TEST_F(SessionWideMainWindowAndSystem, RenewsTheTipByItself) {
    ASSERT_TRUE(make());
    const std::wstring first = shell.calls().back().record.szTip;
    shared.active = true;
    shared.leaseCount = 1;
    shared.status = BrokerStatus::kPaused;
    ASSERT_TRUE(handleMessagesUntil([&] { return shell.count(NIM_MODIFY) == 1; }, 3000));
    EXPECT_STREQ(shell.calls().back().record.szTip,
                 L"Vextra MF beta • Dispositivo persistente • Pausada • fallback local");
    EXPECT_NE(shell.calls().back().record.szTip, first);
}

TEST_F(SessionWideMainWindowAndSystem, OffersWhatTheMenuOfItsIconShall) {
    const test::ImportSwap<BOOL WINAPI(HMENU, UINT, int, int, int, HWND, const RECT*)> menu(
        "TrackPopupMenu", &menuThatIsOnlyRead);
    ASSERT_TRUE(make());
    SendMessageW(handle(), kMessageTray, 1, WM_RBUTTONUP);
    ASSERT_EQ(openedMenu.size(), 7u);
    EXPECT_EQ(openedMenu[0].text, L"Entrada: Automático • aguardando aplicativo");
    EXPECT_NE(openedMenu[0].state & MFS_GRAYED, 0u);
    EXPECT_EQ(openedMenu[1].text, L"Saída MF persistente • automático");
    EXPECT_NE(openedMenu[1].state & MFS_GRAYED, 0u);
    EXPECT_EQ(openedMenu[2].text, L"");
    const struct {
        UINT id;
        const wchar_t* text;
    } kCommands[] = {{200, L"Abrir Vextra"},
                     {201, L"Suspender automático"},
                     {203, L"Verificar atualização MF"},
                     {202, L"Sair do broker (câmera permanece)"}};
    for (std::size_t i = 0; i < std::size(kCommands); ++i) {
        EXPECT_EQ(openedMenu[3 + i].id, kCommands[i].id);
        EXPECT_EQ(openedMenu[3 + i].text, kCommands[i].text);
        EXPECT_EQ(openedMenu[3 + i].state & MFS_GRAYED, 0u);
    }
    shared.paused = true;
    SendMessageW(handle(), kMessageTray, 1, WM_CONTEXTMENU);
    ASSERT_EQ(openedMenu.size(), 7u);
    EXPECT_EQ(openedMenu[4].text, L"Ativar automático");
}

TEST_F(SessionWideMainWindowAndSystem, HasAnIconOfItsOwnInTheTaskbarsSize) {
    const test::ImportSwap<HANDLE WINAPI(HINSTANCE, LPCWSTR, UINT, int, int, UINT)> images("LoadImageW",
                                                                                           &imageOfThatSize);
    const test::ImportSwap<BOOL WINAPI(HICON)> freeing("DestroyIcon", &freedIcon);
    windowDpi = 144;  // the taskbar's too
    ASSERT_TRUE(make());
    ASSERT_EQ(imageCalls.size(), 1u);
    EXPECT_EQ(imageCalls[0].width, GetSystemMetricsForDpi(SM_CXSMICON, 144));
    EXPECT_EQ(imageCalls[0].height, GetSystemMetricsForDpi(SM_CYSMICON, 144));
    EXPECT_EQ(imageCalls[0].flags & LR_SHARED, 0u);
    const HICON first = shell.calls().back().record.hIcon;

    windowDpi = 192;
    changeDpi(192, place());
    ASSERT_EQ(imageCalls.size(), 2u);
    EXPECT_EQ(imageCalls[1].width, GetSystemMetricsForDpi(SM_CXSMICON, 192));
    EXPECT_EQ(shell.calls().back().operation, DWORD{NIM_MODIFY});
    EXPECT_NE(shell.calls().back().record.hIcon, first);
    EXPECT_EQ(freedIcons, std::vector<HICON>{first});
}

// --- The screen ---

TEST_F(SessionWideMainWindowAndSystem, IsMadeAtTheScaleOfItsOwnScreen) {
    windowDpi = 144;
    ASSERT_TRUE(make());
    RECT wanted{0, 0, 1470, 1080};
    AdjustWindowRectExForDpi(&wanted, WS_OVERLAPPEDWINDOW, FALSE, 0, 144);
    EXPECT_EQ(place().right - place().left, wanted.right - wanted.left);
    EXPECT_EQ(place().bottom - place().top, wanted.bottom - wanted.top);
    EXPECT_EQ(placeOf(kIdTabSettings).right - placeOf(kIdTabSettings).left, 285);
}

TEST_F(SessionWideMainWindowAndSystem, FitsASmallScreenFromTheStart) {
    workArea = {0, 0, 1280, 672};
    ASSERT_TRUE(make());
    EXPECT_TRUE(contains(workArea, place()));
    EXPECT_TRUE(contains(workArea, placeOf(kIdStatusLine)));
    EXPECT_LT(placeOf(kIdTabSettings).right - placeOf(kIdTabSettings).left, 190) << "smaller than designed";
    LOGFONTW font{};
    const auto used = reinterpret_cast<HGDIOBJ>(SendMessageW(control(kIdApply), WM_GETFONT, 0, 0));
    ASSERT_NE(GetObjectW(used, sizeof font, &font), 0);
    EXPECT_LT(font.lfHeight, 17) << "and so is its text";
}

TEST_F(SessionWideMainWindowAndSystem, CannotBeMadeLargerThanASmallScreenByItsLeastSize) {
    workArea = {0, 0, 1280, 672};
    ASSERT_TRUE(make());
    SetWindowPos(handle(), nullptr, 0, 0, 100, 100, SWP_NOZORDER | SWP_NOACTIVATE);
    EXPECT_TRUE(contains(workArea, place()));
    EXPECT_GT(place().right - place().left, 700);
}

TEST_F(SessionWideMainWindowAndSystem, FollowsItsWorkAreaWhileItIsOpen) {
    ASSERT_TRUE(make());
    show();
    const RECT before = place();
    workArea.bottom = 672;
    EXPECT_TRUE(handleMessagesUntil([&] { return contains(workArea, place()); }, 1000));
    EXPECT_LT(placeOf(kIdTabSettings).bottom - placeOf(kIdTabSettings).top, 38) << "laid out anew";
    workArea.bottom = 1280;
    EXPECT_TRUE(handleMessagesUntil([&] { return place().bottom - place().top >= 745; }, 1000));
    EXPECT_EQ(placeOf(kIdTabSettings).bottom - placeOf(kIdTabSettings).top, 38);
    EXPECT_EQ(place().left, before.left);
}

TEST_F(SessionWideMainWindowAndSystem, IsNotShownWhereItsScreenWas) {
    workArea = {2048, 0, 4096, 1280};
    ASSERT_TRUE(make());
    EXPECT_GE(place().left, 2048);
    workArea = {0, 0, 1920, 1040};  // that screen was taken away
    show();
    EXPECT_TRUE(contains(workArea, place()));
}

TEST_F(SessionWideMainWindowAndSystem, StaysMaximisedWhenItsWorkAreaChanges) {
    ASSERT_TRUE(make());
    show();
    ShowWindow(handle(), SW_MAXIMIZE);
    const RECT maximised = place();
    workArea.bottom = 900;
    handleMessagesFor(500);
    EXPECT_TRUE(IsZoomed(handle()));
    const RECT after = place();
    EXPECT_TRUE(EqualRect(&maximised, &after)) << "its size is the system's";
    ShowWindow(handle(), SW_RESTORE);
    EXPECT_TRUE(handleMessagesUntil([&] { return contains(workArea, place()); }, 1000));
}

TEST_F(SessionWideMainWindowAndSystem, SaysBeforeAChangeOfDpiHowLargeItWantsToBe) {
    ASSERT_TRUE(make());
    workArea = {0, 0, 1920, 1008};
    SIZE size{1000, 760};
    EXPECT_EQ(SendMessageW(handle(), WM_GETDPISCALEDSIZE, 144, reinterpret_cast<LPARAM>(&size)), TRUE);
    EXPECT_LE(size.cy, 1008);
    EXPECT_LT(size.cx, 1500);
    workArea = {0, 0, 3840, 2088};
    size = {1000, 760};
    EXPECT_EQ(SendMessageW(handle(), WM_GETDPISCALEDSIZE, 144, reinterpret_cast<LPARAM>(&size)), FALSE)
        << "in proportion, as the system does it";
    EXPECT_EQ(size.cx, 1000);
}

TEST_F(SessionWideMainWindowAndSystem, SaysNothingOfADpiThatIsNoneOrWithoutASize) {
    ASSERT_TRUE(make());
    SIZE size{1000, 800};
    for (const WPARAM dpi : {WPARAM{0}, WPARAM{47}, WPARAM{961}})
        EXPECT_EQ(SendMessageW(handle(), WM_GETDPISCALEDSIZE, dpi, reinterpret_cast<LPARAM>(&size)), FALSE)
            << dpi;
    EXPECT_EQ(SendMessageW(handle(), WM_GETDPISCALEDSIZE, 144, 0), FALSE);
    EXPECT_EQ(size.cx, 1000);
}

TEST_F(SessionWideMainWindowAndSystem, FitsASmallScreenAfterAChangeOfDpi) {
    ASSERT_TRUE(make());
    workArea = {0, 0, 1920, 1008};
    changeDpi(144, {100, 60, 1540, 1190});
    EXPECT_TRUE(contains(workArea, place()));
    EXPECT_TRUE(contains(workArea, placeOf(kIdStatusLine)));
    const LONG width = placeOf(kIdTabSettings).right - placeOf(kIdTabSettings).left;
    EXPECT_GT(width, 190);
    EXPECT_LT(width, 285);
}

TEST_F(SessionWideMainWindowAndSystem, StaysAsTheSystemMaximisesItAfterAChangeOfDpi) {
    ASSERT_TRUE(make());
    show();
    ShowWindow(handle(), SW_MAXIMIZE);
    workArea = {0, 0, 1900, 1000};
    const RECT maximised{-20, -20, 1920, 1020};  // its borders lie outside
    changeDpi(144, maximised);
    const RECT now = place();
    EXPECT_TRUE(IsZoomed(handle()));
    EXPECT_TRUE(EqualRect(&now, &maximised));
}

TEST_F(SessionWideMainWindowAndSystem, TakesExactlyTheSystemsPlaceWhileItIsDragged) {
    ASSERT_TRUE(make());
    show();
    workArea = {0, 0, 1920, 1008};
    SendMessageW(handle(), WM_ENTERSIZEMOVE, 0, 0);
    const RECT suggested{-300, 200, 1000, 1250};
    changeDpi(144, suggested);
    RECT now = place();
    EXPECT_TRUE(EqualRect(&now, &suggested)) << "else it might lie on the other screen again";
    handleMessagesFor(500);
    now = place();
    EXPECT_TRUE(EqualRect(&now, &suggested)) << "also when the timer comes";
    SendMessageW(handle(), WM_EXITSIZEMOVE, 0, 0);
    EXPECT_TRUE(contains(workArea, place())) << "once it is dropped it has to fit";
}

TEST_F(SessionWideMainWindowAndSystem, LeavesADroppedWindowWhereItsUserPutIt) {
    ASSERT_TRUE(make());
    show();
    SendMessageW(handle(), WM_ENTERSIZEMOVE, 0, 0);
    SetWindowPos(handle(), nullptr, 1500, 700, 0, 0, SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
    SendMessageW(handle(), WM_EXITSIZEMOVE, 0, 0);
    handleMessagesFor(500);
    EXPECT_EQ(place().left, 1500);
    EXPECT_EQ(place().top, 700);
}

// --- Painting ---

}  // namespace
}  // namespace vextra
