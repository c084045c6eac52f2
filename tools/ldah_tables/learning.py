# SPDX-License-Identifier: BSD-3-Clause
"""Learns the directions and offsets of the codes: bit j is set where rotation[j] . d + offset[j] is
0 or less, and only an orthonormal rotation is allowed."""

import dataclasses

import numpy as np

import samples as samples_module


@dataclasses.dataclass
class Settings:
    steps: int = 12000
    batch: int = 1024
    rate: float = 3e-3
    offset_rate: float = 5.0  # times `rate` and the deviation of the projection
    first_sharpness: float = 1.5  # of the soft bits, in deviations of the projection
    last_sharpness: float = 6.0
    ratio: float = 0.8  # that a mate's distance should have to the nearest stranger's, at most
    steepness: float = 15.0
    spread: float = 60.0  # weight of strangers' agreement


def start(samples):
    """The directions in which strangers differ most and mates least: eigenvectors of the second
    moments of differences."""

    def moments(differences):
        return differences.T.astype(np.float64) @ differences / len(differences)

    strange = moments(samples.strangers[:, 0] - samples.first)
    mates = moments(samples.second - samples.first)
    return np.linalg.eigh(strange - 10.0 * mates)[1][:, ::-1].T.astype(np.float32)


def median_offsets(rotation, samples):
    return -np.median(samples.first @ rotation.T, axis=0)


def polar_factor(matrix):
    """The nearest matrix with orthonormal rows."""
    left, _, right = np.linalg.svd(matrix.astype(np.float64), full_matrices=False)
    return left @ right


class Adam:
    """D. Kingma and J. Ba, Adam: A Method for Stochastic Optimization, ICLR 2015."""

    def __init__(self, shape):
        self.mean = np.zeros(shape, np.float32)
        self.square = np.zeros(shape, np.float32)
        self.steps = 0

    def step(self, gradient):
        self.steps += 1
        self.mean = 0.9 * self.mean + 0.1 * gradient
        self.square = 0.999 * self.square + 0.001 * gradient * gradient
        mean = self.mean / (1.0 - 0.9**self.steps)
        square = self.square / (1.0 - 0.999**self.steps)
        return mean / (np.sqrt(square) + 1e-8)


def loss_and_gradients(first, second, strangers, rotation, offsets, sharpness, settings):
    """The loss of a batch, and its derivatives by `rotation` and by `offsets`.

    Distances are soft: bits are tanh of the projections. A mate should be nearer than the nearest
    stranger by the ratio of the ratio test. Strangers are the mates of others and the stored ones.
    Apart from that, strangers' bits should agree no more often than by chance, which keeps wrong
    matches away: for those, matches alone do not pay."""
    batch, stored = strangers.shape[:2]
    each = np.arange(batch)
    bits1 = np.tanh((first @ rotation.T + offsets) * sharpness)
    bits2 = np.tanh((second @ rotation.T + offsets) * sharpness)
    bits3 = np.tanh((strangers.reshape(-1, 128) @ rotation.T + offsets) * sharpness)
    bits3 = bits3.reshape(batch, stored, 128)

    likeness = first @ second.T
    same = np.maximum(np.maximum(likeness, first @ first.T), second @ second.T)
    same = same > samples_module.NEAR_DUPLICATES
    same[each, each] = True
    agreement = bits1 @ bits2.T
    others = np.where(same, -np.inf, agreement)
    nearest = others.argmax(axis=1)
    stored_agreement = np.einsum("ij,ikj->ik", bits1, bits3)
    nearest_stored = stored_agreement.argmax(axis=1)
    by_stored = stored_agreement[each, nearest_stored] > others[each, nearest]
    hardest = np.where(by_stored, stored_agreement[each, nearest_stored], others[each, nearest])

    mate_distance = (128.0 - agreement[each, each]) / 2 + 2
    stranger_distance = (128.0 - hardest) / 2 + 2
    excess = settings.steepness * np.log(mate_distance / (settings.ratio * stranger_distance))
    strangers_count = np.count_nonzero(~same)
    chance = np.where(same, 0, agreement)
    loss = (np.logaddexp(0, excess).mean()
            + settings.spread * np.square(chance / 128).sum() / strangers_count)

    slope = settings.steepness / (1 + np.exp(-excess)) / batch
    by_agreement = chance * (2 * settings.spread / (128.0**2 * strangers_count))
    by_agreement[each, each] = -slope / (2 * mate_distance)
    by_hardest = slope / (2 * stranger_distance)
    inside = ~by_stored
    by_agreement[each[inside], nearest[inside]] += by_hardest[inside]
    by_agreement = by_agreement.astype(np.float32)
    by_hardest = np.where(by_stored, by_hardest, 0).astype(np.float32)[:, None]
    bits3 = bits3[each, nearest_stored]

    def by_projection(by_bits, bits):
        return by_bits * (1 - bits * bits) * sharpness

    slopes = (by_projection(by_agreement @ bits2 + by_hardest * bits3, bits1),
              by_projection(by_agreement.T @ bits1, bits2),
              by_projection(by_hardest * bits1, bits3))
    rows = (first, second, strangers[each, nearest_stored])
    by_rotation = sum(s.T @ r for s, r in zip(slopes, rows))
    by_offsets = sum(s.sum(axis=0) for s in slopes)
    return loss, by_rotation, by_offsets


def refine(samples, rotation, offsets, settings, random, fixed_rows=(), fixed_offsets=(),
           report=lambda step, loss: None):
    """Improves `rotation` and `offsets` together, but for the rows and the offsets with the given
    indices. Returns both in double precision."""
    fixed_rows, fixed_offsets = list(fixed_rows), list(fixed_offsets)
    free = np.setdiff1d(np.arange(128), fixed_rows)
    kept = rotation[fixed_rows].astype(np.float32)
    rotation, offsets = rotation.astype(np.float32), offsets.astype(np.float32)
    some = samples.first[random.permutation(len(samples.first))[:20000]]
    adam, offset_adam = Adam((len(free), 128)), Adam(128)
    mean_loss = None
    for step in range(settings.steps):
        if step % 50 == 0:
            deviations = (some @ rotation.T).std(axis=0)
        progress = step / settings.steps
        sharpness = settings.first_sharpness * (
            settings.last_sharpness / settings.first_sharpness) ** progress / deviations
        rate = np.float32(settings.rate * 0.5 * (1 + np.cos(np.pi * progress)))

        chosen = random.integers(len(samples.first), size=settings.batch)
        batch = [samples.first[chosen], samples.second[chosen], samples.strangers[chosen]]
        if random.random() < 0.5:
            batch = [rows[..., samples_module.MIRRORED] for rows in batch]
        loss, by_rotation, by_offsets = loss_and_gradients(*batch, rotation, offsets, sharpness,
                                                           settings)
        # Along the rotations only, then back onto them: two Newton-Schulz steps to the polar factor.
        rows, slope = rotation[free], by_rotation[free]
        slope = 0.5 * (slope - rows @ (slope.T @ rows))
        rows = rows - rate * adam.step(slope)
        rows -= (rows @ kept.T) @ kept
        for _ in range(2):
            rows = 1.5 * rows - 0.5 * (rows @ rows.T) @ rows
        rotation[free] = rows
        change = settings.offset_rate * rate * deviations * offset_adam.step(by_offsets)
        change[fixed_offsets] = 0
        offsets = (offsets - change).astype(np.float32)

        mean_loss = loss if mean_loss is None else 0.99 * mean_loss + 0.01 * loss
        if (step + 1) % 500 == 0:
            report(step + 1, mean_loss)

    exact = rotation.astype(np.float64)
    rows = exact[free] - (exact[free] @ kept.T.astype(np.float64)) @ kept
    exact[free] = polar_factor(rows)
    return exact, offsets.astype(np.float64)
