# SPDX-License-Identifier: BSD-3-Clause
"""The two tables of the LDAH codes: what holds for them, their identifier and their source file."""

import hashlib

import numpy as np

BITS = 128

# Lengths of the rows of the projection, and the range of all values.
SHORTEST, LONGEST = 8.0, 81.9
LOWEST_VALUE, HIGHEST_VALUE = -22.6, 25.8
LOWEST_OFFSET, HIGHEST_OFFSET = -5.48, 11.58

# Entries that are the same in every set of tables.
FIRST_ROW_BEGINS = np.array([-0.0690876, 0.180609, 0.233704, 0.2504])
LAST_ROW_ENDS = np.array([-2.0896, 5.58566, -5.62096, 3.79748])
FIXED_OFFSETS = {
    0: 0.431779,
    1: -0.00835053,
    2: -0.698111,
    3: -0.963172,
    64: -1.75388,
    65: 4.77836,
    127: -0.000819,
}


def faults(projection, offsets):
    """What does not hold for these tables, a list of sentences."""
    found = []
    rows = projection.astype(np.float64)
    lengths = np.linalg.norm(rows, axis=1)
    unit = rows / lengths[:, None]
    largest_cosine = np.abs(unit @ unit.T - np.eye(BITS)).max()
    if not largest_cosine < 1e-5:
        found.append(f"two rows have a cosine of {largest_cosine:.2e}, above 1e-5")
    if not (abs(lengths.min() - SHORTEST) < 0.05 and abs(lengths.max() - LONGEST) < 0.05):
        found.append(f"row lengths go from {lengths.min():.2f} to {lengths.max():.2f}, "
                     f"not from {SHORTEST} to {LONGEST}")
    ranks = np.argsort(np.argsort(lengths, kind="stable"), kind="stable")
    if not np.corrcoef(ranks, np.arange(BITS))[0, 1] > 0.9:
        found.append("row lengths do not grow with the index")
    slack = 0.05
    if not (projection.min() >= LOWEST_VALUE - slack and projection.max() <= HIGHEST_VALUE + slack):
        found.append(f"values go from {projection.min()} to {projection.max()}")
    if not (offsets.min() >= LOWEST_OFFSET - 0.005 and offsets.max() <= HIGHEST_OFFSET + 0.005):
        found.append(f"offsets go from {offsets.min()} to {offsets.max()}")
    if not np.array_equal(projection[0, :4], FIRST_ROW_BEGINS.astype(np.float32)):
        found.append(f"the first row begins {projection[0, :4]}")
    if not np.array_equal(projection[-1, -4:], LAST_ROW_ENDS.astype(np.float32)):
        found.append(f"the last row ends {projection[-1, -4:]}")
    for index, value in FIXED_OFFSETS.items():
        if offsets[index] != np.float32(value):
            found.append(f"offset {index} is {offsets[index]}, not {value}")
    return found


def identifier(projection, offsets):
    """Tells tables apart: codes can be compared if their tables have the same."""
    numbers = np.concatenate([projection.ravel(), offsets]).astype("<f4")
    return hashlib.sha256(numbers.tobytes()).hexdigest()[:16]


def load(path):
    """Tables from a .npz file with `projection` and `offsets`, or from a file of nothing but their
    16,512 numbers as 4-byte little-endian floats, the projection row by row and then the offsets."""
    if str(path).endswith(".npz"):
        with np.load(path) as tables:
            projection, offsets = tables["projection"], tables["offsets"]
    else:
        numbers = np.fromfile(path, dtype="<f4")
        if numbers.size != BITS * (BITS + 1):
            raise ValueError(f"{path} has {numbers.size} numbers, not {BITS * (BITS + 1)}")
        projection, offsets = numbers[: BITS * BITS].reshape(BITS, BITS), numbers[BITS * BITS :]
    if projection.shape != (BITS, BITS) or offsets.shape != (BITS,):
        raise ValueError(f"{path} has tables of the shapes {projection.shape} and {offsets.shape}, "
                         f"not ({BITS}, {BITS}) and ({BITS},)")
    projection, offsets = projection.astype(np.float32), offsets.astype(np.float32)
    if not (np.isfinite(projection).all() and np.isfinite(offsets).all()):
        raise ValueError(f"{path} has numbers that are not finite")
    return projection, offsets


def source(projection, offsets):
    """The C++ source that holds the tables. Every number is written so that it reads back exactly."""

    def number(value):
        text = np.format_float_positional(value, unique=True, trim="0")
        return text + "F"

    def numbers(values):
        texts = [number(value) for value in values]
        return ",\n".join("     " + ", ".join(texts[i : i + 8]) for i in range(0, BITS, 8))[5:]

    rows = ",\n".join(f"    {{{numbers(row)}}}" for row in projection)
    return f"""\
// SPDX-License-Identifier: BSD-3-Clause
// Written by tools/ldah_tables/write_tables.py. docs/codes.md says how to learn and replace it.
#include "libfeatures/descriptors/detail/ldah_tables.h"

namespace marlo::detail {{

// clang-format off
const LdahTables kLdahTables = {{
    "{identifier(projection, offsets)}",
    {{
{rows}}},
    {{{numbers(offsets)}}}}};
// clang-format on

}}  // namespace marlo::detail
"""
