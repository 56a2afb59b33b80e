#include <gtest/gtest.h>

#include "broker_fixture_win.h"
#include "core/run_outputs.h"

namespace vextra {
namespace {

class OutputFile : public testing::Test {
protected:
    TemporaryFolder folder;
    const std::wstring path = folder / L"saída é.txt";
};

TEST_F(OutputFile, HoldsTheBytesAsTheyStand) {
    const std::string bytes("a\nb\r\n\0\x1A\xFF", 8);
    EXPECT_TRUE(writeOutputFile(path, bytes));
    EXPECT_EQ(readFile(path), bytes);
}

TEST_F(OutputFile, MayBeEmpty) {
    EXPECT_TRUE(writeOutputFile(path, ""));
    EXPECT_EQ(readFile(path), "");
}

TEST_F(OutputFile, ReplacesALongerOne) {
    writeFile(path, "a longer text of an earlier run");
    EXPECT_TRUE(writeOutputFile(path, kVersionFileText));
    EXPECT_EQ(readFile(path), kVersionFileText);
}

TEST_F(OutputFile, IsComplete) {
    const std::string bytes(3'686'400, 'x');
    EXPECT_TRUE(writeOutputFile(path, bytes));
    EXPECT_TRUE(readFile(path) == bytes);
}

TEST_F(OutputFile, CannotBeMadeWithoutItsFolder) {
    EXPECT_FALSE(writeOutputFile(folder / L"missing\\version.txt", kVersionFileText));
}

TEST_F(OutputFile, CannotReplaceAFolder) {
    ASSERT_TRUE(CreateDirectoryW(path.c_str(), nullptr));
    EXPECT_FALSE(writeOutputFile(path, kVersionFileText));
}

TEST_F(OutputFile, CannotReplaceAWriteProtectedFile) {
    writeFile(path, "kept");
    const WriteProtection protection(path);
    if (!protection.holds())
        GTEST_SKIP() << "this account may write any file (root under Wine)";
    EXPECT_FALSE(writeOutputFile(path, kVersionFileText));
    EXPECT_EQ(readFile(path), "kept");
}

TEST_F(OutputFile, IsLetGoAtTheEnd) {
    EXPECT_TRUE(writeOutputFile(path, kVersionFileText));
    EXPECT_FALSE(isHeldOpen(path));
}

}  // namespace
}  // namespace vextra
