#!/bin/bash
# A GStreamer runtime for 64-bit Windows, to prove the broker's GStreamer backend with. Prints its root folder.
#
#     packaging/gstreamer/build.sh           builds it, unless that was done before
#     packaging/gstreamer/build.sh --find    only looks: prints nothing and ends with 1 when it is not there
#
# Debian's source packages, cross-built in the order of packages.list, with what
# Windows lacks (see below) and one patch. It is never shipped: users install
# the official runtime, which the broker looks for.
#
# Building takes about nine minutes on two cores. The result is kept in a cache
# under the hash of this recipe and the compiler; delete the folder to build
# again. Needs no root and changes nothing in apt's configuration.
set -euo pipefail
export LC_ALL=C
# The build systems would heed the caller's, and meson's python must be Debian's.
unset CPPFLAGS CFLAGS CXXFLAGS LDFLAGS MAKEFLAGS MFLAGS MAKELEVEL PKG_CONFIG_PATH PYTHONHOME PYTHONPATH
unset CMAKE_C_COMPILER_LAUNCHER CMAKE_CXX_COMPILER_LAUNCHER
export PATH=/usr/sbin:/usr/bin:/sbin:/bin

readonly kRecipe=gstreamer
readonly kCross=x86_64-w64-mingw32
recipe=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source=../debian_sources.sh
source "$recipe/../debian_sources.sh"

# The libraries that a program loads by itself; what they import is found from there.
readonly kLibraries=(glib-2.0 gobject-2.0 gstreamer-1.0 gstapp-1.0 gstvideo-1.0)

checkBuildTools() {
    checkTools <<TOOLS
$kCross-gcc-posix gcc-mingw-w64-x86-64-posix
$kCross-g++-posix g++-mingw-w64-x86-64-posix
$kCross-windres binutils-mingw-w64-x86-64
meson meson
ninja ninja-build
cmake cmake
nasm nasm
make make
patch patch
flex flex
bison bison
tclsh tcl
pkg-config pkg-config
glib-mkenums libglib2.0-dev-bin
glib-compile-resources libglib2.0-dev-bin
xz xz-utils
dpkg-source dpkg-dev
TOOLS
    [[ -f /usr/$kCross/lib/libz.a ]] || fail 'missing Debian packages: libz-mingw-w64-dev'
}

writeToolchains() {
    cat >"$work/meson.cross" <<X
[binaries]
c = '$kCross-gcc-posix'
cpp = '$kCross-g++-posix'
ar = '$kCross-gcc-ar-posix'
ranlib = '$kCross-gcc-ranlib-posix'
nm = '$kCross-gcc-nm-posix'
strip = '$kCross-strip'
dlltool = '$kCross-dlltool'
windres = '$kCross-windres'
pkgconfig = 'pkg-config'

[properties]
needs_exe_wrapper = true
pkg_config_libdir = ['$prefix/lib/pkgconfig', '/usr/$kCross/lib/pkgconfig']

[host_machine]
system = 'windows'
cpu_family = 'x86_64'
cpu = 'x86_64'
endian = 'little'

[built-in options]
prefix = '$prefix'
libdir = 'lib'
buildtype = 'release'
wrap_mode = 'nofallback'
c_args = ['-I$prefix/include']
cpp_args = ['-I$prefix/include']
c_link_args = ['-L$prefix/lib', '-static-libgcc']
cpp_link_args = ['-L$prefix/lib', '-static-libgcc', '-static-libstdc++', '-Wl,-Bstatic,-lwinpthread,-Bdynamic']
X
    cat >"$work/toolchain.cmake" <<X
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER $kCross-gcc-posix)
set(CMAKE_CXX_COMPILER $kCross-g++-posix)
set(CMAKE_RC_COMPILER $kCross-windres)
set(CMAKE_FIND_ROOT_PATH $prefix /usr/$kCross)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_SHARED_LINKER_FLAGS_INIT -static-libgcc)
X
}

# --- How a package is built: the second column of packages.list, called in its source folder -----------------

viaMeson() { # OPTION...
    meson setup ../build-meson --cross-file "$work/meson.cross" "$@"
    meson compile -C ../build-meson -j "$(nproc)"
    meson install -C ../build-meson --no-rebuild --quiet
}

viaCmake() { # OPTION...
    cmake -S . -B ../build-cmake -G Ninja -DCMAKE_TOOLCHAIN_FILE="$work/toolchain.cmake" \
        -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$prefix" -DCMAKE_INSTALL_LIBDIR="$prefix/lib" "$@"
    cmake --build ../build-cmake -j "$(nproc)" --target install
}

viaConfigure() { # OPTION...
    ./configure --host="$kCross" --build=x86_64-linux-gnu CC="$kCross-gcc-posix" CXX="$kCross-g++-posix" \
        --prefix="$prefix" --libdir="$prefix/lib" "$@"
    make -j"$(nproc)" install
}

# Its own build makes a program and a library for the build machine; the one big source file is all it takes.
viaAmalgamation() { # LIBRARY PKG_CONFIG_NAME
    ./configure --disable-tcl --disable-readline
    make "$1.c" "$1.h"
    "$kCross-gcc-posix" -O2 -DSQLITE_OMIT_LOAD_EXTENSION -c "$1.c" -o "$1.o"
    "$kCross-ar" rcs "$prefix/lib/lib$1.a" "$1.o"
    cp "$1.h" "$prefix/include/"
    cat >"$prefix/lib/pkgconfig/$1.pc" <<X
Name: $2
Description: $2
Version: $(<VERSION)
Libs: -L$prefix/lib -l$1
Cflags: -I$prefix/include
X
}

# The names of a static library are declared differently, which its .pc file does not say.
addCflags() { sed -i "s/^Cflags:.*/& $2/" "$prefix/lib/pkgconfig/$1.pc"; }

# --- What Windows or Debian lacks --------------------------------------------------------------------------

# GLib wants libintl on Windows. Nothing is translated here: every text is its own translation.
makeIntl() {
    cp "$recipe/libintl.h" "$prefix/include/"
    "$kCross-gcc-posix" -O2 -I"$prefix/include" -c "$recipe/libintl.c" -o "$work/libintl.o"
    "$kCross-ar" rcs "$prefix/lib/libintl.a" "$work/libintl.o"
}

# Debian keeps the real list apart. Only cookies ask for it, and a camera's need none.
prepare_libpsl() {
    mkdir -p list
    printf '// ===BEGIN ICANN DOMAINS===\ncom\nnet\norg\n// ===END ICANN DOMAINS===\n' >list/public_suffix_list.dat
}
finish_libpsl() { addCflags libpsl -DPSL_STATIC; }
finish_nghttp2() { addCflags libnghttp2 -DNGHTTP2_STATICLIB; }
prepare_gst-plugins-bad1.0() { patch -p1 --fuzz=0 -i "$recipe/curl-select-without-sockets.patch"; }

# --- The whole ---------------------------------------------------------------------------------------------

buildPackage() { # PACKAGE HOW OPTION...
    local package=$1 how=$2
    shift 2
    cd "$work/$package/source"
    ! declare -F "prepare_$package" >/dev/null || "prepare_$package"
    "$how" "$@"
    ! declare -F "finish_$package" >/dev/null || "finish_$package"
}

# Not as a condition, which would switch `set -e` off inside.
runInLog() { # WHAT COMMAND...
    local what=$1 status
    shift
    set +e
    (set -e; "$@") >>"$log" 2>&1 </dev/null
    status=$?
    set -e
    ((status == 0)) || failWithLog "$what"
}

# shellcheck disable=SC2120 # its arguments are those of each package
buildPackages() {
    local package series how options number=0 total source_version=''
    total=$(grep -cvE '^(#|$)' "$recipe/packages.list")
    while read -r package series how options; do
        [[ $package != '' && $package != '#'* ]] || continue
        number=$((number + 1))
        fetchSource "$package" "$series"
        mkdir -p "$work/$package"
        runInLog "unpacking $package" dpkg-source --no-check -x "$work/${package}_${source_version#*:}.dsc" \
            "$work/$package/source"
        say "building $package, $number of $total, after $SECONDS s"
        eval "set -- $options"
        runInLog "building $package" buildPackage "$package" "$how" "$@"
        echo "$package $source_version" >>"$work/versions"
        install -D -m 644 "$work/$package/source/debian/copyright" "$staged/licences/$package.txt"
        rm -rf "${work:?}/$package"
    done <"$recipe/packages.list"
}

importedBy() { # FOLDER: the names of all libraries that its programs import
    find "$1" -name '*.dll' -exec "$kCross-objdump" -p {} + | sed -nE 's/^\s*DLL Name: (.*)/\1/p' | sort -fu
}

# What is imported and found nowhere is Windows' own.
collectRuntime() {
    local name folder found=1
    mkdir -p "$staged"/{bin,lib/gstreamer-1.0}
    cp "$prefix"/lib/gstreamer-1.0/*.dll "$staged/lib/gstreamer-1.0/"
    for name in "${kLibraries[@]}"; do
        cp "$prefix/bin/lib$name-0.dll" "$staged/bin/"
    done
    while ((found)); do
        found=0
        for name in $(importedBy "$staged"); do
            [[ ! -e $staged/bin/$name ]] || continue
            for folder in "$prefix/bin" "/usr/$kCross/lib" "/usr/$kCross/bin"; do
                [[ -e $folder/$name ]] || continue
                cp "$folder/$name" "$staged/bin/"
                found=1
                break
            done
        done
    done
    find "$staged" -name '*.dll' -exec "$kCross-strip" --strip-unneeded {} +
}

build() {
    local work=$result.work
    local log=$work/log prefix=$work/prefix staged=$work/result
    rm -rf "$cache"/*.work   # what failed or interrupted builds left
    mkdir -p "$staged" "$prefix"/{bin,include,lib/pkgconfig}
    say "building, which takes about ten minutes; the log is $log"
    checkBuildTools
    say 'looking for the source packages'
    prepareSources
    writeToolchains
    runInLog 'making libintl' makeIntl
    buildPackages
    runInLog 'collecting the runtime' collectRuntime
    {
        echo 'A GStreamer runtime for tests, from these source packages of Debian (licences/):'
        sed 's/^/    /' "$work/versions"
        echo "Compiler: $compiler"
    } >"$staged/BUILD-INFO.txt"
    mv -T "$staged" "$result"
    cd /
    rm -rf "$work"
    say "done in $SECONDS s"
}

[[ $# == 0 || ($# == 1 && $1 == --find) ]] || fail 'usage: build.sh [--find]'
compiler=$("$kCross-gcc-posix" --version 2>/dev/null | head -n 1) || compiler=none
hash=$({
    cat "$recipe"/* "$recipe/../debian_sources.sh"
    echo "$compiler"
} | sha256sum | cut -c 1-16)
if [[ ${1:-} == --find && ! -d $(cacheFolder)/$hash ]]; then
    exit 1
fi
buildOnce "$(cacheFolder)" "$hash"
echo "$result"
