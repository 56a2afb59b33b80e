// What is saved and what is loaded.
#include <windows.h>

#include <sddl.h>

#include <set>

#include "settings_store_fixture_win.h"

namespace vextra {
namespace {

using test::StoredRecord;

// --- Saving ---

TEST_F(SettingsStore, GivesBackWhatWasSaved) {
    BrokerSettings settings = named(L"câmera •");
    settings.stream = 2;
    settings.decoder = DecoderBackend::kAutomatic;
    settings.latencyMs = 5000;
    settings.firstFrameDeadlineMs = 1000;
    settings.rtspUdp = true;
    settings.updateDisabled = true;
    settings.directPassword.assign(L"p:w");
    ASSERT_TRUE(saveSettings(folder.path(), settings));
    BrokerSettings loaded;
    fromBackup = true;
    ASSERT_TRUE(loadSettings(folder.path(), loaded, fromBackup));
    EXPECT_FALSE(fromBackup);
    EXPECT_TRUE(serializeSettings(loaded) == serializeSettings(settings));
}

TEST_F(SettingsStore, WritesTheProtectedRecordAndNothingElse) {
    ASSERT_TRUE(save(L"h"));
    std::string bytes = readFile(current);
    DATA_BLOB in{static_cast<DWORD>(bytes.size()), reinterpret_cast<BYTE*>(bytes.data())};
    DATA_BLOB out{};
    wchar_t* description = nullptr;
    ASSERT_TRUE(
        CryptUnprotectData(&in, &description, nullptr, nullptr, nullptr, CRYPTPROTECT_UI_FORBIDDEN, &out));
    const UniqueLocalMemory owner(out.pbData), descriptionOwner(description);
    StoredRecord expected;
    expected.source = 2;
    expected.strings[4] = u"http://h";
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(out.pbData), out.cbData), expected.bytes());
    EXPECT_STREQ(description, L"Vextra MF beta settings");
}

TEST_F(SettingsStore, MovesTheFirstRecordIntoPlaceWithoutABackup) {
    ASSERT_TRUE(save(L"first"));
    EXPECT_EQ(files(), std::set<std::wstring>{L"settings.dpapi"});
    EXPECT_EQ(load(), L"first");
}

TEST_F(SettingsStore, KeepsTheRecordBeforeAsTheBackup) {
    ASSERT_TRUE(save(L"first"));
    const std::string first = readFile(current);
    ASSERT_TRUE(save(L"second"));
    EXPECT_EQ(files(), (std::set<std::wstring>{L"settings.dpapi", L"settings.dpapi.bak"}));
    EXPECT_EQ(readFile(backup), first);
    EXPECT_EQ(load(), L"second");
    ASSERT_TRUE(save(L"third"));
    ASSERT_TRUE(DeleteFileW(current.c_str()));
    EXPECT_EQ(load(), L"second");
    EXPECT_TRUE(fromBackup);
}

TEST_F(SettingsStore, SavesIntoAFolderOfAnyName) {
    const std::wstring odd = folder / L"pasta é • 1";
    ASSERT_TRUE(CreateDirectoryW(odd.c_str(), nullptr));
    EXPECT_TRUE(saveSettings(odd, named(L"h")));
    EXPECT_TRUE(settingsFileExists(odd));
}

TEST_F(SettingsStore, SavesNothingWithoutItsFolder) {
    EXPECT_FALSE(saveSettings(folder / L"missing", named(L"h")));
    EXPECT_FALSE(fileExists(folder / L"missing"));
}

TEST_F(SettingsStore, FailsWhileANewFileIsInTheWayAndLeavesItThere) {
    ASSERT_TRUE(save(L"good"));
    writeFile(replacement, "left over");
    EXPECT_FALSE(save(L"newer"));
    EXPECT_EQ(readFile(replacement), "left over");
    EXPECT_EQ(load(), L"good");
    ASSERT_TRUE(DeleteFileW(replacement.c_str()));
    EXPECT_TRUE(save(L"newer"));
    EXPECT_EQ(load(), L"newer");
}

// Whether a folder can be exchanged for a file is up to the system.
TEST_F(SettingsStore, TellsTheTruthWhenAFolderIsInThePlaceOfTheFile) {
    ASSERT_TRUE(CreateDirectoryW(current.c_str(), nullptr));
    const bool saved = save(L"h");
    EXPECT_EQ(load(), saved ? L"h" : L"");
    EXPECT_FALSE(fileExists(replacement));
}

// Entries of an access list, as text.
std::multiset<std::wstring> accessOf(const std::wstring& path) {
    BYTE bytes[4096];
    DWORD needed = 0;
    wchar_t* text = nullptr;
    if (!GetFileSecurityW(path.c_str(), DACL_SECURITY_INFORMATION, bytes, sizeof bytes, &needed) ||
        !ConvertSecurityDescriptorToStringSecurityDescriptorW(bytes, SDDL_REVISION_1,
                                                              DACL_SECURITY_INFORMATION, &text, nullptr))
        failSetUp("access list");
    const UniqueLocalMemory owner(text);
    std::multiset<std::wstring> entries;
    std::wstring_view rest(text);
    for (std::size_t at = rest.find(L'('); at != rest.npos; at = rest.find(L'(')) {
        rest.remove_prefix(at);
        entries.emplace(rest.substr(0, rest.find(L')') + 1));
        rest.remove_prefix(1);
    }
    return entries;
}

// An exchange keeps the list of what it replaces, so the first file's is every later one's.
TEST_F(SettingsStore, GivesItsFilesToTheSystemAndTheUserOnly) {
    const std::multiset<std::wstring> both{L"(A;;FA;;;SY)", L"(A;;FA;;;" + currentUserSidString() + L")"};
    ASSERT_TRUE(save(L"first"));
    EXPECT_EQ(accessOf(current), both);
    ASSERT_TRUE(save(L"second"));
    EXPECT_EQ(accessOf(current), both) << "after an exchange";
    EXPECT_EQ(accessOf(backup), both);
}

// --- Loading ---

TEST_F(SettingsStore, LoadsNothingFromAnEmptyFolderAndChangesNothing) {
    BrokerSettings settings = named(L"kept");
    settings.latencyMs = 1;
    fromBackup = true;
    EXPECT_FALSE(loadSettings(folder.path(), settings, fromBackup));
    EXPECT_FALSE(fromBackup);
    EXPECT_EQ(settings.customUrl.view(), L"http://kept");
    EXPECT_EQ(settings.latencyMs, 1u);
    EXPECT_TRUE(files().empty());
}

TEST_F(SettingsStore, ChangesNothingWhenBothFilesAreRefused) {
    StoredRecord bad;
    bad.latencyMs = 4000;
    bad.strings[4] = u"http://other";
    bad.updateDisabled = 2;
    writeRecord(current, bad);
    writeFile(backup, "not ours either, and long enough");
    BrokerSettings settings = named(L"kept");
    EXPECT_FALSE(loadSettings(folder.path(), settings, fromBackup));
    EXPECT_EQ(settings.customUrl.view(), L"http://kept");
    EXPECT_EQ(settings.latencyMs, 50u);
}

TEST_F(SettingsStore, SaysWhetherTheFileExists) {
    EXPECT_FALSE(settingsFileExists(folder.path()));
    writeFile(backup, "x");
    EXPECT_FALSE(settingsFileExists(folder.path()));
    writeFile(current, "unreadable");
    EXPECT_TRUE(settingsFileExists(folder.path()));
    ASSERT_TRUE(DeleteFileW(current.c_str()) && CreateDirectoryW(current.c_str(), nullptr));
    EXPECT_TRUE(settingsFileExists(folder.path()));
}

TEST_F(SettingsStore, RefusesATrailingByte) {
    saveWithBackup();
    writeFile(current, protectBytes(StoredRecord().bytes() + '\0'));
    expectBackupIsLoaded();
}

TEST_F(SettingsStore, RefusesAFlagWordOf2) {
    saveWithBackup();
    StoredRecord record;
    record.rtspUdp = 2;
    writeRecord(current, record);
    expectBackupIsLoaded();
}

TEST_F(SettingsStore, RefusesAStringOf8193UnitsButLoads8192) {
    saveWithBackup();
    StoredRecord record;
    record.strings[4].assign(8193, u'x');
    writeRecord(current, record);
    expectBackupIsLoaded();
    record.strings[4].assign(8192, u'x');
    writeRecord(current, record);
    EXPECT_EQ(load(), std::wstring(8185, L'x'));
    EXPECT_FALSE(fromBackup);
}

TEST_F(SettingsStore, GivesBackThreeOfTheLongestStrings) {
    BrokerSettings settings = named(L"h");
    for (SecretText* const text : {&settings.profileUrl, &settings.customUrl, &settings.updateManifestUrl})
        text->assign(std::wstring(8192, L'x'));
    ASSERT_TRUE(saveSettings(folder.path(), settings));
    BrokerSettings loaded;
    ASSERT_TRUE(loadSettings(folder.path(), loaded, fromBackup));
    EXPECT_TRUE(serializeSettings(loaded) == serializeSettings(settings));
}

// What no load would accept must not take the place of a record that can be read.
TEST_F(SettingsStore, SavesNoStringThatNoLoadWouldAccept) {
    ASSERT_TRUE(save(L"before"));
    BrokerSettings settings = named(L"after");
    settings.updateManifestUrl.assign(std::wstring(8193, L'm'));
    EXPECT_FALSE(saveSettings(folder.path(), settings));
    EXPECT_EQ(load(), L"before");
    EXPECT_TRUE(save(L"next"));  // nothing was left in the way
}

TEST_F(SettingsStore, SavesNoRecordThatIsTooLargeForAnyLoad) {
    ASSERT_TRUE(save(L"before"));
    BrokerSettings settings = named(L"after");
    for (SecretText BrokerSettings::*const text :
         {&BrokerSettings::profileUrl, &BrokerSettings::directIp, &BrokerSettings::customUrl,
          &BrokerSettings::updateManifestUrl})
        (settings.*text).assign(std::wstring(8192, L't'));
    EXPECT_FALSE(saveSettings(folder.path(), settings));
    EXPECT_EQ(load(), L"before");
    EXPECT_TRUE(save(L"next"));
}

TEST_F(SettingsStore, RefusesADamagedFile) {
    saveWithBackup();
    std::string bytes = readFile(current);
    bytes[bytes.size() - 20] = static_cast<char>(bytes[bytes.size() - 20] ^ 1);
    writeFile(current, bytes);
    expectBackupIsLoaded();
}

TEST_F(SettingsStore, RefusesATruncatedFile) {
    saveWithBackup();
    const std::string bytes = readFile(current);
    for (const std::size_t length : {bytes.size() - 1, bytes.size() / 2, std::size_t{16}}) {
        writeFile(current, bytes.substr(0, length));
        expectBackupIsLoaded();
    }
}

TEST_F(SettingsStore, RefusesWhatIsNotItsOwn) {
    saveWithBackup();
    writeFile(current, protectBytes(StoredRecord().bytes(), "another key"));
    expectBackupIsLoaded();
    writeFile(current, "[source]\r\nurl=http://a/text/file\r\n");
    expectBackupIsLoaded();
    writeFile(current, StoredRecord().bytes());  // not encrypted
    expectBackupIsLoaded();
}

TEST_F(SettingsStore, LoadsTheBackupWhenAFolderIsInThePlaceOfTheFile) {
    saveWithBackup();
    ASSERT_TRUE(DeleteFileW(current.c_str()) && CreateDirectoryW(current.c_str(), nullptr));
    expectBackupIsLoaded();
}

TEST_F(SettingsStore, DoesNotFollowALink) {
    saveWithBackup();
    const std::wstring target = folder / L"target";
    ASSERT_TRUE(CreateDirectoryW(target.c_str(), nullptr) && DeleteFileW(current.c_str()));
    const FolderLink link(current, target);
    if (!link.exists())
        GTEST_SKIP() << "no link could be made here";
    expectBackupIsLoaded();
}

TEST_F(SettingsStore, LoadsTheBackupWhileAnotherHoldsTheFile) {
    saveWithBackup();
    {
        const UniqueFile writer = openFile(current, GENERIC_READ | GENERIC_WRITE, kShareAll, OPEN_EXISTING);
        ASSERT_TRUE(writer);
        EXPECT_EQ(load(), L"good");
        EXPECT_TRUE(fromBackup);
        EXPECT_EQ(files().size(), 2u);
    }
    {
        const UniqueFile reader = openFile(current, GENERIC_READ, kShareAll, OPEN_EXISTING);
        EXPECT_EQ(load(), L"newer");
        EXPECT_FALSE(fromBackup);
    }
}

TEST_F(SettingsStore, LoadsAWriteProtectedFile) {
    ASSERT_TRUE(save(L"h"));
    const WriteProtection protection(current);
    EXPECT_EQ(load(), L"h");
}

TEST_F(SettingsStore, LeavesNoFileOpen) {
    saveWithBackup();
    load();
    EXPECT_FALSE(isHeldOpen(current));
    EXPECT_FALSE(isHeldOpen(backup));
}

}  // namespace
}  // namespace vextra
