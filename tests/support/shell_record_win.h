// A shell of the test's own for the tray icon: it writes down what it is asked for, and refuses what it is
// told to. With it, the codes of what was logged. One at a time.
#pragma once

#include <windows.h>

#include <shellapi.h>

#include <atomic>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "broker_fixture_win.h"
#include "diag/event_log.h"
#include "import_swap_win.h"

namespace vextra::test {

struct ShellCall {
    DWORD operation;
    NOTIFYICONDATAW record;
};

class ShellRecord {
public:
    ShellRecord() {
        calls().clear();
        refused() = Refused{};
    }

    static std::vector<ShellCall>& calls() {
        static std::vector<ShellCall> all;
        return all;
    }
    static void refuse(DWORD operation) { refused().one = operation; }
    static void refuseAll() { refused().all = true; }
    static void takeAll() { refused() = Refused{}; }
    static std::size_t count(DWORD operation) {
        std::size_t number = 0;
        for (const ShellCall& call : calls())
            number += call.operation == operation ? 1 : 0;
        return number;
    }

private:
    struct Refused {
        bool all = false;
        std::optional<DWORD> one;
    };
    static Refused& refused() {
        static Refused what;
        return what;
    }
    static BOOL WINAPI answer(DWORD operation, NOTIFYICONDATAW* record) {
        calls().push_back({operation, *record});
        return refused().all || operation == refused().one ? FALSE : TRUE;
    }

    const ImportSwap<BOOL WINAPI(DWORD, NOTIFYICONDATAW*)> swap_{"Shell_NotifyIconW", &answer};
};

// The codes of what was logged, in order.
class LoggedCodes {
public:
    LoggedCodes() { log_.open(path_, EventLog::OpenMode::kReplace); }

    EventLog& log() { return log_; }
    std::string text() const {
        const std::string lines = readFile(path_);
        static const std::regex kLine(R"(tick=\d+ (\w+) hr=(0x\w+) .*)");
        std::string codes;
        for (std::sregex_iterator line(lines.begin(), lines.end(), kLine), end; line != end; ++line)
            codes += (*line)[1].str() + " " + (*line)[2].str() + "\n";
        return codes;
    }
    std::size_t count(const std::string& code) const {
        const std::string codes = "\n" + text();
        std::size_t number = 0;
        for (std::size_t at = 0; (at = codes.find("\n" + code + " ", at)) != std::string::npos; ++at)
            ++number;
        return number;
    }

private:
    TemporaryFolder folder_;
    const std::wstring path_ = folder_ / L"app.log";
    std::atomic<std::uint64_t> frames_{0};
    EventLog log_{frames_};
};

}  // namespace vextra::test
