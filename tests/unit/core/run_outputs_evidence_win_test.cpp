#include "core/run_outputs.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "broker_fixture_win.h"

namespace vextra {
namespace {

class Evidence : public testing::Test {
protected:
    void SetUp() override {
        for (std::size_t i = 0; i < frame.size(); ++i)
            frame[i] = static_cast<std::byte>(i % 251);
        log.open(logPath, EventLog::OpenMode::kReplace);
    }
    void record(std::uint64_t number) { recordFrameEvidence(log, folder.path(), frame.data(), number, 5000); }
    bool hasDump(std::uint64_t number) const {
        return fileExists(folder / (L"producer-" + std::to_wstring(number) + L".bgra"));
    }

    TemporaryFolder folder;
    const std::wstring logPath = folder / L"app.log";
    std::vector<std::byte> frame = std::vector<std::byte>(kFrameBytes);
    std::atomic<std::uint64_t> frames{0};
    EventLog log{frames};
};

TEST_F(Evidence, OfAFrameIsOneLineWithItsHash) {
    std::fill(frame.begin(), frame.end(), std::byte{0});
    record(2);
    EXPECT_EQ(readFile(logPath), "producer_frame=2 fnv1a64=D395E456E4E72325 tick=5000 bytes=3686400\n");
}

TEST_F(Evidence, OfTheFirstFrameIsTheFrameItself) {
    record(1);
    const std::string dump = readFile(folder / L"producer-1.bgra");
    ASSERT_EQ(dump.size(), frame.size());
    EXPECT_EQ(std::memcmp(dump.data(), frame.data(), frame.size()), 0);
}

TEST_F(Evidence, KeepsTheFirstFrameAndEvery64thWhole) {
    for (const std::uint64_t number : {1u, 64u, 128u, 640'000u}) {
        record(number);
        EXPECT_TRUE(hasDump(number)) << number;
    }
    for (const std::uint64_t number : {2u, 63u, 65u, 127u, 129u}) {
        record(number);
        EXPECT_FALSE(hasDump(number)) << number;
    }
}

TEST_F(Evidence, LogsFramesThatItDoesNotKeep) {
    for (std::uint64_t number = 1; number <= 3; ++number)
        record(number);
    const std::string lines = readFile(logPath);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 3);
}

TEST_F(Evidence, IsSilentAboutAFolderThatIsMissing) {
    recordFrameEvidence(log, folder / L"missing", frame.data(), 1, 5000);
    EXPECT_NE(readFile(logPath), "");
    EXPECT_FALSE(fileExists(folder / L"missing"));
}

}  // namespace
}  // namespace vextra
