#!/usr/bin/env bash
# The package, as a person gets it: made twice with the same bytes, unpacked into a clean prefix whose path has blanks
# and accents, provisioned, run until it shows live frames, stopped and undone.
#
#   package.sh BUILD DIR     BUILD: build folder; DIR: for the packages and the session of this test
set -euo pipefail

build=$(cd "$1" && pwd) dir=$2
root=$(cd "${BASH_SOURCE[0]%/*}/../.." && pwd)
wine=$root/tests/support/wine/session
readonly folder='Programas do Usuário\Câmera é nº 1'
readonly frames=16

finish() { "$wine" down "$session"; }
fail() {
    echo "package: $*" >&2
    exit 1
}
pack() { /usr/bin/python3 "$root/packaging/release/package.py" --build "$build" --out "$@"; } # FOLDER [--release]
make() { # FOLDER; sets ZIP
    ZIP=$(pack "$1")
}
entries() { /usr/bin/python3 -c 'import sys, zipfile; print(*zipfile.ZipFile(sys.argv[1]).namelist(), sep="\n")' "$ZIP"; }

mkdir -p "$dir"
dir=$(cd "$dir" && pwd)
session="$dir/sessão de instalação"
trap finish EXIT
rm -rf "$dir/one" "$dir/two" "$dir/copy" "$dir/release"

# --- The same input gives the same bytes, whenever, wherever and by whomever it is made ---
make "$dir/one"
first=$ZIP
(
    umask 077
    cd /
    export TZ=Asia/Tokyo LC_ALL=C.UTF-8 PYTHONHASHSEED=7 SOURCE_DATE_EPOCH=1
    # Copies have times of their own.
    mkdir "$dir/copy"
    cp -r "$build/bin" "$build/deps" "$build/tools" "$dir/copy"
    /usr/bin/python3 "$root/packaging/release/package.py" --build "$dir/copy" --out "$dir/two" >/dev/null
)
rm -r "$dir/copy"
cmp "$first" "$dir/two/${first##*/}" || fail 'two packages of one build differ'

# --- What is in it ---
kind=''  # of a build of its own channel; others are trials, and say so
[[ $(sed -n 's/^VEXTRA_UPDATE_ORIGIN:STRING=//p' "$build/CMakeCache.txt") != *.invalid ]] || kind=-trial
version=$(/usr/bin/python3 -B "$root/packaging/release/product_version.py")
[[ ${first##*/} == CameraVirtualVextraMF-$version$kind-windows-x64.zip ]] || fail "it is called ${first##*/}"
if [[ -n $kind ]]; then
    grep -qaF VEXTRA_CHANNEL_KIND=trial "$build/bin/CameraVirtualVextraMF.exe" || fail 'the broker does not say its kind'
    ! pack "$dir/release" --release 2>"$dir/refusal.log" || fail 'a trial was released'
    grep -qF 'not a release but a trial' "$dir/refusal.log" || fail "another reason was given: $(<"$dir/refusal.log")"
fi
diff - <(entries) <<'END' || fail 'other entries than these, or in another order'
LEIA-ME.txt
bin/CameraVirtualVextraMF.exe
deps/ffmpeg.exe
licenses/LEIA-ME.txt
licenses/ffmpeg/BUILD-INFO.txt
licenses/ffmpeg/COPYING.LGPLv2.1
licenses/ffmpeg/LICENSE.md
licenses/ffmpeg/SOURCE-OFFER.txt
licenses/ffmpeg/recipe/debian_sources.sh
licenses/ffmpeg/recipe/ffmpeg/build.sh
licenses/ffmpeg/recipe/ffmpeg/configure.options
licenses/ffmpeg/recipe/ffmpeg/first-picture-alone.patch
licenses/ffmpeg/recipe/ffmpeg/first-picture.patch
licenses/ffmpeg/recipe/ffmpeg/first-timestamp.patch
licenses/ffmpeg/recipe/ffmpeg/multipart-by-arrival.patch
licenses/ffmpeg/recipe/ffmpeg/no-copies-before-the-first-picture.patch
licenses/ffmpeg/recipe/ffmpeg/no-threads-for-raw-video.patch
licenses/ffmpeg/recipe/ffmpeg/playlists-without-sound.patch
licenses/ffmpeg/recipe/ffmpeg/recordings-at-their-own-rate.patch
licenses/ffmpeg/recipe/ffmpeg/refused-connections.patch
licenses/ffmpeg/recipe/ffmpeg/rw-timeout-for-rtsp.patch
licenses/ffmpeg/recipe/ffmpeg/scheme-in-capitals.patch
licenses/ffmpeg/recipe/ffmpeg/small-pictures-without-delay.patch
licenses/gcc/GPL-3
licenses/gcc/copyright
licenses/mingw-w64/copyright
tools/vextra-provision.exe
END

# --- Unpacked into a fresh prefix ---
"$wine" down "$session"
"$wine" up "$session" --tools "$build/tests"
place="$session/prefix/drive_c/${folder//\\//}"
mkdir -p "$place"
/usr/bin/python3 -m zipfile -e "$first" "$place"
says() { # FILE TEXT
    grep -qF "$2" "$place/licenses/$1" || fail "licenses/$1 does not say \"$2\""
}
says ffmpeg/COPYING.LGPLv2.1 'GNU LESSER GENERAL PUBLIC LICENSE'
says ffmpeg/SOURCE-OFFER.txt 'three years'
for patch in "$root"/packaging/ffmpeg/*.patch; do
    says ffmpeg/BUILD-INFO.txt "${patch##*/}"
    says ffmpeg/BUILD-INFO.txt "$(head -n 1 "$patch")"
done
says gcc/GPL-3 'GNU GENERAL PUBLIC LICENSE'
says gcc/copyright 'GCC RUNTIME LIBRARY EXCEPTION'
says mingw-w64/copyright 'ZPL-2.1'

# --- An administrator prepares the machine, from the package itself ---
run() { "$wine" run "$session" "$@"; }
provision() { run "$@" "C:\\$folder\\tools\\vextra-provision.exe" "${action[@]}" >"$dir/provision.log" 2>&1; }
action=(--status)
! provision || fail 'a clean prefix is provisioned already'
action=(--open-demand-to-owner)
! provision || fail 'a user who is no administrator could provision'
provision --elevated || fail "provisioning: $(<"$dir/provision.log")"
action=(--status)
provision || fail "after provisioning: $(<"$dir/provision.log")"

# --- The user runs it ---
broker="C:\\$folder\\bin\\CameraVirtualVextraMF.exe"
run "$broker" --test-pattern --test-seconds 60 &
running=$!
seen=$(run "$build/tools/vextra-consumer.exe" watch --seconds 20 --frames "$frames") || fail "no live frames: $seen"
[[ $seen =~ frames=([0-9]+)\ .*\ torn=0\ stale=0 ]] || fail "frames, but not clean ones: $seen"
((BASH_REMATCH[1] >= frames)) || fail "too few frames: $seen"

# --- And stops it: the broker that answers is the one of the registered folder. It is busy until the decoder rests ---
deadline=$((SECONDS + 15))
until run "$broker" --shutdown-broker; do
    ((SECONDS < deadline)) || fail 'the broker did not stop when asked'
    sleep 0.5
done
wait "$running" || fail "the broker ended with $?"

# --- Nothing is left of the machine's part ---
action=(--remove)
provision --elevated || fail "undoing: $(<"$dir/provision.log")"
[[ ! -e $session/prefix/drive_c/ProgramData/Vextra ]] || fail 'folders were left behind'
! run reg.exe query 'HKLM\SOFTWARE\Vextra\CameraVirtualMFBeta' >/dev/null 2>&1 || fail 'the registry key was left behind'
echo "package: $(stat -c %s "$first") bytes, $(sha256sum "$first" | cut -c 1-16); $seen"
