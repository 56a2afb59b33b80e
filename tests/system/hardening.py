#!/usr/bin/env python3
"""What the headers and resources of the built programs promise: hardening.py BUILD"""
import importlib
import pathlib
import re
import sys
import unittest

import pefile

BUILD = pathlib.Path(sys.argv.pop())
SOURCES = pathlib.Path(__file__).resolve().parents[2]
sys.path.append(str(SOURCES / "packaging" / "release"))
VERSION = importlib.import_module("product_version").version()
BROKER = BUILD / "bin" / "CameraVirtualVextraMF.exe"
PROVISIONER = BUILD / "tools" / "vextra-provision.exe"
DECODER = BUILD / "deps" / "ffmpeg.exe"
LARGEST_BROKER_BYTES = 8 * 1024 * 1024

# HKLM\SYSTEM\CurrentControlSet\Control\Session Manager\KnownDLLs of Windows 10 and 11, as far as needed: these are
# mapped from the system's folder before any other place is looked at.
KNOWN_TO_THE_SYSTEM = {"advapi32", "gdi32", "kernel32", "msvcrt", "ole32", "oleaut32", "shell32", "shlwapi", "user32"}
DELAYED = {"bcrypt", "comctl32", "crypt32", "winhttp", "wtsapi32"}

DIRECTORY = pefile.DIRECTORY_ENTRY
RESOURCE = pefile.RESOURCE_TYPE


def library_names(entries):
    return {entry.dll.decode("ascii").lower().removesuffix(".dll") for entry in entries}


def resource(image, kind):
    for entry in image.DIRECTORY_ENTRY_RESOURCE.entries:
        if entry.id == RESOURCE[kind]:
            data = entry.directory.entries[0].directory.entries[0].data.struct
            return image.get_data(data.OffsetToData, data.Size)
    return None


class Programs(unittest.TestCase):
    """The broker, what an administrator runs, and what decodes the network's bytes."""

    def setUp(self):
        self.programs = [(path, pefile.PE(str(path))) for path in (BROKER, PROVISIONER, DECODER)]

    def test_lie_at_random_addresses_of_the_whole_space(self):
        for path, image in self.programs:
            with self.subTest(path.name):
                self.assertTrue(image.OPTIONAL_HEADER.IMAGE_DLLCHARACTERISTICS_DYNAMIC_BASE)
                self.assertTrue(image.OPTIONAL_HEADER.IMAGE_DLLCHARACTERISTICS_HIGH_ENTROPY_VA)
                # Without relocations the flag would be a promise that the loader cannot keep.
                self.assertFalse(image.FILE_HEADER.IMAGE_FILE_RELOCS_STRIPPED)
                self.assertGreater(image.OPTIONAL_HEADER.DATA_DIRECTORY[DIRECTORY["IMAGE_DIRECTORY_ENTRY_BASERELOC"]].Size, 0)

    def test_execute_no_data(self):
        for path, image in self.programs:
            with self.subTest(path.name):
                self.assertTrue(image.OPTIONAL_HEADER.IMAGE_DLLCHARACTERISTICS_NX_COMPAT)
                for section in image.sections:
                    self.assertFalse(section.IMAGE_SCN_MEM_EXECUTE and section.IMAGE_SCN_MEM_WRITE, section.Name)

    def test_carry_no_debug_leftovers(self):
        for path, image in self.programs:
            with self.subTest(path.name):
                self.assertEqual(image.FILE_HEADER.NumberOfSymbols, 0)
                self.assertEqual(image.OPTIONAL_HEADER.DATA_DIRECTORY[DIRECTORY["IMAGE_DIRECTORY_ENTRY_DEBUG"]].Size, 0)
                names = [section.Name.rstrip(b"\0") for section in image.sections]
                self.assertFalse([name for name in names if name.startswith((b".debug", b"/", b".stab"))])
                content = path.read_bytes()
                self.assertNotIn(str(SOURCES).encode(), content)
                self.assertNotIn(str(pathlib.Path.home()).encode() + b"/", content)

    def test_carry_no_time_of_their_build(self):
        for path, image in self.programs:
            with self.subTest(path.name):
                self.assertEqual(image.FILE_HEADER.TimeDateStamp, 0)

    def test_import_at_once_only_what_the_system_keeps_ready(self):
        # The decoder imports others too; docs/SECURITY.md says what follows from that.
        for path, image in self.programs:
            if path != DECODER:
                with self.subTest(path.name):
                    self.assertEqual(library_names(image.DIRECTORY_ENTRY_IMPORT) - KNOWN_TO_THE_SYSTEM, set())


class Broker(unittest.TestCase):
    def setUp(self):
        self.image = pefile.PE(str(BROKER))

    def test_loads_the_other_libraries_when_it_needs_them(self):
        # mingw's linker leaves the directory entry empty, which nothing but tools reads; so the names are looked for.
        content = BROKER.read_bytes().lower()
        for name in DELAYED:
            self.assertIn(name.encode() + b".dll\0", content)

    def test_asks_for_no_rights(self):
        manifest = resource(self.image, "RT_MANIFEST").decode("utf-8")
        self.assertIn('<requestedExecutionLevel level="asInvoker" uiAccess="false"/>', manifest)

    def test_is_smaller_than_8_mib(self):
        self.assertLess(BROKER.stat().st_size, LARGEST_BROKER_BYTES)

    def test_says_what_it_is(self):
        fixed = self.image.VS_FIXEDFILEINFO[0]
        numbers = [int(number) for number in re.findall(r"\d+", VERSION)] + [0]
        self.assertEqual(fixed.FileVersionMS, numbers[0] << 16 | numbers[1])
        self.assertEqual(fixed.FileVersionLS, numbers[2] << 16 | numbers[3])
        tables = [table for info in self.image.FileInfo[0] if hasattr(info, "StringTable") for table in info.StringTable]
        texts = {key.decode("utf-8"): value.decode("utf-8") for table in tables for key, value in table.entries.items()}
        self.assertEqual(
            texts,
            {
                "CompanyName": "Vextra",
                "FileDescription": "Câmera Virtual Vextra MF",
                "FileVersion": VERSION,
                "InternalName": "CameraVirtualVextraMF",
                "OriginalFilename": "CameraVirtualVextraMF.exe",
                "ProductName": "Câmera Virtual Vextra MF",
                "ProductVersion": VERSION,
            },
        )


if __name__ == "__main__":
    unittest.main()
