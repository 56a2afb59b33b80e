#include "config/settings_record.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>

#include "stored_record.h"

namespace vextra {
namespace {

using test::asBytes;
using test::StoredRecord;

std::string serialized(const BrokerSettings& settings) {
    const SecretBytes bytes = serializeSettings(settings);
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// In a block of exactly this size, so that a sanitizer sees a read past its end.
std::optional<BrokerSettings> parsed(const std::string& bytes) {
    const auto exact = std::make_unique<std::byte[]>(bytes.size());
    std::memcpy(exact.get(), bytes.data(), bytes.size());
    return parseSettings({exact.get(), bytes.size()});
}
bool accepted(const StoredRecord& record) {
    return parsed(record.bytes()).has_value();
}
bool acceptedWith(std::uint32_t StoredRecord::*field, std::uint32_t value) {
    StoredRecord record;
    record.*field = value;
    return accepted(record);
}

// No two fields alike.
BrokerSettings full() {
    BrokerSettings settings;
    settings.source = SourceKind::kCustomUrl;
    settings.stream = 2;
    settings.decoder = DecoderBackend::kGstreamer;
    settings.latencyMs = 0x0102;
    settings.firstFrameDeadlineMs = 0x2030;
    settings.rtspUdp = true;
    settings.updateDisabled = false;
    settings.profileUrl.assign(L"p");
    settings.directIp.assign(L"1.2.3.4");
    settings.directUser.assign(L"é");
    settings.directPassword.assign(L"\x2022");
    settings.customUrl.assign(L"http://h");
    settings.updateManifestUrl.assign(L"");
    return settings;
}

// --- What is written ---

TEST(SerializeSettings, WritesTheDefaultsByteForByte) {
    const unsigned char expected[60] = {'C', 'F', 'G', '3', 1, 0, 0,  0, 0, 0, 0,    0,    1, 0,
                                        0,   0,   0,   0,   0, 0, 50, 0, 0, 0, 0x58, 0x1B, 0, 0};
    EXPECT_EQ(serialized(BrokerSettings()),
              std::string(reinterpret_cast<const char*>(expected), sizeof expected));
}

TEST(SerializeSettings, WritesEveryFieldInItsPlace) {
    const std::string bytes = serialized(full());
    using namespace std::string_literals;
    EXPECT_EQ(bytes.substr(8, 28), "\2\0\0\0\2\0\0\0\1\0\0\0\x02\x01\0\0\x30\x20\0\0\1\0\0\0\0\0\0\0"s);
    EXPECT_EQ(bytes.substr(36),
              "\1\0\0\0p\0"
              "\7\0\0\0"
              "1\0.\0"
              "2\0.\0"
              "3\0.\0"
              "4\0"
              "\1\0\0\0\xE9\0"
              "\1\0\0\0\x22\x20"
              "\x8\0\0\0h\0t\0t\0p\0:\0/\0/\0h\0"
              "\0\0\0\0"s);
}

TEST(SerializeSettings, WritesFlagsAs0And1) {
    for (const bool udp : {false, true}) {
        for (const bool disabled : {false, true}) {
            BrokerSettings settings;
            settings.rtspUdp = udp;
            settings.updateDisabled = disabled;
            StoredRecord record;
            record.rtspUdp = udp ? 1 : 0;
            record.updateDisabled = disabled ? 1 : 0;
            EXPECT_EQ(serialized(settings), record.bytes()) << udp << disabled;
        }
    }
}

// --- What is read ---

TEST(ParseSettings, GivesBackWhatWasWritten) {
    const BrokerSettings settings = full();
    const std::optional<BrokerSettings> again = parsed(serialized(settings));
    ASSERT_TRUE(again);
    EXPECT_EQ(again->source, settings.source);
    EXPECT_EQ(again->stream, settings.stream);
    EXPECT_EQ(again->decoder, settings.decoder);
    EXPECT_EQ(again->latencyMs, settings.latencyMs);
    EXPECT_EQ(again->firstFrameDeadlineMs, settings.firstFrameDeadlineMs);
    EXPECT_EQ(again->rtspUdp, settings.rtspUdp);
    EXPECT_EQ(again->updateDisabled, settings.updateDisabled);
    EXPECT_TRUE(again->profileUrl == settings.profileUrl);
    EXPECT_TRUE(again->directIp == settings.directIp);
    EXPECT_TRUE(again->directUser == settings.directUser);
    EXPECT_TRUE(again->directPassword == settings.directPassword);
    EXPECT_TRUE(again->customUrl == settings.customUrl);
    EXPECT_TRUE(again->updateManifestUrl == settings.updateManifestUrl);
}

TEST(ParseSettings, RefusesEveryBeginningOfARecord) {
    const std::string whole = serialized(full());
    ASSERT_TRUE(parsed(whole));
    for (std::size_t length = 0; length < whole.size(); ++length)
        EXPECT_FALSE(parsed(whole.substr(0, length))) << length;
}

TEST(ParseSettings, RefusesOneByteTooMany) {
    EXPECT_FALSE(parsed(StoredRecord().bytes() + '\0'));
    EXPECT_FALSE(parsed(serialized(full()) + 'x'));
}

TEST(ParseSettings, RefusesAnotherMagicOrVersion) {
    EXPECT_TRUE(accepted(StoredRecord()));
    for (const std::uint32_t magic : {0u, 0x32474643u, 0x43464733u, 0x33474642u})
        EXPECT_FALSE(acceptedWith(&StoredRecord::magic, magic)) << magic;
    for (const std::uint32_t version : {0u, 2u, 0x0100'0001u})
        EXPECT_FALSE(acceptedWith(&StoredRecord::version, version)) << version;
}

TEST(ParseSettings, HoldsNumbersToTheirRanges) {
    const struct {
        std::uint32_t StoredRecord::*field;
        std::uint32_t first, last;
        bool zeroRefused;
    } kCases[] = {{&StoredRecord::source, 0, 3, false},
                  {&StoredRecord::stream, 1, 2, true},
                  {&StoredRecord::decoder, 0, 2, false},
                  {&StoredRecord::latencyMs, 0, 5000, false},
                  {&StoredRecord::firstFrameDeadlineMs, 1000, 30'000, true}};
    for (const auto& range : kCases) {
        EXPECT_TRUE(acceptedWith(range.field, range.first)) << range.last;
        EXPECT_TRUE(acceptedWith(range.field, range.last)) << range.last;
        EXPECT_FALSE(acceptedWith(range.field, range.last + 1)) << range.last;
        EXPECT_FALSE(acceptedWith(range.field, 0xFFFF'FFFF)) << range.last;
        if (range.zeroRefused) {
            EXPECT_FALSE(acceptedWith(range.field, range.first - 1)) << range.last;
        }
    }
}

TEST(ParseSettings, RefusesFlagsOtherThan0And1) {
    for (const auto field : {&StoredRecord::rtspUdp, &StoredRecord::updateDisabled}) {
        EXPECT_TRUE(acceptedWith(field, 1));
        for (const std::uint32_t value : {2u, 256u, 0x0100'0000u, 0xFFFF'FFFFu})
            EXPECT_FALSE(acceptedWith(field, value)) << value;
    }
}

TEST(ParseSettings, TakesStringsOf8192UnitsButNotOf8193) {
    for (std::size_t i = 0; i < 6; ++i) {
        StoredRecord record;
        record.strings[i].assign(8192, u'x');
        EXPECT_TRUE(accepted(record)) << i;
        record.strings[i].assign(8193, u'x');
        EXPECT_FALSE(accepted(record)) << i;
    }
}

TEST(ParseSettings, RefusesALengthThatIsNotThere) {
    for (const std::uint32_t length : {1u, 8192u, 0x7FFF'FFFFu, 0x8000'0000u, 0xFFFF'FFFFu}) {
        std::string bytes = StoredRecord().bytes();
        bytes.resize(bytes.size() - 4);
        StoredRecord::put(bytes, length, 4);
        EXPECT_FALSE(parsed(bytes)) << length;
    }
}

TEST(ParseSettings, RefusesAZeroUnitAnywhereInAString) {
    for (std::size_t i = 0; i < 6; ++i) {
        for (std::size_t at = 0; at < 3; ++at) {
            StoredRecord record;
            record.strings[i] = u"abc";
            record.strings[i][at] = u'\0';
            EXPECT_FALSE(accepted(record)) << i << at;
        }
    }
}

TEST(ParseSettings, KeepsAnyOtherUnitAsItStands) {
    StoredRecord record;
    record.strings[3] = {0xD800, 0xFFFF, 0x0001, 0xDC00};
    const auto settings = parsed(record.bytes());
    ASSERT_TRUE(settings);
    EXPECT_EQ(serialized(*settings), record.bytes());
}

TEST(ParseSettings, DoesNotJudgeAddressesOrCredentials) {
    StoredRecord record;
    record.source = 1;
    record.strings[1] = u"not an address";
    record.strings[2].assign(257, u'u');
    record.strings[5] = u"http://manifest";
    EXPECT_TRUE(accepted(record));
    EXPECT_FALSE(validateSettings(*parsed(record.bytes())).empty());
}

}  // namespace
}  // namespace vextra
