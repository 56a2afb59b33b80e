#include "ui/tray_icon_win.h"

#include <shellapi.h>

#include <string>
#include <utility>

#include "core/supervisor_thread_win.h"
#include "ui/tray_text.h"

namespace vextra {
namespace {

constexpr UINT kIconNumber = 1;

template <std::size_t N>
void copyText(wchar_t (&field)[N], std::wstring_view text) {
    cutWithEllipsis(text, N - 1).copy(field, N - 1);  // the rest of the field is zero already
}

}  // namespace

void TrayIcon::add(HWND window, HICON icon, std::wstring_view statusLabel) {
    window_ = window;
    icon_ = icon;
    shownTip_ = trayTip(statusLabel);
    trayIconPresent_ = updateTrayIcon(NIM_ADD, shownTip_, nullptr);
    log_.write(trayIconPresent_ ? EventCode::kTrayAddOk : EventCode::kTrayAddFailed);
}

void TrayIcon::refresh(std::wstring_view statusLabel, const TrayNotice* notice) {
    if (!trayIconPresent_)
        return;
    // Asked every second, all day: the shell is woken only when there is news.
    std::wstring tip = trayTip(statusLabel);
    if (tip == shownTip_ && notice == nullptr)
        return;
    if (updateTrayIcon(NIM_MODIFY, tip, notice))
        shownTip_ = std::move(tip);
}

void TrayIcon::remove() {
    updateTrayIcon(NIM_DELETE, {}, nullptr);
    trayIconPresent_ = false;
    log_.write(EventCode::kTrayRemove);
}

bool TrayIcon::updateTrayIcon(DWORD operation, const std::wstring& tip, const TrayNotice* notice) const {
    NOTIFYICONDATAW record{};
    record.cbSize = sizeof record;
    record.hWnd = window_;
    record.uID = kIconNumber;
    record.uFlags = NIF_MESSAGE | NIF_ICON | NIF_TIP;
    record.uCallbackMessage = kMessageTray;
    record.hIcon = icon_;
    copyText(record.szTip, tip);
    if (notice != nullptr) {
        record.uFlags |= NIF_INFO;
        copyText(record.szInfoTitle, notice->title);
        copyText(record.szInfo, notice->text);
        record.dwInfoFlags = NIIF_INFO;
    }
    return Shell_NotifyIconW(operation, &record) != FALSE;
}

}  // namespace vextra
