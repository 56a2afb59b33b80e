#include "ui/clipboard_win.h"

#include <cstring>

#include "base/unique_win.h"

namespace vextra {
namespace {

constexpr int kAttempts = 5;
constexpr DWORD kPauseMs = 20;

using UniqueGlobalMemory = Unique<HGLOBAL, &GlobalFree>;

class OpenedClipboard {
public:
    explicit OpenedClipboard(HWND owner) : opened_(openSoon(owner)) {}
    ~OpenedClipboard() {
        if (opened_)
            CloseClipboard();
    }
    OpenedClipboard(const OpenedClipboard&) = delete;
    OpenedClipboard& operator=(const OpenedClipboard&) = delete;
    explicit operator bool() const { return opened_; }

private:
    // Programs that keep what was copied hold the clipboard for some milliseconds after each change.
    static bool openSoon(HWND owner) {
        for (int attempt = 0; attempt < kAttempts; ++attempt) {
            if (OpenClipboard(owner))
                return true;
            Sleep(kPauseMs);
        }
        return OpenClipboard(owner) != FALSE;
    }

    const bool opened_;
};

}  // namespace

bool copyToClipboard(HWND owner, const std::wstring& text) {
    // Before the clipboard is emptied, so that a failure leaves there what the user had copied.
    const std::size_t bytes = (text.size() + 1) * sizeof(wchar_t);
    UniqueGlobalMemory block(GlobalAlloc(GMEM_MOVEABLE, bytes));
    void* memory = block ? GlobalLock(block.get()) : nullptr;
    if (memory == nullptr)
        return false;
    std::memcpy(memory, text.c_str(), bytes);
    GlobalUnlock(block.get());

    const OpenedClipboard clipboard(owner);
    if (!clipboard || !EmptyClipboard() || SetClipboardData(CF_UNICODETEXT, block.get()) == nullptr)
        return false;
    block.release();  // the system's from here on
    return true;
}

}  // namespace vextra
