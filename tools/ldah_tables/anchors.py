# SPDX-License-Identifier: BSD-3-Clause
"""Gives learned directions the lengths, signs and order that the tables have, and the entries that
are the same in every set of tables.

Length, sign and place of a row do not change Hamming distances, so most of this is free."""

import dataclasses

import numpy as np
from scipy.optimize import linear_sum_assignment

import learning
import tables


@dataclasses.dataclass
class Placed:
    """Unit rows in their final order, and the lengths that the table gives them."""

    rotation: np.ndarray
    offsets: np.ndarray  # of the unit rows
    lengths: np.ndarray


NOMINAL_LENGTHS = tables.SHORTEST * (tables.LONGEST / tables.SHORTEST) ** (np.arange(128) / 127)


def _room(row, offset):
    """The greatest length with which a row, of this sign, stays within the ranges."""
    limits = []
    if row.max() > 0:
        limits.append(tables.HIGHEST_VALUE / row.max())
    if row.min() < 0:
        limits.append(tables.LOWEST_VALUE / row.min())
    if offset > 0:
        limits.append(tables.HIGHEST_OFFSET / offset)
    if offset < 0:
        limits.append(tables.LOWEST_OFFSET / offset)
    return min(limits)


def _choose_fixed_rows(rotation, offsets, deviations):
    """Which row, with which sign and length, takes each index with a fixed offset."""
    indices = list(tables.FIXED_OFFSETS)
    signs = np.zeros((len(indices), 128))
    lengths = np.zeros((len(indices), 128))
    costs = np.zeros((len(indices), 128))
    for i, index in enumerate(indices):
        fixed, nominal = tables.FIXED_OFFSETS[index], NOMINAL_LENGTHS[index]
        for row in range(128):
            best = None
            for sign in (1.0, -1.0):
                offset = sign * offsets[row]
                length = nominal
                if 3 < index < 127 and fixed * offset > 0:
                    length = np.clip(fixed / offset, 0.8 * nominal, 1.25 * nominal)
                # With some room left, for the refinement that follows keeps the length.
                length = min(length, 0.95 * _room(sign * rotation[row], fixed / nominal))
                # Bits lost by the change of the offset, in deviations; a row too short for its
                # place costs less than that, but something.
                cost = (((fixed / length - offset) / deviations[row]) ** 2
                        + 0.01 * np.log(length / nominal) ** 2)
                if index in (0, 127):
                    cost += 1e3 * np.log(length / nominal) ** 2  # the ends have their length
                    entries, begin = ((tables.FIRST_ROW_BEGINS, 0) if index == 0
                                      else (tables.LAST_ROW_ENDS, 124))
                    change = entries / nominal - sign * rotation[row, begin : begin + 4]
                    cost += 10.0 * np.square(change).sum()
                if best is None or cost < best[0]:
                    best = (cost, sign, length)
            costs[i, row], signs[i, row], lengths[i, row] = best
    chosen = linear_sum_assignment(costs)
    return {indices[i]: (row, signs[i, row], lengths[i, row]) for i, row in zip(*chosen)}


def _with_fixed_entries(first, last):
    """The first and the last row with their entries, of their lengths, orthogonal to each other."""
    first, last = first * tables.SHORTEST, last * tables.LONGEST

    def scaled(part, square):
        return part * np.sqrt(square / (part @ part))

    first[:4] = tables.FIRST_ROW_BEGINS.astype(np.float32)
    first[4:] = scaled(first[4:], tables.SHORTEST**2 - first[:4] @ first[:4])
    last[124:] = tables.LAST_ROW_ENDS.astype(np.float32)
    # The free part of the last row: what makes it orthogonal, and the rest scaled.
    along = first[:124] / (first[:124] @ first[:124])
    needed = -(last[124:] @ first[124:]) * along
    rest = last[:124] - (last[:124] @ first[:124]) * along
    square = tables.LONGEST**2 - last[124:] @ last[124:] - needed @ needed
    last[:124] = needed + scaled(rest, square)
    return first / tables.SHORTEST, last / tables.LONGEST


def place(rotation, offsets, samples):
    """Orders the rows and bends the first and the last to their fixed entries."""
    deviations = (samples.first @ rotation.T.astype(np.float32)).std(axis=0)
    fixed = _choose_fixed_rows(rotation, offsets, deviations)
    taken = {row for row, _, _ in fixed.values()}
    others = [row for row in np.argsort(-deviations, kind="stable") if row not in taken]
    order, signs, lengths = [], [], NOMINAL_LENGTHS.copy()
    for index in range(128):
        if index in fixed:
            row, sign, lengths[index] = fixed[index]
        else:
            row, sign = others.pop(0), 1.0
        order.append(row)
        signs.append(sign)
    rotation = rotation[order] * np.array(signs)[:, None]
    offsets = offsets[order] * np.array(signs)
    for index, value in tables.FIXED_OFFSETS.items():
        offsets[index] = value / lengths[index]
    rotation[0], rotation[127] = _with_fixed_entries(rotation[0], rotation[127])
    ends = rotation[[0, 127]]
    rotation[1:127] = learning.polar_factor(rotation[1:127] - (rotation[1:127] @ ends.T) @ ends)
    return Placed(rotation, offsets, lengths)


def to_tables(placed):
    """The tables in single precision. Rows with free offsets get the sign with which they can be
    longer, and become shorter where they would leave the range of values or of offsets."""
    rotation, offsets, lengths = placed.rotation.copy(), placed.offsets.copy(), placed.lengths
    lengths = lengths.copy()
    for index in range(128):
        if index in tables.FIXED_OFFSETS:
            continue
        if _room(-rotation[index], -offsets[index]) > _room(rotation[index], offsets[index]):
            rotation[index] *= -1
            offsets[index] *= -1
        lengths[index] = min(lengths[index], _room(rotation[index], offsets[index]))
    projection = (rotation * lengths[:, None]).astype(np.float32)
    offsets = (offsets * lengths).astype(np.float32)
    projection[0, :4] = tables.FIRST_ROW_BEGINS
    projection[127, 124:] = tables.LAST_ROW_ENDS
    for index, value in tables.FIXED_OFFSETS.items():
        offsets[index] = value
    return projection, offsets
