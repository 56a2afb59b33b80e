// How long a server can hold a check or a download: at each stage, in each way, until the time is over or the
// user quits. The cells of a table run at the same time, and the table is printed, with what this system
// cannot show.
#include <windows.h>

#include <objbase.h>
#include <shlobj.h>

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <list>
#include <thread>

#include "base/text.h"
#include "import_swap_win.h"
#include "signed_installer_win.h"
#include "update/https_transfer_win.h"
#include "update/installer_win.h"

namespace vextra {
namespace {

using test::ImportSwap;
using test::realFunction;
using test::ServedFolder;
using test::SignedInstaller;
using test::UpdateServer;

constexpr char kNoHandshakeLimit[] = "Wine's TLS handshake knows no timeout";
constexpr char kNoHeadLimit[] = "Wine knows no timeout of the head";

struct Trouble {
    const char* name;
    const char* server;   // a kind of server
    const char* reply;    // of one that gets as far as a request
    const char* onWine;   // why a transfer lasts there as long as the server; null: it does not
    const char* quitted;  // why no quit can come in it; null: one can
    Tick arrivalMs = 0;   // when something arrives so often: a quit is noticed then
};
constexpr const char* kOverAtOnce = "it is over before the quit";
constexpr Trouble kTroubles[] = {
    {"connect, silent", "connect_silent", "", nullptr, nullptr},
    {"connect, reset", "connect_reset", "", nullptr, kOverAtOnce},
    {"handshake, silent", "handshake_silent", "", kNoHandshakeLimit, nullptr},
    {"handshake, dripping", "handshake_drip", "", kNoHandshakeLimit, nullptr},
    {"handshake, reset", "handshake_reset", "", nullptr, kOverAtOnce},
    {"head, silent", "good", R"({"head":"silent"})", kNoHeadLimit, nullptr},
    {"head, dripping", "good", R"({"head":"drip"})", kNoHeadLimit, nullptr},
    {"head, reset", "good", R"({"head":"reset"})", nullptr, kOverAtOnce},
    {"body, silent", "good", R"({"stall":10})", nullptr, nullptr},
    {"body, dripping", "good", R"({"drip":1})", nullptr, nullptr, 1000},
    {"body, reset", "good", R"({"cut":10})", nullptr, kOverAtOnce},
};
constexpr char kNotThere[] = "  connect, dripping     nothing travels before there is a connection";

constexpr std::uint32_t kQuitAfterMs = 500;
constexpr std::uint32_t kServerGivesUpMs = 8000;  // STALL_SECONDS of the server
constexpr std::uint32_t kSlackMs = 2000;          // for a machine with more to do

struct Limits {
    std::uint32_t stepMs;
    std::uint32_t totalMs;
};

enum class End { kBudget = 1, kQuit };

struct Cell {
    const Trouble& trouble;
    End end;
    Tick tookMs = 0;

    bool limitIsSeen() const { return trouble.onWine == nullptr || !runsUnderWine(); }
    Tick limitMs(const Limits& limits) const {
        if (!limitIsSeen())
            return kServerGivesUpMs + kSlackMs;
        if (end == End::kBudget)
            return limits.totalMs + limits.stepMs + kSlackMs;
        return kQuitAfterMs + (trouble.arrivalMs != 0 ? trouble.arrivalMs : limits.stepMs) + kSlackMs;
    }
};

Tick realNow() {
    return realFunction<ULONGLONG WINAPI()>("GetTickCount64")();
}

// `transfer` is true when it brought what was asked for, which it never should.
using Transfer = std::function<bool(const Trouble&, const std::atomic<bool>& cancel)>;

void run(Cell& cell, const Transfer& transfer) {
    std::atomic<bool> cancel{false};
    const Tick begin = realNow();
    const std::jthread user([&] {
        if (cell.end == End::kQuit) {
            Sleep(kQuitAfterMs);
            cancel = true;
        }
    });
    EXPECT_FALSE(transfer(cell.trouble, cancel)) << cell.trouble.name;
    cell.tookMs = realNow() - begin;
}

void expectNoCellBeyondItsLimit(const Limits& limits, const Transfer& transfer) {
    std::list<Cell> cells;
    for (const Trouble& trouble : kTroubles) {
        cells.push_back({trouble, End::kBudget});
        if (trouble.quitted == nullptr)
            cells.push_back({trouble, End::kQuit});
    }
    {
        std::list<std::jthread> threads;
        for (Cell& cell : cells)
            threads.emplace_back([&] { run(cell, transfer); });
    }
    std::printf("%s\n", kNotThere);
    for (const Cell& cell : cells) {
        const bool quit = cell.end == End::kQuit;
        std::printf("  %-21s %-13s %5llu ms%s%s\n", cell.trouble.name, quit ? "quit" : "time is over",
                    cell.tookMs, cell.limitIsSeen() ? "" : ", as long as the server: ",
                    cell.limitIsSeen() ? "" : cell.trouble.onWine);
        EXPECT_LE(cell.tookMs, cell.limitMs(limits)) << cell.trouble.name << (quit ? ", quit" : "");
        if (quit) {
            EXPECT_GE(cell.tookMs, kQuitAfterMs) << cell.trouble.name << ": nothing was under way";
        } else if (cell.trouble.quitted != nullptr) {
            std::printf("  %-21s %-13s %s\n", cell.trouble.name, "quit", cell.trouble.quitted);
        }
    }
}

TEST(ReleaseTransferLimits, HoldForDocuments) {
    VEXTRA_SKIP_WITHOUT_UPDATE_SERVER();
    const UpdateServer server = *UpdateServer::find();
    constexpr Limits kLimits{.stepMs = 1500, .totalMs = 5000};
    expectNoCellBeyondItsLimit(kLimits, [&](const Trouble& trouble, const std::atomic<bool>& cancel) {
        const ServedFolder folder(server);
        folder.put("document.json", std::string(100, 'x'), trouble.reply);
        const SecretText url(widenedAscii(server.origin(trouble.server) + folder.place() + "/document.json"));
        const TransferLimits limits{.operationTimeoutMs = kLimits.stepMs, .totalTimeoutMs = kLimits.totalMs};
        return fetchJson(url, limits, cancel).has_value();
    });
}

// --- Installers ---

// Five minutes in five seconds.
constexpr Tick kHaste = 60;
ULONGLONG WINAPI hastyClock() {
    return realNow() * kHaste;
}

// A download removes what lies next to it, so each of those that run at the same time has a user of its own.
thread_local std::wstring localAppDataOfThisThread;
HRESULT WINAPI answerWithIt(REFKNOWNFOLDERID, DWORD, HANDLE, PWSTR* out) {
    const std::size_t bytes = (localAppDataOfThisThread.size() + 1) * sizeof(wchar_t);
    *out = static_cast<PWSTR>(CoTaskMemAlloc(bytes));
    std::memcpy(*out, localAppDataOfThisThread.c_str(), bytes);
    return S_OK;
}

TEST(ReleaseTransferLimits, HoldForInstallers) {
    VEXTRA_SKIP_WITHOUT_UPDATE_SERVER();
    const UpdateServer server = *UpdateServer::find();
    const ImportSwap<ULONGLONG WINAPI()> clock("GetTickCount64", hastyClock);
    const ImportSwap<decltype(answerWithIt)> folders("SHGetKnownFolderPath", answerWithIt);
    constexpr Limits kLimits{.stepMs = 3000, .totalMs = 300'000 / kHaste};
    expectNoCellBeyondItsLimit(kLimits, [&](const Trouble& trouble, const std::atomic<bool>& cancel) {
        const TemporaryFolder localAppData;
        localAppDataOfThisThread = localAppData.path();
        const SignedInstaller installer(server, SignedInstaller::uniqueVersion(), trouble.server);
        const UpdateManifest manifest = installer.publish(std::string(100, 'x'), trouble.reply);
        std::atomic<std::uint32_t> progress{0};
        const bool came = downloadInstaller(manifest, installer.channel(), cancel, progress).verified;
        EXPECT_TRUE(std::filesystem::is_empty(localAppData / L"Vextra\\CameraVirtualMFBeta\\updates"))
            << trouble.name;
        return came;
    });
}

}  // namespace
}  // namespace vextra
