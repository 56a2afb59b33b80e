#!/usr/bin/env bash
# Looks at every shell and Python script of the project; fails on whatever it finds. Options are in .shellcheckrc.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."

places=(dev .ci packaging src tests tools)
mapfile -t shell < <(grep -rlIE '^#!/usr/bin/env bash$' "${places[@]}")
mapfile -t python < <(find "${places[@]}" -name '*.py')
((${#shell[@]} > 1 && ${#python[@]} > 1)) || { echo 'there are no scripts' >&2; exit 1; }
status=0
shellcheck "${shell[@]}" || status=1
pyflakes3 "${python[@]}" || status=1
echo "${#shell[@]} shell and ${#python[@]} Python scripts"
exit "$status"
