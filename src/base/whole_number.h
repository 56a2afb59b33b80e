// Decimal numbers as people and installers write them. Pure; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

namespace vextra {

// The whole text in base 10, as the standard conversion reads it where it has 32 bits, on every machine:
// white space and a sign may stand in front, what is larger than 32 bits becomes the largest number of 32
// bits, and a negative number wraps at 2^32. Nothing when anything else stands there, as in an empty text.
// `length` in units; the terminator stands behind them.
std::optional<std::uint32_t> parseWholeNumber(const wchar_t* text, std::size_t length);

}  // namespace vextra
