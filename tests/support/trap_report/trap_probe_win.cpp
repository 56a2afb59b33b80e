// Does what the checked build is to end at, for the check's own test: trap-probe.exe
// overflow|callback|child|index, or nothing of it.

#include <process.h>
#include <windows.h>

#include <climits>
#include <cstddef>
#include <string_view>
#include <vector>

namespace {

int increased(int value) {
    return value + 1;
}

// What goes wrong in a window procedure may be swallowed by the system.
LRESULT CALLBACK overflowingProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_APP)
        return increased(INT_MAX);
    return DefWindowProcW(window, message, wParam, lParam);
}

LRESULT overflowInCallback() {
    WNDCLASSW windowClass{};
    windowClass.lpfnWndProc = overflowingProcedure;
    windowClass.lpszClassName = L"trap-probe";
    RegisterClassW(&windowClass);
    const HWND window =
        CreateWindowW(L"trap-probe", L"", 0, 0, 0, 1, 1, HWND_MESSAGE, nullptr, nullptr, nullptr);
    return SendMessageW(window, WM_APP, 0, 0);
}

// As a test that starts a broker and does not look how it ended.
int overflowInChild(const wchar_t* program) {
    _wspawnl(_P_WAIT, program, L"trap-probe.exe", L"overflow", nullptr);
    return 0;
}

int elementPastTheEnd(std::size_t count) {
    // Within what is allocated, where no address is wrong.
    std::vector<int> numbers;
    numbers.reserve(2 * count);
    numbers.resize(count);
    return numbers[count];
}

}  // namespace

int wmain(int count, wchar_t** arguments) {
    const std::wstring_view what = count > 1 ? arguments[1] : L"";
    if (what == L"overflow")
        return increased(INT_MAX) == INT_MIN ? 4 : 5;
    if (what == L"callback")
        return overflowInCallback() == INT_MIN ? 4 : 5;
    if (what == L"child")
        return overflowInChild(arguments[0]);
    if (what == L"index")
        return elementPastTheEnd(static_cast<std::size_t>(count)) == 0 ? 4 : 5;
    return increased(count) == count ? 1 : 0;
}
