#include "ui/control_set_win.h"

#include <commctrl.h>

#include <algorithm>
#include <iterator>
#include <string>

#include "ui/painter_win.h"

// Of commctrl.h since Windows 10 1809; older headers lack them.
#ifndef EM_SETEXTENDEDSTYLE
#define EM_SETEXTENDEDSTYLE (ECM_FIRST + 10)
#define ES_EX_ALLOWEOL_ALL 0x3
#endif

namespace vextra {
namespace {

constexpr wchar_t kBullet = L'\u25CF';
constexpr UINT_PTR kSubclassNumber = 1;
// The status line's text keeps this much of its height away from its left edge.
constexpr int kStatusMarginDivisor = 3;

// Text in an edit field that is higher than one line would stick to its top. The rest becomes frame, half
// above and half below, which the field then has to paint as well.
int fieldPadding(HWND field, int heightPixels) {
    const HDC dc = GetDC(field);
    TEXTMETRICW metrics{};
    {
        const Selection font(dc, reinterpret_cast<HGDIOBJ>(SendMessageW(field, WM_GETFONT, 0, 0)));
        GetTextMetricsW(dc, &metrics);
    }
    ReleaseDC(field, dc);
    return std::max((heightPixels - static_cast<int>(metrics.tmHeight)) / 2, 1);
}

RECT wholeOf(HWND control) {
    RECT whole{};
    GetWindowRect(control, &whole);
    OffsetRect(&whole, -whole.left, -whole.top);
    return whole;
}

void drawBorder(HDC dc, HWND control, const RECT& whole) {
    const bool focused = GetFocus() == control;
    const UniqueBrush border(
        CreateSolidBrush(colorRef(focused ? colours::kSelectedTab : colours::kFieldBorder)));
    FrameRect(dc, &whole, border.get());
}

void paintFieldFrame(HWND field) {
    const RECT whole = wholeOf(field);
    const HDC dc = GetWindowDC(field);
    const int padding = fieldPadding(field, whole.bottom);
    ExcludeClipRect(dc, 1, padding, whole.right - 1, whole.bottom - padding);
    FillRect(dc, &whole, static_cast<HBRUSH>(GetStockObject(WHITE_BRUSH)));
    drawBorder(dc, field, whole);
    ReleaseDC(field, dc);
}

// What was made frame is the control's face all the same: by itself the system would not give the control a
// click there.
LRESULT faceAt(LRESULT hit) {
    return hit == HTNOWHERE ? HTCLIENT : hit;
}

LRESULT CALLBACK fieldProcedure(HWND field, UINT message, WPARAM wParam, LPARAM lParam, UINT_PTR, DWORD_PTR) {
    switch (message) {
        case WM_NCCALCSIZE: {
            // With either form of lParam the window's rectangle comes first.
            RECT& area = *reinterpret_cast<RECT*>(lParam);
            const int padding = fieldPadding(field, area.bottom - area.top);
            InflateRect(&area, -1, -padding);
            // Before its first layout it has no room to take a frame from.
            area.right = std::max(area.right, area.left);
            area.bottom = std::max(area.bottom, area.top);
            return 0;
        }
        case WM_NCHITTEST: return faceAt(DefSubclassProc(field, message, wParam, lParam));
        case WM_NCPAINT: paintFieldFrame(field); return 0;
        case WM_SETFOCUS:
        case WM_KILLFOCUS: {
            const LRESULT result = DefSubclassProc(field, message, wParam, lParam);
            paintFieldFrame(field);
            return result;
        }
        case WM_NCDESTROY: RemoveWindowSubclass(field, &fieldProcedure, kSubclassNumber); break;
    }
    return DefSubclassProc(field, message, wParam, lParam);
}

// A multi-line edit asks for all keys: Tab would stay in it, and Escape would close the window it is in.
LRESULT CALLBACK logViewProcedure(HWND view, UINT message, WPARAM wParam, LPARAM lParam, UINT_PTR,
                                  DWORD_PTR) {
    if (message == WM_NCDESTROY)
        RemoveWindowSubclass(view, &logViewProcedure, kSubclassNumber);
    const LRESULT result = DefSubclassProc(view, message, wParam, lParam);
    switch (message) {
        case WM_GETDLGCODE: {
            constexpr LRESULT kUnwanted = DLGC_WANTALLKEYS | DLGC_WANTTAB | DLGC_HASSETSEL;
            return result & ~kUnwanted;
        }
        case WM_NCPAINT:
        case WM_SETFOCUS:
        case WM_KILLFOCUS: {  // the border that the fields have
            const HDC dc = GetWindowDC(view);
            drawBorder(dc, view, wholeOf(view));
            ReleaseDC(view, dc);
            break;
        }
        default: break;
    }
    return result;
}

LRESULT CALLBACK statusLineProcedure(HWND line, UINT message, WPARAM wParam, LPARAM lParam, UINT_PTR,
                                     DWORD_PTR) {
    switch (message) {
        case WM_NCCALCSIZE: {
            RECT& area = *reinterpret_cast<RECT*>(lParam);
            area.left = std::min(area.left + (area.bottom - area.top) / kStatusMarginDivisor, area.right);
            return 0;
        }
        case WM_NCHITTEST: return faceAt(DefSubclassProc(line, message, wParam, lParam));
        case WM_NCPAINT: {
            RECT margin = wholeOf(line);
            margin.right = std::min(margin.bottom / kStatusMarginDivisor, margin.right);
            const HDC dc = GetWindowDC(line);
            FillRect(dc, &margin, static_cast<HBRUSH>(GetStockObject(WHITE_BRUSH)));
            ReleaseDC(line, dc);
            return 0;
        }
        case WM_NCDESTROY: RemoveWindowSubclass(line, &statusLineProcedure, kSubclassNumber); break;
        default: break;
    }
    return DefSubclassProc(line, message, wParam, lParam);
}

// Tells the window of the focus. BS_NOTIFY would too, and would take the second click of two for another
// kind.
LRESULT CALLBACK focusProcedure(HWND button, UINT message, WPARAM wParam, LPARAM lParam, UINT_PTR,
                                DWORD_PTR) {
    if (message == WM_NCDESTROY)
        RemoveWindowSubclass(button, &focusProcedure, kSubclassNumber);
    if (message == WM_SETFOCUS || message == WM_KILLFOCUS)
        SendMessageW(GetParent(button), WM_COMMAND,
                     MAKEWPARAM(GetDlgCtrlID(button), message == WM_SETFOCUS ? BN_SETFOCUS : BN_KILLFOCUS),
                     reinterpret_cast<LPARAM>(button));
    return DefSubclassProc(button, message, wParam, lParam);
}

struct Style {
    const wchar_t* windowClass;
    DWORD style;
};

Style styleOf(ControlKind kind) {
    switch (kind) {
        case ControlKind::kTab: return {WC_BUTTONW, BS_OWNERDRAW | WS_TABSTOP};
        case ControlKind::kFoldButton:
        case ControlKind::kButton: return {WC_BUTTONW, BS_PUSHBUTTON | WS_TABSTOP};
        case ControlKind::kDefaultButton: return {WC_BUTTONW, BS_DEFPUSHBUTTON | WS_TABSTOP};
        case ControlKind::kCheckBox: return {WC_BUTTONW, BS_AUTOCHECKBOX | WS_TABSTOP};
        case ControlKind::kList: return {WC_COMBOBOXW, CBS_DROPDOWNLIST | WS_VSCROLL | WS_TABSTOP};
        case ControlKind::kEdit: return {WC_EDITW, ES_AUTOHSCROLL | WS_TABSTOP};
        case ControlKind::kNumberEdit: return {WC_EDITW, ES_AUTOHSCROLL | ES_NUMBER | WS_TABSTOP};
        case ControlKind::kSecretEdit: return {WC_EDITW, ES_AUTOHSCROLL | ES_PASSWORD | WS_TABSTOP};
        case ControlKind::kLogView:
            return {WC_EDITW,
                    ES_MULTILINE | ES_READONLY | ES_AUTOVSCROLL | WS_VSCROLL | WS_BORDER | WS_TABSTOP};
        case ControlKind::kStatusLine:
        case ControlKind::kStatic: break;
    }
    constexpr DWORD kText = SS_LEFTNOWORDWRAP | SS_NOPREFIX | SS_CENTERIMAGE | SS_ENDELLIPSIS;
    // Without SS_NOTIFY the mouse passes through it, and with the mouse every tooltip.
    return {WC_STATICW, kind == ControlKind::kStatusLine ? kText | SS_NOTIFY : kText};
}

// Arrow keys move within a group: the tabs are one, the rest of the window another.
bool beginsGroup(ControlId id) {
    return id == kIdTabCamera || id == kIdAutomatic;
}

void prepare(HWND control, const Control& what) {
    switch (what.kind) {
        case ControlKind::kSecretEdit: SendMessageW(control, EM_SETPASSWORDCHAR, kBullet, 0); [[fallthrough]];
        case ControlKind::kEdit:
        case ControlKind::kNumberEdit: SetWindowSubclass(control, &fieldProcedure, kSubclassNumber, 0); break;
        case ControlKind::kLogView:
            SetWindowSubclass(control, &logViewProcedure, kSubclassNumber, 0);
            // The log's own lines end in a line feed alone.
            SendMessageW(control, EM_SETEXTENDEDSTYLE, ES_EX_ALLOWEOL_ALL, ES_EX_ALLOWEOL_ALL);
            break;
        case ControlKind::kTab:
        case ControlKind::kFoldButton: SetWindowSubclass(control, &focusProcedure, kSubclassNumber, 0); break;
        case ControlKind::kStatusLine:
            SetWindowSubclass(control, &statusLineProcedure, kSubclassNumber, 0);
            break;
        default: break;
    }
}

// Of a list, which is as high as the text of its selection and what surrounds that. How much that is shows
// only once a height has been set.
void setClosedHeight(HWND list, int pixels) {
    constexpr WPARAM kSelection = static_cast<WPARAM>(-1);
    SendMessageW(list, CB_SETITEMHEIGHT, kSelection, pixels);
    const int around = static_cast<int>(wholeOf(list).bottom) - pixels;
    SendMessageW(list, CB_SETITEMHEIGHT, kSelection, std::max(pixels - around, 1));
}

bool isPushButton(HWND control) {
    return (SendMessageW(control, WM_GETDLGCODE, 0, 0) & (DLGC_DEFPUSHBUTTON | DLGC_UNDEFPUSHBUTTON)) != 0;
}

// With the frame that marks what Enter presses, as the dialog manager does it.
void passFocus(HWND from, HWND to) {
    SetFocus(to);
    if (!isPushButton(from) || !isPushButton(to))
        return;
    SendMessageW(from, BM_SETSTYLE, BS_PUSHBUTTON, TRUE);
    SendMessageW(to, BM_SETSTYLE, BS_DEFPUSHBUTTON, TRUE);
}

}  // namespace

bool ControlSet::create(HWND window, HINSTANCE instance) {
    window_ = window;
    made_.resize(kControls.size());
    for (std::size_t i = 0; i < kControls.size(); ++i) {
        const Control& control = kControls[i];
        const Style style = styleOf(control.kind);
        const DWORD group = beginsGroup(control.id) ? WS_GROUP : 0;
        made_[i].window = CreateWindowExW(
            0, style.windowClass, std::wstring(control.text).c_str(), WS_CHILD | style.style | group, 0, 0, 0,
            0, window, reinterpret_cast<HMENU>(static_cast<UINT_PTR>(control.id)), instance, nullptr);
        if (made_[i].window == nullptr)
            return false;
        prepare(made_[i].window, control);
    }
    return true;
}

HWND ControlSet::operator[](ControlId id) const {
    const auto row = std::find_if(kControls.begin(), kControls.end(),
                                  [id](const Control& control) { return control.id == id; });
    return made_[static_cast<std::size_t>(std::distance(kControls.begin(), row))].window;
}

void ControlSet::setFont(HFONT font, int closedListPixels) {
    for (std::size_t i = 0; i < kControls.size(); ++i) {
        const Made& control = made_[i];
        SendMessageW(control.window, WM_SETFONT, reinterpret_cast<WPARAM>(font), FALSE);
        if (kControls[i].kind == ControlKind::kList)
            setClosedHeight(control.window, closedListPixels);
        // The frame of a field depends on its font.
        SetWindowPos(
            control.window, nullptr, 0, 0, 0, 0,
            SWP_FRAMECHANGED | SWP_NOMOVE | SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE | SWP_NOREDRAW);
    }
}

void ControlSet::apply(const std::vector<PlacedControl>& placed, ControlId fallback) {
    const HWND focused = GetFocus();
    std::vector<Made> next = made_;
    HDWP moves = BeginDeferWindowPos(static_cast<int>(kControls.size()));
    for (std::size_t i = 0; i < kControls.size(); ++i) {
        Made& control = next[i];
        const auto at = std::find_if(placed.begin(), placed.end(), [&](const PlacedControl& candidate) {
            return candidate.id == kControls[i].id;
        });
        const bool visible = at != placed.end();
        const PixelRect place = visible ? at->place : control.place;
        if (visible == control.visible && place == control.place)
            continue;
        if (!visible && control.window == focused)
            SetFocus((*this)[fallback]);
        control.visible = visible;
        control.place = place;
        const UINT show =
            visible ? SWP_SHOWWINDOW | SWP_NOCOPYBITS : SWP_HIDEWINDOW | SWP_NOMOVE | SWP_NOSIZE;
        if (moves != nullptr) {
            moves = DeferWindowPos(moves, control.window, nullptr, place.left, place.top, place.width,
                                   place.height, show | SWP_NOZORDER | SWP_NOACTIVATE);
        }
    }
    // What the system had no room to remember stays to be done by the next layout.
    if (moves != nullptr && EndDeferWindowPos(moves))
        made_ = next;
}

bool ControlSet::setText(ControlId id, std::wstring_view text) {
    const HWND control = (*this)[id];
    std::wstring now(static_cast<std::size_t>(GetWindowTextLengthW(control)), L'\0');
    GetWindowTextW(control, now.data(), static_cast<int>(now.size()) + 1);
    if (now == text)
        return false;
    SetWindowTextW(control, std::wstring(text).c_str());
    return true;
}

void ControlSet::setEnabled(ControlId id, bool enabled) {
    const HWND control = (*this)[id];
    if ((IsWindowEnabled(control) != FALSE) == enabled)
        return;
    // A disabled control keeps the focus and swallows every key. The one before it gets them: what follows
    // the buttons that are disabled opens a box, and the key that pressed them may be pressed once more.
    if (!enabled && GetFocus() == control)
        passFocus(control, GetNextDlgTabItem(window_, control, TRUE));
    EnableWindow(control, enabled);
}

void ControlSet::scrollToEnd(ControlId id) {
    SendMessageW((*this)[id], WM_VSCROLL, SB_BOTTOM, 0);
}

SecretText ControlSet::secretText(ControlId id) const {
    const HWND control = (*this)[id];
    SecretBytes units((static_cast<std::size_t>(GetWindowTextLengthW(control)) + 1) * sizeof(wchar_t));
    auto* text = reinterpret_cast<wchar_t*>(units.data());
    const int length = GetWindowTextW(control, text, static_cast<int>(units.size() / sizeof(wchar_t)));
    return SecretText({text, static_cast<std::size_t>(length)});
}

void ControlSet::setSecretText(ControlId id, const SecretText& text) {
    SetWindowTextW((*this)[id], text.c_str());
}

int ControlSet::selection(ControlId id) const {
    return static_cast<int>(SendMessageW((*this)[id], CB_GETCURSEL, 0, 0));
}

void ControlSet::select(ControlId id, int index) {
    SendMessageW((*this)[id], CB_SETCURSEL, static_cast<WPARAM>(index), 0);
}

bool ControlSet::checked(ControlId id) const {
    return SendMessageW((*this)[id], BM_GETCHECK, 0, 0) == BST_CHECKED;
}

void ControlSet::setChecked(ControlId id, bool checked) {
    SendMessageW((*this)[id], BM_SETCHECK, checked ? BST_CHECKED : BST_UNCHECKED, 0);
}

void ControlSet::setMasking(ControlId id, Masking masking) {
    SendMessageW((*this)[id], EM_SETPASSWORDCHAR, masking == Masking::kMasked ? kBullet : 0, 0);
    InvalidateRect((*this)[id], nullptr, TRUE);
}

}  // namespace vextra
