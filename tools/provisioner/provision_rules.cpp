#include "provisioner/provision_rules.h"

#include <algorithm>

#include "base/text.h"
#include "bridge/bridge_layout.h"
#include "bridge/bridge_location.h"
#include "core/command_line.h"

namespace vextra {

const wchar_t kProvisionUsage[] =
    L"Prepara esta máquina para a Câmera Virtual Vextra MF: pastas, arquivos da bridge, permissões e "
    L"registro.\n"
    L"\n"
    L"  vextra-provision [--owner-sid SID] [--install-dir PASTA] [--open-demand-to-owner]\n"
    L"  vextra-provision --status [--owner-sid SID]   mostra o que existe e se está certo\n"
    L"  vextra-provision --remove [--owner-sid SID]   desfaz\n"
    L"\n"
    L"  --owner-sid SID          o usuário da câmera; padrão: o usuário atual\n"
    L"                           (--status e --remove: o usuário registrado). Só contas locais ou de\n"
    L"                           domínio, S-1-5-21-...; as do Microsoft Entra ID, S-1-12-1-..., não servem\n"
    L"  --install-dir PASTA      a pasta que contém bin\\; padrão: a deste programa\n"
    L"  --open-demand-to-owner   SÓ PARA TESTES: o usuário também pode pedir vídeo ao broker\n"
    L"\n"
    L"Saída: 0 certo, 1 falha (--status: algo falta ou está errado), 2 uso incorreto.";

namespace {

// A program that can swap the files can show pictures in the owner's meetings, and one that writes demand.bin
// can turn the camera on. So everything belongs to the administrators (an owner could rewrite the list),
// every list is protected (the program data folder would let every user create files), and each account gets
// what its program opens the file with, nothing that deletes, renames or re-permits.
constexpr wchar_t kAdministratorsOwn[] = L"O:BAD:P";
constexpr wchar_t kFull[] = L"(A;;FA;;;SY)(A;;FA;;;BA)";
constexpr wchar_t kFullInherited[] = L"(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)";

constexpr wchar_t kLocalService[] = L"LS";

// The rights that make up GENERIC_READ and GENERIC_WRITE for files, and what a folder needs to be listed and
// entered.
constexpr wchar_t kRead[] = L"0x120089";
constexpr wchar_t kReadWrite[] = L"0x12019f";
constexpr wchar_t kListAndEnter[] = L"0x1200a9";

std::wstring allow(std::wstring_view account, std::wstring_view rights) {
    return L"(A;;" + std::wstring(rights) + L";;;" + std::wstring(account) + L")";
}

// Every account's programs look at these two on their way; LocalService is among the users.
std::wstring upperFolderSddl() {
    return std::wstring(kAdministratorsOwn) + kFullInherited + L"(A;OICI;" + kListAndEnter + L";;;BU)";
}

std::wstring ownerFolderSddl(std::wstring_view ownerSid) {
    return std::wstring(kAdministratorsOwn) + kFullInherited + allow(ownerSid, kListAndEnter) +
           allow(kLocalService, kListAndEnter);
}

std::wstring bridgeFileSddl(std::wstring_view ownerSid) {
    return std::wstring(kAdministratorsOwn) + kFull + allow(ownerSid, kReadWrite) +
           allow(kLocalService, kRead);
}

std::wstring demandFileSddl(std::wstring_view ownerSid, DemandWriters writers) {
    const wchar_t* ownerRights = writers == DemandWriters::kServicesAndOwner ? kReadWrite : kRead;
    return std::wstring(kAdministratorsOwn) + kFull + allow(ownerSid, ownerRights) +
           allow(kLocalService, kReadWrite);
}

bool isDriveRoot(std::wstring_view text) {
    return !text.empty() && isAsciiLetter(text[0]) && text.substr(1) == L":\\";
}

bool isPlainPart(std::wstring_view part) {
    return !part.empty() && part != L"." && part != L".." &&
           part.find_first_of(L"/:*?\"<>|") == std::wstring_view::npos;
}

}  // namespace

std::optional<ProvisionOptions> parseProvisionOptions(std::span<const wchar_t* const> arguments) {
    ProvisionOptions options;
    const auto setCommand = [&options](ProvisionCommand command) {
        const bool first = options.command == ProvisionCommand::kProvision;
        options.command = command;
        return first;
    };
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::wstring_view name = arguments[i];
        const std::wstring value = i + 1 < arguments.size() ? arguments[i + 1] : L"";
        bool understood = false;
        if (name == L"--status") {
            understood = setCommand(ProvisionCommand::kStatus);
        } else if (name == L"--remove") {
            understood = setCommand(ProvisionCommand::kRemove);
        } else if (name == L"--open-demand-to-owner") {
            options.demandWriters = DemandWriters::kServicesAndOwner;
            understood = true;
        } else if (name == L"--owner-sid") {
            options.ownerSid = value;
            understood = isOwnerSidText(value);
            ++i;
        } else if (name == L"--install-dir") {
            options.installDir = value;
            if (options.installDir.ends_with(L'\\'))
                options.installDir.pop_back();
            understood = isPlainAbsoluteFolder(options.installDir);
            ++i;
        }
        if (!understood)
            return std::nullopt;
    }
    const bool forProvisioning =
        !options.installDir.empty() || options.demandWriters == DemandWriters::kServicesAndOwner;
    if (forProvisioning && options.command != ProvisionCommand::kProvision)
        return std::nullopt;
    return options;
}

bool isOwnerSidText(std::wstring_view sid) {
    if (!isOwnerSidForm(sid) || !isAsciiDigit(sid.back()))
        return false;
    const std::wstring_view numbers = sid.substr(std::wstring_view(L"S-1-").size());
    return numbers.find(L"--") == std::wstring_view::npos &&
           std::all_of(numbers.begin(), numbers.end(),
                       [](wchar_t unit) { return isAsciiDigit(unit) || unit == L'-'; });
}

bool isEntraIdSid(std::wstring_view sid) {
    return sid.starts_with(L"S-1-12-1-");
}

bool isPlainAbsoluteFolder(std::wstring_view folder) {
    if (!isDriveRoot(folder.substr(0, 3)))
        return false;
    std::wstring_view rest = folder.substr(3);
    for (;;) {
        const std::size_t cut = rest.find(L'\\');
        if (!isPlainPart(rest.substr(0, cut)))
            return false;
        if (cut == std::wstring_view::npos)
            return true;
        rest.remove_prefix(cut + 1);
    }
}

std::wstring installRootOfTool(std::wstring_view executablePath) {
    constexpr std::wstring_view kTools = L"\\tools";
    const std::wstring_view folder = executablePath.substr(0, executablePath.rfind(L'\\'));
    if (folder.ends_with(kTools))
        return std::wstring(folder.substr(0, folder.size() - kTools.size()));
    return installRootOf(executablePath);
}

std::vector<SharedObject> sharedObjects(std::wstring_view bridgePath, std::wstring_view ownerSid,
                                        DemandWriters demandWriters) {
    const std::vector<std::wstring> folders = parentFolders(bridgePath);
    if (folders.size() < 3)
        return {};
    const auto folder = [&folders](std::size_t fromTheFile) { return folders[folders.size() - fromTheFile]; };
    return {
        {SharedObjectKind::kFolder, folder(3), 0, upperFolderSddl()},
        {SharedObjectKind::kFolder, folder(2), 0, upperFolderSddl()},
        {SharedObjectKind::kFolder, folder(1), 0, ownerFolderSddl(ownerSid)},
        {SharedObjectKind::kFile, std::wstring(bridgePath), kBridgeFileBytes, bridgeFileSddl(ownerSid)},
        {SharedObjectKind::kFile, deriveDemandPath(bridgePath), kDemandFileBytes,
         demandFileSddl(ownerSid, demandWriters)},
    };
}

}  // namespace vextra
