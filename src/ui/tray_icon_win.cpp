#include "ui/tray_icon_win.h"

#include <shellapi.h>

#include <string>
#include <utility>

#include "core/window_messages_win.h"
#include "ui/tray_text.h"

namespace vextra {
namespace {

constexpr UINT kIconNumber = 1;

template <std::size_t N>
void copyText(wchar_t (&field)[N], std::wstring_view text) {
    cutWithEllipsis(text, N - 1).copy(field, N - 1);  // the rest of the field is zero already
}

}  // namespace

void TrayIcon::add(HWND window, UniqueIcon image, std::wstring_view statusLabel) {
    window_ = window;
    image_ = std::move(image);
    tip_ = trayTip(statusLabel);
    trayIconPresent_ = updateTrayIcon(NIM_ADD, nullptr);
    log_.write(trayIconPresent_ ? EventCode::kTrayAddOk : EventCode::kTrayAddFailed);
}

void TrayIcon::addAgain(UniqueIcon image, std::wstring_view statusLabel) {
    image_ = std::move(image);
    trayIconPresent_ = replaceInShell(statusLabel);
    log_.write(trayIconPresent_ ? EventCode::kTrayAddOk : EventCode::kTrayAddFailed);
}

void TrayIcon::addIfAbsent(std::wstring_view statusLabel) {
    if (window_ == nullptr || trayIconPresent_)
        return;
    trayIconPresent_ = replaceInShell(statusLabel);
    if (trayIconPresent_)
        log_.write(EventCode::kTrayAddOk);
}

bool TrayIcon::replaceInShell(std::wstring_view statusLabel) {
    tip_ = trayTip(statusLabel);
    updateTrayIcon(NIM_DELETE, nullptr);
    return updateTrayIcon(NIM_ADD, nullptr);
}

void TrayIcon::replaceImage(UniqueIcon image) {
    const UniqueIcon old = std::exchange(image_, std::move(image));  // the shell's until it has the new one
    if (trayIconPresent_)
        updateTrayIcon(NIM_MODIFY, nullptr);
}

void TrayIcon::refresh(std::wstring_view statusLabel, const TrayNotice* notice) {
    if (!trayIconPresent_)
        return;
    // Asked every second, all day: the shell is woken only when there is news.
    std::wstring tip = trayTip(statusLabel);
    if (tip == tip_ && notice == nullptr)
        return;
    std::wstring shown = std::exchange(tip_, std::move(tip));
    if (!updateTrayIcon(NIM_MODIFY, notice))
        tip_ = std::move(shown);
}

void TrayIcon::remove() {
    updateTrayIcon(NIM_DELETE, nullptr);
    window_ = nullptr;
    trayIconPresent_ = false;
    log_.write(EventCode::kTrayRemove);
}

bool TrayIcon::updateTrayIcon(DWORD operation, const TrayNotice* notice) const {
    NOTIFYICONDATAW record{};
    record.cbSize = sizeof record;
    record.hWnd = window_;
    record.uID = kIconNumber;
    record.uFlags = NIF_MESSAGE | NIF_ICON | NIF_TIP;
    record.uCallbackMessage = kMessageTray;
    record.hIcon = image_.get();
    copyText(record.szTip, tip_);
    if (notice != nullptr) {
        record.uFlags |= NIF_INFO;
        copyText(record.szInfoTitle, notice->title);
        copyText(record.szInfo, notice->text);
        record.dwInfoFlags = NIIF_INFO;
    }
    return Shell_NotifyIconW(operation, &record) != FALSE;
}

}  // namespace vextra
