// The window, the user, the camera and the network around an update channel, for tests: what it says is
// noted, and what it is answered is set.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "manifest_text.h"
#include "update/update_channel.h"

namespace vextra::test {

inline constexpr CameraUse kIdleCamera{false, false, 0};

struct Said {
    enum class Where { kStatus = 1, kBalloon, kQuestion, kLog } where;
    std::wstring text;
    bool operator==(const Said&) const = default;
};
using enum Said::Where;

inline std::ostream& operator<<(std::ostream& out, const Said& said) {
    return out << static_cast<int>(said.where) << ' ' << std::string(said.text.begin(), said.text.end());
}

class UpdateWindow : public testing::Test {
protected:
    UpdateWindow() {
        result.code = UpdateCode::kAvailable;
        result.message = L"Nova versão MF disponível. Abra Diagnóstico para baixar e instalar.";
        result.manifest = {"0.3.0", installerUrl("0.3.0", testChannel()), std::string(64, 'a'), 10,
                           "signature"};
        download = {true, L"C:\\u\\Setup.exe", L"verified"};
    }

    UpdateSystemDoors systemDoors() {
        return {
            .now = [this] { return now; },
            .ask =
                [this](const UpdateQuestion& question) {
                    say(kQuestion, std::wstring(question.title) + L"|" + std::wstring(question.text));
                    if (whileAsking)
                        whileAsking();
                    return answer;
                },
            .openInstaller =
                [this](const UpdateManifest& manifest, const std::wstring& path) {
                    opened.emplace_back(manifest.version, path);
                    return installerOpens;
                },
            .runCheck =
                [this](const UpdateCheckRequest& request, const std::atomic<bool>& cancel) {
                    const std::wstring_view url = request.manifestUrl.view();
                    checked.emplace_back(url);
                    stayUntilToldOtherwise(cancel);
                    return result;
                },
            .download =
                [this](const UpdateManifest& manifest, const std::atomic<bool>& cancel,
                       std::atomic<std::uint32_t>& progressPercent) {
                    downloaded.push_back(manifest);
                    progressPercent = 42;
                    stayUntilToldOtherwise(cancel);
                    return download;
                },
        };
    }
    UpdateWindowDoors windowDoors() {
        return {
            .settings =
                [this] {
                    return UpdateSettings{disabled, SecretText(manifestUrl)};
                },
            .camera = [this] { return camera; },
            .showStatus = [this](std::wstring_view text) { say(kStatus, text); },
            .showBalloon =
                [this](std::wstring_view title, std::wstring_view text) {
                    say(kBalloon, std::wstring(title) + L"|" + std::wstring(text));
                },
            .log =
                [this](EventCode code, std::int32_t value) {
                    const std::string_view name = eventText(code);
                    say(kLog, std::wstring(name.begin(), name.end()) + L" " + std::to_wstring(value));
                },
            .postCompletion =
                [this](UpdateCompletion completion) {
                    const std::lock_guard guard(postLock);
                    posted.push_back(completion);
                    postedOne.notify_all();
                },
        };
    }

    // On the worker.
    void stayUntilToldOtherwise(const std::atomic<bool>& cancel) {
        while ((waitForCancel && !cancel) || networkHolds)
            std::this_thread::yield();
        cancelSeen = cancel.load();
    }

    void say(Said::Where where, std::wstring_view text) { said.push_back({where, std::wstring(text)}); }
    std::vector<Said> takeSaid() { return std::exchange(said, {}); }
    std::vector<std::wstring> takeSaid(Said::Where where) {
        std::vector<std::wstring> texts;
        for (const Said& one : takeSaid()) {
            if (one.where == where)
                texts.push_back(one.text);
        }
        return texts;
    }

    // The next message that a worker posts, given to the channel as the window does.
    void deliver() {
        std::unique_lock guard(postLock);
        ASSERT_TRUE(postedOne.wait_for(guard, std::chrono::seconds(10), [this] { return !posted.empty(); }));
        const UpdateCompletion completion = posted.front();
        posted.erase(posted.begin());
        guard.unlock();
        channel.handleCompletion(static_cast<std::uint64_t>(completion));
    }
    void check(CheckKind kind = CheckKind::kManual) {
        channel.startCheck(kind);
        deliver();
    }
    void checkAndDownload() {
        check();
        channel.pressInstallerButton();
        deliver();
        takeSaid();
    }
    // The channel counts a check by what reached the network.
    std::size_t checks() const { return checked.size(); }

    Tick now = 1'000'000;
    bool disabled = false;
    std::wstring manifestUrl;
    CameraUse camera = kIdleCamera;
    bool answer = true;
    std::function<void()> whileAsking;
    bool installerOpens = true;
    std::vector<std::pair<std::string, std::wstring>> opened;
    std::vector<Said> said;

    UpdateCheckResult result;
    DownloadResult download;
    bool waitForCancel = false;
    std::atomic<bool> networkHolds{false};  // in a step that no flag ends
    std::atomic<bool> cancelSeen{false};
    std::vector<std::wstring> checked;       // a worker's until it is joined
    std::vector<UpdateManifest> downloaded;  // likewise

    std::mutex postLock;
    std::condition_variable postedOne;
    std::vector<UpdateCompletion> posted;  // guarded by postLock

    UpdateChannel channel{testChannel(), systemDoors(), windowDoors()};
};

}  // namespace vextra::test
