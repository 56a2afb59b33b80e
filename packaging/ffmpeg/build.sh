#!/bin/bash
# Puts ffmpeg.exe, its licence texts and BUILD-INFO.txt into a folder.
#
#     packaging/ffmpeg/build.sh OUT_DIR
#
# The program is Debian's FFmpeg source package with our one patch, cross-built
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

readonly kSourceSeries=5.1   # what the patch and the options are made for
readonly kCross=x86_64-w64-mingw32
readonly kPatch=rw-timeout-for-rtsp.patch
readonly kProgressSeconds=5
readonly kResults=(ffmpeg.exe COPYING.LGPLv2.1 LICENSE.md BUILD-INFO.txt)

say() { printf 'ffmpeg: %s\n' "$*" >&2; }

fail() {
    say "$@"
    exit 1
}

failWithLog() {
    tail -n 25 "$log" >&2
    fail "$1 failed, the whole log is $log"
}

# step WHAT COMMAND...: says WHAT and runs the command into the log.
step() {
    local what=$1
    shift
    say "$what"
    "$@" >>"$log" 2>&1 </dev/null || failWithLog "$what"
}

checkTools() {
    local tool package missing=()
    while read -r tool package; do
        command -v "$tool" >/dev/null || missing+=("$package")
    done <<EOF
$kCross-gcc-posix gcc-mingw-w64-x86-64-posix
$kCross-windres binutils-mingw-w64-x86-64
nasm nasm
make make
patch patch
xz xz-utils
dpkg-source dpkg-dev
EOF
    ((${#missing[@]} == 0)) || fail "missing Debian packages: ${missing[*]}"
}

# An apt of our own: same mirrors, keys and proxies as the machine's, asked for
# sources instead of binaries, with its lists and caches in the work folder.
# Most machines have no source entries, and /etc/apt is not ours to change.
prepareApt() {
    local list_file='' list_dir='' file
    mkdir -p "$apt_dir"/{sources.d,lists/partial,cache/archives/partial}
    eval "$(apt-config shell list_file Dir::Etc::sourcelist/f list_dir Dir::Etc::sourceparts/d)"

    for file in "$list_file" "$list_dir"*.list; do
        [[ -f $file ]] || continue
        # A CD-ROM would make apt ask for the disc.
        sed -nE '/cdrom:/d; s/^[[:space:]]*deb(-src)?[[:space:]]+/deb-src /p' "$file"
    done | awk '!seen[$0]++' >"$apt_dir/sources.list"
    for file in "$list_dir"*.sources; do
        [[ -f $file ]] || continue
        sed -E 's/^types:.*/Types: deb-src/I' "$file" >"$apt_dir/sources.d/${file##*/}"
    done

    # The sandbox user can't enter a home folder; the hooks (clearing caches,
    # feeding software centres) are meant for the machine's own lists.
    cat >"$apt_dir/apt.conf" <<EOF
Dir::Etc::sourcelist "$apt_dir/sources.list";
Dir::Etc::sourceparts "$apt_dir/sources.d";
Dir::State::lists "$apt_dir/lists";
Dir::Cache "$apt_dir/cache";
APT::Sandbox::User "root";
#clear APT::Update::Pre-Invoke;
#clear APT::Update::Post-Invoke;
#clear APT::Update::Post-Invoke-Success;
EOF
}

# Sets source_version. apt checks the archive's signature and every checksum. A
# mirror may list a security update that it does not hold yet: then the version
# before it will do.
fetchSource() {
    local version versions
    say "looking for the source package"
    prepareApt
    # One failing entry, of a third party say, must not stop the others.
    apt-get -c "$apt_dir/apt.conf" update >>"$log" 2>&1 </dev/null || true
    versions=$(apt-cache -c "$apt_dir/apt.conf" showsrc --only-source ffmpeg 2>>"$log" |
        sed -nE "s/^Version: (([0-9]+:)?${kSourceSeries//./\\.}\..*)/\1/p" | sort -rVu) || true
    [[ -n $versions ]] || failWithLog "finding an FFmpeg $kSourceSeries source package with apt"

    for version in $versions; do
        say "downloading the source, $version"
        if (cd "$work" && apt-get -c "$apt_dir/apt.conf" source --download-only --only-source \
            "ffmpeg=$version") >>"$log" 2>&1 </dev/null; then
            source_version=$version
            return
        fi
        say "no mirror has $version"
    done
    failWithLog "downloading the source"
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

build() {
    local options=() source_version=''
    local work=$result.work
    local log=$work/log apt_dir=$work/apt source_dir=$work/ffmpeg staged=$work/result
    rm -rf "$cache"/*.work   # what failed or interrupted builds left
    mkdir -p "$staged"
    say "building, the log is $log"

    fetchSource
    step "unpacking the source" dpkg-source -x "$work"/ffmpeg_*.dsc "$source_dir"
    cd "$source_dir"
    step "patching" patch -p1 --fuzz=0 -i "$recipe/$kPatch"
    mapfile -t options < <(sed -E 's/[[:space:]]*#.*//; /^$/d' "$recipe/configure.options")
    step "configuring, this takes a while" ./configure "${options[@]}"
    compile

    install -m 755 ffmpeg.exe "$staged"
    install -m 644 COPYING.LGPLv2.1 LICENSE.md "$staged"
    cat >"$staged/BUILD-INFO.txt" <<EOF
ffmpeg.exe is FFmpeg $source_version, under the GNU Lesser General Public
License 2.1 or later: see LICENSE.md and COPYING.LGPLv2.1.

Source:   Debian's source package: apt-get source ffmpeg=$source_version
Change:   $kPatch
          (the RTSP demuxer takes rw_timeout as another name of timeout)
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
recipe=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
mkdir -p "$1"
out_dir=$(cd "$1" && pwd)

checkTools
compiler=$("$kCross-gcc-posix" --version | head -n 1)
hash=$({
    cat "$recipe"/build.sh "$recipe"/configure.options "$recipe/$kPatch"
    echo "$compiler"
} | sha256sum | cut -c 1-16)
cache=${VEXTRA_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/vextra}/ffmpeg
result=$cache/$hash

# The result appears by one rename, so its folder is whole or absent.
if [[ ! -d $result ]]; then
    mkdir -p "$cache"
    cache=$(cd "$cache" && pwd)
    result=$cache/$hash
    exec {lock}>"$cache/lock"
    flock -n "$lock" || {
        say "waiting for another build"
        flock "$lock"
    }
    [[ -d $result ]] || build
    exec {lock}>&-
fi
for file in "${kResults[@]}"; do
    install -m "$([[ $file == *.exe ]] && echo 755 || echo 644)" "$result/$file" "$out_dir"
done
