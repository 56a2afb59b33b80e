#!/usr/bin/env bash
# The window on screens that are too small for its design: all of it has to be on the screen.
#
#   small_screen.sh BUILD DIR     BUILD: build folder; DIR: for the sessions of this test
set -euo pipefail

build=$1 dir=$2
session=${BASH_SOURCE[0]%/*}/../support/wine/session

finish() { "$session" down "$dir"; }
fail() {
    echo "small_screen: $*" >&2
    exit 1
}
geometry() { xdotool getwindowgeometry --shell "$(xdotool search --onlyvisible --name 'Vextra MF')" 2>/dev/null; }

mkdir -p "$dir"
trap finish EXIT
for screen in 1366x768@96 1366x768@144 1280x720@96; do
    size=${screen%@*}
    "$session" up "$dir" --tools "$build/tests" --dpi "${screen#*@}" --screen "$size"
    # shellcheck disable=SC1091
    source "$dir/session.env"
    export DISPLAY=$SESSION_DISPLAY
    "$session" run "$dir" "$build/bin/CameraVirtualVextraMF.exe" --test-pattern --test-seconds 60 &
    broker=$!
    deadline=$((SECONDS + 20))
    until found=$(geometry); do
        ((SECONDS < deadline)) || fail "no window on $screen"
        sleep 0.1
    done
    eval "$found"  # X, Y, WIDTH and HEIGHT: of the window, its frame included
    ((X >= 0 && Y >= 0 && X + WIDTH <= ${size%x*} && Y + HEIGHT <= ${size#*x})) ||
        fail "not all on the screen of $screen: $WIDTH x $HEIGHT at $X, $Y"
    "$session" run "$dir" "$build/tests/window-driver.exe" press 202
    wait "$broker" || fail "the broker ended with $?"
    echo "small_screen: on $screen the window is $WIDTH x $HEIGHT at $X, $Y"
    "$session" down "$dir"
done
