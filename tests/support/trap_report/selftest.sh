#!/usr/bin/env bash
# A program of the checked build ends where it does wrong, and says where; one that does no wrong says nothing.
#
#   selftest.sh SESSION BUILD     SESSION: a Wine session that is up; BUILD: the checked build
set -euo pipefail

session=$1 build=$2
here=${BASH_SOURCE[0]%/*}
readonly CRASHED=120

expect() { # STATUS TEXT PROBE...: the probe's status, and a place that is named (none: no report)
    local status=0 output
    output=$("$here/../wine/session" run "$session" "$build/tests/trap-probe.exe" "${@:3}" 2>&1 | tr -d '\r') ||
        status=$?
    output=$("$here/symbolise.sh" "$build" <<<"$output")
    echo "${*:3}: $status"$'\n'"$output"
    ((status == $1)) || { echo "status $status instead of $1" >&2; exit 1; }
    if [[ -n $2 ]]; then
        [[ $output =~ $2 ]] || { echo "no word of $2" >&2; exit 1; }
    else
        [[ $output != *trap-report* ]] || { echo 'a report of nothing' >&2; exit 1; }
    fi
}

line() { # TEXT: the number of the one line of the probe that holds it
    grep -nF "$1" "$here/trap_probe_win.cpp" | cut -d : -f 1
}

probe='trap_probe_win\.cpp'
expect 0 '' nothing
expect $CRASHED "undefined behaviour.*increased at [^:]*$probe:$(line 'return value + 1')" overflow
expect $CRASHED "undefined behaviour.*overflowingProcedure at [^:]*$probe:$(line 'return increased(INT_MAX);')" callback
expect $CRASHED 'undefined behaviour.*increased' child
expect $CRASHED "abort.*elementPastTheEnd at [^:]*$probe:$(line 'return numbers[count]')" index
