# shellcheck shell=bash
# To be sourced by the recipes in this folder: how they talk, and how they get a source package from Debian.
#
#   kRecipe                    set by the recipe: its name, in front of every message
#   log, work                  set by the recipe before a step runs: the log, and a folder for its work
#   say TEXT, fail TEXT        to standard error; fail ends the recipe
#   step WHAT COMMAND...       says WHAT and runs the command into the log
#   checkTools                 fails when one of the "tool package" lines on standard input is missing
#   prepareSources             an apt of its own in $work/apt, with fresh lists
#   fetchSource PACKAGE SERIES downloads PACKAGE into $work and sets source_version
#   cacheFolder                where this recipe keeps its results
#   buildOnce CACHE HASH       one build at a time, and none where its result lies

say() { printf '%s: %s\n' "$kRecipe" "$*" >&2; }

fail() {
    say "$@"
    exit 1
}

failWithLog() {
    tail -n 25 "$log" >&2
    fail "$1 failed, the whole log is $log"
}

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
    done
    ((${#missing[@]} == 0)) || fail "missing Debian packages: ${missing[*]}"
}

# An apt of our own: same mirrors, keys and proxies as the machine's, asked for
# sources instead of binaries, with its lists and caches in the work folder.
# Most machines have no source entries, and /etc/apt is not ours to change.
prepareSources() {
    local list_file='' list_dir='' file apt_dir=$work/apt
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
    cat >"$apt_dir/apt.conf" <<APT
Dir::Etc::sourcelist "$apt_dir/sources.list";
Dir::Etc::sourceparts "$apt_dir/sources.d";
Dir::State::lists "$apt_dir/lists";
Dir::Cache "$apt_dir/cache";
APT::Sandbox::User "root";
#clear APT::Update::Pre-Invoke;
#clear APT::Update::Post-Invoke;
#clear APT::Update::Post-Invoke-Success;
APT
    # One failing entry, of a third party say, must not stop the others.
    apt-get -c "$apt_dir/apt.conf" update >>"$log" 2>&1 </dev/null || true
}

# apt checks the archive's signature and every checksum. A mirror may list a
# security update that it does not hold yet: then the version before it will do.
# shellcheck disable=SC2034 # source_version is for the caller
fetchSource() { # PACKAGE SERIES
    local version versions
    versions=$(apt-cache -c "$work/apt/apt.conf" showsrc --only-source "$1" 2>>"$log" |
        sed -nE "s/^Version: (([0-9]+:)?${2//./\\.}[.+-].*)/\1/p" | sort -rVu) || true
    [[ -n $versions ]] || failWithLog "finding a $1 $2 source package with apt"

    for version in $versions; do
        say "downloading the source of $1, $version"
        if (cd "$work" && apt-get -c "$work/apt/apt.conf" source --download-only --only-source \
            "$1=$version") >>"$log" 2>&1 </dev/null; then
            source_version=$version
            return
        fi
        say "no mirror has $version"
    done
    failWithLog "downloading the source of $1"
}

cacheFolder() { echo "${VEXTRA_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/vextra}/$kRecipe"; }

# Sets `cache` and `result`, and calls the recipe's `build` unless it has been done. The result appears by one
# rename, so its folder is whole or absent.
buildOnce() { # CACHE HASH
    cache=$1 result=$1/$2
    [[ ! -d $result ]] || return 0
    mkdir -p "$cache"
    cache=$(cd "$cache" && pwd)
    result=$cache/$2
    exec {cache_lock}>"$cache/lock"
    flock -n "$cache_lock" || {
        say "waiting for another build"
        flock "$cache_lock"
    }
    [[ -d $result ]] || build
    exec {cache_lock}>&-
}
