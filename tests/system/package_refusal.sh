#!/usr/bin/env bash
# No program of the checked build is handed out: no package is made of one, whichever program it is.
#
#   package_refusal.sh BUILD     BUILD: the checked build
set -euo pipefail

build=$1
packager=${BASH_SOURCE[0]%/*}/../../packaging/release/package.py
programs=(bin/CameraVirtualVextraMF.exe tools/vextra-provision.exe)
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
fail() {
    echo "package_refusal: $*" >&2
    exit 1
}
make() { output=$(/usr/bin/python3 "$packager" --build "$dir/build" --out "$dir/out" 2>&1); }

# What else the packager needs.
mkdir -p "$dir"/build/{bin,deps,tools}
echo 'apt-get source ffmpeg=1' >"$dir/build/deps/BUILD-INFO.txt"
touch "$dir"/build/deps/{COPYING.LGPLv2.1,LICENSE.md,ffmpeg.exe} "${programs[@]/#/$dir/build/}"
make || fail "the control, without any program of the checked build, was refused: $output"
rm -r "$dir/out"

for program in "${programs[@]}"; do
    cp "$build/$program" "$dir/build/$program"
    ! make || fail "a package with the checked $program was made"
    [[ $output == *"$program is of a checked build"* ]] || fail "$program: another reason was given: $output"
    [[ ! -e $dir/out ]] || fail "$program: something was left: $(find "$dir/out")"
    : >"$dir/build/$program"
    echo "$output"
done
