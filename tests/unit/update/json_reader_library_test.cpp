#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "json_library.h"

namespace vextra {
namespace {

constexpr int kDocuments = 60'000;

// Documents that are nearly right: grown from the grammar, with a few bytes spoiled in most of them.
class Author {
public:
    std::string document() {
        std::string text = blank() + object(0) + blank();
        for (std::size_t spoils = pick(3); spoils > 0; --spoils)
            spoil(text);
        return text;
    }

private:
    std::size_t pick(std::size_t below) { return random_() % below; }
    std::string oneOf(const std::vector<std::string>& choices) { return choices[pick(choices.size())]; }

    std::string blank() { return oneOf({"", "", "", " ", "\n", "\t\r"}); }
    std::string string() {
        std::string text = "\"";
        for (std::size_t pieces = pick(5); pieces > 0; --pieces)
            text += oneOf({"a", "Z", " ", "~", "\\\"", "\\\\", "\\/", "\\u0041", "\\u007e", "\\u007F", "\\n",
                           "\x7F", "é"});
        return text + "\"";
    }
    std::string number() {
        return oneOf(
            {"0", "1", "42", "18446744073709551615", "18446744073709551616", "01", "-1", "1.5", "1e3"});
    }
    std::string value(int depth) {
        const std::size_t kind = pick(8);
        return kind < 3   ? string()
               : kind < 6 ? number()
               : kind < 7 ? object(depth + 1)
                          : oneOf({"true", "null", "[]"});
    }
    std::string object(int depth) {
        std::string text = "{";
        const std::size_t members = depth > 3 ? 0 : pick(5);
        for (std::size_t i = 0; i < members; ++i)
            text += (i == 0 ? "" : ",") + blank() + "\"" + oneOf({"a", "b", "c", "d", "e", "\\u0061"}) +
                    "\"" + blank() + ":" + blank() + value(depth) + blank();
        return text + "}";
    }
    void spoil(std::string& text) {
        const std::size_t at = pick(text.size());
        switch (pick(3)) {
            case 0: text[at] = static_cast<char>(random_()); break;
            case 1: text.erase(at, 1); break;
            default: text.insert(at, 1, "{}\",:\\0 1"[pick(9)]); break;
        }
    }

    std::mt19937 random_{20'240'611};
};

TEST(JsonLibrary, AcceptsWhateverTheReaderAcceptsWithTheSameValues) {
    Author author;
    int accepted = 0;
    for (int i = 0; i < kDocuments; ++i) {
        const std::string text = author.document();
        const auto root = parseJsonDocument(text);
        if (!root)
            continue;
        ++accepted;
        ASSERT_TRUE(test::libraryAgrees(*root, text)) << text;
    }
    // Enough of both verdicts for the comparison to mean something.
    EXPECT_GT(accepted, kDocuments / 20);
    EXPECT_LT(accepted, kDocuments / 2);
}

TEST(JsonLibrary, NoticesAnotherValue) {
    auto root = *parseJsonDocument(R"({"a":1,"b":{"c":"x"}})");
    EXPECT_FALSE(test::libraryAgrees(root, R"({"a":2,"b":{"c":"x"}})"));
    EXPECT_FALSE(test::libraryAgrees(root, R"({"a":1,"b":{"c":"y"}})"));
    EXPECT_FALSE(test::libraryAgrees(root, R"({"a":1})"));
    EXPECT_FALSE(test::libraryAgrees(root, R"({"a":1)"));
}

}  // namespace
}  // namespace vextra
