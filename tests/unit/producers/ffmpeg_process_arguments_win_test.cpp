#include <gtest/gtest.h>
#include <windows.h>

#include <shellapi.h>

#include <random>
#include <string>

#include "base/unique_win.h"
#include "producers/ffmpeg_command.h"

namespace vextra {
namespace {

TEST(QuotedArgument, ComesBackUnchangedFromTheSystemsOwnParser) {
    constexpr std::wstring_view kAlphabet = L"\\\\\\\"\" \ta\xE9";
    std::mt19937 random(20'013);  // the same arguments in every run
    std::uniform_int_distribution<std::size_t> anyLength(0, 12);
    std::uniform_int_distribution<std::size_t> anyUnit(0, kAlphabet.size() - 1);
    for (int round = 0; round < 10'000; ++round) {
        std::wstring argument(anyLength(random), L' ');
        for (wchar_t& unit : argument)
            unit = kAlphabet[anyUnit(random)];
        SecretText line(L"first ");
        appendQuotedArgument(argument, line);
        line.append(L" last");

        int count = 0;
        wchar_t** const arguments = CommandLineToArgvW(line.c_str(), &count);
        const UniqueLocalMemory owner(arguments);
        ASSERT_EQ(count, 3) << line.c_str();
        ASSERT_EQ(std::wstring(arguments[1]), argument);
        ASSERT_EQ(std::wstring(arguments[2]), L"last");
    }
}

}  // namespace
}  // namespace vextra
