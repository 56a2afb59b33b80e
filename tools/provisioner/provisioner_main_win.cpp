// vextra-provision: the installer's part, for trying the broker without an installer.
#include <windows.h>

#include <span>
#include <string>

#include "base/system_win.h"
#include "bridge/bridge_location.h"
#include "console/console_win.h"
#include "provisioner/provision_rules.h"
#include "provisioner/provision_win.h"

namespace vextra {
namespace {

enum class ProvisionExit { kSuccess = 0, kFailed = 1, kUsage = 2 };

// Who is meant when no owner was named: what there is belongs to the registered owner; what is to be made, to
// the one who asks for it.
std::wstring defaultOwner(ProvisionCommand command) {
    std::wstring registered = readBrokerRegistryValue(kOwnerSidValue);
    if (command != ProvisionCommand::kProvision && !registered.empty())
        return registered;
    return currentUserSidString();
}

ProvisionReport carryOut(const ProvisionOptions& options) {
    const std::wstring owner = options.ownerSid.empty() ? defaultOwner(options.command) : options.ownerSid;
    switch (options.command) {
        case ProvisionCommand::kStatus: return describeProvision(owner);
        case ProvisionCommand::kRemove: return removeProvision(owner);
        case ProvisionCommand::kProvision: break;
    }
    return provision(
        {owner, options.installDir.empty() ? installRootOfTool(modulePath(nullptr)) : options.installDir,
         options.demandWriters});
}

void printWarnings(const ProvisionOptions& options) {
    if (!accessListsAreKept())
        printLine(ConsoleStream::kError,
                  L"AVISO: o Wine não guarda as permissões dos arquivos; aqui elas não protegem nada.");
    if (options.demandWriters == DemandWriters::kServicesAndOwner)
        printLine(
            ConsoleStream::kError,
            L"AVISO: --open-demand-to-owner é só para testes: qualquer programa do usuário pode ligar a "
            L"câmera. Execute de novo sem essa opção para fechar.");
}

ProvisionExit run(std::span<const wchar_t* const> arguments) {
    const auto options = parseProvisionOptions(arguments);
    if (!options) {
        printLine(ConsoleStream::kError, kProvisionUsage);
        return ProvisionExit::kUsage;
    }
    const bool writes = options->command != ProvisionCommand::kStatus;
    if (writes && !isElevatedOrUnknown()) {
        printLine(ConsoleStream::kError, L"ERRO: execute como Administrador.");
        return ProvisionExit::kFailed;
    }
    printWarnings(*options);
    const ProvisionReport report = carryOut(*options);
    for (const std::wstring& line : report.lines)
        printLine(ConsoleStream::kOutput, line);
    if (!report.ok()) {
        printLine(ConsoleStream::kError, L"ERRO: " + report.trouble);
        return ProvisionExit::kFailed;
    }
    if (writes)
        printLine(ConsoleStream::kOutput, report.lines.empty() ? L"Nada a fazer." : L"Pronto.");
    return ProvisionExit::kSuccess;
}

}  // namespace
}  // namespace vextra

int wmain(int count, wchar_t** arguments);  // declared by no header

int wmain(int count, wchar_t** arguments) {
    return static_cast<int>(vextra::run({arguments + 1, static_cast<std::size_t>(count) - 1}));
}
