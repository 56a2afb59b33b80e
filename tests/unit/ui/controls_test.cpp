#include "ui/controls.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <tuple>

#include "ui/window_layout.h"

namespace vextra {
namespace {

struct Expected {
    ControlKind kind;
    std::wstring text;
};

// What tests, scripts and assistive tools address.
const std::map<int, Expected> kPublished{
    {300, {ControlKind::kTab, L"Câmera"}},
    {301, {ControlKind::kTab, L"Configurações"}},
    {302, {ControlKind::kTab, L"Diagnóstico"}},
    {100, {ControlKind::kButton, L"Suspender automático"}},
    {105, {ControlKind::kButton, L"Testar prévia por 60s"}},
    {101, {ControlKind::kButton, L"Pausar produtor"}},
    {104, {ControlKind::kList, L""}},
    {310, {ControlKind::kSecretEdit, L""}},
    {311, {ControlKind::kList, L""}},
    {312, {ControlKind::kSecretEdit, L""}},
    {313, {ControlKind::kEdit, L""}},
    {314, {ControlKind::kSecretEdit, L""}},
    {315, {ControlKind::kList, L""}},
    {316, {ControlKind::kList, L""}},
    {317, {ControlKind::kNumberEdit, L""}},
    {318, {ControlKind::kNumberEdit, L""}},
    {319, {ControlKind::kSecretEdit, L""}},
    {320, {ControlKind::kCheckBox, L"Desativar update"}},
    {321, {ControlKind::kButton, L"Revelar URL"}},
    {322, {ControlKind::kDefaultButton, L"Salvar / aplicar"}},
    {323, {ControlKind::kButton, L"Recarregar salvo"}},
    {325, {ControlKind::kFoldButton, L"Avançado: latência / prazo"}},
    {330, {ControlKind::kLogView, L""}},
    {331, {ControlKind::kButton, L"Atualizar logs"}},
    {332, {ControlKind::kButton, L"Copiar diagnóstico"}},
    {333, {ControlKind::kButton, L"Verificar atualização"}},
    {334, {ControlKind::kButton, L"Reparar instalação MF"}},
    {335, {ControlKind::kButton, L"Baixar atualização"}},
    {340, {ControlKind::kStatusLine, L"Conexão sob demanda. Nenhuma reunião será interrompida."}},
    {341, {ControlKind::kStatic, L"Verificação automática ao iniciar • canal MF beta"}},
};

TEST(Controls, AreThePublishedOnesOnceEach) {
    std::set<int> found;
    for (const Control& control : kControls) {
        EXPECT_TRUE(kPublished.contains(control.id)) << control.id;
        EXPECT_TRUE(found.insert(control.id).second) << control.id;
    }
    EXPECT_EQ(found.size(), kPublished.size());
}

TEST(Controls, HaveThePublishedKindsAndTexts) {
    for (const Control& control : kControls) {
        const Expected& expected = kPublished.at(control.id);
        EXPECT_EQ(control.kind, expected.kind) << control.id;
        EXPECT_EQ(std::wstring(control.text), expected.text) << control.id;
    }
}

TEST(Controls, ChangeTheirTextsToThePublishedOnes) {
    EXPECT_EQ(std::wstring(kAutomaticOnText), L"Ativar automático");
    EXPECT_EQ(std::wstring(kPreviewEndText), L"Encerrar prévia manual");
    EXPECT_EQ(std::wstring(kContinueText), L"Retomar produtor");
    EXPECT_EQ(std::wstring(kHideText), L"Ocultar URL");
}

TEST(Controls, WithoutATextHaveANameForAScreenReader) {
    for (const Control& control : kControls)
        EXPECT_NE(control.text.empty(), control.label.text.empty()) << control.id;
}

// The other labels are painted, and tests of the view read them there.
TEST(Controls, WhoseLabelsAreNotPaintedHaveTheseNames) {
    const std::map<int, std::wstring> names{{104, L"Fonte de vídeo"},
                                            {330, L"Diagnóstico e eventos sanitizados"}};
    std::map<int, std::wstring> found;
    for (const Control& control : kControls) {
        if (!control.label.text.empty() && control.label.size == 0)
            found[control.id] = control.label.text;
    }
    EXPECT_EQ(found, names);
}

TEST(Tabs, AreTurnedRoundAndRound) {
    EXPECT_EQ(panelAfter(Panel::kCamera), Panel::kSettings);
    EXPECT_EQ(panelAfter(Panel::kSettings), Panel::kDiagnostics);
    EXPECT_EQ(panelAfter(Panel::kDiagnostics), Panel::kCamera);
    for (const Panel panel : {Panel::kCamera, Panel::kSettings, Panel::kDiagnostics})
        EXPECT_EQ(panelBefore(panelAfter(panel)), panel);
}

TEST(Tabs, BelongToTheirPanels) {
    EXPECT_EQ(tabOf(Panel::kCamera), 300);
    EXPECT_EQ(tabOf(Panel::kSettings), 301);
    EXPECT_EQ(tabOf(Panel::kDiagnostics), 302);
}

// Tab visits the controls in the order in which they were made.
TEST(Controls, AreVisitedAsAReaderMeetsThem) {
    for (const Panel panel : {Panel::kCamera, Panel::kSettings, Panel::kDiagnostics}) {
        for (const auto& choice : kSourceKinds) {
            std::map<int, PixelRect> places;
            for (const PlacedControl& placed : placeControls({980, 720, 96, panel, choice.value, true, true}))
                places[placed.id] = placed.place;
            std::tuple<int, int> before{-1, -1};
            for (const Control& control : kControls) {
                const auto at = places.find(control.id);
                if (at == places.end())
                    continue;
                const std::tuple here{at->second.top, at->second.left};
                EXPECT_LT(before, here) << control.id;
                before = here;
            }
        }
    }
}

}  // namespace
}  // namespace vextra
