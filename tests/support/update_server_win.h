// The HTTPS server of the update tests (tests/support/https_server), which ./dev test starts and whose ready
// file VEXTRA_UPDATE_SERVER names, and what tests put on it.
#pragma once

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "broker_fixture_win.h"
#include "services_win.h"
#include "update/json_reader.h"

namespace vextra::test {

class UpdateServer {
public:
    // Nothing when no server was started.
    static std::optional<UpdateServer> find() {
        const std::optional<std::wstring> path = variable(L"VEXTRA_UPDATE_SERVER");
        if (!path)
            return std::nullopt;
        auto root = parseJsonDocument(readFile(windowsPath(*path)));
        if (!root)
            failSetUp("the update server's ready file", ERROR_INVALID_DATA);
        return UpdateServer(std::move(*root));
    }

    // "https://localhost:PORT" of one kind of server: good, expired and so on.
    std::string origin(std::string_view kind = "good") const { return field(kind); }
    std::wstring www() const {
        const std::string path = field("www");
        return windowsPath({path.begin(), path.end()});
    }

private:
    explicit UpdateServer(JsonValue root) : root_(std::move(root)) {}
    std::string field(std::string_view key) const {
        const JsonValue* const value = findMember(root_, key, JsonKind::kString);
        if (value == nullptr)
            failSetUp("the update server's kind", ERROR_NOT_FOUND);
        return value->text;
    }

    JsonValue root_;
};

#define VEXTRA_SKIP_WITHOUT_UPDATE_SERVER() \
    if (!test::UpdateServer::find())        \
    GTEST_SKIP() << "VEXTRA_UPDATE_SERVER names no ready file of a test server"

// A number that no other test of this machine has at this time.
inline std::string uniqueTestNumber() {
    static std::atomic<int> made{0};
    return std::to_string(GetCurrentProcessId()) + "." + std::to_string(++made);
}

// A folder on the server, gone when this ends.
class ServedFolder {
public:
    // `place`: below the server's root, "/folder".
    ServedFolder(const UpdateServer& server, std::string place)
        : place_(std::move(place)), path_(server.www() + asPath(place_)) {
        std::filesystem::create_directories(path_);
    }
    explicit ServedFolder(const UpdateServer& server) : ServedFolder(server, "/test-" + uniqueTestNumber()) {}
    ServedFolder(const ServedFolder&) = delete;
    ServedFolder& operator=(const ServedFolder&) = delete;
    ~ServedFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    // `reply`: how it is handed out, see https_server.py; empty: plainly.
    void put(const std::string& name, std::string_view bytes, std::string_view reply = {}) const {
        writeFile(file(name), bytes);
        setReply(name, reply);
    }
    void setReply(const std::string& name, std::string_view reply) const {
        if (reply.empty())
            DeleteFileW(file(name + ".reply").c_str());
        else
            writeFile(file(name + ".reply"), reply);
    }
    // The requests so far, one a line; empty: none.
    std::string requests(const std::string& name) const {
        const std::wstring path = file(name + ".requests");
        return fileExists(path) ? readFile(path) : std::string();
    }
    std::string place() const { return place_; }
    std::wstring file(const std::string& name) const { return path_ + asPath("/" + name); }

private:
    static std::wstring asPath(const std::string& place) {
        std::wstring path(place.begin(), place.end());
        std::ranges::replace(path, L'/', L'\\');
        return path;
    }

    const std::string place_;
    const std::wstring path_;
};

}  // namespace vextra::test
