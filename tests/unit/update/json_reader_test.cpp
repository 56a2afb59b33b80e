#include "update/json_reader.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

namespace vextra {
namespace {

// From a block of exactly this size, so that a sanitizer sees a read past it.
std::optional<JsonValue> parsed(std::string_view text) {
    const auto exact = std::make_unique<char[]>(text.size());
    if (!text.empty())
        std::memcpy(exact.get(), text.data(), text.size());
    return parseJsonDocument({exact.get(), text.size()});
}
bool accepted(std::string_view text) {
    return parsed(text).has_value();
}
std::string member(std::string_view json) {
    return "{\"k\":" + std::string(json) + "}";
}
// The text of a member that is a string in this notation; "refused" for an invalid document.
std::string stringOf(std::string_view json) {
    const auto root = parsed(member(json));
    if (!root)
        return "refused";
    const JsonValue* const value = findMember(*root, "k", JsonKind::kString);
    return value == nullptr ? "no string" : value->text;
}
std::string objectOf(std::size_t members, std::string_view value = "1") {
    std::string json = "{";
    for (std::size_t i = 0; i < members; ++i)
        json += (i == 0 ? "\"k" : ",\"k") + std::to_string(i) + "\":" + std::string(value);
    return json + "}";
}

TEST(JsonDocument, IsOneObject) {
    const auto root = parsed(R"({"a":1,"b":"x","c":{"d":2}})");
    ASSERT_TRUE(root);
    EXPECT_EQ(root->kind, JsonKind::kObject);
    EXPECT_EQ(root->members.size(), 3u);
    EXPECT_EQ(findMember(*root, "a", JsonKind::kNumber)->number, 1u);
    EXPECT_EQ(findMember(*root, "b", JsonKind::kString)->text, "x");
    const JsonValue* const inner = findMember(*root, "c", JsonKind::kObject);
    ASSERT_NE(inner, nullptr);
    EXPECT_EQ(findMember(*inner, "d", JsonKind::kNumber)->number, 2u);
}

TEST(JsonDocument, MayBeAnEmptyObject) {
    for (const char* json : {"{}", "{ }", " {\r\n\t} "}) {
        const auto root = parsed(json);
        ASSERT_TRUE(root) << json;
        EXPECT_TRUE(root->members.empty());
    }
}

TEST(JsonDocument, IsNeitherEmptyNorBlank) {
    for (const char* json : {"", " ", "\r\n\t "})
        EXPECT_FALSE(accepted(json)) << json;
}

TEST(JsonDocument, IsNoStringAndNoNumber) {
    for (const char* json : {"\"x\"", "1", "0", " \"\" "})
        EXPECT_FALSE(accepted(json)) << json;
}

TEST(JsonDocument, Has65536BytesAtMost) {
    EXPECT_TRUE(accepted("{}" + std::string(65'534, ' ')));
    EXPECT_FALSE(accepted("{}" + std::string(65'535, ' ')));
}

TEST(JsonDocument, EndsWithWhitespaceAlone) {
    for (int byte = 0; byte < 256; ++byte) {
        const bool blank = byte != 0 && std::strchr(" \t\r\n", byte) != nullptr;
        EXPECT_EQ(accepted(std::string("{}") + static_cast<char>(byte)), blank) << byte;
    }
}

TEST(JsonDocument, MayHaveWhitespaceBetweenAllOfItsPieces) {
    EXPECT_TRUE(accepted(" { \"a\" : 1 ,\n\"b\"\t:\r{ \"c\" : \"x\" } } "));
}

TEST(JsonDocument, HasNoOtherKindOfWhitespace) {
    for (const char* blank : {"\v", "\f", "\xA0", "\xEF\xBB\xBF", "\x01", "/**/"})
        EXPECT_FALSE(accepted(std::string(blank) + "{}")) << blank;
}

TEST(JsonDocument, IsRefusedWhereverItIsCutOff) {
    const std::string whole = R"({"a":"\u0041\"","b":{"c":18446744073709551615}})";
    ASSERT_TRUE(accepted(whole));
    for (std::size_t length = 0; length < whole.size(); ++length)
        EXPECT_FALSE(accepted(whole.substr(0, length))) << length;
}

TEST(JsonObject, NamesNoKeyTwice) {
    for (const char* json :
         {R"({"a":1,"a":1})", R"({"a":1,"b":2,"a":"x"})", R"({"a":1,"\u0061":1})", R"({"o":{"a":1,"a":1}})"})
        EXPECT_FALSE(accepted(json)) << json;
    EXPECT_TRUE(accepted(R"({"a":1,"A":1,"o":{"a":1}})"));
}

TEST(JsonObject, HasItsPunctuationInPlace) {
    for (const char* json : {R"({"a":1,})", R"({,})", R"({,"a":1})", R"({"a":1,,"b":1})", R"({"a":1 "b":1})",
                             R"({"a" 1})", R"({"a"})", R"({"a":})", R"({a:1})", R"({1:1})", R"({'a':1})",
                             R"({"a"=1})", R"({"a":1]})", R"({"a":1}})", R"({{}})", R"({"a":1;})", "{", "}"})
        EXPECT_FALSE(accepted(json)) << json;
}

TEST(JsonObject, HoldsObjectsOfStringsAndNumbersOnly) {
    EXPECT_TRUE(accepted(R"({"a":{"b":1}})"));
    EXPECT_TRUE(accepted(R"({"a":{},"b":{}})"));
    EXPECT_FALSE(accepted(R"({"a":{"b":{}}})"));
    EXPECT_FALSE(accepted(R"({"a":{"b":{"c":1}}})"));
}

TEST(JsonObject, Has16MembersAtMost) {
    EXPECT_TRUE(accepted(objectOf(16)));
    EXPECT_FALSE(accepted(objectOf(17)));
    EXPECT_TRUE(accepted(member(objectOf(16))));
    EXPECT_FALSE(accepted(member(objectOf(17))));
}

TEST(JsonObject, HasKeysOf64BytesAtMost) {
    EXPECT_TRUE(accepted("{\"" + std::string(64, 'k') + "\":1}"));
    EXPECT_FALSE(accepted("{\"" + std::string(65, 'k') + "\":1}"));
    EXPECT_TRUE(accepted(R"({"":1})"));
}

TEST(JsonString, Has8192BytesAtMost) {
    EXPECT_EQ(stringOf("\"" + std::string(8192, 'x') + "\"").size(), 8192u);
    EXPECT_EQ(stringOf("\"" + std::string(8193, 'x') + "\""), "refused");
    EXPECT_EQ(stringOf("\"" + std::string(8191, 'x') + "\\u0041\\u0041\""), "refused");
}

TEST(JsonString, HoldsPrintableAsciiAlone) {
    for (int byte = 0; byte < 256; ++byte) {
        if (byte == '"' || byte == '\\')
            continue;
        const std::string text(1, static_cast<char>(byte));
        EXPECT_EQ(stringOf("\"" + text + "\""), byte >= 0x20 && byte <= 0x7E ? text : "refused") << byte;
    }
}

TEST(JsonString, KnowsFourEscapes) {
    EXPECT_EQ(stringOf(R"("\"\\\/\u0041")"), "\"\\/A");
    for (int byte = 0; byte < 256; ++byte) {
        if (byte != 0 && std::strchr("\"\\/u", byte) != nullptr)
            continue;
        EXPECT_EQ(stringOf(std::string("\"\\") + static_cast<char>(byte) + "\""), "refused") << byte;
    }
}

TEST(JsonString, EscapesPrintableAsciiByItsCode) {
    const char* const digits = "0123456789abcdef";
    for (unsigned code = 0; code < 0x200; ++code) {
        const std::string escape = {
            '\\', 'u', '0', digits[code >> 8], digits[code >> 4 & 15], digits[code & 15]};
        EXPECT_EQ(stringOf("\"" + escape + "\""),
                  code >= 0x20 && code <= 0x7E ? std::string(1, static_cast<char>(code)) : "refused")
            << escape;
    }
    EXPECT_EQ(stringOf(R"("\u007e\u007E")"), "~~");
    for (const char* json :
         {R"("\u00e9")", R"("\u1041")", R"("\uffff")", R"("\ud83d\ude00")", R"("\u004")", R"("\u")",
          R"("\u00 41")", R"("\u004g")", R"("\U0041")", R"("\u+041")", R"("\")"})
        EXPECT_EQ(stringOf(json), "refused") << json;
}

TEST(JsonNumber, IsUnsignedWith64Bits) {
    for (const char* json : {"0", "1", "10", "536870912", "18446744073709551615"}) {
        const auto root = parsed(member(json));
        ASSERT_TRUE(root) << json;
        EXPECT_EQ(std::to_string(findMember(*root, "k", JsonKind::kNumber)->number), json);
    }
    for (const char* json : {"18446744073709551616", "18446744073709551620", "28446744073709551615",
                             "184467440737095516150", "99999999999999999999999999"})
        EXPECT_FALSE(accepted(member(json))) << json;
}

TEST(JsonNumber, HasNoSignFractionExponentOrLeadingZero) {
    for (const char* json : {"-1", "+1", "-0", "1.0", "1.", ".1", "1e1", "1E1", "0e0", "01", "00", "0x1",
                             "1 2", "1_0", "NaN", "Infinity"})
        EXPECT_FALSE(accepted(member(json))) << json;
}

TEST(JsonValueKinds, AreThree) {
    for (const char* json :
         {"[]", "[1]", "true", "false", "null", "True", "undefined", "'x'", "x", "/", ":", ","})
        EXPECT_FALSE(accepted(member(json))) << json;
}

TEST(FindMember, WantsTheExactNameAndKind) {
    const auto root = parsed(R"({"number":1,"string":"x","object":{}})");
    ASSERT_TRUE(root);
    EXPECT_NE(findMember(*root, "number", JsonKind::kNumber), nullptr);
    EXPECT_EQ(findMember(*root, "number", JsonKind::kString), nullptr);
    EXPECT_EQ(findMember(*root, "string", JsonKind::kObject), nullptr);
    EXPECT_EQ(findMember(*root, "object", JsonKind::kNumber), nullptr);
    EXPECT_EQ(findMember(*root, "Number", JsonKind::kNumber), nullptr);
    EXPECT_EQ(findMember(*root, "numbe", JsonKind::kNumber), nullptr);
    EXPECT_EQ(findMember(*root, "", JsonKind::kNumber), nullptr);
}

TEST(FindMember, FindsNothingInAStringOrNumber) {
    const auto root = parsed(R"({"number":1,"string":"x"})");
    ASSERT_TRUE(root);
    EXPECT_EQ(findMember(*findMember(*root, "number", JsonKind::kNumber), "number", JsonKind::kNumber),
              nullptr);
    EXPECT_EQ(findMember(*findMember(*root, "string", JsonKind::kString), "string", JsonKind::kString),
              nullptr);
}

}  // namespace
}  // namespace vextra
