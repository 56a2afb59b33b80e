#!/usr/bin/env bash
# Proves what every test that runs Windows code relies on: what the launcher reports and what a session leaves
# alone.
#
#   selftest.sh TOOLS_DIR WORK_DIR
#
# TOOLS_DIR holds test-launcher.exe, window-keeper.exe and launcher-probe.exe. Sessions are made below
# WORK_DIR and removed again.
set -euo pipefail

(($# == 2)) || {
    sed -n '2,/^set /{s/^# \{0,1\}//p}' "${BASH_SOURCE[0]}" >&2
    exit 2
}
here=$(cd "${BASH_SOURCE[0]%/*}" && pwd)
tools=$(cd "$1" && pwd)
work=$(mkdir -p "$2" && cd "$2" && mktemp -d "$PWD/selftest.XXXXXX")
readonly CRASHED=120 UNMAPPABLE=121 NOT_STARTED=122 NOT_UP=123
readonly CRASH_RUNS=20
session=$here/session
probe=$tools/launcher-probe.exe
a=$work/a
b=$work/b
failures=0

# shellcheck source=env.sh
source "$here/env.sh"

# shellcheck disable=SC2317  # called by the trap
cleanUp() {
    "$session" down "$a" || true
    "$session" down "$b" || true
    rm -rf "$work"
}
trap cleanUp EXIT

check() { # WHAT EXPECTED ACTUAL
    if [[ $2 == "$3" ]]; then
        echo "ok: $1"
    else
        printf 'FAILED: %s\n  expected: %q\n  actual:   %q\n' "$1" "$2" "$3"
        failures=$((failures + 1))
    fi
}

in_a() { # [OPTION]... COMMAND-OF-THE-PROBE: answers its output
    local -a options=()
    while [[ $1 == --* ]]; do
        options+=("$1" "$2") && shift 2
    done
    "$session" run "$a" "${options[@]}" "$probe" "$@"
}

statusOf() { # COMMAND...: answers its exit status
    local status=0
    "$@" >/dev/null 2>&1 || status=$?
    echo "$status"
}

probesIn() { # DIR: answers how many probes run in the session
    local pid name count=0
    for pid in $(prefixProcesses "$1/prefix"); do
        # The kernel keeps 15 characters of a name.
        { read -r name <"/proc/$pid/comm"; } 2>/dev/null || continue
        [[ $name != launcher-probe. ]] || count=$((count + 1))
    done
    echo "$count"
}

waitUntilProbes() { # DIR COUNT: answers the count that came, or the last one seen
    local count deadline=$((SECONDS + 5))
    while count=$(probesIn "$1") && ((count != $2 && SECONDS < deadline)); do
        sleep 0.02
    done
    echo "$count"
}

# The pipe ends only when nothing that up started holds it any more; ctest waits for just that.
upEnds=$(timeout 30 bash -c '"$@" | cat' - "$session" up "$a" --tools "$tools" && echo yes || echo no)
check 'up lets go of its output' yes "$upEnds"
pids=$(prefixProcesses "$a/prefix" | sort)
"$session" up "$a" --tools "$tools"
check 'up on a running session changes nothing' "$pids" "$(prefixProcesses "$a/prefix" | sort)"
check 'the prefix leads to no folder of the user' '' "$(find "$a/prefix/drive_c" -type l)"

check 'a program is unelevated' 0 "$(in_a elevation)"
check 'what it starts is unelevated' 0 "$(in_a child-elevation)"
check '--elevated' 1 "$("$session" run "$a" --elevated "$probe" elevation)"
check 'VEXTRA_ELEVATED=1, what it starts' 1 "$(VEXTRA_ELEVATED=1 in_a child-elevation)"

for code in 0 1 2 3 5 9 119; do
    check "exit code $code" "$code" "$(statusOf in_a exit "$code")"
done
for code in 120 256 261; do
    check "exit code $code" "$UNMAPPABLE" "$(statusOf in_a exit "$code")"
done
for code in 0x80000003 0xC0000005 0xFFFFFFFF; do
    check "exit code $code" "$CRASHED" "$(statusOf in_a exit "$code")"
done
check 'exit code 0 of a test' 0 "$(statusOf "$session" run "$a" --test "$probe" exit 0)"
check 'exit code 1 of a test' 1 "$(statusOf "$session" run "$a" --test "$probe" exit 1)"
check 'exit code 2 of a test' "$CRASHED" "$(statusOf "$session" run "$a" --test "$probe" exit 2)"
check 'a program that is not there' "$NOT_STARTED" "$(statusOf "$session" run "$a" "$tools/nothing.exe")"
check 'a crash is named' 'crashed: 0xC0000005 (access violation)' \
    "$(in_a crash access 2>&1 | tr -d '\r' | grep -o 'crashed: .*')"

crashRuns() { # HOW [OPTION]...: answers the exit statuses, each once with its count
    local how=$1 i
    shift
    for ((i = 0; i < CRASH_RUNS; ++i)); do
        statusOf "$session" run "$a" "$@" "$probe" crash "$how"
    done | sort | uniq -c | xargs
}
# Two at once, as ctest runs them. What only a test can tell is tried as one: a program other than a test may
# end with 3 or 0 of its own accord.
for pair in 'access trap' 'abort exception --test' 'stack exit --test'; do
    read -r first second mode <<<"$pair"
    crashRuns "$first" ${mode:+"$mode"} >"$work/first" &
    running=$!
    crashRuns "$second" ${mode:+"$mode"} >"$work/second"
    wait "$running"
    check "$CRASH_RUNS crashes $mode: $first" "$CRASH_RUNS $CRASHED" "$(<"$work/first")"
    check "$CRASH_RUNS crashes $mode: $second" "$CRASH_RUNS $CRASHED" "$(<"$work/second")"
done

# shellcheck disable=SC1003  # backslashes in front of a quote are what is tried here
arguments=('a b' 'q"uo"te' 'back\' 'sp ace\' 'tw\\' 'x\\"y' '' 'é•日本' '*' '*.exe' '%PATH%' $'tab\there'
    "it's" '^&|<>' '--env' '--' '"' '\"' '/a/path' 'C:\x y\')
check 'arguments arrive unchanged' "$(printf '%s\n' "${arguments[@]}")" \
    "$(cd "$tools" && in_a arguments "${arguments[@]}")"
check 'LOCALAPPDATA is set for the program' 'C:\data é\a=b' \
    "$(in_a --env 'LOCALAPPDATA=C:\data é\a=b' variable LOCALAPPDATA)"
check 'ProgramData is set, whatever its case' 'D:\x' \
    "$(in_a --env 'PROGRAMDATA=D:\x' variable ProgramData)"
check 'the last of two values counts' '2' "$(in_a --env 'V=1' --env 'V=2' variable V)"
check "the folder is the caller's" "Z:${tools//\//\\}" "$(cd "$tools" && in_a directory)"
check '--cwd' 'C:\windows' "$(in_a --cwd 'C:\windows' directory)"
check 'a relative path' 0 "$(cd "$tools" && "$session" run "$a" ./launcher-probe.exe elevation)"
check 'input and output pass through' 'x é' "$(echo 'x é' | in_a copy-input)"
check 'a job within the job' 0 "$(statusOf in_a close-own-job)"
check 'a window' 0 "$(statusOf in_a window)"
check 'no display, another folder for temporary files' 0 \
    "$(env -u DISPLAY TMPDIR="$work" "$session" run "$a" "$probe" elevation)"

check 'what a program leaves behind goes with it' '0 0' \
    "$(statusOf in_a leave-child) $(waitUntilProbes "$a" 0)"
"$session" run "$a" "$probe" leave-child-and-sleep >/dev/null 2>&1 &
running=$!
check 'a program and its child run' 2 "$(waitUntilProbes "$a" 2)"
kill -KILL "$running"
{ wait "$running" || true; } 2>/dev/null
check 'both go when the launcher is killed' 0 "$(waitUntilProbes "$a" 0)"

"$session" up "$b" --tools "$tools"
displayOf() { (useSession "$1" && echo "$DISPLAY"); }
check 'two sessions have a display each' different \
    "$([[ $(displayOf "$a") == "$(displayOf "$b")" ]] || echo different)"
registry() { statusOf "$session" run "$1" 'C:\windows\system32\reg.exe' "$2" 'HKCU\Software\Probe'; }
check 'one session writes to its registry' 0 "$(registry "$b" add)"
check 'and reads it' 0 "$(registry "$b" query)"
check 'the other has nothing of it' 1 "$(registry "$a" query)"
pids=$(prefixProcesses "$a/prefix" | sort)

# Wine's processes end with 0 then, which would make a passed test of one that did not come to its end.
useSession "$b"
"$session" run "$b" "$probe" sleep 2>"$work/told" &
running=$!
check 'a program runs in the other session' 1 "$(waitUntilProbes "$b" 1)"
kill -KILL "$SESSION_SERVER_PID"
status=0
wait "$running" || status=$?
check 'a program whose server ends has not passed' "$NOT_UP" "$status"
check 'and the end of the server is told' 1 "$(grep -c 'the server of .* ended while .* ran' "$work/told")"
"$session" up "$b" --tools "$tools"

# A session whose server or display was killed is not used, and up makes a new one of it.
for part in SERVER XVFB; do
    useSession "$b"
    pid=SESSION_${part}_PID
    start=SESSION_${part}_START
    kill -KILL "${!pid}"
    while processIs "${!pid}" "${!start}"; do
        sleep 0.01
    done
    check "a session without its ${part,,} is not up" "$NOT_UP" \
        "$(statusOf "$session" run "$b" "$probe" elevation)"
    "$session" up "$b" --tools "$tools"
    check "up brings it back" 0 "$("$session" run "$b" "$probe" elevation)"
done

useSession "$b"
serverFolder=/tmp/$(<"$b/prefix/wineserver")
check 'the server has its folder' yes "$([[ -d $serverFolder ]] && echo yes || echo no)"
"$session" run "$b" "$probe" sleep >/dev/null 2>&1 &
check 'a program runs' 1 "$(waitUntilProbes "$b" 1)"
"$session" down "$b"
check 'down leaves no process' '' "$(prefixProcesses "$b/prefix")"
check 'down leaves no display' no \
    "$(processIs "$SESSION_XVFB_PID" "$SESSION_XVFB_START" && echo yes || echo no)"
check 'down leaves no folder of the server' no "$([[ -d $serverFolder ]] && echo yes || echo no)"
check 'down of a session that is down' 0 "$(statusOf "$session" down "$b")"
check 'run says that the session is not up' "$NOT_UP" "$(statusOf "$session" run "$b" "$probe" elevation)"
"$session" up "$b" --tools "$tools"
serverFolder=/tmp/$(<"$b/prefix/wineserver")
rm -rf "$b"
"$session" down "$b"
check 'down finds its processes even without the folder' '' "$(prefixProcesses "$b/prefix")"
check 'and the folder of the server' no "$([[ -d $serverFolder ]] && echo yes || echo no)"
check 'the other session never noticed' "$pids 0" "$(prefixProcesses "$a/prefix" | sort) $(in_a elevation)"

((failures == 0)) || echo "$failures failed"
exit $((failures > 0))
