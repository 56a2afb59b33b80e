#include "config/start_settings.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "settings_samples.h"

namespace vextra {
namespace {

using test::everySetting;
using test::sameSettings;

BrokerSettings custom(std::wstring_view url) {
    BrokerSettings settings;
    settings.source = SourceKind::kCustomUrl;
    settings.customUrl.assign(url);
    return settings;
}

BrokerSettings profile(std::wstring_view url) {
    BrokerSettings settings;
    settings.profileUrl.assign(url);
    return settings;
}

// A user's folders, and what was asked of them.
class StartSettingsTest : public testing::Test {
protected:
    std::optional<StartSettings> start(const StartRequest& request = {}) {
        asked.clear();
        return startSettings(request, {.load = [this](BrokerSettings& settings) { return load(settings); },
                                       .fileExists = [this] { return note("exists"), fileExists; },
                                       .readProfile =
                                           [this](BrokerSettings& settings) {
                                               note("profile");
                                               settings.profileUrl.assign(profileUrl);
                                               settings.rtspUdp = profileUdp;
                                           },
                                       .importEnvironment =
                                           [this](BrokerSettings& settings) {
                                               note("import");
                                               settings.latencyMs = 11;  // also where it fails then
                                               if (!importedUrl.empty()) {
                                                   settings.source = SourceKind::kCustomUrl;
                                                   settings.customUrl.assign(importedUrl);
                                               }
                                               return importWorks;
                                           },
                                       .save = [this](const BrokerSettings& s) { return save(s); }});
    }
    void store(const BrokerSettings& settings) {
        stored = settings;
        fileExists = true;
    }
    bool storedIs(const BrokerSettings& settings) const { return stored && sameSettings(*stored, settings); }

    std::optional<BrokerSettings> stored;  // as the next start would load it
    bool fileExists = false;               // also of a file that cannot be loaded
    std::wstring profileUrl, importedUrl;
    bool profileUdp = false;
    bool importWorks = true, saveWorks = true;
    std::vector<std::string> asked;

private:
    void note(const char* what) { asked.emplace_back(what); }
    bool load(BrokerSettings& settings) {
        note("load");
        if (stored)
            settings = *stored;
        return stored.has_value();
    }
    bool save(const BrokerSettings& settings) {
        note("save");
        if (saveWorks)
            store(settings);
        return saveWorks;
    }
};

using Asked = std::vector<std::string>;

constexpr StartRequest kImport{.importEnvironment = true};
constexpr StartRequest kTestPattern{.testPattern = true};

// --- Without an import ---

TEST_F(StartSettingsTest, AreTheStoredOnesAndNothingElseIsRead) {
    store(everySetting());
    profileUrl = L"rtsp://profile";
    const auto begun = start();
    ASSERT_TRUE(begun);
    EXPECT_TRUE(sameSettings(begun->settings, everySetting()));
    EXPECT_TRUE(begun->loaded);
    EXPECT_TRUE(begun->sourceUsable);
    EXPECT_EQ(asked, Asked{"load"});
}

// The backup is found by the same call, whether there is a current file or not.
TEST_F(StartSettingsTest, AreTheBackupsAlsoWhereTheFileIsMissing) {
    store(custom(L"rtsp://backup"));
    fileExists = false;
    profileUrl = L"rtsp://profile";
    const auto begun = start();
    ASSERT_TRUE(begun);
    EXPECT_EQ(begun->settings.customUrl.view(), L"rtsp://backup");
    EXPECT_TRUE(begun->settings.profileUrl.empty());
    EXPECT_TRUE(begun->loaded);
    EXPECT_TRUE(begun->sourceUsable);
    EXPECT_EQ(asked, Asked{"load"});
}

TEST_F(StartSettingsTest, AreTheDefaultsAsLongAsThereIsAFileThatCannotBeLoaded) {
    fileExists = true;
    profileUrl = L"rtsp://profile";
    const auto begun = start();
    ASSERT_TRUE(begun);
    EXPECT_TRUE(sameSettings(begun->settings, BrokerSettings{}));
    EXPECT_FALSE(begun->loaded);
    EXPECT_TRUE(begun->sourceUsable);  // the user has settings; nothing says that a source is to be typed
    EXPECT_EQ(asked, (Asked{"load", "exists", "exists"}));
}

TEST_F(StartSettingsTest, AreTheProfilesAtTheFirstStartWhichStoresThem) {
    profileUrl = L"rtsp://u:p@profile/x";
    profileUdp = true;
    const auto begun = start();
    ASSERT_TRUE(begun);
    BrokerSettings expected = profile(L"rtsp://u:p@profile/x");
    expected.rtspUdp = true;
    EXPECT_TRUE(sameSettings(begun->settings, expected));
    EXPECT_TRUE(storedIs(expected));
    EXPECT_FALSE(begun->loaded);  // this start has found no store
    EXPECT_TRUE(begun->sourceUsable);
    EXPECT_EQ(asked, (Asked{"load", "exists", "profile", "save", "exists"}));
}

TEST_F(StartSettingsTest, AreTakenFromTheProfileOnce) {
    profileUrl = L"rtsp://first";
    start();
    profileUrl = L"rtsp://second";
    const auto begun = start();
    ASSERT_TRUE(begun);
    EXPECT_EQ(begun->settings.profileUrl.view(), L"rtsp://first");
    EXPECT_TRUE(begun->loaded);
    EXPECT_TRUE(storedIs(profile(L"rtsp://first")));
}

TEST_F(StartSettingsTest, AreTheProfilesEvenIfTheyCannotBeSaved) {
    profileUrl = L"rtsp://profile";
    saveWorks = false;
    const auto begun = start();
    ASSERT_TRUE(begun);
    EXPECT_TRUE(sameSettings(begun->settings, profile(L"rtsp://profile")));
    EXPECT_TRUE(begun->sourceUsable);
    EXPECT_FALSE(stored);
}

TEST_F(StartSettingsTest, OfAProfileWithoutAUsableAddressAreNotStored) {
    for (const wchar_t* url : {L"", L"rtsp://", L"ftp://h/x", L"rtsp://h/a b", L"nonsense"}) {
        profileUrl = url;
        ASSERT_TRUE(start()) << url;
        EXPECT_EQ(asked, (Asked{"load", "exists", "profile", "exists"})) << url;
    }
}

TEST_F(StartSettingsTest, AskForACustomAddressWhenNothingSaysWhereToConnect) {
    for (const wchar_t* url : {L"", L"rtsp://h/a b"}) {
        profileUrl = url;
        profileUdp = true;
        const auto begun = start();
        ASSERT_TRUE(begun) << url;
        EXPECT_FALSE(begun->sourceUsable) << url;
        BrokerSettings expected = profile(url);
        expected.source = SourceKind::kCustomUrl;
        expected.rtspUdp = true;
        EXPECT_TRUE(sameSettings(begun->settings, expected)) << url;
    }
}

TEST_F(StartSettingsTest, AreNotQuestionedOnceTheyAreStored) {
    store(BrokerSettings{});  // an internal profile without an address, which no apply would accept
    const auto begun = start();
    ASSERT_TRUE(begun);
    EXPECT_TRUE(begun->sourceUsable);
    EXPECT_TRUE(sameSettings(begun->settings, BrokerSettings{}));
}

// --- The import ---

TEST_F(StartSettingsTest, AreTheImportedOnesOnceTheyAreSaved) {
    store(everySetting());
    importedUrl = L"rtsp://imported";
    const auto begun = start(kImport);
    ASSERT_TRUE(begun);
    BrokerSettings expected = everySetting();  // what the import does not name stays
    expected.latencyMs = 11;
    expected.customUrl.assign(L"rtsp://imported");
    EXPECT_TRUE(sameSettings(begun->settings, expected));
    EXPECT_TRUE(storedIs(expected));
    EXPECT_EQ(asked, (Asked{"load", "import", "save"}));
}

TEST_F(StartSettingsTest, AreImportedIntoTheDefaultsWithoutAStore) {
    importedUrl = L"rtsp://imported";
    const auto begun = start(kImport);
    ASSERT_TRUE(begun);
    EXPECT_FALSE(begun->loaded);
    EXPECT_TRUE(begun->sourceUsable);
    BrokerSettings expected = custom(L"rtsp://imported");
    expected.latencyMs = 11;
    EXPECT_TRUE(storedIs(expected));
}

TEST_F(StartSettingsTest, AreNoneWhenTheImportFails) {
    store(everySetting());
    importedUrl = L"rtsp://half";
    importWorks = false;
    EXPECT_FALSE(start(kImport));
    EXPECT_TRUE(storedIs(everySetting()));
    EXPECT_EQ(asked, (Asked{"load", "import"}));
}

TEST_F(StartSettingsTest, AreNoneWhenWhatWasImportedCannotBeSaved) {
    store(everySetting());
    importedUrl = L"rtsp://imported";
    saveWorks = false;
    EXPECT_FALSE(start(kImport));
    EXPECT_TRUE(storedIs(everySetting()));
}

TEST_F(StartSettingsTest, OfTheProfileAreMigratedBeforeTheImport) {
    profileUrl = L"rtsp://profile/x";
    profileUdp = true;
    const auto begun = start(kImport);
    ASSERT_TRUE(begun);
    BrokerSettings expected = profile(L"rtsp://profile/x");
    expected.rtspUdp = true;
    expected.latencyMs = 11;
    EXPECT_TRUE(sameSettings(begun->settings, expected));
    EXPECT_TRUE(storedIs(expected));
}

TEST_F(StartSettingsTest, OfTheProfileStayStoredWhenTheImportFails) {
    profileUrl = L"rtsp://profile/x";
    importWorks = false;
    EXPECT_FALSE(start(kImport));
    EXPECT_TRUE(storedIs(profile(L"rtsp://profile/x")));
}

// --- The test pattern ---

TEST_F(StartSettingsTest, ShowTheTestPatternInARunThatIsForcedToIt) {
    store(everySetting());
    const auto begun = start(kTestPattern);
    ASSERT_TRUE(begun);
    BrokerSettings expected = everySetting();
    expected.source = SourceKind::kSyntheticTest;
    EXPECT_TRUE(sameSettings(begun->settings, expected));
    EXPECT_TRUE(begun->loaded);
    EXPECT_TRUE(storedIs(everySetting()));
    EXPECT_EQ(asked, Asked{"load"});
}

TEST_F(StartSettingsTest, AskForNoAddressInARunOfTheTestPattern) {
    const auto begun = start(kTestPattern);
    ASSERT_TRUE(begun);
    EXPECT_TRUE(begun->sourceUsable);
    EXPECT_EQ(begun->settings.source, SourceKind::kSyntheticTest);
    EXPECT_FALSE(stored);
}

TEST_F(StartSettingsTest, AreImportedAndMigratedInARunOfTheTestPatternToo) {
    profileUrl = L"rtsp://profile";
    const auto begun = start({.importEnvironment = true, .testPattern = true});
    ASSERT_TRUE(begun);
    EXPECT_EQ(begun->settings.source, SourceKind::kSyntheticTest);
    BrokerSettings expected = profile(L"rtsp://profile");
    expected.latencyMs = 11;
    EXPECT_TRUE(storedIs(expected));
}

}  // namespace
}  // namespace vextra
