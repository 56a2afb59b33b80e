#include "ui/tray_text.h"

#include "base/product.h"
#include "base/text.h"
#include "ui/controls.h"

namespace vextra {

std::wstring cutWithEllipsis(std::wstring_view text, std::size_t units) {
    if (text.size() <= units)
        return std::wstring(text);
    if (units == 0)
        return {};
    std::size_t kept = units - 1;
    while (kept > 0 && isLowSurrogate(static_cast<std::uint32_t>(text[kept])))
        --kept;
    return std::wstring(text.substr(0, kept)) + L"…";
}

std::wstring trayTip(std::wstring_view statusLabel) {
    return cutWithEllipsis(
        VEXTRA_SHORT_NAME_W L" beta • Dispositivo persistente • " + std::wstring(statusLabel), kTrayTipUnits);
}

std::vector<TrayMenuLine> trayMenu(std::wstring_view statusLabel, bool paused) {
    using Kind = TrayLineKind;
    return {
        {Kind::kGreyed, L"Entrada: " + std::wstring(statusLabel)},
        {Kind::kGreyed, L"Saída MF persistente • automático"},
        {Kind::kSeparator, {}},
        {Kind::kCommand, L"Abrir Vextra", kIdTrayShow},
        {Kind::kCommand, std::wstring(paused ? kAutomaticOnText : kAutomaticOffText), kIdTrayAutomatic},
        {Kind::kCommand, L"Verificar atualização MF", kIdTrayCheckUpdate},
        {Kind::kCommand, L"Sair do broker (câmera permanece)", kIdTrayQuit},
    };
}

}  // namespace vextra
