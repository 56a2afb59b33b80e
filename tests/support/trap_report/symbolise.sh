#!/usr/bin/env bash
# symbolise.sh BUILD: passes on what it reads, and below each report of trap_report_win.cpp the functions and lines that
# its addresses stand for. BUILD is the checked build; a broker that a test had copied elsewhere is found by its name.
set -euo pipefail
build=$1

while IFS= read -r line || [[ -n $line ]]; do
    printf '%s\n' "$line"
    [[ $line =~ trap-report:\ .*\ in\ ([^ ]+\.exe)\ at((\ 0x[0-9a-f]+)+) ]] || continue
    read -ra addresses <<<"${BASH_REMATCH[2]}"
    for program in "$build"/{bin,tests,tools}/"${BASH_REMATCH[1]}"; do
        [[ -f $program ]] || continue
        # Less what is the compiler's and its library's; a path of ours begins where the sources do.
        x86_64-w64-mingw32-addr2line -e "$program" -f -C -p -i "${addresses[@]}" |
            sed -E '/^\?\? | at [^ ]*\/(lib\/gcc\/|mingw-w64-)/d; s| at [^ ]*/\.\./\.\./| at |; s/^/    /'
        break
    done
done
