// The little JSON that the channel's two documents need: objects of strings and unsigned numbers, objects in
// the root at most. A general reader must not stand in for it: what it accepts beyond this, a server
// could smuggle in under a signature that says nothing about it. Pure.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vextra {

constexpr std::size_t kMaxJsonDocumentBytes = 65'536;
constexpr std::size_t kMaxJsonStringBytes = 8192;
constexpr std::size_t kMaxJsonKeyBytes = 64;
constexpr std::size_t kMaxJsonMembers = 16;

enum class JsonKind : std::uint8_t { kObject = 1, kString, kNumber };

struct JsonMember;

// A value owns its members; the root owns the whole tree.
struct JsonValue {
    JsonKind kind = JsonKind::kObject;
    std::string text;                 // of a string: printable ASCII, escapes resolved
    std::uint64_t number = 0;         // of a number
    std::vector<JsonMember> members;  // of an object, in the order of the document; no key twice
};

struct JsonMember {
    std::string key;
    JsonValue value;
};

// The root, an object. Nothing unless the whole text, 1 to 65,536 bytes, is one document.
std::optional<JsonValue> parseJsonDocument(std::string_view text);

// Null unless `object` is an object and has a member of exactly this name and kind.
const JsonValue* findMember(const JsonValue& object, std::string_view key, JsonKind kind);

}  // namespace vextra
