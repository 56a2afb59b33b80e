// The broker's icon in the notification area. UI thread only.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>

#include "diag/event_log.h"

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

    // Clicks come to `window` as kMessageTray. Again after the shell was restarted.
    void add(HWND window, HICON icon, std::wstring_view statusLabel);
    // Renews the tip where it has changed, and shows a notice if there is one. Nothing happens while the icon
    // is absent.
    void refresh(std::wstring_view statusLabel, const TrayNotice* notice = nullptr);
    void remove();

    // Whether the last add worked and nothing was removed since: only then may the window hide.
    bool present() const { return trayIconPresent_; }

private:
    bool updateTrayIcon(DWORD operation, const std::wstring& tip, const TrayNotice* notice) const;

    EventLog& log_;
    HWND window_ = nullptr;
    HICON icon_ = nullptr;   // shared, the system's to free
    std::wstring shownTip_;  // as the shell last took it
    bool trayIconPresent_ = false;
};

}  // namespace vextra
