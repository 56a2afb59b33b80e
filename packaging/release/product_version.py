#!/usr/bin/env python3
"""The version that src/base/product.h holds, for scripts: imported, or run to print it."""
import pathlib
import re
import sys

HEADER = pathlib.Path(__file__).resolve().parents[2] / "src" / "base" / "product.h"


def version():
    found = re.search(r'#define VEXTRA_VERSION "([^"]+)"', HEADER.read_text(encoding="utf-8"))
    if not found:
        sys.exit(f"no version in {HEADER}")
    return found[1]


if __name__ == "__main__":
    print(version())
