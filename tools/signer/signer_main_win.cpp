// vextra-channel-signer: what a publisher of updates needs; docs/update-channel.md tells how.
#include <windows.h>

#include <span>

#include "console/console_win.h"
#include "signer/signer_rules.h"
#include "signer/signer_win.h"

namespace vextra {
namespace {

enum class SignerExit { kSuccess = 0, kFailed = 1, kUsage = 2 };

SignerReport carryOut(const SignerOptions& options) {
    if (options.command == SignerCommand::kKeygen)
        return makeKeyFiles(options.privateKeyPath, options.publicKeyPath);
    const std::optional<SigningKey> key = readSigningKey(options.privateKeyPath);
    if (!key)
        return {{}, L"not an unencrypted P-256 private key in PEM: " + options.privateKeyPath};
    return publishRelease(
        {options.setupPath, options.version, options.origin, options.outFolder, options.publicKeyPath}, *key);
}

SignerExit run(std::span<const wchar_t* const> arguments) {
    const auto options = parseSignerOptions(arguments);
    if (!options) {
        printLine(ConsoleStream::kError, kSignerUsage);
        return SignerExit::kUsage;
    }
    const SignerReport report = carryOut(*options);
    for (const std::wstring& line : report.lines)
        printLine(ConsoleStream::kOutput, line);
    if (report.ok())
        return SignerExit::kSuccess;
    printLine(ConsoleStream::kError, L"ERROR: " + report.trouble);
    return SignerExit::kFailed;
}

}  // namespace
}  // namespace vextra

int wmain(int count, wchar_t** arguments);  // declared by no header

int wmain(int count, wchar_t** arguments) {
    return static_cast<int>(vextra::run({arguments + 1, static_cast<std::size_t>(count) - 1}));
}
