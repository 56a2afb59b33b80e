// Any bytes as a document: no crash, the limits hold in what is accepted, and a general JSON library
// accepts it too, with the same values.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "json_library.h"

namespace {

bool isWithinLimits(const vextra::JsonValue& value, int depth) {
    const auto isPrintable = [](char c) { return c >= 0x20 && c <= 0x7E; };
    if (value.kind != vextra::JsonKind::kObject)
        return value.text.size() <= vextra::kMaxJsonStringBytes &&
               std::ranges::all_of(value.text, isPrintable);
    return depth <= 1 && value.members.size() <= vextra::kMaxJsonMembers &&
           std::ranges::all_of(value.members, [&](const vextra::JsonMember& member) {
               return member.key.size() <= vextra::kMaxJsonKeyBytes &&
                      vextra::findMember(value, member.key, member.value.kind) == &member.value &&
                      isWithinLimits(member.value, depth + 1);
           });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    if (const auto root = vextra::parseJsonDocument(text)) {
        if (!isWithinLimits(*root, 0) || !vextra::test::libraryAgrees(*root, text))
            std::abort();
    }
    return 0;
}
