// UTF-16 to UTF-8, strictly: nothing is replaced, nothing is guessed.
#pragma once

#include <string_view>

#include "base/secret.h"

namespace vextra {

// Appends the UTF-8 form of `units` to `out`. False at the first unpaired surrogate; `out` then holds what
// came before it. (Unicode 15, table 3-6; the same verdicts as WideCharToMultiByte with
// WC_ERR_INVALID_CHARS.)
bool appendUtf8(std::wstring_view units, SecretUtf8& out);

}  // namespace vextra
