#include "ui/control_set_win.h"

#include <gtest/gtest.h>

#include <commctrl.h>

#include <set>
#include <string>
#include <vector>

#include "import_swap_win.h"
#include "test_window_win.h"
#include "ui/gdi_win.h"
#include "ui/settings_panel_win.h"

namespace vextra {
namespace {

using Masking = ControlSet::Masking;

UniqueFont fontOf(int height) {
    return UniqueFont(CreateFontW(-height, 0, 0, 0, FW_NORMAL, FALSE, FALSE, FALSE, DEFAULT_CHARSET,
                                  OUT_DEFAULT_PRECIS, CLIP_DEFAULT_PRECIS, CLEARTYPE_QUALITY, DEFAULT_PITCH,
                                  L"Segoe UI"));
}

std::vector<Control> rowsOf(ControlKind kind) {
    std::vector<Control> rows;
    for (const Control& control : kControls) {
        if (control.kind == kind)
            rows.push_back(control);
    }
    return rows;
}

class ControlSetTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(controls.create(window.handle(), test::TestWindow::module())); }

    DWORD style(ControlId id) const { return static_cast<DWORD>(GetWindowLongPtrW(controls[id], GWL_STYLE)); }
    bool hasStyle(ControlId id, DWORD wanted) const { return (style(id) & wanted) == wanted; }
    DWORD buttonKind(ControlId id) const { return style(id) & BS_TYPEMASK; }
    std::wstring windowClass(ControlId id) const {
        wchar_t name[64]{};
        GetClassNameW(controls[id], name, 64);
        return name;
    }
    std::wstring text(ControlId id) const {
        wchar_t units[256]{};
        GetWindowTextW(controls[id], units, 256);
        return units;
    }
    std::set<int> visible() const {
        std::set<int> ids;
        for (const Control& control : kControls) {
            if (hasStyle(control.id, WS_VISIBLE))
                ids.insert(control.id);
        }
        return ids;
    }
    PixelRect place(ControlId id) const {
        RECT area{};
        GetWindowRect(controls[id], &area);
        MapWindowPoints(nullptr, window.handle(), reinterpret_cast<POINT*>(&area), 2);
        return {area.left, area.top, area.right - area.left, area.bottom - area.top};
    }
    wchar_t passwordCharacter(ControlId id) const {
        return static_cast<wchar_t>(SendMessageW(controls[id], EM_GETPASSWORDCHAR, 0, 0));
    }
    std::vector<PlacedControl> layout(Panel panel, SourceKind source = SourceKind::kInternalProfile,
                                      bool advanced = false, int dpi = 96) const {
        return placeControls(
            {pixelsFromDesign(980, dpi), pixelsFromDesign(720, dpi), dpi, panel, source, true, advanced});
    }
    void show(Panel panel, SourceKind source = SourceKind::kInternalProfile, bool advanced = false) {
        controls.apply(layout(panel, source, advanced), tabOf(panel));
    }

    test::TestWindow window;
    ControlSet controls;
};

// --- Making ---

TEST_F(ControlSetTest, MakesEveryControlAsAChildWithItsNumberAndText) {
    for (const Control& control : kControls) {
        ASSERT_NE(controls[control.id], nullptr) << control.id;
        EXPECT_EQ(GetDlgItem(window.handle(), control.id), controls[control.id]) << control.id;
        EXPECT_EQ(text(control.id), control.text) << control.id;
    }
}

TEST_F(ControlSetTest, HidesEveryControlAtFirst) {
    EXPECT_EQ(visible(), std::set<int>{});
}

TEST_F(ControlSetTest, MakesTabsThatTheWindowDraws) {
    for (const ControlId tab : {kIdTabCamera, kIdTabSettings, kIdTabDiagnostics}) {
        EXPECT_EQ(windowClass(tab), L"Button");
        EXPECT_EQ(buttonKind(tab), DWORD{BS_OWNERDRAW});
    }
}

TEST_F(ControlSetTest, MakesPushButtonsAndOneDefault) {
    for (const Control& control : kControls) {
        if (control.kind != ControlKind::kButton && control.kind != ControlKind::kFoldButton)
            continue;
        EXPECT_EQ(windowClass(control.id), L"Button") << control.id;
        EXPECT_EQ(buttonKind(control.id), DWORD{BS_PUSHBUTTON}) << control.id;
    }
    EXPECT_EQ(windowClass(kIdApply), L"Button");
    EXPECT_EQ(buttonKind(kIdApply), DWORD{BS_DEFPUSHBUTTON});
}

TEST_F(ControlSetTest, MakesACheckBoxThatTogglesItself) {
    EXPECT_EQ(windowClass(kIdUpdateDisabled), L"Button");
    EXPECT_EQ(buttonKind(kIdUpdateDisabled), DWORD{BS_AUTOCHECKBOX});
}

TEST_F(ControlSetTest, MakesListsThatNobodyTypesInto) {
    for (const Control& list : rowsOf(ControlKind::kList)) {
        EXPECT_EQ(windowClass(list.id), L"ComboBox");
        EXPECT_TRUE(hasStyle(list.id, CBS_DROPDOWNLIST));
    }
}

TEST_F(ControlSetTest, MakesNumberFieldsForDigitsOnly) {
    for (const Control& field : rowsOf(ControlKind::kNumberEdit)) {
        EXPECT_EQ(windowClass(field.id), L"Edit");
        EXPECT_TRUE(hasStyle(field.id, ES_NUMBER));
    }
    EXPECT_FALSE(hasStyle(kIdDirectUser, ES_NUMBER));
}

TEST_F(ControlSetTest, MakesALogViewToReadAndScroll) {
    EXPECT_EQ(windowClass(kIdLogs), L"Edit");
    EXPECT_TRUE(hasStyle(kIdLogs, ES_MULTILINE | ES_READONLY | WS_VSCROLL));
}

struct LineEnds {
    int control;
    WPARAM which;
    LPARAM wanted;
    bool operator==(const LineEnds&) const = default;
};
std::vector<LineEnds> lineEnds;

LRESULT WINAPI noteLineEnds(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    constexpr UINT kSetExtendedStyle = 0x150A;  // EM_SETEXTENDEDSTYLE, which the headers here lack
    if (message == kSetExtendedStyle)
        lineEnds.push_back({GetDlgCtrlID(window), wParam, lParam});
    return test::realFunction<decltype(SendMessageW)>("SendMessageW")(window, message, wParam, lParam);
}

// An event ends in a line feed alone, which Windows shows as the end of a line only where it is asked to.
TEST_F(ControlSetTest, MakesALogViewWhoseLinesEndInALineFeed) {
    const test::ImportSwap<decltype(SendMessageW)> watch("SendMessageW", noteLineEnds);
    lineEnds.clear();
    const test::TestWindow another;
    ControlSet set;
    ASSERT_TRUE(set.create(another.handle(), test::TestWindow::module()));
    EXPECT_EQ(lineEnds, (std::vector<LineEnds>{{330, 3, 3}}));
}

TEST_F(ControlSetTest, LetsTabStopAtEverythingButPlainTexts) {
    for (const Control& control : kControls)
        EXPECT_EQ(hasStyle(control.id, WS_TABSTOP),
                  control.kind != ControlKind::kStatic && control.kind != ControlKind::kStatusLine)
            << control.id;
}

// Arrow keys go round in a group.
TEST_F(ControlSetTest, KeepsTheTabsInAGroupOfTheirOwn) {
    std::set<int> groups;
    for (const Control& control : kControls) {
        if (hasStyle(control.id, WS_GROUP))
            groups.insert(control.id);
    }
    EXPECT_EQ(groups, (std::set<int>{kIdTabCamera, kIdAutomatic}));
}

TEST_F(ControlSetTest, FailsWithoutAWindow) {
    ControlSet others;
    EXPECT_FALSE(others.create(reinterpret_cast<HWND>(0xDEAD), test::TestWindow::module()));
}

// --- Laying out ---

TEST_F(ControlSetTest, ShowsExactlyWhatIsPlaced) {
    for (const Panel panel : {Panel::kSettings, Panel::kCamera, Panel::kDiagnostics, Panel::kSettings}) {
        for (const auto& source : kSourceKinds) {
            const std::vector<PlacedControl> placed = layout(panel, source.value, true);
            controls.apply(placed, tabOf(panel));
            std::set<int> expected;
            for (const PlacedControl& control : placed)
                expected.insert(control.id);
            EXPECT_EQ(visible(), expected);
        }
    }
}

TEST_F(ControlSetTest, PutsEveryControlWhereItIsPlaced) {
    std::set<int> lists;
    for (const Control& list : rowsOf(ControlKind::kList))
        lists.insert(list.id);
    for (const int dpi : {96, 144, 96}) {
        for (const Panel panel : {Panel::kCamera, Panel::kSettings, Panel::kDiagnostics}) {
            const std::vector<PlacedControl> placed = layout(panel, SourceKind::kDirectCamera, true, dpi);
            controls.apply(placed, tabOf(panel));
            for (const PlacedControl& control : placed) {
                const PixelRect at = place(control.id);
                EXPECT_EQ(at.left, control.place.left) << control.id;
                EXPECT_EQ(at.top, control.place.top) << control.id;
                EXPECT_EQ(at.width, control.place.width) << control.id;
                if (!lists.contains(control.id)) {
                    EXPECT_EQ(at.height, control.place.height) << control.id;
                }
            }
        }
    }
}

TEST_F(ControlSetTest, OpensListsToTheHeightThatIsPlaced) {
    const auto expectOpenHeight = [&](ControlId list, int height) {
        RECT area{};
        SendMessageW(controls[list], CB_GETDROPPEDCONTROLRECT, 0, reinterpret_cast<LPARAM>(&area));
        // The answer is the whole control; Wine's is the list alone. Newer lists end with their last entry.
        const int open = area.bottom - area.top;
        const auto entries = static_cast<int>(SendMessageW(controls[list], CB_GETCOUNT, 0, 0));
        const auto entry = static_cast<int>(SendMessageW(controls[list], CB_GETITEMHEIGHT, 0, 0));
        const bool endsEarly = open >= entries * entry && open < height - place(list).height;
        EXPECT_TRUE(open == height || open + place(list).height == height || endsEarly)
            << open << " for " << list;
    };
    SettingsPanel(controls).fillLists();
    const UniqueFont font = fontOf(17);
    controls.setFont(font.get(), kClosedListHeight);
    show(Panel::kSettings, SourceKind::kDirectCamera);
    for (const Control& list : rowsOf(ControlKind::kList))
        expectOpenHeight(list.id, list.place.height.fixed);
}

TEST_F(ControlSetTest, MakesClosedListsAsHighAsTheFieldsBesideThem) {
    for (const int dpi : {96, 144, 96}) {
        const UniqueFont font = fontOf(pixelsFromDesign(kUiFontHeight, dpi));
        controls.setFont(font.get(), pixelsFromDesign(kClosedListHeight, dpi));
        controls.apply(layout(Panel::kSettings, SourceKind::kDirectCamera, true, dpi), kIdTabSettings);
        for (const Control& list : rowsOf(ControlKind::kList))
            EXPECT_EQ(place(list.id).height, place(kIdDirectIp).height) << list.id << " at " << dpi;
        // At another size in between, too, as a change of panel or of the window makes it.
        controls.apply(layout(Panel::kCamera, SourceKind::kDirectCamera, true, dpi), kIdTabCamera);
        controls.apply(layout(Panel::kSettings, SourceKind::kDirectCamera, true, dpi), kIdTabSettings);
        EXPECT_EQ(place(kIdStream).height, place(kIdDirectIp).height) << "again, at " << dpi;
    }
}

// As when the system is short of memory.
TEST_F(ControlSetTest, LaysOutAnewWhatTheSystemHadNoRoomFor) {
    {
        const test::RefusedImport<HDWP WINAPI(HDWP, HWND, HWND, int, int, int, int, UINT)> full(
            "DeferWindowPos");
        show(Panel::kSettings);
        ASSERT_EQ(visible(), std::set<int>{});
    }
    show(Panel::kSettings);
    EXPECT_TRUE(visible().contains(kIdSource));
}

constexpr ControlId kFields[] = {kIdDirectIp, kIdDirectUser, kIdDirectPassword,
                                 kIdLatency,  kIdDeadline,   kIdManifestUrl};

TEST_F(ControlSetTest, AnswersTheMouseOverTheWholeFaceOfAField) {
    show(Panel::kSettings, SourceKind::kDirectCamera, true);
    for (const ControlId field : kFields) {
        RECT face{};
        GetWindowRect(controls[field], &face);
        for (const LONG y : {face.top, face.top + 3, (face.top + face.bottom) / 2, face.bottom - 1}) {
            for (const LONG x : {face.left, face.left + 20, face.right - 1}) {
                const auto at = MAKELPARAM(x, y);
                EXPECT_EQ(SendMessageW(controls[field], WM_NCHITTEST, 0, at), HTCLIENT)
                    << field << " at " << x - face.left << "," << y - face.top;
            }
        }
    }
}

TEST_F(ControlSetTest, GivesAFieldWithoutASizeNoNegativeInside) {
    const UniqueFont font = fontOf(17);
    controls.setFont(font.get(), kClosedListHeight);
    for (const ControlId field : kFields) {
        RECT inside{0, 0, 0, 0};
        SendMessageW(controls[field], WM_NCCALCSIZE, FALSE, reinterpret_cast<LPARAM>(&inside));
        EXPECT_GE(inside.right, inside.left) << field;
        EXPECT_GE(inside.bottom, inside.top) << field;
    }
}

TEST_F(ControlSetTest, KeepsTheStatusLinesTextAwayFromItsEdge) {
    show(Panel::kCamera);
    RECT inside{};
    GetClientRect(controls[kIdStatusLine], &inside);
    MapWindowPoints(controls[kIdStatusLine], window.handle(), reinterpret_cast<POINT*>(&inside), 2);
    const PixelRect whole = place(kIdStatusLine);
    EXPECT_EQ(inside.left - whole.left, 8);
    EXPECT_EQ(inside.right, whole.left + whole.width);
    EXPECT_EQ(inside.bottom - inside.top, whole.height);
}

TEST_F(ControlSetTest, ScrollsTheLogViewToItsEnd) {
    show(Panel::kDiagnostics);
    std::wstring lines;
    for (int i = 0; i < 100; ++i)
        lines += L"tick=1 UI_READY\r\n";
    controls.setText(kIdLogs, lines);
    const auto firstVisible = [&] { return SendMessageW(controls[kIdLogs], EM_GETFIRSTVISIBLELINE, 0, 0); };
    ASSERT_EQ(firstVisible(), 0);
    controls.scrollToEnd(kIdLogs);
    EXPECT_GT(firstVisible(), 80);
}

// A field's text sticks to the top of its client area, which is therefore no higher than a line.
TEST_F(ControlSetTest, CentresTheTextOfAField) {
    show(Panel::kSettings, SourceKind::kDirectCamera, true);
    for (const int size : {13, 17}) {
        const UniqueFont font = fontOf(size);
        controls.setFont(font.get(), kClosedListHeight);
        const UniqueMemoryDc dc(CreateCompatibleDC(nullptr));
        const Selection selected(dc.get(), font.get());
        TEXTMETRICW line{};
        GetTextMetricsW(dc.get(), &line);
        for (const ControlId field : {kIdDirectIp, kIdDirectUser, kIdLatency, kIdManifestUrl}) {
            RECT client{};
            GetClientRect(controls[field], &client);
            MapWindowPoints(controls[field], window.handle(), reinterpret_cast<POINT*>(&client), 2);
            const PixelRect whole = place(field);
            EXPECT_NEAR(client.top - whole.top, whole.top + whole.height - client.bottom, 1) << field;
            EXPECT_GE(client.bottom - client.top, line.tmHeight) << field;
            EXPECT_LE(client.bottom - client.top, line.tmHeight + 1) << field;
        }
    }
}

TEST_F(ControlSetTest, GivesEveryControlTheFont) {
    const UniqueFont font = fontOf(17);
    controls.setFont(font.get(), kClosedListHeight);
    for (const Control& control : kControls)
        EXPECT_EQ(SendMessageW(controls[control.id], WM_GETFONT, 0, 0), reinterpret_cast<LRESULT>(font.get()))
            << control.id;
}

// --- The keyboard, which one window of the session has at a time ---

class SessionWideControlSetKeyboard : public ControlSetTest {};

TEST_F(SessionWideControlSetKeyboard, PassesTheFocusOnWhenItsControlVanishes) {
    show(Panel::kSettings);
    SetFocus(controls[kIdSource]);
    ASSERT_EQ(GetFocus(), controls[kIdSource]);
    show(Panel::kCamera);
    EXPECT_EQ(GetFocus(), controls[kIdTabCamera]);
}

TEST_F(SessionWideControlSetKeyboard, LeavesTheFocusToAControlThatStays) {
    show(Panel::kSettings);
    SetFocus(controls[kIdSource]);
    show(Panel::kSettings, SourceKind::kDirectCamera, true);
    EXPECT_EQ(GetFocus(), controls[kIdSource]);
}

TEST_F(SessionWideControlSetKeyboard, PassesTheFocusOnWhenItsControlIsDisabled) {
    show(Panel::kSettings);
    SetFocus(controls[kIdApply]);
    controls.setEnabled(kIdApply, false);
    EXPECT_EQ(GetFocus(), controls[kIdReload]);
    EXPECT_FALSE(IsWindowEnabled(controls[kIdApply]));
}

// The key that pressed it may come once more.
TEST_F(SessionWideControlSetKeyboard, NeverPassesTheFocusToAButtonThatOpensSomething) {
    show(Panel::kDiagnostics);
    SetFocus(controls[kIdCheckUpdate]);
    controls.setEnabled(kIdCheckUpdate, false);
    EXPECT_EQ(GetFocus(), controls[kIdCopyReport]);
    SetFocus(controls[kIdDownloadUpdate]);
    controls.setEnabled(kIdDownloadUpdate, false);
    EXPECT_EQ(GetFocus(), controls[kIdTabDiagnostics]);
}

TEST_F(SessionWideControlSetKeyboard, MovesTheFrameOfTheDefaultButtonWithTheFocus) {
    show(Panel::kDiagnostics);
    SetFocus(controls[kIdCheckUpdate]);
    SendMessageW(controls[kIdCheckUpdate], BM_SETSTYLE, BS_DEFPUSHBUTTON,
                 TRUE);  // as the dialog manager does
    controls.setEnabled(kIdCheckUpdate, false);
    EXPECT_EQ(buttonKind(kIdCheckUpdate), DWORD{BS_PUSHBUTTON});
    EXPECT_EQ(buttonKind(kIdCopyReport), DWORD{BS_DEFPUSHBUTTON});
}

TEST_F(SessionWideControlSetKeyboard, PutsTheCaretWhereTheEdgeOfAFieldIsClicked) {
    show(Panel::kSettings, SourceKind::kDirectCamera);
    const HWND field = controls[kIdDirectUser];
    SetWindowTextW(field, L"operador");
    RECT client{};
    GetClientRect(field, &client);
    SetFocus(controls[kIdSource]);
    for (const int y : {-6, static_cast<int>(client.bottom) + 5}) {  // above and below the line
        SendMessageW(field, EM_SETSEL, 0, 0);
        SendMessageW(field, WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(client.right - 4, y));
        SendMessageW(field, WM_LBUTTONUP, 0, MAKELPARAM(client.right - 4, y));
        EXPECT_EQ(GetFocus(), field) << y;
        EXPECT_EQ(SendMessageW(field, EM_GETSEL, 0, 0), MAKELRESULT(8, 8)) << y << ": behind the last letter";
        SetFocus(controls[kIdSource]);
    }
}

TEST_F(SessionWideControlSetKeyboard, TellsTheWindowWhichTabHasTheFocus) {
    show(Panel::kCamera);
    SetFocus(controls[kIdAutomatic]);
    const int before = window.messages(WM_COMMAND);
    SetFocus(controls[kIdTabSettings]);
    EXPECT_EQ(window.messages(WM_COMMAND), before + 1);
    SetFocus(controls[kIdAutomatic]);
    EXPECT_EQ(window.messages(WM_COMMAND), before + 2);
}

TEST_F(SessionWideControlSetKeyboard, LeavesTheFocusWhereItIsWhenAnotherControlIsDisabled) {
    show(Panel::kSettings);
    SetFocus(controls[kIdSource]);
    controls.setEnabled(kIdApply, false);
    EXPECT_EQ(GetFocus(), controls[kIdSource]);
    controls.setEnabled(kIdApply, true);
    EXPECT_TRUE(IsWindowEnabled(controls[kIdApply]));
}

TEST_F(SessionWideControlSetKeyboard, LeavesTabAndEscapeOfTheLogViewToTheWindow) {
    for (const WPARAM key : {VK_TAB, VK_ESCAPE}) {
        MSG message{controls[kIdLogs], WM_KEYDOWN, key, 0, 0, {0, 0}};
        for (MSG* with : {static_cast<MSG*>(nullptr), &message}) {
            const LRESULT wanted =
                SendMessageW(controls[kIdLogs], WM_GETDLGCODE, key, reinterpret_cast<LPARAM>(with));
            EXPECT_EQ(wanted & (DLGC_WANTALLKEYS | DLGC_WANTTAB), 0);
        }
    }
    EXPECT_NE(SendMessageW(controls[kIdLogs], WM_GETDLGCODE, 0, 0) & DLGC_WANTARROWS, 0);
}

TEST_F(SessionWideControlSetKeyboard, LetsTabLeaveTheLogView) {
    show(Panel::kDiagnostics);
    SetFocus(controls[kIdLogs]);
    MSG tab{controls[kIdLogs], WM_KEYDOWN, VK_TAB, 1, 0, {0, 0}};
    EXPECT_TRUE(IsDialogMessageW(window.handle(), &tab));
    EXPECT_EQ(GetFocus(), controls[kIdRefreshLogs]);
}

TEST_F(SessionWideControlSetKeyboard, LetsEscapeInTheLogViewCloseNothing) {
    show(Panel::kDiagnostics);
    SetFocus(controls[kIdLogs]);
    MSG escape{controls[kIdLogs], WM_KEYDOWN, VK_ESCAPE, 1, 0, {0, 0}};
    if (!IsDialogMessageW(window.handle(), &escape))
        DispatchMessageW(&escape);
    MSG message{};
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
        DispatchMessageW(&message);
    EXPECT_EQ(window.messages(WM_CLOSE), 0);
    EXPECT_TRUE(IsWindow(controls[kIdLogs]));
}

// A selection of all that was read would be copied by the next key.
TEST_F(SessionWideControlSetKeyboard, SelectsNothingInTheLogViewWhenTabReachesIt) {
    show(Panel::kDiagnostics);
    SetWindowTextW(controls[kIdLogs], L"tick=1 UI_READY");
    EXPECT_EQ(SendMessageW(controls[kIdLogs], WM_GETDLGCODE, 0, 0) & DLGC_HASSETSEL, 0);
}

// --- Secrets ---

constexpr ControlId kSecretFields[] = {kIdDirectIp, kIdDirectPassword, kIdCustomUrl, kIdManifestUrl};

TEST_F(ControlSetTest, MasksSecretsAndNothingElse) {
    for (const ControlId field : kSecretFields) {
        EXPECT_TRUE(hasStyle(field, ES_PASSWORD)) << field;
        EXPECT_EQ(passwordCharacter(field), L'\u25CF') << field;
    }
    for (const ControlId field : {kIdDirectUser, kIdLatency, kIdDeadline})
        EXPECT_EQ(passwordCharacter(field), L'\0') << field;
}

TEST_F(ControlSetTest, KeepsSecretsMaskedWhateverTheLayoutAndTheFont) {
    const UniqueFont font = fontOf(25);
    for (const SourceKind source :
         {SourceKind::kCustomUrl, SourceKind::kDirectCamera, SourceKind::kCustomUrl}) {
        show(Panel::kSettings, source, true);
        controls.setFont(font.get(), kClosedListHeight);
        show(Panel::kCamera);
        for (const ControlId field : kSecretFields)
            EXPECT_EQ(passwordCharacter(field), L'\u25CF') << field;
    }
}

TEST_F(ControlSetTest, RevealsAFieldUntilItIsMaskedAgain) {
    const SecretText address(L"rtsp://example/1");
    controls.setSecretText(kIdCustomUrl, address);
    controls.setMasking(kIdCustomUrl, Masking::kPlain);
    EXPECT_EQ(passwordCharacter(kIdCustomUrl), L'\0');
    EXPECT_EQ(passwordCharacter(kIdDirectPassword), L'\u25CF');
    controls.setMasking(kIdCustomUrl, Masking::kMasked);
    EXPECT_EQ(passwordCharacter(kIdCustomUrl), L'\u25CF');
    EXPECT_TRUE(controls.secretText(kIdCustomUrl) == address);
}

TEST_F(ControlSetTest, KeepsARevealedFieldPlainWhateverTheLayoutAndTheFont) {
    controls.setMasking(kIdCustomUrl, Masking::kPlain);
    show(Panel::kSettings, SourceKind::kCustomUrl);
    const UniqueFont font = fontOf(25);
    controls.setFont(font.get(), kClosedListHeight);
    EXPECT_EQ(passwordCharacter(kIdCustomUrl), L'\0');
}

TEST_F(ControlSetTest, GivesBackTheTextThatItWasGiven) {
    const std::wstring texts[] = {L"", L"a", L"señha com espaço € \U0001F4F7", std::wstring(8192, L'x'),
                                  std::wstring(9000, L'é') + L"\U0001F4F7z"};
    for (const std::wstring& units : texts) {
        for (const ControlId field : {kIdCustomUrl, kIdDirectPassword, kIdDirectUser}) {
            controls.setSecretText(field, SecretText(units));
            EXPECT_EQ(controls.secretText(field).view(), units) << units.size() << " units in " << field;
        }
    }
}

// --- Texts and states that a timer sets again and again ---

// Counts the messages of one kind that reach a control.
class MessageCount {
public:
    MessageCount(HWND control, UINT message) : control_(control), message_(message) {
        SetWindowSubclass(control_, &MessageCount::procedure, kNumber, reinterpret_cast<DWORD_PTR>(this));
    }
    ~MessageCount() { RemoveWindowSubclass(control_, &MessageCount::procedure, kNumber); }
    MessageCount(const MessageCount&) = delete;
    MessageCount& operator=(const MessageCount&) = delete;
    int value() const { return value_; }

private:
    static constexpr UINT_PTR kNumber = 99;
    static LRESULT CALLBACK procedure(HWND control, UINT message, WPARAM wParam, LPARAM lParam, UINT_PTR,
                                      DWORD_PTR self) {
        auto& count = *reinterpret_cast<MessageCount*>(self);
        count.value_ += message == count.message_ ? 1 : 0;
        return DefSubclassProc(control, message, wParam, lParam);
    }

    const HWND control_;
    const UINT message_;
    int value_ = 0;
};

TEST_F(ControlSetTest, SetsATextOnlyWhenItChanges) {
    const MessageCount count(controls[kIdPause], WM_SETTEXT);
    for (int i = 0; i < 3; ++i)
        controls.setText(kIdPause, kPauseText);
    EXPECT_EQ(count.value(), 0);
    for (int i = 0; i < 3; ++i)
        controls.setText(kIdPause, kContinueText);
    EXPECT_EQ(count.value(), 1);
    EXPECT_EQ(text(kIdPause), kContinueText);
}

TEST_F(ControlSetTest, SetsATextByItsLength) {
    controls.setText(kIdStatusLine, std::wstring_view(L"status and what follows it", 6));
    EXPECT_EQ(text(kIdStatusLine), L"status");
    controls.setText(kIdStatusLine, L"");
    EXPECT_EQ(text(kIdStatusLine), L"");
}

TEST_F(ControlSetTest, EnablesOnlyWhenItChanges) {
    const MessageCount count(controls[kIdApply], WM_ENABLE);
    controls.setEnabled(kIdApply, true);
    EXPECT_EQ(count.value(), 0);
    for (int i = 0; i < 3; ++i)
        controls.setEnabled(kIdApply, false);
    EXPECT_EQ(count.value(), 1);
}

TEST_F(ControlSetTest, ChecksAndUnchecks) {
    EXPECT_FALSE(controls.checked(kIdUpdateDisabled));
    controls.setChecked(kIdUpdateDisabled, true);
    EXPECT_TRUE(controls.checked(kIdUpdateDisabled));
    controls.setChecked(kIdUpdateDisabled, false);
    EXPECT_FALSE(controls.checked(kIdUpdateDisabled));
}

}  // namespace
}  // namespace vextra
