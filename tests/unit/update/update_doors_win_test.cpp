#include "update/update_doors_win.h"

#include <gtest/gtest.h>

#include "import_swap_win.h"

namespace vextra {
namespace {

struct Box {
    HWND owner = nullptr;
    std::wstring text, title;
    UINT kind = 0;
    int answer = 0;
};
Box box;

int WINAPI noteBox(HWND owner, LPCWSTR text, LPCWSTR title, UINT kind) {
    box.owner = owner;
    box.text = text;
    box.title = title;
    box.kind = kind;
    return box.answer;
}

TEST(UpdateDoors, AskWithABoxOverTheWindowWhoseDefaultIsNo) {
    const test::ImportSwap<decltype(noteBox)> swap("MessageBoxW", noteBox);
    const UpdateSystemDoors doors = systemUpdateDoors(reinterpret_cast<HWND>(7), builtInChannel());
    box.answer = IDYES;
    EXPECT_TRUE(doors.ask({L"Text?", L"Title"}));
    EXPECT_EQ(box.owner, reinterpret_cast<HWND>(7));
    EXPECT_EQ(box.text, L"Text?");
    EXPECT_EQ(box.title, L"Title");
    EXPECT_EQ(box.kind, UINT{MB_YESNO | MB_DEFBUTTON2 | MB_ICONQUESTION});
}

TEST(UpdateDoors, TakeAnythingButYesForNo) {
    const test::ImportSwap<decltype(noteBox)> swap("MessageBoxW", noteBox);
    const UpdateSystemDoors doors = systemUpdateDoors(nullptr, builtInChannel());
    for (const int answer : {0, IDNO, IDCANCEL, IDOK, IDCLOSE}) {
        box.answer = answer;
        EXPECT_FALSE(doors.ask({L"", L""})) << answer;
    }
}

TEST(UpdateDoors, CheckTheRequestBeforeAnythingIsSent) {
    const UpdateSystemDoors doors = systemUpdateDoors(nullptr, builtInChannel());
    const std::atomic<bool> cancel{false};
    EXPECT_EQ(doors.runCheck({}, cancel).code, UpdateCode::kNotConfigured);
    UpdateCheckRequest request;
    request.manifestUrl.assign(L"http://localhost/beta.json");
    EXPECT_EQ(doors.runCheck(request, cancel).code, UpdateCode::kInvalidRequest);
}

}  // namespace
}  // namespace vextra
