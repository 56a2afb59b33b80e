#!/usr/bin/env bash
# Libraries with the names of the system's, planted beside the broker and in its working directory: none is loaded
# while it reads its encrypted settings, shows its window, produces pictures, asks the update server and ends.
#
#   planted_libraries.sh BUILD DIR     BUILD: build folder; DIR: for the session of this test
set -euo pipefail

build=$1 dir=$2
session=${BASH_SOURCE[0]%/*}/../support/wine/session
# What the broker loads by itself. What Wine's own libraries take from one another (uxtheme and version) is no business
# of this test: it would say nothing about Windows.
names=(bcrypt comctl32 crypt32 winhttp wtsapi32 mfplat mfsensorgroup oleacc dwmapi)

finish() { "$session" down "$dir"; }
fail() {
    echo "planted_libraries: $*" >&2
    exit 1
}
plant() { # FOLDER
    local name
    mkdir -p "$1"
    for name in "${names[@]}"; do
        cp "$build/tests/planted-library.dll" "$1/$name.dll"
    done
}
marks() { find "$root" -name '*.loaded' -printf '%P\n' | tr '[:upper:]' '[:lower:]' | sort; }

mkdir -p "$dir"
dir=$(cd "$dir" && pwd)
trap finish EXIT
trap 'exit 130' INT TERM
"$session" up "$dir" --tools "$build/tests"
# Wine would take its own library even where it finds another's file first; Windows takes what it finds.
overrides=$dir/prefix/drive_c/overrides.reg
{
    printf 'Windows Registry Editor Version 5.00\n\n[HKEY_CURRENT_USER\\Software\\Wine\\DllOverrides]\n'
    printf '"*%s"="native,builtin"\n' "${names[@]}"
} >"$overrides"
"$session" run "$dir" reg.exe import 'C:\overrides.reg' >/dev/null 2>&1
root=$dir/prefix/drive_c/planted
plant "$root/bin"
plant "$root/elsewhere"
mkdir -p "$root/deps" "$root/control"
cp "$build/bin/CameraVirtualVextraMF.exe" "$root/bin"
cp "$build/deps/ffmpeg.exe" "$root/deps"

# That the traps work is seen on a program that takes whatever lies beside it.
plant "$root/control"
cp "$build/tests/trust-authority.exe" "$root/control"
"$session" run "$dir" 'C:\planted\control\trust-authority.exe' >/dev/null 2>&1 || true
[[ $(marks) == *control/crypt32.dll.loaded* ]] || fail 'the control loaded nothing: the traps do not work'
rm -r "$root/control"

# A profile of an earlier release is taken over, hence encrypted and decrypted.
local_data=$(echo "$dir"/prefix/drive_c/users/*/AppData/Local)
mkdir -p "$local_data/Vextra/CameraVirtualMF"
printf '[source]\r\nurl=rtsp://127.0.0.1:9/none\r\n' >"$local_data/Vextra/CameraVirtualMF/source.private.ini"
"$session" run "$dir" --elevated "$build/tools/vextra-provision.exe" --open-demand-to-owner \
    --install-dir 'C:\planted' >/dev/null
for options in '--test-seconds 1' '--test-pattern --test-seconds 8'; do
    # shellcheck disable=SC2086
    "$session" run "$dir" --cwd 'C:\planted\elsewhere' 'C:\planted\bin\CameraVirtualVextraMF.exe' $options &
    broker=$!
    if [[ $options == --test-pattern* ]]; then
        "$session" run "$dir" "$build/tools/vextra-consumer.exe" watch --seconds 6 --frames 1 >/dev/null ||
            fail 'no frame came'
    fi
    wait "$broker" || fail "the broker ended with $?"
done
found=$(marks)
[[ -z $found ]] || fail "loaded: $found"
# The real ones were there all the same.
[[ -s $local_data/Vextra/CameraVirtualMFBeta/settings.dpapi ]] || fail 'nothing was encrypted'
log=$local_data/Vextra/CameraVirtualMFBeta/diagnostic.log
for code in SESSION_NOTIFY_REGISTERED APP_EXIT_CLEAN; do
    grep -q " $code " "$log" || fail "$code is not in the log"
done
echo "planted_libraries: ${#names[@]} names, none loaded"
