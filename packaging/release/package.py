#!/usr/bin/env python3
"""Makes the package that people install from: CameraVirtualVextraMF-<version>-windows-x64.zip.

    package.py --build BUILD --out FOLDER [--release]

BUILD holds bin, deps and tools as built; programs of a checked build are refused. A broker without an update channel of
its own (no server, or a key that was thrown away) makes a trial, CameraVirtualVextraMF-<version>-trial-windows-x64.zip,
and with --release none at all. The same input gives the same bytes:
entries are sorted, and times and modes are fixed. Licence texts of the compiler's runtime are taken from the Debian packages that it was linked from.
"""
import argparse
import pathlib
import re
import subprocess
import sys
import zipfile

from product_version import version

ROOT = pathlib.Path(__file__).resolve().parents[2]
HERE = pathlib.Path(__file__).resolve().parent
FFMPEG_RECIPE = ROOT / "packaging" / "ffmpeg"
DEBIAN_DOCUMENTS = pathlib.Path("/usr/share/doc")
COMMON_LICENCES = pathlib.Path("/usr/share/common-licenses")

# The name of a variable that programs of a checked build know (tests/support/trap_report), as they hold it.
MARK_OF_CHECKED_BUILD = "VEXTRA_TRAP_REPORT".encode("utf-16-le")

BROKER = "bin/CameraVirtualVextraMF.exe"
# What a broker holds whose updates are a publisher's (src/update/built_in_channel.cpp.in).
MARK_OF_RELEASE = b"VEXTRA_CHANNEL_KIND=release\0"

EARLIEST_ZIP_TIME = (1980, 1, 1, 0, 0, 0)
UNIX = 3
PROGRAM_MODE = 0o100755
DOCUMENT_MODE = 0o100644


def debian_version(package):
    query = ["dpkg-query", "-W", "-f", "${Version}", package]
    return subprocess.run(query, check=True, capture_output=True, text=True).stdout


def for_windows(path, values):
    """A text of ours with its @NAME@s filled in, as the simplest editor of Windows shows it well."""
    text = path.read_text(encoding="utf-8")
    for name, value in values.items():
        text = text.replace(f"@{name}@", value)
    left = re.search(r"@[A-Z_]+@", text)
    if left:
        sys.exit(f"package: {path.name}: nothing to put in place of {left[0]}")
    return ("\ufeff" + text).replace("\n", "\r\n").encode("utf-8")


def contents(build):
    """The package: names within it, and their bytes."""
    build_info = (build / "deps" / "BUILD-INFO.txt").read_text(encoding="utf-8")
    ffmpeg_version = re.search(r"apt-get source ffmpeg=(\S+)", build_info)
    if not ffmpeg_version:
        sys.exit("package: deps/BUILD-INFO.txt names no source package")
    values = {
        "VERSION": version(),
        "FFMPEG_SOURCE": ffmpeg_version[1],
        "GCC_PACKAGE": debian_version("gcc-mingw-w64-base"),
        "MINGW_PACKAGE": debian_version("mingw-w64-x86-64-dev"),
    }
    return {
        "LEIA-ME.txt": for_windows(HERE / "LEIA-ME.txt", values),
        BROKER: (build / BROKER).read_bytes(),
        "deps/ffmpeg.exe": (build / "deps" / "ffmpeg.exe").read_bytes(),
        "tools/vextra-provision.exe": (build / "tools" / "vextra-provision.exe").read_bytes(),
        "licenses/LEIA-ME.txt": for_windows(HERE / "licenses.txt", values),
        "licenses/ffmpeg/BUILD-INFO.txt": (build / "deps" / "BUILD-INFO.txt").read_bytes(),
        "licenses/ffmpeg/COPYING.LGPLv2.1": (build / "deps" / "COPYING.LGPLv2.1").read_bytes(),
        "licenses/ffmpeg/LICENSE.md": (build / "deps" / "LICENSE.md").read_bytes(),
        "licenses/ffmpeg/SOURCE-OFFER.txt": for_windows(HERE / "source-offer.txt", values),
        # Laid out as in the sources, so that it runs as it stands.
        "licenses/ffmpeg/recipe/debian_sources.sh": (ROOT / "packaging" / "debian_sources.sh").read_bytes(),
        **{
            f"licenses/ffmpeg/recipe/ffmpeg/{name}": (FFMPEG_RECIPE / name).read_bytes()
            for name in ("build.sh", "configure.options", *(patch.name for patch in FFMPEG_RECIPE.glob("*.patch")))
        },
        "licenses/gcc/GPL-3": (COMMON_LICENCES / "GPL-3").read_bytes(),
        "licenses/gcc/copyright": (DEBIAN_DOCUMENTS / "gcc-mingw-w64-base" / "copyright").read_bytes(),
        "licenses/mingw-w64/copyright": (DEBIAN_DOCUMENTS / "mingw-w64-x86-64-dev" / "copyright").read_bytes(),
    }


def refuse_checked(files):
    """A checked build ends at what people's programs go on from, and writes to a file that the environment names."""
    for name, content in files.items():
        if MARK_OF_CHECKED_BUILD in content:
            sys.exit(f"package: {name} is of a checked build, which is for tests alone")


def write_zip(path, files):
    unfinished = path.with_suffix(".new")
    with zipfile.ZipFile(unfinished, "w") as package:
        for name in sorted(files):
            entry = zipfile.ZipInfo(name, EARLIEST_ZIP_TIME)
            entry.create_system = UNIX
            entry.external_attr = (PROGRAM_MODE if name.endswith((".exe", ".sh")) else DOCUMENT_MODE) << 16
            entry.compress_type = zipfile.ZIP_DEFLATED
            package.writestr(entry, files[name], compresslevel=9)
    unfinished.replace(path)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=pathlib.Path, required=True)
    parser.add_argument("--out", type=pathlib.Path, required=True)
    parser.add_argument("--release", action="store_true")
    options = parser.parse_args()
    files = contents(options.build)
    refuse_checked(files)
    trial = MARK_OF_RELEASE not in files[BROKER]
    if trial and options.release:
        sys.exit("package: not a release but a trial: this broker was built without an update channel of its own, and could "
                 "never be updated. Configure the build with -DVEXTRA_UPDATE_ORIGIN=https://... and "
                 "-DVEXTRA_CHANNEL_PUBLIC_KEY=FILE (docs/update-channel.md)")
    options.out.mkdir(parents=True, exist_ok=True)
    path = options.out / f"CameraVirtualVextraMF-{version()}{'-trial' if trial else ''}-windows-x64.zip"
    write_zip(path, files)
    print(path)


if __name__ == "__main__":
    main()
