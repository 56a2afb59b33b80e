#include "update/json_reader.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "base/text.h"

namespace vextra {
namespace {

// The root is at depth 0; objects inside it hold strings and numbers only.
constexpr int kDeepestObject = 1;

bool isPrintable(int byte) {
    return byte >= 0x20 && byte <= 0x7E;
}

// Each step takes what it stands for from the front of the text; false: the document is invalid.
class Reader {
public:
    explicit Reader(std::string_view text) : rest_(text) {}

    bool readDocument(JsonValue& root) {
        if (!readValue(root, 0))
            return false;
        skipWhitespace();
        return rest_.empty() && root.kind == JsonKind::kObject;
    }

private:
    void skipWhitespace() { rest_.remove_prefix(std::min(rest_.find_first_not_of(" \r\n\t"), rest_.size())); }

    bool take(char expected) {
        skipWhitespace();
        if (!rest_.starts_with(expected))
            return false;
        rest_.remove_prefix(1);
        return true;
    }

    // NOLINTNEXTLINE(misc-no-recursion): no deeper than kDeepestObject
    bool readValue(JsonValue& value, int depth) {
        skipWhitespace();
        if (rest_.empty())
            return false;
        switch (rest_.front()) {
            case '{':
                value.kind = JsonKind::kObject;
                return depth <= kDeepestObject && readObject(value, depth);
            case '"': value.kind = JsonKind::kString; return readString(value.text);
            default: value.kind = JsonKind::kNumber; return readNumber(value.number);
        }
    }

    // A ".", an "e" or anything else after the digits is left for the caller, to whom it is unexpected.
    bool readNumber(std::uint64_t& number) {
        const std::size_t digits =
            static_cast<std::size_t>(std::ranges::find_if_not(rest_, isAsciiDigit) - rest_.begin());
        if (digits == 0 || (digits > 1 && rest_.front() == '0'))
            return false;
        number = 0;
        for (const char c : rest_.substr(0, digits)) {
            const auto digit = static_cast<std::uint64_t>(c - '0');
            if (number > (std::numeric_limits<std::uint64_t>::max() - digit) / 10)
                return false;
            number = number * 10 + digit;
        }
        rest_.remove_prefix(digits);
        return true;
    }

    // The text begins with the brace that makes it an object.
    // NOLINTNEXTLINE(misc-no-recursion): no deeper than kDeepestObject
    bool readObject(JsonValue& object, int depth) {
        rest_.remove_prefix(1);
        if (take('}'))
            return true;
        do {
            JsonMember member;
            if (!readString(member.key) || member.key.size() > kMaxJsonKeyBytes ||
                object.members.size() == kMaxJsonMembers || !take(':') ||
                !readValue(member.value, depth + 1) || hasMember(object, member.key))
                return false;
            object.members.push_back(std::move(member));
            if (take('}'))
                return true;
        } while (take(','));
        return false;
    }

    static bool hasMember(const JsonValue& object, std::string_view key) {
        return std::ranges::find(object.members, key, &JsonMember::key) != object.members.end();
    }

    bool readString(std::string& text) {
        if (!take('"'))
            return false;
        while (!rest_.empty()) {
            const char c = rest_.front();
            rest_.remove_prefix(1);
            if (c == '"')
                return true;
            if (!isPrintable(static_cast<unsigned char>(c)))
                return false;
            if (c != '\\')
                text.push_back(c);
            else if (!readEscape(text))
                return false;
            if (text.size() > kMaxJsonStringBytes)
                return false;
        }
        return false;
    }

    bool readEscape(std::string& text) {
        if (rest_.empty())
            return false;
        const char c = rest_.front();
        rest_.remove_prefix(1);
        if (c == 'u')
            return readCodeEscape(text);
        text.push_back(c);
        return c == '"' || c == '/' || c == '\\';
    }

    bool readCodeEscape(std::string& text) {
        if (rest_.size() < 4)
            return false;
        int code = 0;
        for (const char c : rest_.substr(0, 4)) {
            const int digit = hexDigitValue(c);
            if (digit < 0)
                return false;
            code = code * 16 + digit;
        }
        rest_.remove_prefix(4);
        text.push_back(static_cast<char>(code));
        return isPrintable(code);
    }

    std::string_view rest_;
};

}  // namespace

std::optional<JsonValue> parseJsonDocument(std::string_view text) {
    JsonValue root;
    if (text.empty() || text.size() > kMaxJsonDocumentBytes || !Reader(text).readDocument(root))
        return std::nullopt;
    return root;
}

const JsonValue* findMember(const JsonValue& object, std::string_view key, JsonKind kind) {
    if (object.kind != JsonKind::kObject)
        return nullptr;
    const auto found = std::ranges::find(object.members, key, &JsonMember::key);
    return found != object.members.end() && found->value.kind == kind ? &found->value : nullptr;
}

}  // namespace vextra
