#include "config/legacy_import.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cwchar>
#include <limits>

#include "broker_fixture_win.h"

namespace vextra {
namespace {

constexpr wchar_t kCustomUrl[] = L"CAMERA_VIRTUAL_VEXTRA_CUSTOM_URL";
constexpr wchar_t kLatency[] = L"CAMERA_VIRTUAL_VEXTRA_GSTREAMER_LATENCY_MS";

// Begins with a record that validates whatever the other fields say.
class LegacyEnvironment : public testing::Test {
protected:
    LegacyEnvironment() { settings.source = SourceKind::kSyntheticTest; }

    BrokerSettings settings;
};

TEST_F(LegacyEnvironment, WithoutVariablesChangesNothing) {
    EXPECT_TRUE(importLegacyEnvironment(settings));
    EXPECT_TRUE(settings.customUrl.empty());
}

TEST_F(LegacyEnvironment, IsRead) {
    const ScopedVariable source(L"CAMERA_VIRTUAL_VEXTRA_SOURCE", L"custom");
    const ScopedVariable url(kCustomUrl, L"rtsp://câmera/•?x=%20");
    const ScopedVariable latency(kLatency, L"0");
    EXPECT_TRUE(importLegacyEnvironment(settings));
    EXPECT_EQ(settings.source, SourceKind::kCustomUrl);
    EXPECT_EQ(settings.customUrl.view(), L"rtsp://câmera/•?x=%20");
    EXPECT_EQ(settings.latencyMs, 0u);
}

TEST_F(LegacyEnvironment, TakesValuesOf1To8192Characters) {
    settings.customUrl.assign(L"old");
    const std::wstring longest(8192, L'x');
    const struct {
        std::wstring value, taken;
    } kCases[] = {{L"", L"old"},
                  {L"y", L"y"},
                  {longest, longest},
                  {longest + L"x", L"old"},
                  {longest + longest, L"old"},
                  {std::wstring(32'000, L'x'), L"old"}};
    for (const auto& [value, taken] : kCases) {
        settings.customUrl.assign(L"old");
        const ScopedVariable url(kCustomUrl, value.c_str());
        EXPECT_TRUE(importLegacyEnvironment(settings));
        EXPECT_EQ(settings.customUrl.view(), taken) << value.size();
    }
}

// The same values as the C library's, and the same ones refused.
TEST_F(LegacyEnvironment, ReadsNumbersAsTheSystemDoes) {
    for (const wchar_t* text : {L"0",
                                L"5000",
                                L"5001",
                                L"007",
                                L" 12",
                                L"\t9",
                                L"\v\f\r\n9",
                                L"+8",
                                L"-0",
                                L"-1",
                                L"-4294967295",
                                L"-4294967246",
                                L"4294967295",
                                L"4294967296",
                                L"-4294967296",
                                L"-4294967297",
                                L"18446744073709551615",
                                L"-18446744073709551615",
                                L"18446744073709551616",
                                L"99999999999999999999999",
                                L"7s",
                                L"7 ",
                                L"0x10",
                                L"+",
                                L"-",
                                L" ",
                                L"--1",
                                L"+-1",
                                L"1e3",
                                L"\x0661",
                                L"\xFF11",
                                L"\x00A0"
                                L"1",
                                L"\x3000"
                                L"1"}) {
        wchar_t* end = nullptr;
        errno = 0;
        unsigned long value = std::wcstoul(text, &end, 10);
        if (errno == ERANGE)  // the largest, by the standard; this system's library puts its sign before it
            value = std::numeric_limits<unsigned long>::max();
        const bool whole = *end == L'\0';
        settings.latencyMs = 33;
        const ScopedVariable latency(kLatency, text);
        const bool imported = importLegacyEnvironment(settings);
        EXPECT_EQ(settings.latencyMs, whole ? value : 33u) << text;
        EXPECT_EQ(imported, whole && value <= 5000) << text;
    }
}

}  // namespace
}  // namespace vextra
