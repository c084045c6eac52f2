# SPDX-License-Identifier: BSD-3-Clause
"""Reads what collect_mates has written, and finds each mate's strangers."""

import dataclasses

import numpy as np

FLOATS = 128

# Values of the SIFT descriptor of the mirrored image: cell rows reversed, directions reversed.
MIRRORED = (np.arange(FLOATS).reshape(4, 4, 8)[::-1][:, :, (-np.arange(8)) % 8]).reshape(-1)

# Rows more alike than this are of one thing that the image shows twice; which of them is the right
# one nobody can learn.
NEAR_DUPLICATES = 0.97


@dataclasses.dataclass
class Samples:
    """Descriptors of keypoints that show the same, and of those that look alike but do not."""

    first: np.ndarray  # mates x 128
    second: np.ndarray  # mates x 128
    strangers: np.ndarray  # mates x strangers x 128, the most alike of the second image


def _pairs(path):
    content = np.memmap(path, np.uint8, "r")
    at = 0

    def take(kind, rows, columns):
        nonlocal at
        size = 4 * rows * columns
        if at + size > len(content):
            raise ValueError(f"{path} ends in the middle of a pair of images")
        taken = content[at : at + size].view(kind).reshape(rows, columns)
        at += size
        return taken

    while at < len(content):
        mates, others = take(np.int32, 1, 2)[0]
        yield (take(np.float32, mates, FLOATS), take(np.int32, mates, 1)[:, 0],
               take(np.float32, mates, 3), take(np.float32, others, 2),
               take(np.float32, others, FLOATS))


def read(path, most_of_a_pair, strangers, random):
    """At most `most_of_a_pair` mates of each pair of images, chosen at random, so that no
    photograph outweighs others, each with its most similar strangers."""
    first, second, alike = [], [], []
    for queries, mates, places, positions, rows in _pairs(path):
        chosen = np.sort(random.permutation(len(mates))[:most_of_a_pair])
        if len(chosen) == 0 or len(rows) <= strangers:
            continue
        query, mate, place = queries[chosen], rows[mates[chosen]], places[chosen]
        distance = np.hypot(positions[:, 0] - place[:, :1], positions[:, 1] - place[:, 1:2])
        likeness = query @ rows.T
        near = (distance < place[:, 2:]) | (mate @ rows.T > NEAR_DUPLICATES)
        enough = np.count_nonzero(~near, axis=1) >= strangers
        query, mate, near, likeness = query[enough], mate[enough], near[enough], likeness[enough]
        if len(query) == 0:
            continue
        likeness[near] = -1
        first.append(query)
        second.append(mate)
        alike.append(rows[np.argpartition(-likeness, strangers, axis=1)[:, :strangers]])
    if not first:
        raise ValueError(f"{path} has no mates")
    return Samples(np.concatenate(first), np.concatenate(second), np.concatenate(alike))
