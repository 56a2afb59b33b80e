// A general JSON library (nlohmann-json) as the judge of the reader: whatever the reader accepts, the library
// accepts with the same values.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "update/json_reader.h"

namespace vextra::test {

inline bool sameValue(const JsonValue& ours, const nlohmann::json& theirs) {
    switch (ours.kind) {
        case JsonKind::kString:
            return theirs.is_string() && theirs.get_ref<const std::string&>() == ours.text;
        case JsonKind::kNumber:
            return theirs.is_number_unsigned() && theirs.get<std::uint64_t>() == ours.number;
        case JsonKind::kObject: break;
    }
    if (!theirs.is_object() || theirs.size() != ours.members.size())
        return false;
    for (const JsonMember& member : ours.members) {
        const auto found = theirs.find(member.key);
        if (found == theirs.end() || !sameValue(member.value, *found))
            return false;
    }
    return true;
}

inline bool libraryAgrees(const JsonValue& ours, std::string_view text) {
    const nlohmann::json theirs = nlohmann::json::parse(text, nullptr, false);
    return !theirs.is_discarded() && sameValue(ours, theirs);
}

}  // namespace vextra::test
