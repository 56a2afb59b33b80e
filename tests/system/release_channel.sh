#!/usr/bin/env bash
# No broker is handed out that can never be updated: a real server without a publisher's key is no build, a build
# without either is a trial, and only a broker with both makes a release.
#
#   release_channel.sh CXX     CXX: a compiler for this machine
set -euo pipefail

cxx=$1
root=$(cd "${BASH_SOURCE[0]%/*}/../.." && pwd)
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
fail() {
    echo "release_channel: $*" >&2
    exit 1
}

# The channel alone, as a build of its own.
mkdir "$dir/sources"
ln -s "$root/src" "$dir/sources/src"
cat >"$dir/sources/CMakeLists.txt" <<END
cmake_minimum_required(VERSION 3.25)
project(channel LANGUAGES CXX)
set(CMAKE_CXX_STANDARD 20)
add_library(vextra_options INTERFACE)
target_include_directories(vextra_options INTERFACE src)
include($root/cmake/update_channel.cmake)
END
configure() { # [-DNAME=VALUE]...
    rm -rf "$dir/build"
    output=$(cmake -S "$dir/sources" -B "$dir/build" -G Ninja -DCMAKE_CXX_COMPILER="$cxx" "$@" 2>&1)
}
compile() { output=$(cmake --build "$dir/build" 2>&1); }

openssl genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256 -out "$dir/private.pem" 2>/dev/null
openssl pkey -in "$dir/private.pem" -pubout -out "$dir/public.pem"
cp "$dir/public.pem" "$dir/throw-away-channel.public.pem"
key=-DVEXTRA_CHANNEL_PUBLIC_KEY=$dir/public.pem
origin=-DVEXTRA_UPDATE_ORIGIN=https://updates.example.com

# --- What is no build ---
for real in updates.example.com updates.example.com:8443 updates-invalid updates.invalid.example; do
    ! configure "-DVEXTRA_UPDATE_ORIGIN=https://$real" || fail "$real needed no key"
    [[ $output == *"names no publisher's key"* ]] || fail "$real: another reason was given: $output"
done
! configure $origin "-DVEXTRA_CHANNEL_PUBLIC_KEY=$dir/throw-away-channel.public.pem" || fail 'a throw-away key was taken'
for strange in https://a..b https://updates.example.com:99999; do
    configure "-DVEXTRA_UPDATE_ORIGIN=$strange" "$key" || fail "$strange: $output"
    ! compile || fail "$strange was built"
    [[ $output == *'the broker itself would refuse'* ]] || fail "$strange: another reason was given: $output"
done

# --- What is packed as what; the channel stands for the broker that holds it ---
mkdir -p "$dir"/files/{bin,deps,tools}
echo 'apt-get source ffmpeg=1' >"$dir/files/deps/BUILD-INFO.txt"
touch "$dir"/files/deps/{COPYING.LGPLv2.1,LICENSE.md,ffmpeg.exe} "$dir/files/tools/vextra-provision.exe"
pack() { # [--release]
    rm -rf "$dir/out"
    output=$(/usr/bin/python3 "$root/packaging/release/package.py" --build "$dir/files" --out "$dir/out" "$@" 2>&1)
}
build() { # [-DNAME=VALUE]...
    configure "$@" || fail "$*: $output"
    compile || fail "$*: $output"
    cp "$dir/build/libvextra_channel.a" "$dir/files/bin/CameraVirtualVextraMF.exe"
}
expectTrial() {
    build "$@"
    pack || fail "$*: no package: $output"
    [[ $output == */CameraVirtualVextraMF-*-trial-windows-x64.zip ]] || fail "$*: no trial but $output"
    ! pack --release || fail "$*: a trial was released"
    [[ $output == *'not a release but a trial'* ]] || fail "$*: another reason was given: $output"
    [[ ! -e $dir/out ]] || fail "$*: something was left: $(find "$dir/out")"
}
expectTrial
expectTrial -DVEXTRA_UPDATE_ORIGIN=https://updates.invalid:8443 "$key"
build $origin "$key"
for option in '' --release; do
    pack ${option:+"$option"} || fail "a release was refused: $output"
    [[ $output == */CameraVirtualVextraMF-*-windows-x64.zip && $output != *trial* ]] || fail "no release but $output"
done
echo "release_channel: $output"
