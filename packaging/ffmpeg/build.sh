#!/bin/bash
# Puts ffmpeg.exe, its licence texts and BUILD-INFO.txt into a folder.
#
#     packaging/ffmpeg/build.sh OUT_DIR
#
# The program is Debian's FFmpeg source package with our patches, cross-built
# for 64-bit Windows and trimmed to what configure.options lists. Building takes
# minutes and needs apt's sources, so the result is kept in a cache under the
# hash of this recipe and the compiler; with a result there, this only copies.
# Delete the cache folder to build again from the newest source Debian has.
#
# Needs no root and changes nothing in apt's configuration.
set -euo pipefail
export LC_ALL=C
# configure and make would heed the caller's.
unset CPPFLAGS CFLAGS ASFLAGS LDFLAGS MAKEFLAGS MFLAGS MAKELEVEL

readonly kRecipe=ffmpeg
recipe=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source=../debian_sources.sh
source "$recipe/../debian_sources.sh"

readonly kSourceSeries=5.1   # what the patches and the options are made for
readonly kCross=x86_64-w64-mingw32
patches=("$recipe"/*.patch)  # each begins with what it does, in a line
readonly kProgressSeconds=5
readonly kResults=(ffmpeg.exe COPYING.LGPLv2.1 LICENSE.md BUILD-INFO.txt)

checkBuildTools() {
    checkTools <<EOF
$kCross-gcc-posix gcc-mingw-w64-x86-64-posix
$kCross-windres binutils-mingw-w64-x86-64
nasm nasm
make make
patch patch
xz xz-utils
dpkg-source dpkg-dev
EOF
}

# showProgress TOTAL: passes make's output on to the log and counts its objects.
showProgress() {
    local total=$1 count=0 shown_at=$SECONDS line end='\n'
    [[ ! -t 2 ]] || end='\r'
    while IFS= read -r line; do
        printf '%s\n' "$line" >>"$log"
        [[ $line == @(CC|X86ASM)$'\t'* ]] || continue
        count=$((count + 1))
        if ((SECONDS - shown_at >= kProgressSeconds || count == total)); then
            # shellcheck disable=SC2059 # the line's end is part of the format
            printf "ffmpeg: %d of %d objects$end" "$count" "$total" >&2
            shown_at=$SECONDS
        fi
    done
    [[ ! -t 2 ]] || printf '\n' >&2
}

compile() {
    local total
    total=$(make -n ffmpeg.exe 2>>"$log" | grep -cE '^printf "(CC|X86ASM)\\t') ||
        failWithLog "planning the build"
    make -j"$(nproc)" ffmpeg.exe 2>&1 </dev/null | showProgress "$total" || failWithLog "compiling"
}

listPatches() {
    local patch
    for patch in "${patches[@]}"; do
        printf '  %s\n    %s\n' "${patch##*/}" "$(head -n 1 "$patch")"
    done
}

build() {
    local options=() source_version='' patch
    local work=$result.work
    local log=$work/log source_dir=$work/ffmpeg staged=$work/result
    rm -rf "$cache"/*.work   # what failed or interrupted builds left
    mkdir -p "$staged"
    say "building, the log is $log"

    say "looking for the source package"
    prepareSources
    fetchSource ffmpeg "$kSourceSeries"
    step "unpacking the source" dpkg-source -x "$work"/ffmpeg_*.dsc "$source_dir"
    cd "$source_dir"
    for patch in "${patches[@]}"; do
        step "patching: ${patch##*/}" patch -p1 --fuzz=0 -i "$patch"
    done
    mapfile -t options < <(sed -E 's/[[:space:]]*#.*//; /^$/d' "$recipe/configure.options")
    step "configuring, this takes a while" ./configure "${options[@]}"
    compile

    install -m 755 ffmpeg.exe "$staged"
    install -m 644 COPYING.LGPLv2.1 LICENSE.md "$staged"
    cat >"$staged/BUILD-INFO.txt" <<EOF
ffmpeg.exe is FFmpeg $source_version, under the GNU Lesser General Public
License 2.1 or later: see LICENSE.md and COPYING.LGPLv2.1.

Source:   Debian's source package: apt-get source ffmpeg=$source_version
Changes:
$(listPatches)
Compiler: $compiler
Configure line:
./configure ${options[*]}
EOF
    mv -T "$staged" "$result"
    cd /
    rm -rf "$work"
    say "done in $SECONDS s"
}

(($# == 1)) || fail "usage: build.sh OUT_DIR"
mkdir -p "$1"
out_dir=$(cd "$1" && pwd)

checkBuildTools
compiler=$("$kCross-gcc-posix" --version | head -n 1)
hash=$({
    cat "$recipe"/build.sh "$recipe"/configure.options "${patches[@]}" "$recipe/../debian_sources.sh"
    echo "$compiler"
} | sha256sum | cut -c 1-16)
buildOnce "$(cacheFolder)" "$hash"
for file in "${kResults[@]}"; do
    install -m "$([[ $file == *.exe ]] && echo 755 || echo 644)" "$result/$file" "$out_dir"
done
