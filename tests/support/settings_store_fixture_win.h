// A settings folder of the test's own, and what tests of the store do with it again and again.
#pragma once

#include <windows.h>

#include <dpapi.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>
#include <string_view>

#include "broker_fixture_win.h"
#include "config/settings_record.h"
#include "config/settings_store.h"
#include "stored_record.h"

namespace vextra {

inline BrokerSettings named(std::wstring_view name) {
    BrokerSettings settings;
    settings.source = SourceKind::kCustomUrl;
    settings.customUrl.assign(L"http://" + std::wstring(name));
    return settings;
}

// The encrypted form, as the data-protection functions give it by themselves.
inline std::string protectBytes(std::string plain, std::string entropy = "") {
    DATA_BLOB in{static_cast<DWORD>(plain.size()), reinterpret_cast<BYTE*>(plain.data())};
    DATA_BLOB extra{static_cast<DWORD>(entropy.size()), reinterpret_cast<BYTE*>(entropy.data())};
    DATA_BLOB out{};
    if (!CryptProtectData(&in, L"a test's", entropy.empty() ? nullptr : &extra, nullptr, nullptr,
                          CRYPTPROTECT_UI_FORBIDDEN, &out))
        failSetUp("CryptProtectData");
    const UniqueLocalMemory owner(out.pbData);
    return {reinterpret_cast<const char*>(out.pbData), out.cbData};
}

class SettingsStore : public testing::Test {
protected:
    bool save(std::wstring_view name) { return saveSettings(folder.path(), named(name)); }
    // The name in the loaded record; empty when none was loaded.
    std::wstring load() {
        BrokerSettings settings;
        if (!loadSettings(folder.path(), settings, fromBackup))
            return {};
        return std::wstring(settings.customUrl.view().substr(7));
    }
    void writeRecord(const std::wstring& path, const test::StoredRecord& record) {
        writeFile(path, protectBytes(record.bytes()));
    }
    std::set<std::wstring> files() const {
        std::set<std::wstring> names;
        for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
            names.insert(entry.path().filename().wstring());
        return names;
    }
    // Saves two records, so that `good` lies in the backup.
    void saveWithBackup() {
        ASSERT_TRUE(save(L"good"));
        ASSERT_TRUE(save(L"newer"));
    }
    // The current file, as a test left it, is refused, the backup taken, and nothing changed by that.
    void expectBackupIsLoaded() {
        const std::string before = std::filesystem::is_regular_file(current) ? readFile(current) : "";
        const std::set<std::wstring> names = files();
        EXPECT_EQ(load(), L"good");
        EXPECT_TRUE(fromBackup);
        EXPECT_EQ(files(), names);
        if (std::filesystem::is_regular_file(current)) {
            EXPECT_EQ(readFile(current), before);
        }
    }

    TemporaryFolder folder;
    const std::wstring current = folder / L"settings.dpapi";
    const std::wstring replacement = folder / L"settings.dpapi.new";
    const std::wstring backup = folder / L"settings.dpapi.bak";
    bool fromBackup = false;
};

}  // namespace vextra
