#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""Learns the tables of the LDAH codes from the samples that collect_mates has written."""

import argparse
import os
import pathlib
import sys
import time

# Sums of several threads would round differently.
os.environ["OMP_NUM_THREADS"] = os.environ["OPENBLAS_NUM_THREADS"] = "1"

import numpy as np  # noqa: E402  (after the number of threads is set)

import anchors  # noqa: E402
import learning  # noqa: E402
import samples  # noqa: E402
import tables  # noqa: E402


def above_zero(text):
    if not text.isdecimal() or int(text) < 1:
        raise argparse.ArgumentTypeError(f"{text} is not a whole number above 0")
    return int(text)


def npz_file(text):
    path = pathlib.Path(text)
    if path.suffix != ".npz" or not path.absolute().parent.is_dir():
        raise argparse.ArgumentTypeError(f"{text} is not a .npz file in a folder that exists")
    return path


def main():
    parser = argparse.ArgumentParser(
        description="Learns the tables of the LDAH codes from the samples that collect_mates has "
        "written. The same samples give the same tables.")
    parser.add_argument("samples", help="the file of collect_mates")
    parser.add_argument("tables", type=npz_file,
                        help="the .npz file to write, for write_tables.py")
    parser.add_argument("--steps", type=above_zero, default=learning.Settings.steps,
                        help="of the refinement (%(default)s)")
    parser.add_argument("--of-a-pair", type=above_zero, default=500,
                        help="most mates of one pair of images (%(default)s)")
    parser.add_argument("--strangers", type=above_zero, default=8,
                        help="of each mate, the most similar (%(default)s)")
    arguments = parser.parse_args()

    begin = time.monotonic()

    def say(text):
        print(f"{time.monotonic() - begin:6.0f} s  {text}", flush=True)

    random = np.random.Generator(np.random.PCG64(1))
    try:
        given = samples.read(arguments.samples, arguments.of_a_pair, arguments.strangers, random)
    except (OSError, ValueError) as error:
        sys.exit(f"learn_tables.py: {error}")
    say(f"{len(given.first)} mates")

    def report(step, loss):
        say(f"step {step}: loss {loss:.4f}")

    rotation = learning.start(given)
    offsets = learning.median_offsets(rotation, given)
    settings = learning.Settings(steps=arguments.steps)
    rotation, offsets = learning.refine(given, rotation, offsets, settings, random, report=report)

    # With the fixed entries in place, the free rows make up for them: hard bits, small steps.
    placed = anchors.place(rotation, offsets, given)
    settings = learning.Settings(steps=arguments.steps // 4, rate=5e-4, first_sharpness=4.0)
    placed.rotation, placed.offsets = learning.refine(
        given, placed.rotation, placed.offsets, settings, random, fixed_rows=(0, 127),
        fixed_offsets=tables.FIXED_OFFSETS, report=report)

    projection, offsets = anchors.to_tables(placed)
    faults = tables.faults(projection, offsets)
    if faults:
        sys.exit("learn_tables.py: the tables lack what must hold for them: " + "; ".join(faults))
    np.savez(arguments.tables, projection=projection, offsets=offsets)
    say(f"{arguments.tables}: tables {tables.identifier(projection, offsets)}")


if __name__ == "__main__":
    main()
