#include "ui/tray_text.h"

#include <gtest/gtest.h>

namespace vextra {
namespace {

// As the shell counts, in UTF-16 units, on every machine: a character beyond the first plane is two of them.
std::wstring camera(std::size_t before, std::size_t after) {
    std::wstring text(before, L'x');
    text += static_cast<wchar_t>(0xD83D);
    text += static_cast<wchar_t>(0xDCF7);
    return text + std::wstring(after, L'y');
}

TEST(Cut, LeavesATextThatFitsAsItIs) {
    EXPECT_EQ(cutWithEllipsis(L"", 127), L"");
    EXPECT_EQ(cutWithEllipsis(L"Ao vivo", 127), L"Ao vivo");
    EXPECT_EQ(cutWithEllipsis(std::wstring(127, L'é'), 127), std::wstring(127, L'é'));
}

TEST(Cut, EndsALongerTextInAnEllipsisWithinTheLimit) {
    EXPECT_EQ(cutWithEllipsis(std::wstring(128, L'é'), 127), std::wstring(126, L'é') + L"…");
    EXPECT_EQ(cutWithEllipsis(L"abcdef", 3), L"ab…");
    EXPECT_EQ(cutWithEllipsis(std::wstring(10'000, L'a'), 127).size(), 127u);
}

TEST(Cut, NeverKeepsHalfACharacter) {
    EXPECT_EQ(cutWithEllipsis(camera(124, 2), 127), camera(124, 0) + L"…");
    EXPECT_EQ(cutWithEllipsis(camera(125, 1), 127), std::wstring(125, L'x') + L"…");
    EXPECT_EQ(cutWithEllipsis(camera(126, 0), 127), std::wstring(126, L'x') + L"…");
    EXPECT_EQ(cutWithEllipsis(camera(125, 0), 127), camera(125, 0));
}

TEST(Cut, KeepsWholeCharactersOfTheLastUnits) {
    EXPECT_EQ(cutWithEllipsis(L"a\uFF21\uFF22b", 3), L"a\uFF21…");
}

TEST(Cut, HasRoomForNothingElseThanTheEllipsis) {
    EXPECT_EQ(cutWithEllipsis(L"ab", 1), L"…");
    EXPECT_EQ(cutWithEllipsis(camera(0, 1), 2), L"…");
    EXPECT_EQ(cutWithEllipsis(L"ab", 0), L"");
}

TEST(TrayTip, NamesTheDeviceAndTheState) {
    EXPECT_EQ(trayTip(L"Ao vivo • imagem recente"),
              L"Vextra MF beta • Dispositivo persistente • Ao vivo • imagem recente");
    EXPECT_EQ(trayTip(L""), L"Vextra MF beta • Dispositivo persistente • ");
}

TEST(TrayTip, FitsTheShellsField) {
    constexpr std::size_t kBefore = 43;  // "Vextra MF beta • Dispositivo persistente • "
    const std::wstring fitting = trayTip(std::wstring(127 - kBefore, L'a'));
    EXPECT_EQ(fitting.size(), 127u);
    EXPECT_EQ(fitting.back(), L'a');
    const std::wstring cut = trayTip(std::wstring(128 - kBefore, L'a'));
    EXPECT_EQ(cut.size(), 127u);
    EXPECT_EQ(cut.substr(125), L"a…");
}

constexpr TrayLineKind kCommand = TrayLineKind::kCommand;
constexpr TrayLineKind kGreyed = TrayLineKind::kGreyed;
constexpr TrayLineKind kSeparator = TrayLineKind::kSeparator;

struct Line {
    TrayLineKind kind;
    int command;
    const wchar_t* text;
};

void expectMenu(const std::vector<TrayMenuLine>& menu, const std::vector<Line>& expected) {
    ASSERT_EQ(menu.size(), expected.size());
    for (std::size_t i = 0; i < menu.size(); ++i) {
        EXPECT_EQ(menu[i].kind, expected[i].kind) << "line " << i;
        EXPECT_EQ(menu[i].command, expected[i].command) << "line " << i;
        EXPECT_EQ(menu[i].text, expected[i].text) << "line " << i;
    }
}

TEST(TrayMenu, SaysWhatIsGoingOnAndOffersFourCommands) {
    expectMenu(trayMenu(L"Automático • aguardando aplicativo", false),
               {{kGreyed, 0, L"Entrada: Automático • aguardando aplicativo"},
                {kGreyed, 0, L"Saída MF persistente • automático"},
                {kSeparator, 0, L""},
                {kCommand, 200, L"Abrir Vextra"},
                {kCommand, 201, L"Suspender automático"},
                {kCommand, 203, L"Verificar atualização MF"},
                {kCommand, 202, L"Sair do broker (câmera permanece)"}});
}

TEST(TrayMenu, OffersToContinueWhilePaused) {
    expectMenu(trayMenu(L"Pausada • fallback local", true),
               {{kGreyed, 0, L"Entrada: Pausada • fallback local"},
                {kGreyed, 0, L"Saída MF persistente • automático"},
                {kSeparator, 0, L""},
                {kCommand, 200, L"Abrir Vextra"},
                {kCommand, 201, L"Ativar automático"},
                {kCommand, 203, L"Verificar atualização MF"},
                {kCommand, 202, L"Sair do broker (câmera permanece)"}});
}

}  // namespace
}  // namespace vextra
