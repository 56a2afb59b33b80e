#include "update/update_check.h"

#include <utility>

#include "base/product.h"
#include "base/text.h"
#include "update/json_reader.h"
#include "update/strict_url.h"

namespace vextra {
namespace {

constexpr std::uint32_t kMinOperationTimeoutMs = 250;
constexpr std::uint32_t kMaxOperationTimeoutMs = 10'000;
constexpr std::uint32_t kMaxTotalTimeoutMs = 30'000;

UpdateCheckResult ended(UpdateCode code, std::wstring_view message) {
    return {code, std::wstring(message), {}};
}

UpdateCheckResult refused(std::wstring_view message) {
    return ended(UpdateCode::kRefused, message);
}

bool isValid(const UpdateCheckRequest& request) {
    return isStrictHttpsUrl(narrowedAscii(request.manifestUrl.view()).view()) &&
           parseVersion(request.currentVersion) &&
           request.limits.operationTimeoutMs >= kMinOperationTimeoutMs &&
           request.limits.operationTimeoutMs <= kMaxOperationTimeoutMs &&
           request.limits.operationTimeoutMs <= request.limits.totalTimeoutMs &&
           request.limits.totalTimeoutMs <= kMaxTotalTimeoutMs;
}

UpdateCheckResult compared(UpdateManifest manifest, std::string_view currentVersion) {
    const std::optional<int> order = compareVersions(manifest.version, currentVersion);
    if (!order)
        return refused(L"Versão inválida no manifesto MF.");
    UpdateCheckResult result =
        *order > 0 ? ended(UpdateCode::kAvailable,
                           L"Nova versão MF disponível. Abra Diagnóstico para baixar e instalar.")
                   : ended(UpdateCode::kUpToDate, L"Nenhuma versão MF mais recente no canal configurado.");
    result.manifest = std::move(manifest);
    return result;
}

}  // namespace

UpdateCheckRequest updateCheckRequest(SecretText manifestUrl, const UpdateChannelIdentity& channel) {
    UpdateCheckRequest request;
    request.manifestUrl = std::move(manifestUrl);
    if (request.manifestUrl.empty())
        request.manifestUrl.assign(widenedAscii(defaultManifestUrl(channel)));
    return request;
}

UpdateCheckResult runUpdateCheck(const UpdateCheckRequest& request, const UpdateChannelIdentity& channel,
                                 const UpdateCheckDoors& doors) {
    if (request.manifestUrl.empty())
        return ended(UpdateCode::kNotConfigured, L"Verificação MF não configurada para esta consulta.");
    if (!isValid(request))
        return ended(UpdateCode::kInvalidRequest,
                     L"Configuração de atualização inválida: exige HTTPS e versão MF válida.");
    const std::optional<std::string> body = doors.fetchJson(request.manifestUrl, request.limits);
    if (!body)
        return ended(UpdateCode::kUnreachable, L"Não foi possível verificar a atualização MF com segurança.");
    std::optional<UpdateManifest> manifest = parseUpdateManifest(*body);
    if (!manifest)
        return refused(L"Manifesto inválido para " VEXTRA_PROGRAM_W L"/beta.");
    if (!isOfficialInstallerUrl(*manifest, channel))
        return refused(L"Instalador fora do canal MF oficial; atualização recusada.");

    const SecretText signatureUrl(widenedAscii(signatureDocumentUrl(*manifest)));
    const std::optional<std::string> document = doors.fetchJson(signatureUrl, request.limits);
    const std::optional<JsonValue> root = document ? parseJsonDocument(*document) : std::nullopt;
    if (!root || root->members.size() != 1)
        return refused(L"Assinatura da atualização indisponível; instalação não autorizada.");
    const JsonValue* const signature = findMember(*root, "signature", JsonKind::kString);
    if (signature == nullptr ||
        !doors.verifySignature(buildSignedMessage(*manifest), signature->text, channel.publicKey))
        return refused(L"Assinatura da atualização inválida; instalação recusada.");
    manifest->signature = signature->text;
    return compared(std::move(*manifest), request.currentVersion);
}

}  // namespace vextra
