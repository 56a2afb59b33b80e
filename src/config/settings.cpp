#include "config/settings.h"

#include "config/source_url.h"

namespace vextra {

bool numbersInRange(const BrokerSettings& settings) {
    bool inRange = true;
    eachSettingsNumber([&](auto field, auto lowest, auto highest) {
        inRange = inRange && settings.*field >= lowest && settings.*field <= highest;
    });
    return inRange;
}

std::wstring_view validateSettings(const BrokerSettings& settings) {
    if (!numbersInRange(settings))
        return L"Parâmetros fora do intervalo permitido.";
    if (settings.source == SourceKind::kDirectCamera && !isValidIpv4(settings.directIp.view()))
        return L"Informe um IPv4 válido: quatro números entre 0 e 255.";
    if (settings.source != SourceKind::kSyntheticTest && !isUsableSourceUrl(sourceUrl(settings).view())) {
        return settings.source == SourceKind::kInternalProfile
                   ? L"Perfil interno ausente. Use URL personalizada ou provisione o perfil privado."
                   : L"Informe uma URL http, https, rtsp ou rtsps completa, sem espaços.";
    }
    if (settings.directUser.size() > kMaxUserUnits || settings.directPassword.size() > kMaxPasswordUnits)
        return L"Credenciais muito longas.";
    if (!settings.updateManifestUrl.empty() && !settings.updateManifestUrl.view().starts_with(L"https://"))
        return L"Manifesto MF deve usar HTTPS.";
    return {};
}

}  // namespace vextra
