#!/usr/bin/env bash
# The tray icon in a real tray: the broker docks into one, and a click with a mouse brings its closed window back.
#
#   tray_host.sh BUILD DIR     BUILD: build folder; DIR: for the session of this test
set -euo pipefail

build=$1 dir=$2
session=${BASH_SOURCE[0]%/*}/../support/wine/session
# A pattern: each use finds the one user's file.
# shellcheck disable=SC2125
log=$dir/prefix/drive_c/users/*/AppData/Local/Vextra/CameraVirtualMFBeta/diagnostic.log
trayPid=''

finish() {
    [[ -z $trayPid ]] || kill "$trayPid" 2>/dev/null || true
    "$session" down "$dir"
}
fail() {
    echo "tray_host: $*" >&2
    # shellcheck disable=SC2086
    cat $log >&2 || true
    exit 1
}
# shellcheck disable=SC2086
logged() { grep -q " $1 " $log; }
waitFor() { # WHAT COMMAND...
    local what=$1 deadline=$((SECONDS + 20))
    shift
    until "$@" >/dev/null 2>&1; do
        ((SECONDS < deadline)) || fail "$what"
        sleep 0.1
    done
}
shown() { [[ -n $(xdotool search --onlyvisible --name 'Vextra MF' 2>/dev/null) ]]; }
hidden() { ! shown; }
docked() { [[ $(xwininfo -tree -id "$panel" | grep -c explorer.exe) -gt 0 ]]; }
clickUntilShown() {
    xdotool mousemove 11 12 click 1  # the first click may only close the notice
    sleep 0.5
    shown
}

mkdir -p "$dir"
trap finish EXIT
"$session" up "$dir" --tools "$build/tests"
# shellcheck disable=SC1091
source "$dir/session.env"
export DISPLAY=$SESSION_DISPLAY
trayer --edge top --align left --widthtype pixel --width 200 --height 24 &
trayPid=$!
waitFor 'no tray came up' xdotool search --onlyvisible --class trayer
panel=$(xdotool search --onlyvisible --class trayer | tail -n 1)

"$session" run "$dir" "$build/bin/CameraVirtualVextraMF.exe" --test-pattern --test-seconds 100 &
broker=$!
waitFor 'the window was not shown' shown
waitFor 'the icon was not added' logged TRAY_ADD_OK
waitFor 'the icon is not in the tray' docked
"$session" run "$dir" "$build/tests/window-driver.exe" close
waitFor 'closing did not hide the window' hidden
waitFor 'a click on the icon did not bring the window back' clickUntilShown
logged UI_SHOW_IDEMPOTENT || fail 'the show was not logged'
"$session" run "$dir" "$build/tests/window-driver.exe" press 202
wait "$broker" || fail "the broker ended with $?"
echo 'tray_host: docked, hidden, brought back by a click, ended'
