# shellcheck shell=bash
# To be sourced: the environment in which Windows programs run here, and where Wine lies.
#
#   WINE, WINESERVER         the loader and the server; not Debian's wrapper, which costs a shell every time
#   useSession DIR           joins the session in DIR: WINEPREFIX, DISPLAY, SESSION_*; fails when it is not up
#   processIs PID START      the process still runs, and is not a stranger with a used id
#   prefixProcesses PREFIX   the ids of the prefix's Wine processes and of its display, one a line

# Wine's own crash handler makes crashes look like success; the others would ask, download or touch the user's
# menus.
export WINEDLLOVERRIDES='winedbg.exe=d;mscoree=d;mshtml=d;winemenubuilder.exe=d'
export WINEDEBUG="${WINEDEBUG:--all}"
export WINEARCH=win64
# In a plain C locale Wine mangles every character beyond ASCII, in arguments and in file names.
export LC_ALL=C.UTF-8

# A name that no server answers for, as the update channel's of a development build, is given up in a second: tests need
# no network, and wait for none.
export RES_OPTIONS='timeout:1 attempts:1'

# Where Wine looks for the server's socket: with another value it would miss the running server and start one.
export TMPDIR=/tmp

# Debian keeps the loader and the server out of PATH; elsewhere they are in it.
WINE=/usr/lib/wine/wine64
[[ -x $WINE ]] || WINE=$(command -v wine64 || command -v wine) || WINE=''
WINESERVER=/usr/lib/wine/wineserver
[[ -x $WINESERVER ]] || WINESERVER=$(command -v wineserver) || WINESERVER=''
if [[ -z $WINE || -z $WINESERVER ]]; then
    echo 'session: Wine is missing: apt-get install wine wine64' >&2
    return 1
fi
export WINESERVER WINELOADER="$WINE"

# Sets START to the start time of process PID, or to nothing when it is gone or only waits to be reaped.
readProcessStart() { # PID
    local stat
    local -a fields
    START=''
    { read -r stat <"/proc/$1/stat"; } 2>/dev/null || return 0
    # The name in parentheses may hold blanks. Behind it, field 0 is the state and field 19 the start time.
    read -ra fields <<<"${stat##*) }"
    [[ ${fields[0]} == [ZX] ]] || START=${fields[19]}
}

processIs() { # PID START
    readProcessStart "$1"
    [[ -n $START && $START == "$2" ]]
}

useSession() { # DIR
    [[ -r $1/session.env ]] || return 1
    # The prefix is noted last, when the session is complete; a display of the user's own has no Xvfb.
    SESSION_PREFIX='' SESSION_XVFB_PID=''
    # shellcheck source=/dev/null
    source "$1/session.env"
    [[ -n $SESSION_PREFIX ]] && processIs "$SESSION_SERVER_PID" "$SESSION_SERVER_START" || return 1
    [[ -z $SESSION_XVFB_PID ]] || processIs "$SESSION_XVFB_PID" "$SESSION_XVFB_START" || return 1
    export WINEPREFIX="$SESSION_PREFIX" DISPLAY="$SESSION_DISPLAY"
}

prefixProcesses() { # PREFIX
    local file program
    # What has gone between the listing and the look is no error.
    grep -lzxF "WINEPREFIX=$1" /proc/[0-9]*/environ 2>/dev/null | while read -r file; do
        # Others, such as a test's shell, may have the variable too.
        program=$(readlink "${file%environ}exe") || continue
        [[ ${program##*/} != @(wine*|Xvfb) ]] || basename "${file%/environ}"
    done || true
}
