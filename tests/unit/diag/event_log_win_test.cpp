#include <gtest/gtest.h>
#include <windows.h>

#include <winioctl.h>

#include <algorithm>
#include <regex>
#include <sstream>
#include <thread>
#include <tuple>
#include <vector>

#include "broker_fixture_win.h"
#include "diag/event_log.h"

namespace vextra {
namespace {

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

class EventLogOnDisk : public testing::Test {
protected:
    std::string content() const { return readFile(path); }
    std::vector<std::string> lines() const { return linesOf(content()); }
    std::wstring tail() {
        log.open(path, EventLog::OpenMode::kAppend);
        return log.tailForDisplay();
    }

    TemporaryFolder folder;
    const std::wstring path = folder / L"diagnostic.log";
    std::atomic<std::uint64_t> frames{0};
    EventLog log{frames};
};

TEST_F(EventLogOnDisk, DropsWhatIsWrittenBeforeItIsOpened) {
    log.write(EventCode::kUiReady);
    log.writeFrame({1, 2, 3, 4});
    log.open(path, EventLog::OpenMode::kReplace);
    EXPECT_EQ(content(), "");
}

TEST_F(EventLogOnDisk, DropsWhatIsWrittenAfterItIsClosed) {
    log.open(path, EventLog::OpenMode::kReplace);
    log.close();
    log.write(EventCode::kUiReady);
    EXPECT_EQ(content(), "");
}

TEST_F(EventLogOnDisk, IsSilentWhenItCannotBeOpened) {
    log.open(folder / L"missing\\diagnostic.log", EventLog::OpenMode::kReplace);
    log.write(EventCode::kUiReady);
    EXPECT_EQ(log.tailForDisplay(), L"");
    EXPECT_FALSE(fileExists(folder / L"missing"));
}

TEST_F(EventLogOnDisk, FillsTickFramesAndProcessItself) {
    frames = 42;
    log.open(path, EventLog::OpenMode::kReplace);
    const Tick before = GetTickCount64();
    log.write(EventCode::kBridgeOpenFailed, -2147024891);
    const Tick after = GetTickCount64();

    const std::string line = content();
    const Tick tick = std::stoull(line.substr(5));
    EXPECT_GE(tick, before);
    EXPECT_LE(tick, after);
    EXPECT_EQ(line, "tick=" + std::to_string(tick) + " BRIDGE_OPEN_FAILED hr=0x80070005 frames=42 pid=" +
                        std::to_string(GetCurrentProcessId()) + "\n");
}

TEST_F(EventLogOnDisk, WritesZeroWhenThereIsNothingToReport) {
    log.open(path, EventLog::OpenMode::kReplace);
    log.write(EventCode::kUiReady);
    EXPECT_NE(content().find(" UI_READY hr=0x00000000 "), std::string::npos);
}

TEST_F(EventLogOnDisk, HoldsFrameLinesToo) {
    log.open(path, EventLog::OpenMode::kReplace);
    log.writeFrame({64, 0xABC, 5000, 3'686'400});
    EXPECT_EQ(content(), "producer_frame=64 fnv1a64=0000000000000ABC tick=5000 bytes=3686400\n");
}

TEST_F(EventLogOnDisk, IsReplacedAtTheStartOfARun) {
    writeFile(path, "the run before\n");
    log.open(path, EventLog::OpenMode::kReplace);
    log.write(EventCode::kUiReady);
    EXPECT_EQ(lines().size(), 1u);
    EXPECT_EQ(content().find("before"), std::string::npos);
}

TEST_F(EventLogOnDisk, IsAppendedToByMaintenanceCommands) {
    writeFile(path, "the command before\n");
    log.open(path, EventLog::OpenMode::kAppend);
    log.write(EventCode::kUiReady);
    ASSERT_EQ(lines().size(), 2u);
    EXPECT_EQ(lines().front(), "the command before");
}

TEST_F(EventLogOnDisk, IsMadeWhenThereIsNoneToAppendTo) {
    log.open(path, EventLog::OpenMode::kAppend);
    log.write(EventCode::kUiReady);
    EXPECT_EQ(lines().size(), 1u);
}

TEST_F(EventLogOnDisk, EndsLinesWithALineFeedAlone) {
    log.open(path, EventLog::OpenMode::kReplace);
    log.write(EventCode::kUiReady);
    EXPECT_EQ(content().find('\r'), std::string::npos);
    EXPECT_TRUE(content().ends_with('\n'));
}

TEST_F(EventLogOnDisk, HoldsEveryLineAtOnce) {
    log.open(path, EventLog::OpenMode::kReplace);
    for (std::size_t written = 1; written <= 3; ++written) {
        log.write(EventCode::kUiReady);
        EXPECT_EQ(lines().size(), written);
    }
}

TEST_F(EventLogOnDisk, MayBeReadAndWrittenByOthersMeanwhile) {
    log.open(path, EventLog::OpenMode::kReplace);
    EXPECT_TRUE(openFile(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING));
    EXPECT_TRUE(openFile(path, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING));
}

TEST_F(EventLogOnDisk, NeverMixesTheLinesOfItsWriters) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 250;
    log.open(path, EventLog::OpenMode::kReplace);
    {
        std::vector<std::jthread> writers;
        for (int thread = 0; thread < kThreads; ++thread) {
            writers.emplace_back([this] {
                for (int round = 0; round < kRounds; ++round) {
                    log.write(EventCode::kLastDemandReleased, round);
                    log.writeFrame({1, 2, 3, 4});
                    ++frames;
                }
            });
        }
    }
    const std::regex event(
        "tick=[0-9]+ LAST_DEMAND_RELEASED_PRODUCER_STOP hr=0x[0-9A-F]{8} frames=[0-9]+ pid=[0-9]+");
    const std::string frame = "producer_frame=1 fnv1a64=0000000000000002 tick=3 bytes=4";
    int events = 0;
    int frameLines = 0;
    for (const std::string& line : lines()) {
        if (line == frame)
            ++frameLines;
        else if (std::regex_match(line, event))
            ++events;
        else
            ADD_FAILURE() << line;
    }
    EXPECT_EQ(events, kThreads * kRounds);
    EXPECT_EQ(frameLines, kThreads * kRounds);
}

TEST_F(EventLogOnDisk, ShowsAShortLogWhole) {
    writeFile(path, "one\ntwo\r\n");
    EXPECT_EQ(tail(), L"one\ntwo\r\n");
}

TEST_F(EventLogOnDisk, ShowsTheLast12000BytesOfALongLog) {
    std::string bytes;
    for (int i = 0; bytes.size() < 50'000; ++i)
        bytes += std::to_string(i) + '\n';
    bytes.resize(50'000);
    writeFile(path, bytes);
    EXPECT_EQ(tail(), std::wstring(bytes.end() - 12'000, bytes.end()));
}

// A refusal that is repeated without a wait makes the log grow by hundreds of KiB a second.
TEST_F(EventLogOnDisk, ShowsTheEndOfALogBeyond2GiB) {
    constexpr std::int64_t kSize = (std::int64_t{1} << 31) + 100;
    std::string end;
    for (int i = 0; end.size() < 12'000; ++i)
        end += std::to_string(i) + '\n';
    end.resize(12'000);
    {
        const UniqueFile file = openFile(path, GENERIC_WRITE, 0, CREATE_NEW);
        DWORD bytes = 0;  // of a system that keeps no sparse files; then the disk has to hold it
        DeviceIoControl(file.get(), FSCTL_SET_SPARSE, nullptr, 0, nullptr, 0, &bytes, nullptr);
        LARGE_INTEGER at{};
        at.QuadPart = kSize - static_cast<std::int64_t>(end.size());
        ASSERT_TRUE(SetFilePointerEx(file.get(), at, nullptr, FILE_BEGIN));
        ASSERT_TRUE(WriteFile(file.get(), end.data(), static_cast<DWORD>(end.size()), &bytes, nullptr));
    }
    EXPECT_EQ(tail(), std::wstring(end.begin(), end.end()));
}

TEST_F(EventLogOnDisk, ShowsALogOfExactly12000BytesWhole) {
    writeFile(path, "<" + std::string(11'998, 'x') + ">");
    EXPECT_EQ(tail(), L"<" + std::wstring(11'998, L'x') + L">");
}

TEST_F(EventLogOnDisk, ShowsNothingOfAnEmptyLog) {
    writeFile(path, "");
    EXPECT_EQ(tail(), L"");
}

TEST_F(EventLogOnDisk, ShowsNothingWhenItWasNeverOpened) {
    EXPECT_EQ(log.tailForDisplay(), L"");
}

TEST_F(EventLogOnDisk, ReadsItselfAsUtf8) {
    writeFile(path, "\xC3\xA9\n");
    EXPECT_EQ(tail(), L"\xE9\n");
}

TEST_F(EventLogOnDisk, ShowsWhatItHasJustWritten) {
    log.open(path, EventLog::OpenMode::kReplace);
    log.write(EventCode::kUiReady);
    EXPECT_NE(log.tailForDisplay().find(L" UI_READY "), std::wstring::npos);
    log.write(EventCode::kDpiChanged);
    EXPECT_NE(log.tailForDisplay().find(L" DPI_CHANGED "), std::wstring::npos);
}

// The handles of this process to a file, opened by the log or not.
std::vector<HANDLE> handlesTo(const std::wstring& path) {
    const auto identity = [](HANDLE file) {
        BY_HANDLE_FILE_INFORMATION known{};
        GetFileInformationByHandle(file, &known);
        return std::tuple(known.dwVolumeSerialNumber, known.nFileIndexHigh, known.nFileIndexLow);
    };
    const UniqueFile own = openFile(path, 0, kShareAll, OPEN_EXISTING);
    constexpr std::uintptr_t kHighestHandle = 0x1000;  // far more than this program opens
    std::vector<HANDLE> found;
    for (std::uintptr_t number = 4; number < kHighestHandle; number += 4) {
        const auto handle = reinterpret_cast<HANDLE>(number);
        if (handle != own.get() && GetFileType(handle) == FILE_TYPE_DISK &&
            identity(handle) == identity(own.get()))
            found.push_back(handle);
    }
    return found;
}

// A process that a plug-in of a decoder starts would hold the log open, and its folder with it.
TEST_F(EventLogOnDisk, IsInheritedByNoProcess) {
    for (const auto mode : {EventLog::OpenMode::kReplace, EventLog::OpenMode::kAppend}) {
        log.open(path, mode);
        const std::vector<HANDLE> handles = handlesTo(path);
        ASSERT_EQ(handles.size(), 1u);
        DWORD flags = HANDLE_FLAG_INHERIT;
        ASSERT_TRUE(GetHandleInformation(handles.front(), &flags));
        EXPECT_EQ(flags & HANDLE_FLAG_INHERIT, 0u);
    }
}

TEST_F(EventLogOnDisk, IsLetGoWhenClosed) {
    log.open(path, EventLog::OpenMode::kReplace);
    EXPECT_TRUE(isHeldOpen(path));
    log.close();
    EXPECT_FALSE(isHeldOpen(path));
}

}  // namespace
}  // namespace vextra
