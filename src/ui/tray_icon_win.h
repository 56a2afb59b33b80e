// The broker's icon in the notification area. UI thread only.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>

#include "diag/event_log.h"
#include "ui/gdi_win.h"

namespace vextra {

// A balloon; the shell's fields hold 63 and 255 units.
struct TrayNotice {
    std::wstring_view title;
    std::wstring_view text;
};

inline constexpr TrayNotice kStillRunningNotice{
    L"Vextra continua na bandeja",
    L"Fechar a janela não desliga a câmera. Use Sair no menu da bandeja para encerrar."};

class TrayIcon {
public:
    explicit TrayIcon(EventLog& log) : log_(log) {}
    TrayIcon(const TrayIcon&) = delete;
    TrayIcon& operator=(const TrayIcon&) = delete;

    // Clicks come to `window` as kMessageTray. Once, when there is a window.
    void add(HWND window, UniqueIcon image, std::wstring_view statusLabel);
    // When the shell announces itself: it may be a new one, or the old one with the icon still in it, which
    // would refuse a second. So the icon is taken away first, whatever comes of it.
    void addAgain(UniqueIcon image, std::wstring_view statusLabel);
    // For a timer: an add that was refused is tried again, without a word until it succeeds. A shell under
    // load refuses icons long after it announced itself.
    void addIfAbsent(std::wstring_view statusLabel);
    // For another size of the taskbar.
    void replaceImage(UniqueIcon image);
    // Renews the tip where it has changed, and shows a notice if there is one. Nothing happens while the icon
    // is absent.
    void refresh(std::wstring_view statusLabel, const TrayNotice* notice = nullptr);
    void remove();

    // Whether the last add worked and nothing was removed since: only then may the window hide.
    bool present() const { return trayIconPresent_; }

private:
    bool updateTrayIcon(DWORD operation, const TrayNotice* notice) const;
    bool replaceInShell(std::wstring_view statusLabel);

    EventLog& log_;
    HWND window_ = nullptr;  // null before `add` and after `remove`
    UniqueIcon image_;
    std::wstring tip_;
    bool trayIconPresent_ = false;
};

}  // namespace vextra
