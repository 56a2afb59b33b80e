#include "producers/ffmpeg_command.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "split_arguments.h"

namespace vextra {
namespace {

using test::splitArguments;

constexpr wchar_t kExecutable[] = L"C:\\Program Files\\Vextra\\deps\\ffmpeg.exe";
constexpr wchar_t kFront[] =
    L"\"C:\\Program Files\\Vextra\\deps\\ffmpeg.exe\" -hide_banner -loglevel error -nostdin -threads 2 ";
constexpr wchar_t kEnd[] =
    L"-an -sn -dn -vf scale=1280:720:force_original_aspect_ratio=decrease,pad=1280:720:(ow-iw)/2:(oh-ih)/2,"
    L"fps=16 -pix_fmt bgra -threads 2 -filter_threads 1 -f rawvideo pipe:1";

std::wstring lineFor(const FfmpegInput& input) {
    return std::wstring(ffmpegCommandLine(kExecutable, input).view());
}

FfmpegInput network(std::wstring_view url, RtspTransport transport = RtspTransport::kTcp) {
    return {false, url, transport};
}

std::wstring asQuoted(std::wstring_view argument) {
    SecretText line;
    appendQuotedArgument(argument, line);
    return std::wstring(line.view());
}

std::vector<std::wstring> argumentsFor(const FfmpegInput& input) {
    return splitArguments(lineFor(input));
}

TEST(FfmpegCommandLine, OfAnRtspCameraOverTcp) {
    EXPECT_EQ(lineFor(network(L"rtsp://cam:554/stream1")),
              std::wstring(kFront) +
                  L"-rtsp_transport tcp -rw_timeout 5000000 -i \"rtsp://cam:554/stream1\" " + kEnd);
}

TEST(FfmpegCommandLine, OfAnRtspCameraOverUdp) {
    EXPECT_EQ(lineFor(network(L"rtsp://cam/x", RtspTransport::kUdp)),
              std::wstring(kFront) + L"-rtsp_transport udp -rw_timeout 5000000 -i \"rtsp://cam/x\" " + kEnd);
}

TEST(FfmpegCommandLine, OfAnHttpSourceHasATimeoutButNoTransport) {
    EXPECT_EQ(lineFor(network(L"http://h/video", RtspTransport::kUdp)),
              std::wstring(kFront) + L"-rw_timeout 5000000 -i \"http://h/video\" " + kEnd);
}

TEST(FfmpegCommandLine, OfTheSyntheticTestUsesNeitherUrlNorTransport) {
    const std::wstring expected =
        std::wstring(kFront) + L"-re -f lavfi -i testsrc2=size=1280x720:rate=16 " + kEnd;
    EXPECT_EQ(lineFor({true, L"", RtspTransport::kTcp}), expected);
    EXPECT_EQ(lineFor({true, L"rtsp://cam/x", RtspTransport::kUdp}), expected);
}

TEST(FfmpegCommandLine, NamesTheTransportForRtspSchemesInAnyCase) {
    for (const wchar_t* url :
         {L"rtsp://h", L"RTSP://h", L"rTsP://h", L"rtsps://h", L"RTSPS://h", L"rtspS://h"})
        EXPECT_NE(lineFor(network(url)).find(L"-rtsp_transport tcp "), std::wstring::npos)
            << std::wstring(url);
}

TEST(FfmpegCommandLine, NamesNoTransportForOtherSchemes) {
    for (const wchar_t* url : {L"http://h", L"https://h", L"rtsp:/h", L"rtsp", L"", L"rtspx://h",
                               L"rtspss://h", L"http://h/?u=rtsp://x"})
        EXPECT_EQ(lineFor(network(url)).find(L"-rtsp_transport"), std::wstring::npos) << std::wstring(url);
}

TEST(FfmpegCommandLine, TakesApartIntoThePlainArguments) {
    const std::vector<std::wstring> expected{
        kExecutable,
        L"-hide_banner",
        L"-loglevel",
        L"error",
        L"-nostdin",
        L"-threads",
        L"2",
        L"-rtsp_transport",
        L"tcp",
        L"-rw_timeout",
        L"5000000",
        L"-i",
        L"rtsp://u:p@cam/x y",
        L"-an",
        L"-sn",
        L"-dn",
        L"-vf",
        L"scale=1280:720:force_original_aspect_ratio=decrease,pad=1280:720:(ow-iw)/2:(oh-ih)/2,fps=16",
        L"-pix_fmt",
        L"bgra",
        L"-threads",
        L"2",
        L"-filter_threads",
        L"1",
        L"-f",
        L"rawvideo",
        L"pipe:1"};
    EXPECT_EQ(argumentsFor(network(L"rtsp://u:p@cam/x y")), expected);
}

TEST(FfmpegCommandLine, LetsNoUrlBecomeAnOption) {
    const std::wstring url = L"http://h/\" -y \"C:\\boot.ini";
    const std::vector<std::wstring> arguments = argumentsFor(network(url));
    ASSERT_EQ(arguments.size(), 25u);
    EXPECT_EQ(arguments[10], url);
}

TEST(FfmpegCommandLine, LetsNoTrailingBackslashSwallowTheOptionsBehind) {
    const std::wstring url = L"http://h/\\\\\\";
    const std::vector<std::wstring> arguments = argumentsFor(network(url));
    ASSERT_EQ(arguments.size(), 25u);
    EXPECT_EQ(arguments[10], url);
}

TEST(FfmpegCommandLine, QuotesTheExecutableAsWell) {
    const SecretText line = ffmpegCommandLine(L"C:\\a \"b\\", {true, L"", RtspTransport::kTcp});
    EXPECT_TRUE(line.view().starts_with(L"\"C:\\a \\\"b\\\\\" -hide_banner "));
}

TEST(QuotedArgument, DoublesBackslashesOnlyBeforeAQuoteAndAtTheEnd) {
    const struct {
        const wchar_t* argument;
        const wchar_t* quoted;
    } kCases[] = {
        {L"", LR"("")"},
        {L"a", LR"("a")"},
        {L"a b", LR"("a b")"},
        {LR"(C:\x\y)", LR"("C:\x\y")"},
        {LR"(a\)", LR"("a\\")"},
        {LR"(a\\)", LR"("a\\\\")"},
        {LR"(")", LR"("\"")"},
        {LR"(a"b)", LR"("a\"b")"},
        {LR"(a\"b)", LR"("a\\\"b")"},
        {LR"(a\\"b)", LR"("a\\\\\"b")"},
        {LR"(\\a\\b")", LR"("\\a\\b\"")"},
        {LR"(\"\)", LR"("\\\"\\")"},
    };
    for (const auto& one : kCases)
        EXPECT_EQ(asQuoted(one.argument), one.quoted) << std::wstring(one.argument);
}

TEST(QuotedArgument, IsAppendedToWhatIsThere) {
    SecretText line(L"x ");
    appendQuotedArgument(L"a", line);
    EXPECT_EQ(std::wstring(line.view()), L"x \"a\"");
}

TEST(QuotedArgument, ComesBackUnchangedWhateverItHolds) {
    constexpr std::wstring_view kAlphabet = L"\\\\\\\"\" \ta\xE9";
    std::mt19937 random(20'011);  // the same arguments in every run
    std::uniform_int_distribution<std::size_t> anyLength(0, 12);
    std::uniform_int_distribution<std::size_t> anyUnit(0, kAlphabet.size() - 1);
    for (int round = 0; round < 20'000; ++round) {
        std::wstring argument(anyLength(random), L' ');
        for (wchar_t& unit : argument)
            unit = kAlphabet[anyUnit(random)];
        const std::wstring line = L"first " + asQuoted(argument) + L" last";
        ASSERT_EQ(splitArguments(line), (std::vector<std::wstring>{L"first", argument, L"last"})) << line;
    }
}

}  // namespace
}  // namespace vextra
