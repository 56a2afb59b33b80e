#include <gtest/gtest.h>

#include "broker_fixture_win.h"
#include "config/legacy_import.h"

namespace vextra {
namespace {

class PrivateProfile : public testing::Test {
protected:
    void write(std::string_view bytes) const { writeFile(path, bytes); }
    void writeUtf16(const std::wstring& text) const {
        const std::wstring marked = L'\xFEFF' + text;
        write({reinterpret_cast<const char*>(marked.data()), marked.size() * sizeof(wchar_t)});
    }
    BrokerSettings read() const {
        BrokerSettings settings;
        readPrivateProfile(folder.path(), settings);
        return settings;
    }
    std::wstring url() const { return std::wstring(read().profileUrl.view()); }

    TemporaryFolder folder;
    const std::wstring path = folder / L"source.private.ini";
};

TEST_F(PrivateProfile, GivesUrlAndTransport) {
    write("[source]\r\nurl=rtsp://u:p@cam/x\r\ntransport=udp\r\n");
    EXPECT_EQ(url(), L"rtsp://u:p@cam/x");
    EXPECT_TRUE(read().rtspUdp);
}

TEST_F(PrivateProfile, ChangesNothingElse) {
    write("[source]\r\nurl=rtsp://cam/x\r\ntransport=udp\r\n");
    const BrokerSettings settings = read();
    EXPECT_EQ(settings.source, SourceKind::kInternalProfile);
    EXPECT_EQ(settings.latencyMs, 50u);
    EXPECT_TRUE(settings.customUrl.empty());
    EXPECT_TRUE(settings.directIp.empty());
}

TEST_F(PrivateProfile, WithoutAFileLeavesAnEmptyUrlAndTcp) {
    BrokerSettings settings;
    settings.profileUrl.assign(L"http://old");
    settings.rtspUdp = true;
    readPrivateProfile(folder.path(), settings);
    EXPECT_TRUE(settings.profileUrl.empty());
    EXPECT_FALSE(settings.rtspUdp);
    EXPECT_FALSE(fileExists(path));
}

TEST_F(PrivateProfile, WithoutItsKeysLeavesAnEmptyUrlAndTcp) {
    write("[other]\r\nurl=http://h\r\ntransport=udp\r\n[source]\r\nx=y\r\n");
    EXPECT_EQ(url(), L"");
    EXPECT_FALSE(read().rtspUdp);
}

TEST_F(PrivateProfile, AsksForUdpInLowerCaseOnly) {
    const struct {
        const char* value;
        bool udp;
    } kCases[] = {{"udp", true},   {"UDP", false},  {"Udp", false},
                  {"tcp", false},  {"", false},     {"ud", false},
                  {"udpx", false}, {"xudp", false}, {"udp udp udp udp udp", false}};
    for (const auto& [value, udp] : kCases) {
        write(std::string("[source]\r\nurl=http://h\r\ntransport=") + value + "\r\n");
        EXPECT_EQ(read().rtspUdp, udp) << value;
    }
}

TEST_F(PrivateProfile, KeepsEqualsPercentAndQuestionMarksInTheUrl) {
    write("[source]\r\nurl=http://u:%40%3D@h/x?a=b&c=%20=#f\r\n");
    EXPECT_EQ(url(), L"http://u:%40%3D@h/x?a=b&c=%20=#f");
}

TEST_F(PrivateProfile, MayHoldAccentsInTheSystemsCodePage) {
    const std::wstring text = L"[source]\r\nurl=rtsp://câmera/é\r\n";
    char bytes[256];
    BOOL replaced = FALSE;
    const int length = WideCharToMultiByte(CP_ACP, 0, text.data(), static_cast<int>(text.size()), bytes,
                                           sizeof bytes, nullptr, GetACP() == CP_UTF8 ? nullptr : &replaced);
    ASSERT_GT(length, 0);
    if (replaced)
        GTEST_SKIP() << "this system's code page " << GetACP() << " has no such letters";
    write({bytes, static_cast<std::size_t>(length)});
    EXPECT_EQ(url(), L"rtsp://câmera/é");
}

TEST_F(PrivateProfile, MayBeUtf16) {
    writeUtf16(L"[source]\r\nurl=rtsp://câmera/•\r\ntransport=udp\r\n");
    EXPECT_EQ(url(), L"rtsp://câmera/•");
    EXPECT_TRUE(read().rtspUdp);
}

// On Windows a UTF-8 mark is part of its line; on a line of its own it does no harm anywhere.
TEST_F(PrivateProfile, MayBeginWithAUtf8Mark) {
    write("\xEF\xBB\xBF\r\n[source]\r\nurl=rtsp://marked\r\n");
    EXPECT_EQ(url(), L"rtsp://marked");
}

TEST_F(PrivateProfile, GivesAUrlWithoutTheSpacesAroundItButWithThoseInIt) {
    write("[source]\r\nurl =  rtsp://h/a b \r\n");
    EXPECT_EQ(url(), L"rtsp://h/a b");
}

TEST_F(PrivateProfile, GivesAUrlOf8192CharactersButNoneThatIsLonger) {
    std::string longest = "http://h/";
    longest.resize(8192, 'x');
    write("[source]\r\nurl=" + longest + "\r\n");
    EXPECT_EQ(url(), std::wstring(longest.begin(), longest.end()));
    write("[source]\r\nurl=" + longest + "x\r\n");
    EXPECT_EQ(url(), L"");
    write("[source]\r\nurl=" + longest + longest + "\r\n");
    EXPECT_EQ(url(), L"");
}

TEST_F(PrivateProfile, LiesInAFolderOfAnyName) {
    const std::wstring named = folder / L"pasta é • 1";
    ASSERT_TRUE(CreateDirectoryW(named.c_str(), nullptr));
    writeFile(named + L"\\source.private.ini", "[source]\r\nurl=http://h\r\n");
    BrokerSettings settings;
    readPrivateProfile(named, settings);
    EXPECT_EQ(std::wstring(settings.profileUrl.view()), L"http://h");
}

TEST_F(PrivateProfile, IsNeverWritten) {
    const std::string bytes = "[source]\nurl=http://h\n; a note\n";
    write(bytes);
    read();
    EXPECT_EQ(readFile(path), bytes);
}

}  // namespace
}  // namespace vextra
