#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""Puts tables of the LDAH codes into the library's source."""

import argparse
import pathlib
import sys
import zipfile

import tables

SOURCE = (pathlib.Path(__file__).resolve().parents[2]
          / "src/libfeatures/descriptors/detail/ldah_tables.cpp")


def main():
    parser = argparse.ArgumentParser(
        description="Puts tables of the LDAH codes into the library's source. Build it again then; "
        "codes made before cannot be compared with those made after.")
    parser.add_argument("tables", type=pathlib.Path,
                        help="a .npz file with `projection` (128 x 128) and `offsets` (128), or a "
                        "file of these 16,512 numbers as 4-byte little-endian floats")
    parser.add_argument("--source", type=pathlib.Path, default=SOURCE,
                        help="the file to write (the library's own)")
    arguments = parser.parse_args()
    try:
        projection, offsets = tables.load(arguments.tables)
        text = tables.source(projection, offsets)
        # Beside it first: a full disk must not leave half of it.
        partial = arguments.source.with_name(arguments.source.name + ".partial")
        partial.write_text(text, encoding="ascii")
        partial.replace(arguments.source)
    except (OSError, ValueError, KeyError, zipfile.BadZipFile) as error:
        sys.exit(f"write_tables.py: {error}")
    for fault in tables.faults(projection, offsets):
        print(f"write_tables.py: note: {fault}", file=sys.stderr)
    print(f"{arguments.source}: tables {tables.identifier(projection, offsets)}")


if __name__ == "__main__":
    main()
