#!/usr/bin/env bash
# clang-format over all C++ sources: format.sh [--check]. Checking changes nothing and fails on any difference.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
action=(-i)
[[ ${1:-} != --check ]] || action=(--dry-run -Werror)
find src tests tools \( -name '*.h' -o -name '*.cpp' \) -print0 | xargs -0 clang-format "${action[@]}"
