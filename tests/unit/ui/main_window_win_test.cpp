// The main window on the test's own thread, with a clock, a shared state and an annotation service of the
// test's. What needs a Supervisor is tested from outside.
#include "ui/main_window_win.h"

#include <gtest/gtest.h>

#include <commctrl.h>
#include <oleacc.h>

#include <algorithm>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "bridge/bridge_layout.h"
#include "core/instance_win.h"
#include "core/window_messages_win.h"
#include "recording_annotations_win.h"
#include "ui/tray_text.h"

namespace vextra {
namespace {

Tick testNow = 0;
ULONGLONG WINAPI testClock() {
    return testNow;
}

std::vector<std::pair<DWORD, HWND>>* raised = nullptr;
void WINAPI recordEvent(DWORD event, HWND window, LONG object, LONG child) {
    if (object == OBJID_CLIENT && child == CHILDID_SELF)
        raised->emplace_back(event, window);
}

class SessionWideMainWindow : public testing::Test {
protected:
    SessionWideMainWindow() {
        testNow = 1'000'000;
        raised = &events;
        shared.previewFrame.resize(kFrameBytes);
        product.emplace(
            GetModuleHandleW(nullptr),
            MainWindowSetup{&shared, &log, wakeEvent.get(), &supervisor, L".", &channel, Panel::kCamera});
        if (!product->create())
            failSetUp("main window");
        ShowWindow(window(), SW_SHOWNA);
    }
    ~SessionWideMainWindow() override {
        if (product->handle() != nullptr)
            command(kIdTrayQuit);
        MSG message{};  // the quit among them, which would end the next test's loops
        while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
        }
        UnregisterClassW(kMainWindowClass, GetModuleHandleW(nullptr));
        raised = nullptr;
    }

    HWND window() const { return product->handle(); }
    HWND control(ControlId id) const { return GetDlgItem(window(), id); }
    void command(WORD id) { SendMessageW(window(), WM_COMMAND, id, 0); }
    void tick(Tick afterMs = 200) {
        testNow += afterMs;
        SendMessageW(window(), WM_TIMER, 1, 0);
    }
    void goLive() {
        shared.active = true;
        shared.status = BrokerStatus::kLive;
        shared.lastFrameTick = testNow;
    }
    std::wstring description(ControlId id) const {
        return annotations.service.text(control(id), PROPID_ACC_DESCRIPTION);
    }
    long state(ControlId id) const { return annotations.service.number(control(id), PROPID_ACC_STATE); }
    bool was(DWORD event, ControlId id) const {
        return std::find(events.begin(), events.end(), std::pair(event, control(id))) != events.end();
    }

    const test::ImportSwap<ULONGLONG WINAPI()> clock{"GetTickCount64", &testClock};
    const test::ImportSwap<void WINAPI(DWORD, HWND, LONG, LONG)> notifier{"NotifyWinEvent", &recordEvent};
    test::AnnotationService annotations;
    std::vector<std::pair<DWORD, HWND>> events;
    SharedStatus shared;
    EventLog log{shared.frameCounter};
    const UniqueHandle wakeEvent{CreateEventW(nullptr, FALSE, FALSE, nullptr)};
    SupervisorThread supervisor{{}};
    const UpdateChannelIdentity channel{"https://updates.example", {}};
    std::optional<MainWindow> product;
};

// --- What a screen reader hears ---

TEST_F(SessionWideMainWindow, NamesItsFieldsForAScreenReader) {
    for (const Control& each : kControls)
        EXPECT_EQ(annotations.service.text(control(each.id), PROPID_ACC_NAME), std::wstring(each.label.text))
            << each.id;
}

TEST_F(SessionWideMainWindow, TellsStateSourceAndBackendOnTheCamerasTab) {
    tick();
    EXPECT_EQ(description(kIdTabCamera),
              L"Automático • aguardando aplicativo. Perfil interno Vextra • protegido. Prévia do produtor • "
              L"backend: Nenhum");
    goLive();
    shared.effectiveBackend = EffectiveBackend::kFfmpeg;
    tick();
    EXPECT_EQ(description(kIdTabCamera),
              L"Ao vivo • imagem recente. Perfil interno Vextra • protegido. Prévia do produtor • backend: "
              L"FFmpeg");
}

TEST_F(SessionWideMainWindow, TellsThatThePictureHasBecomeOld) {
    goLive();
    tick();
    tick(3000);
    EXPECT_EQ(description(kIdTabCamera).substr(0, 31), L"Imagem desatualizada • fallback");
}

TEST_F(SessionWideMainWindow, TellsTheFiguresOnTheDiagnosticsTab) {
    tick();
    shared.frameCounter = 16;
    shared.reconnects = 2;
    shared.leaseCount = 1;
    tick(1000);
    EXPECT_EQ(
        description(kIdTabDiagnostics),
        L"Automático • aguardando aplicativo. Backend efetivo: Nenhum. 16.0 fps observados, 16 frames, 2 "
        L"reconexões, 1 leases MF. Leases não são contagem de aplicativos. Latência ponta a ponta não "
        L"medida.");
}

TEST_F(SessionWideMainWindow, TellsTheFiguresOnceASecondAtMost) {
    tick();
    goLive();
    tick();
    const int before = annotations.service.calls;
    int renewed = 0;
    std::wstring last = description(kIdTabDiagnostics);
    for (int i = 0; i < 20; ++i) {  // four seconds
        shared.frameCounter += 3;
        shared.lastFrameTick = testNow;
        tick(200);
        if (description(kIdTabDiagnostics) != last) {
            last = description(kIdTabDiagnostics);
            ++renewed;
        }
    }
    EXPECT_EQ(renewed, 4);
    EXPECT_EQ(annotations.service.calls - before, 4 * 2) << "for readers of either kind";
}

TEST_F(SessionWideMainWindow, TellsNothingWhileNothingChanges) {
    tick();
    tick(1000);
    const int before = annotations.service.calls;
    events.clear();
    for (int i = 0; i < 50; ++i)
        tick();
    EXPECT_EQ(annotations.service.calls, before);
    EXPECT_TRUE(events.empty());
}

TEST_F(SessionWideMainWindow, TellsNothingWhileItIsHidden) {
    tick();
    tick(1000);
    ShowWindow(window(), SW_HIDE);
    const int before = annotations.service.calls;
    goLive();
    for (int i = 0; i < 20; ++i) {
        shared.frameCounter += 3;
        tick();
    }
    EXPECT_EQ(annotations.service.calls, before);
    ShowWindow(window(), SW_SHOWNA);
    shared.lastFrameTick = testNow;
    tick();
    EXPECT_EQ(description(kIdTabCamera).substr(0, 7), L"Ao vivo");
}

TEST_F(SessionWideMainWindow, HasTabsOfWhichOneIsSelected) {
    constexpr long kSelected = STATE_SYSTEM_FOCUSABLE | STATE_SYSTEM_SELECTABLE | STATE_SYSTEM_SELECTED;
    constexpr long kOther = STATE_SYSTEM_FOCUSABLE | STATE_SYSTEM_SELECTABLE;
    for (const ControlId tab : {kIdTabCamera, kIdTabSettings, kIdTabDiagnostics})
        EXPECT_EQ(annotations.service.number(control(tab), PROPID_ACC_ROLE), ROLE_SYSTEM_PAGETAB) << tab;
    EXPECT_EQ(state(kIdTabCamera), kSelected);
    EXPECT_EQ(state(kIdTabSettings), kOther);
    command(kIdTabSettings);
    EXPECT_EQ(state(kIdTabCamera), kOther);
    EXPECT_EQ(state(kIdTabSettings), kSelected);
    EXPECT_TRUE(was(EVENT_OBJECT_SELECTION, kIdTabSettings));
}

TEST_F(SessionWideMainWindow, SaysWhichTabHasTheFocus) {
    SetFocus(control(kIdTabDiagnostics));
    EXPECT_NE(state(kIdTabDiagnostics) & STATE_SYSTEM_FOCUSED, 0);
    SetFocus(control(kIdAutomatic));
    EXPECT_EQ(state(kIdTabDiagnostics) & STATE_SYSTEM_FOCUSED, 0);
}

TEST_F(SessionWideMainWindow, SaysWhetherTheAdvancedFieldsAreOpen) {
    command(kIdTabSettings);
    EXPECT_EQ(state(kIdAdvanced), STATE_SYSTEM_FOCUSABLE | STATE_SYSTEM_COLLAPSED);
    SetFocus(control(kIdAdvanced));
    command(kIdAdvanced);
    EXPECT_EQ(state(kIdAdvanced), STATE_SYSTEM_FOCUSABLE | STATE_SYSTEM_EXPANDED | STATE_SYSTEM_FOCUSED);
    EXPECT_TRUE(was(EVENT_OBJECT_STATECHANGE, kIdAdvanced));
    command(kIdAdvanced);
    EXPECT_EQ(state(kIdAdvanced), STATE_SYSTEM_FOCUSABLE | STATE_SYSTEM_COLLAPSED | STATE_SYSTEM_FOCUSED);
}

TEST_F(SessionWideMainWindow, SaysWhatAnEmptyManifestFieldMeans) {
    EXPECT_EQ(description(kIdManifestUrl).substr(0, 34), L"vazio usa https://updates.example/");
}

TEST_F(SessionWideMainWindow, SaysWhatItPaintsBelowTheListOfSources) {
    EXPECT_EQ(description(kIdSource),
              L"Perfil interno migrado sem alterar a alpha. Endereço e credenciais protegidos.");
    SendMessageW(control(kIdSource), CB_SETCURSEL, 3, 0);
    SendMessageW(window(), WM_COMMAND, MAKEWPARAM(kIdSource, CBN_SELCHANGE), 0);
    EXPECT_EQ(description(kIdSource), L"Padrão sintético local: diagnóstico sem conexão de rede.");
    SendMessageW(control(kIdSource), CB_SETCURSEL, 1, 0);
    SendMessageW(window(), WM_COMMAND, MAKEWPARAM(kIdSource, CBN_SELCHANGE), 0);
    EXPECT_EQ(description(kIdSource), L"");
}

TEST_F(SessionWideMainWindow, AnnouncesItsStatusLineWhenThatChanges) {
    EXPECT_EQ(annotations.service.number(control(kIdStatusLine), test::kLiveSettingProperty), 1);
    const auto announced = [&] {
        return std::count(events.begin(), events.end(),
                          std::pair(DWORD{EVENT_OBJECT_LIVEREGIONCHANGED}, control(kIdStatusLine)));
    };
    replaceStatusText(shared, L"Uma notícia.");
    SendMessageW(window(), kMessageStatusChanged, 0, 0);
    EXPECT_EQ(announced(), 1);
    SendMessageW(window(), kMessageStatusChanged, 0, 0);
    EXPECT_EQ(announced(), 1) << "the same text once more";
    ShowWindow(window(), SW_HIDE);
    replaceStatusText(shared, L"Outra notícia.");
    SendMessageW(window(), kMessageStatusChanged, 0, 0);
    EXPECT_EQ(announced(), 1) << "hidden";
}

TEST_F(SessionWideMainWindow, TakesAllThatItToldBackWhenItEnds) {
    tick();
    SetFocus(control(kIdTabCamera));
    ASSERT_NE(annotations.service.entries(), 0u);
    command(kIdTrayQuit);
    EXPECT_EQ(product->handle(), nullptr);
    EXPECT_EQ(annotations.service.entries(), 0u);
}

// --- Why the decoder failed ---

HWND toolTipOf(HWND owner) {
    HWND found = nullptr;
    while ((found = FindWindowExW(nullptr, found, TOOLTIPS_CLASSW, nullptr)) != nullptr) {
        if (GetWindow(found, GW_OWNER) == owner)
            return found;
    }
    return nullptr;
}

std::wstring toolTipText(HWND owner, HWND tool) {
    const HWND tip = toolTipOf(owner);
    wchar_t text[256]{};
    TTTOOLINFOW info{};
    info.cbSize = TTTOOLINFOW_V2_SIZE;
    info.hwnd = owner;
    info.uId = reinterpret_cast<UINT_PTR>(tool);
    info.lpszText = text;
    if (tip != nullptr)
        SendMessageW(tip, TTM_GETTEXTW, std::size(text), reinterpret_cast<LPARAM>(&info));
    return text;
}

TEST_F(SessionWideMainWindow, SaysWhyTheDecoderFailedUntilThatIsOver) {
    tick();
    EXPECT_EQ(toolTipOf(window()), nullptr) << "made for nothing";
    replaceFailureReason(shared, L"Fora do contrato.");
    tick();
    EXPECT_EQ(toolTipText(window(), control(kIdStatusLine)), L"Fora do contrato.");
    EXPECT_EQ(description(kIdStatusLine), L"Fora do contrato.");
    replaceFailureReason(shared, L"Fim da fonte.");
    tick();
    EXPECT_EQ(toolTipText(window(), control(kIdStatusLine)), L"Fim da fonte.");
    EXPECT_EQ(description(kIdStatusLine), L"Fim da fonte.");
    replaceFailureReason(shared, L"");
    tick();
    EXPECT_EQ(SendMessageW(toolTipOf(window()), TTM_GETTOOLCOUNT, 0, 0), 0);
    EXPECT_EQ(description(kIdStatusLine), L"");
}

TEST_F(SessionWideMainWindow, LetsTheMouseRestOnItsStatusLine) {
    const HWND line = control(kIdStatusLine);
    RECT place{};
    GetWindowRect(line, &place);
    for (const int x : {1, 100})
        EXPECT_EQ(SendMessageW(line, WM_NCHITTEST, 0, MAKELPARAM(place.left + x, place.top + 2)), HTCLIENT)
            << x;
}

// --- Addresses ---

TEST_F(SessionWideMainWindow, MasksARevealedAddressWhenItIsNoLongerLookedAt) {
    const auto revealed = [&] { return SendMessageW(control(kIdCustomUrl), EM_GETPASSWORDCHAR, 0, 0) == 0; };
    command(kIdTabSettings);
    command(kIdRevealUrl);
    ASSERT_TRUE(revealed());
    command(kIdTabSettings);
    EXPECT_TRUE(revealed()) << "the panel is not left";
    ShowWindow(window(), SW_HIDE);
    EXPECT_FALSE(revealed()) << "hidden";
    ShowWindow(window(), SW_SHOWNA);
    command(kIdRevealUrl);
    ASSERT_TRUE(revealed());
    command(kIdTabDiagnostics);
    EXPECT_FALSE(revealed()) << "left";
}

// --- How it looks ---

// What the window paints when another part of the system asks for its picture.
class Print {
public:
    explicit Print(HWND window) : screen_(GetDC(nullptr)), dc_(CreateCompatibleDC(screen_)) {
        RECT client{};
        GetClientRect(window, &client);
        bitmap_.reset(CreateCompatibleBitmap(screen_, client.right, client.bottom));
        ReleaseDC(nullptr, screen_);
        selected_.emplace(dc_.get(), bitmap_.get());
        SendMessageW(window, WM_PRINTCLIENT, reinterpret_cast<WPARAM>(dc_.get()), PRF_CLIENT);
    }
    COLORREF at(int x, int y) const { return GetPixel(dc_.get(), x, y); }

private:
    const HDC screen_;
    const UniqueMemoryDc dc_;
    UniqueBitmap bitmap_;
    std::optional<Selection> selected_;
};

TEST_F(SessionWideMainWindow, PrintsItselfForThemesThatAskWhatLiesBehindAButton) {
    const Print print(window());
    EXPECT_EQ(print.at(5, 5), RGB(255, 255, 255)) << "header";
    EXPECT_EQ(print.at(5, 120), RGB(247, 248, 250)) << "background";
}

constexpr COLORREF kPlaceholder = RGB(18, 25, 36);
constexpr COLORREF kCamera = RGB(200, 30, 90);

class SessionWidePreview : public SessionWideMainWindow {
protected:
    SessionWidePreview() {
        for (std::size_t i = 0; i < kFrameBytes; i += 4) {
            shared.previewFrame[i] = std::byte{90};
            shared.previewFrame[i + 1] = std::byte{30};
            shared.previewFrame[i + 2] = std::byte{200};
        }
    }
    // A point of the preview that neither the bar nor the words of the placeholder reach.
    COLORREF preview() const { return Print(window()).at(490, 290); }
};

TEST_F(SessionWidePreview, IsTheCamerasPictureWhileThatIsLive) {
    EXPECT_EQ(preview(), kPlaceholder);
    goLive();
    EXPECT_EQ(preview(), kCamera);
}

// The last picture of a camera that was switched off must not stay on the screen.
TEST_F(SessionWidePreview, IsThePlaceholderAgainAfterEveryLiveEpisode) {
    for (int episode = 0; episode < 2; ++episode) {
        goLive();
        ASSERT_EQ(preview(), kCamera) << episode;
        shared.paused = true;
        EXPECT_EQ(preview(), kPlaceholder) << "paused, episode " << episode;
        shared.paused = false;
        ASSERT_EQ(preview(), kCamera) << episode;
        testNow += 2001;
        EXPECT_EQ(preview(), kPlaceholder) << "stalled, episode " << episode;
        shared.lastFrameTick = testNow;
        ASSERT_EQ(preview(), kCamera) << episode;
        shared.active = false;
        EXPECT_EQ(preview(), kPlaceholder) << "without an episode, after " << episode;
    }
}

int bitmapsMade = 0;
HBITMAP WINAPI countBitmap(HDC, int, int) {
    ++bitmapsMade;
    return nullptr;
}

TEST_F(SessionWideMainWindow, PaintsNothingWhereItHasNoRoom) {
    const test::ImportSwap<HBITMAP WINAPI(HDC, int, int)> bitmaps{"CreateCompatibleBitmap", &countBitmap};
    bitmapsMade = 0;
    SendMessageW(window(), WM_PAINT, 0, 0);
    ASSERT_EQ(bitmapsMade, 1);
    const test::ImportSwap<BOOL WINAPI(HWND, RECT*)> client{"GetClientRect", [](HWND, RECT* area) -> BOOL {
                                                                *area = {};
                                                                return TRUE;
                                                            }};
    SendMessageW(window(), WM_PAINT, 0, 0);
    EXPECT_EQ(bitmapsMade, 1);
}

TEST_F(SessionWideMainWindow, GivesItsControlsAFontOfTheNewSizeAfterAChangeOfDpi) {
    const auto heights = [&] {
        std::vector<LONG> all;
        for (const Control& each : kControls) {
            LOGFONTW font{};
            const auto handle = reinterpret_cast<HFONT>(SendMessageW(control(each.id), WM_GETFONT, 0, 0));
            EXPECT_NE(GetObjectW(handle, sizeof font, &font), 0) << each.id;
            all.push_back(font.lfHeight);
        }
        return all;
    };
    EXPECT_EQ(heights(), std::vector<LONG>(kControls.size(), 17));
    const RECT suggested{0, 0, 1500, 1200};
    SendMessageW(window(), WM_DPICHANGED, MAKEWPARAM(144, 144), reinterpret_cast<LPARAM>(&suggested));
    EXPECT_EQ(heights(), std::vector<LONG>(kControls.size(), 26));
}

}  // namespace
}  // namespace vextra
