# SPDX-License-Identifier: BSD-3-Clause
"""The tools that learn the tables of the LDAH codes and write their source.

Usage: learning_test.py SOURCE_DIR"""

import pathlib
import re
import subprocess
import sys
import tempfile
import unittest
import unittest.mock

import numpy as np

ROOT = pathlib.Path(sys.argv.pop())
TOOLS = ROOT / "tools/ldah_tables"
sys.path.insert(0, str(TOOLS))

import anchors  # noqa: E402
import learning  # noqa: E402
import samples  # noqa: E402
import tables  # noqa: E402


def random_rows(random, count):
    rows = np.abs(random.standard_normal((count, 128)))
    return (rows / np.linalg.norm(rows, axis=1)[:, None]).astype(np.float32)


def random_rotation(random):
    return np.linalg.qr(random.standard_normal((128, 128)))[0]


def rows_of_signs():
    """The matrix of Sylvester and Hadamard: orthonormal rows of equal entries but for the sign."""
    matrix = np.ones((1, 1))
    while len(matrix) < 128:
        matrix = np.block([[matrix, matrix], [matrix, -matrix]])
    return matrix / np.sqrt(128)


def write_samples(path, pairs=5, mates=150, others=60):
    """Images of `mates` keypoints each that the next one shows again, and `others` of its own."""
    random = np.random.Generator(np.random.PCG64(7))
    with open(path, "wb") as file:
        for _ in range(pairs):
            first = random_rows(random, mates)
            second = np.abs(first + 0.02 * random.standard_normal(first.shape))
            second = np.concatenate([second, random_rows(random, others)]).astype(np.float32)
            positions = random.uniform(0, 1000, (mates + others, 2)).astype(np.float32)
            places = np.column_stack([positions[:mates], np.full(mates, 12)]).astype(np.float32)
            file.write(np.array([mates, mates + others], np.int32).tobytes())
            file.write(first.tobytes() + np.arange(mates, dtype=np.int32).tobytes())
            file.write(places.tobytes() + positions.tobytes() + second.tobytes())


def numbers_of(source):
    texts = re.findall(r"(-?\d+\.\d+(?:e-?\d+)?)F", source)
    return np.array([np.float32(text) for text in texts])


class LearnerTest(unittest.TestCase):
    def learn(self, folder, name):
        subprocess.run([sys.executable, TOOLS / "learn_tables.py", folder / "samples.bin",
                        folder / name, "--steps", "16"], check=True, capture_output=True)
        return tables.load(folder / name)

    def test_gives_the_same_tables_twice_and_they_are_without_fault(self):
        with tempfile.TemporaryDirectory() as name:
            folder = pathlib.Path(name)
            write_samples(folder / "samples.bin")
            first, second = self.learn(folder, "1.npz"), self.learn(folder, "2.npz")
        np.testing.assert_array_equal(first[0], second[0])
        np.testing.assert_array_equal(first[1], second[1])
        self.assertEqual(tables.faults(*first), [])

    def test_gradients_are_those_of_the_loss(self):
        random = np.random.Generator(np.random.PCG64(3))
        first = random_rows(random, 12)
        second = np.abs(first + 0.02 * random.standard_normal(first.shape))
        strangers = random_rows(random, 36).reshape(12, 3, 128).astype(np.float64)
        rotation = np.linalg.qr(random.standard_normal((128, 128)))[0]
        offsets = -np.median(first @ rotation.T, axis=0)
        settings = learning.Settings()

        def loss(r, t):
            return learning.loss_and_gradients(first.astype(np.float64), second, strangers, r, t,
                                               20.0, settings)

        _, by_rotation, by_offsets = loss(rotation, offsets)
        for _ in range(5):
            turn, shift = random.standard_normal((128, 128)), random.standard_normal(128)
            step = 1e-6
            measured = (loss(rotation + step * turn, offsets + step * shift)[0]
                        - loss(rotation - step * turn, offsets - step * shift)[0]) / (2 * step)
            expected = (by_rotation * turn).sum() + (by_offsets * shift).sum()
            self.assertAlmostEqual(measured / expected, 1, places=3)


def unsteady_samples():
    """Rows whose first 32 values the mates do not share."""
    random = np.random.Generator(np.random.PCG64(7))
    first = random_rows(random, 300)
    second = first.copy()
    second[:, :32] += 0.16 * random.standard_normal((300, 32)).astype(np.float32)
    likeness = first @ second.T
    np.fill_diagonal(likeness, -1)
    return samples.Samples(first, second, second[np.argsort(-likeness, axis=1)[:, :2]])


class StartTest(unittest.TestCase):
    def test_goes_from_where_strangers_differ_to_where_mates_do(self):
        # Mate and stranger i differ from row i in direction i only.
        strange = np.random.Generator(np.random.PCG64(9)).permutation(128) + 1
        mates = np.zeros(128)
        mates[strange == 128] = 9.95  # counts ten times: 128 becomes 28.5
        mates[strange == 5] = 1.0  # below 0
        given = samples.Samples(np.zeros((128, 128), np.float32), np.diag(np.sqrt(128 * mates)),
                                np.stack([np.diag(np.sqrt(128 * strange)),
                                          100 * np.diag(strange[::-1])], axis=1))
        order = [*range(127, 28, -1), 128, *range(28, 5, -1), 4, 3, 2, 1, 5]
        expected = (strange == np.array(order)[:, None]).astype(float)
        np.testing.assert_allclose(np.abs(learning.start(given)), expected, atol=1e-5)

    def test_offsets_set_each_bit_in_half_of_the_rows(self):
        random = np.random.Generator(np.random.PCG64(9))
        given = samples.Samples(random_rows(random, 101), None, None)
        rotation = random_rotation(random)
        offsets = learning.median_offsets(rotation, given)
        shares = (given.first @ rotation.T + offsets < -1e-9).mean(axis=0)
        np.testing.assert_array_equal(shares, np.full(128, 50 / 101))


class LossTest(unittest.TestCase):
    """Rows of signs: with the identity for a rotation bits are the signs, and distances whole."""

    SETTINGS = learning.Settings(ratio=0.8, steepness=15.0, spread=60.0)

    @staticmethod
    def row(*bits):
        row = np.full(128, 1 / np.sqrt(128))
        row[list(bits)] *= -1
        return row

    def loss(self, first, second, strangers):
        return learning.loss_and_gradients(np.stack(first), np.stack(second), np.stack(strangers),
                                           np.eye(128), np.zeros(128), 1e3, self.SETTINGS)[0]

    @staticmethod
    def matches(mates_and_hardest):
        """The loss of matches by the distances of the mate and of the nearest stranger."""
        return np.mean([np.log1p(((mate + 2) / (0.8 * (stranger + 2))) ** 15)
                        for mate, stranger in mates_and_hardest])

    @staticmethod
    def agreement(distances):
        return 60 * np.mean([((128 - 2 * distance) / 128) ** 2 for distance in distances])

    def setUp(self):
        self.first = [self.row(), self.row(*range(64)), self.row(*range(20, 100))]
        self.second = [self.row(*range(8)), self.row(*range(60)), self.row(*range(20, 92))]
        self.far = [self.row(*range(1, 128, 2)), self.row(*range(64, 128))]

    def test_is_by_the_nearest_stranger_of_the_batch_and_by_the_agreement_of_all(self):
        # Distances of the first rows to the second ones, their mates on the diagonal:
        #      8  60  72
        #     56   4  48
        #     88  60   8
        strangers = [self.far, self.far, self.far]  # 64 and 64, 64 and 128, 64 and 72 away
        self.assertAlmostEqual(self.loss(self.first, self.second, strangers),
                               self.matches([(8, 60), (4, 48), (8, 60)])
                               + self.agreement([60, 72, 56, 48, 88, 60]))

    def test_is_by_a_stored_stranger_that_is_nearer(self):
        strangers = [self.far, [self.far[0], self.row(*range(4, 70))], self.far]  # 10 from the 2nd
        self.assertAlmostEqual(self.loss(self.first, self.second, strangers),
                               self.matches([(8, 60), (4, 10), (8, 60)])
                               + self.agreement([60, 72, 56, 48, 88, 60]))

    def test_takes_no_near_duplicate_of_the_row_for_a_stranger(self):
        self.second[2] = self.row(127)  # 1 from the first row; to the others 65 and 81
        self.assertAlmostEqual(self.loss(self.first, self.second, [self.far] * 3),
                               self.matches([(8, 60), (4, 56), (81, 60)])
                               + self.agreement([60, 56, 65, 88, 60]))

    def test_takes_no_mate_of_a_near_duplicate_for_a_stranger(self):
        self.first[2] = self.row(127)  # 1 from the first row; to the second ones 9, 61 and 73
        self.assertAlmostEqual(self.loss(self.first, self.second, [self.far] * 3),
                               self.matches([(8, 60), (4, 48), (73, 61)])
                               + self.agreement([60, 56, 48, 61]))

    def test_takes_no_near_duplicate_of_the_mate_for_a_stranger(self):
        self.second[2] = self.row(*range(9))  # 1 from the first mate; 9, 55 and 89 from the rows
        self.assertAlmostEqual(self.loss(self.first, self.second, [self.far] * 3),
                               self.matches([(8, 60), (4, 55), (89, 60)])
                               + self.agreement([60, 56, 55, 60]))


class AdamTest(unittest.TestCase):
    def test_steps_by_the_mean_gradient_over_its_size(self):
        adam = learning.Adam(2)
        np.testing.assert_allclose(adam.step(np.array([4.0, -0.01])), [1, -1], rtol=1e-5)
        # Means (0.9 * 0.1 * 4 + 0.1 * 2) / 0.19 and (0.000999 * 16 + 0.001 * 4) / 0.001999.
        np.testing.assert_allclose(adam.step(np.array([2.0, 0.0]))[0],
                                   (0.56 / 0.19) / np.sqrt(0.019984 / 0.001999), rtol=1e-5)


class RefinementTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.given = unsteady_samples()

    def setUp(self):
        self.random = np.random.Generator(np.random.PCG64(4))
        self.rotation = random_rotation(self.random).astype(np.float32)
        self.offsets = learning.median_offsets(self.rotation, self.given).astype(np.float32)
        self.deviations = (self.given.first @ self.rotation.T).std(axis=0)

    def refine(self, steps, **more):
        settings = learning.Settings(steps=steps, batch=64)
        return learning.refine(self.given, self.rotation, self.offsets, settings, self.random,
                               **more)

    def observed(self, steps, **more):
        """What each step of a refinement gave to the loss."""
        calls = []

        def loss_and_gradients(*arguments):
            calls.append([np.copy(argument) for argument in arguments[:6]])
            return compute(*arguments)

        compute = learning.loss_and_gradients
        with unittest.mock.patch.object(learning, "loss_and_gradients", loss_and_gradients):
            self.refine(steps, **more)
        return calls

    def loss(self, rotation, offsets):
        """Of a fixed batch, with fixed sharpness."""
        batch = [self.given.first[::3], self.given.second[::3], self.given.strangers[::3]]
        return learning.loss_and_gradients(*batch, rotation, offsets, 3 / self.deviations,
                                           learning.Settings())[0]

    def test_turns_alone_make_the_loss_fall(self):
        before = self.loss(self.rotation, self.offsets)
        rotation, offsets = self.refine(60, fixed_offsets=range(128))
        np.testing.assert_array_equal(offsets, self.offsets)
        self.assertLess(self.loss(rotation, offsets), 0.75 * before)

    def test_turns_of_a_few_rows_make_the_loss_fall(self):
        before = self.loss(self.rotation, self.offsets)
        rotation, offsets = self.refine(60, fixed_rows=range(64), fixed_offsets=range(128))
        self.assertLess(self.loss(rotation, offsets), 0.9 * before)

    def test_offsets_alone_make_the_loss_fall(self):
        self.offsets += self.deviations * self.random.choice([-1, 1], 128).astype(np.float32)
        before = self.loss(self.rotation, self.offsets)
        # The last row has nowhere to turn.
        rotation, offsets = self.refine(60, fixed_rows=range(127))
        np.testing.assert_allclose(rotation, self.rotation, atol=1e-4)
        self.assertLess(self.loss(rotation, offsets), 0.8 * before)

    def test_a_step_is_a_turn_that_makes_the_loss_rise_if_it_is_added(self):
        steps = []

        class Adam(learning.Adam):
            def step(self, gradient):
                steps.append(gradient)
                return super().step(gradient)

        with unittest.mock.patch.object(learning, "Adam", Adam):
            call = self.observed(1)[0]
        by_rotation = learning.loss_and_gradients(*call, learning.Settings())[1]
        turn = steps[0] @ self.rotation.T
        np.testing.assert_allclose(turn, -turn.T, atol=1e-4 * np.abs(turn).max())
        self.assertAlmostEqual((turn * turn).sum() / (steps[0] * by_rotation).sum(), 1, places=3)

    def test_rows_are_orthonormal_in_every_step(self):
        for _, _, _, rotation, _, _ in self.observed(30, fixed_rows=(0, 127)):
            np.testing.assert_allclose(rotation @ rotation.T, np.eye(128), atol=1e-4)

    def test_bits_become_sharper_in_deviations_that_are_measured_every_50_steps(self):
        calls = self.observed(60)
        for step, measured in ((0, 0), (49, 0), (50, 50)):
            deviations = (self.given.first @ calls[measured][3].T).std(axis=0)
            np.testing.assert_allclose(calls[step][5] * deviations, 1.5 * 4 ** (step / 60),
                                       rtol=1e-4)

    def test_steps_become_smaller(self):
        calls = self.observed(40)
        turns, shifts = ([np.abs(after[table] - before[table])
                          for before, after in zip(calls, calls[1:])] for table in (3, 4))
        np.testing.assert_allclose(shifts[0], 5 * 3e-3 * self.deviations, rtol=1e-3)
        self.assertGreater(np.median(turns[0]), 1.5e-3)  # some of the 3e-3 is no turn
        self.assertLess(np.median(turns[0]), 3e-3)
        self.assertLess(turns[-1].mean(), 0.1 * turns[0].mean())
        self.assertLess(shifts[-1].mean(), 0.1 * shifts[0].mean())

    def test_half_of_the_batches_are_mirrored(self):
        number = {row.tobytes(): i for i, row in enumerate(self.given.first)}
        mirrored = 0
        for batch in self.observed(40):
            batch = batch[:3]
            if batch[0][0].tobytes() not in number:
                mirrored += 1
                batch = [rows[..., samples.MIRRORED] for rows in batch]
            chosen = [number[row.tobytes()] for row in batch[0]]
            np.testing.assert_array_equal(batch[1], self.given.second[chosen])
            np.testing.assert_array_equal(batch[2], self.given.strangers[chosen])
        self.assertGreater(mirrored, 10)
        self.assertLess(mirrored, 30)

    def test_leaves_fixed_rows_and_offsets_alone(self):
        refined, moved = self.refine(20, fixed_rows=(0, 127), fixed_offsets=(3,))
        np.testing.assert_array_equal(refined[[0, 127]], self.rotation[[0, 127]])
        self.assertEqual(moved[3], self.offsets[3])
        self.assertGreater(np.abs(refined[1:127] - self.rotation[1:127]).max(), 1e-3)
        self.assertLess(np.abs(refined @ refined.T - np.eye(128)).max(), 1e-6)
        free = refined[1:127]
        self.assertLess(np.abs(free @ free.T - np.eye(126)).max(), 1e-12)
        self.assertLess(np.abs(free @ refined[[0, 127]].T).max(), 1e-11)


def bits_as_signs(rotation, offsets, rows, doubtful):
    """Projections' signs, 0 where rounding could change them."""
    values = rows.astype(np.float64) @ rotation.astype(np.float64).T + offsets
    return np.where(np.abs(values) < doubtful, 0, np.sign(values))


class PlaceTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        random = np.random.Generator(np.random.PCG64(8))
        cls.given = samples.Samples(random_rows(random, 400), None, None)
        cls.rotation = random_rotation(random)
        cls.offsets = learning.median_offsets(cls.rotation, cls.given)
        cls.placed = anchors.place(cls.rotation, cls.offsets, cls.given)
        cls.free = [index for index in range(128) if index not in tables.FIXED_OFFSETS]

    def test_each_row_gets_one_place_and_a_free_one_keeps_sign_and_offset(self):
        cosines = self.placed.rotation @ self.rotation.T
        came_from = np.abs(cosines).argmax(axis=1)
        np.testing.assert_array_equal(np.sort(came_from), np.arange(128))
        self.assertGreater(cosines[self.free, came_from[self.free]].min(), 0.98)
        np.testing.assert_array_equal(self.placed.offsets[self.free],
                                      self.offsets[came_from[self.free]])

    def test_deviations_fall_with_the_index(self):
        came_from = np.abs(self.placed.rotation @ self.rotation.T).argmax(axis=1)
        deviations = (self.given.first @ self.rotation.T).std(axis=0)[came_from]
        self.assertLess(np.diff(deviations[self.free]).max(), 1e-6)

    def test_rows_stay_orthonormal(self):
        rows = self.placed.rotation
        self.assertLess(np.abs(rows @ rows.T - np.eye(128)).max(), 1e-6)

    def test_both_ends_have_their_length_and_entries(self):
        self.assertAlmostEqual(self.placed.lengths[0], tables.SHORTEST)
        self.assertAlmostEqual(self.placed.lengths[127], tables.LONGEST)
        np.testing.assert_allclose(self.placed.rotation[0, :4] * tables.SHORTEST,
                                   [-0.0690876, 0.180609, 0.233704, 0.2504], rtol=1e-6)
        np.testing.assert_allclose(self.placed.rotation[127, 124:] * tables.LONGEST,
                                   [-2.0896, 5.58566, -5.62096, 3.79748], rtol=1e-6)

    def test_lengths_of_free_rows_grow_evenly_on_a_logarithmic_scale(self):
        expected = np.array([8 * 10.2375 ** (index / 127) for index in self.free])
        np.testing.assert_allclose(self.placed.lengths[self.free], expected, rtol=1e-9)

    def place_wanted(self, sign=1, length_64=25.9, length_65=26.3, rotation=rows_of_signs()):
        """Rows 30, 31 ... of `rotation` have the fixed offsets at the lengths given or nominal, all
        others one that is many deviations away. `sign` turns all that is given around."""
        lengths = 8 * 10.2375 ** (np.arange(128) / 127)
        lengths[[64, 65]] = length_64, length_65
        offsets = np.full(128, 1.0)
        for row, (index, value) in enumerate(tables.FIXED_OFFSETS.items(), 30):
            offsets[row] = sign * value / lengths[index]
        pale = samples.Samples(self.given.first / 100, None, None)  # small deviations
        return anchors.place(sign * rotation, offsets, pale)

    def test_a_fixed_offset_goes_to_the_row_that_has_it_in_either_sign(self):
        for sign in (1, -1):
            placed = self.place_wanted(sign)
            for row, index in enumerate(tables.FIXED_OFFSETS, 30):
                cosine = placed.rotation[index] @ rows_of_signs()[row]
                if index == 127:  # an offset so near 0 that the entries decide on the sign
                    cosine = abs(cosine)
                self.assertGreater(cosine, 0.9, index)

    def test_a_row_in_the_middle_gets_the_length_that_keeps_its_offset(self):
        placed = self.place_wanted(length_65=30)
        self.assertAlmostEqual(placed.lengths[65], 30)
        self.assertAlmostEqual(placed.offsets[65], 4.77836 / 30)

    def test_a_length_is_not_changed_by_more_than_a_quarter_or_a_fifth(self):
        nominal = 8 * 10.2375 ** (65 / 127)
        self.assertAlmostEqual(self.place_wanted(length_65=60).lengths[65], 1.25 * nominal)
        self.assertAlmostEqual(self.place_wanted(length_65=10).lengths[65], 0.8 * nominal)

    def test_a_row_with_a_fixed_offset_keeps_some_room_for_its_values(self):
        rotation = np.copy(rows_of_signs())
        rotation[34] *= 0.1  # the row of index 64 gets one large entry
        rotation[34, 60] = np.sqrt(1 - (rotation[34] ** 2).sum() + rotation[34, 60] ** 2)
        placed = self.place_wanted(rotation=rotation)
        self.assertAlmostEqual(placed.lengths[64], 0.95 * 25.8 / rotation[34, 60])

    def test_the_ends_go_to_rows_that_have_their_entries_and_can_have_their_length(self):
        random = np.random.Generator(np.random.PCG64(8))
        rotation = random_rotation(random)
        ends = [-2.0896 / 81.9, 5.58566 / 81.9, -5.62096 / 81.9, 3.79748 / 81.9]
        rotation[:3] = 0
        for row in range(3):  # apart from the entries, each has columns of its own
            rotation[row, 4 + row : 124 : 3] = random.choice([-1, 1], 40)
        rotation[0, :4] = np.array([-0.0690876, 0.180609, 0.233704, 0.2504]) / 8
        rotation[1, 124:] = -0.75 * np.array(ends)
        rotation[2, 124:] = ends
        rotation[2, 60] = 5  # no row with such an entry can be the longest
        for row, part in enumerate((slice(4, 128), slice(0, 124), slice(0, 124))):
            square = 1 - (rotation[row] ** 2).sum() + (rotation[row, part] ** 2).sum()
            rotation[row, part] *= np.sqrt(square) / np.linalg.norm(rotation[row, part])
        kept = rotation[:3]
        rotation[3:] -= rotation[3:] @ np.linalg.pinv(kept) @ kept
        rotation[3:] = learning.polar_factor(rotation[3:])
        steep = samples.Samples(10 * random.standard_normal((400, 128)).astype(np.float32), None,
                                None)  # deviations so large that offsets hardly count
        placed = anchors.place(rotation, np.zeros(128), steep)
        self.assertGreater(placed.rotation[0] @ rotation[0], 0.99)
        self.assertLess(placed.rotation[127] @ rotation[1], -0.98)


class ToTablesTest(unittest.TestCase):
    def test_codes_are_the_same_up_to_signs(self):
        random = np.random.Generator(np.random.PCG64(8))
        given = samples.Samples(random_rows(random, 400), None, None)
        rotation = random_rotation(random)
        placed = anchors.place(rotation, learning.median_offsets(rotation, given), given)
        projection, offsets = anchors.to_tables(placed)
        before = bits_as_signs(placed.rotation, placed.offsets, given.first, 1e-5)
        after = bits_as_signs(projection, offsets, given.first, 0)
        self.assertGreater(np.count_nonzero(before), 0.99 * before.size)
        signs = np.sign((before * after).sum(axis=0))
        np.testing.assert_array_equal(np.where(before == 0, 0, after * signs), before)
        for index in tables.FIXED_OFFSETS:
            self.assertEqual(signs[index], 1)
        self.assertIn(-1, signs)

    def test_what_is_fixed_is_exact(self):
        random = np.random.Generator(np.random.PCG64(8))
        placed = anchors.Placed(random_rotation(random), random.standard_normal(128),
                                anchors.NOMINAL_LENGTHS)
        projection, offsets = anchors.to_tables(placed)
        self.assertEqual(projection.dtype, np.float32)
        self.assertEqual(offsets.dtype, np.float32)
        np.testing.assert_array_equal(
            projection[0, :4], np.float32([-0.0690876, 0.180609, 0.233704, 0.2504]))
        np.testing.assert_array_equal(
            projection[127, 124:], np.float32([-2.0896, 5.58566, -5.62096, 3.79748]))
        np.testing.assert_array_equal(
            offsets[[0, 1, 2, 3, 64, 65, 127]],
            np.float32([0.431779, -0.00835053, -0.698111, -0.963172, -1.75388, 4.77836, -0.000819]))

    def tables_with(self, index, row, offset, length):
        """Row and offset of the tables for a unit row at this index."""
        placed = anchors.Placed(rows_of_signs(), np.zeros(128), anchors.NOMINAL_LENGTHS.copy())
        placed.rotation[index], placed.offsets[index] = row, offset
        placed.lengths[index] = length
        projection, offsets = anchors.to_tables(placed)
        return projection[index], offsets[index]

    def test_a_row_of_one_sign_becomes_positive_and_keeps_its_length(self):
        even = np.full(128, 1 / np.sqrt(128))
        for sign in (1, -1):
            row, offset = self.tables_with(60, sign * even, sign * 0.1, 40.0)
            np.testing.assert_allclose(row, 40 * even, rtol=1e-6)
            self.assertAlmostEqual(offset, 4.0, places=6)

    def test_a_row_too_long_for_its_values_becomes_shorter(self):
        for sign in (1, -1):
            row, offset = self.tables_with(100, sign * np.eye(128)[5], sign * 0.1, 50.0)
            np.testing.assert_allclose(row, 25.8 * np.eye(128)[5], rtol=1e-6)  # not -22.6
            self.assertAlmostEqual(offset, 2.58, places=6)

    def test_a_row_too_long_for_its_offset_becomes_shorter(self):
        even = np.full(128, 1 / np.sqrt(128))
        for sign in (1, -1):
            row, offset = self.tables_with(100, sign * even, sign * 0.5, 50.0)
            np.testing.assert_allclose(row, 23.16 * even, rtol=1e-6)
            self.assertAlmostEqual(offset, 11.58, places=5)  # not -5.48


class SamplesTest(unittest.TestCase):
    @staticmethod
    def read(pairs, most_of_a_pair=10, strangers=1):
        """`pairs` of (first rows, indices of mates, places, positions, second rows)."""
        with tempfile.TemporaryDirectory() as name:
            path = pathlib.Path(name) / "samples.bin"
            with open(path, "wb") as file:
                for first, mates, places, positions, second in pairs:
                    file.write(np.array([len(first), len(second)], np.int32).tobytes())
                    file.write(np.array(first, np.float32).tobytes())
                    file.write(np.array(mates, np.int32).tobytes())
                    file.write(np.array(places, np.float32).tobytes())
                    file.write(np.array(positions, np.float32).tobytes())
                    file.write(np.array(second, np.float32).tobytes())
            random = np.random.Generator(np.random.PCG64(5))
            return samples.read(path, most_of_a_pair, strangers, random)

    def setUp(self):
        # Of query 0 the mate is row 4, at (50, 60). Row 1 looks like it and lies 5 pixels away,
        # row 3 looks the same and lies 40 pixels away, row 0 is the next similar, 20 pixels away.
        def mixed(weights):
            row = weights @ base[: len(weights)]
            return row / np.linalg.norm(row)

        base = np.repeat(np.eye(32), 4, axis=1) / 2
        self.first = np.stack([mixed([10, 2]), mixed([0, 0, 1])])
        self.second = np.stack([mixed([8, 0, 0, 4]), mixed([10, 0, 0, 0, 4]), mixed([0, 0, 5, 1]),
                                mixed([10, 0, 0, 0, 0, 1]), mixed([10]), mixed([1, 9])])
        self.positions = np.array([[62, 76], [53, 64], [200, 200], [74, 92], [50, 60], [90, 9]])
        self.places = np.array([[50, 60, 10], [200, 200, 10]])

    def strangers_of_the_first(self, strangers=1):
        given = self.read([(self.first, [4, 2], self.places, self.positions, self.second)],
                          strangers=strangers)
        np.testing.assert_array_equal(given.first, self.first.astype(np.float32))
        np.testing.assert_array_equal(given.second, self.second[[4, 2]].astype(np.float32))
        return [np.abs(self.second - row).sum(axis=1).argmin() for row in given.strangers[0]]

    def test_strangers_are_the_most_similar_that_lie_elsewhere_and_do_not_look_the_same(self):
        self.assertEqual(self.strangers_of_the_first(), [0])
        self.assertEqual(sorted(self.strangers_of_the_first(strangers=2)), [0, 5])

    def test_what_lies_outside_the_radius_of_a_place_is_a_stranger(self):
        self.places[0, 2] = 4
        self.assertEqual(self.strangers_of_the_first(), [1])

    def test_what_looks_nearly_the_same_is_a_stranger(self):
        self.second[3] = 0.96 * self.second[4] + 0.28 * np.repeat(np.eye(32)[6], 4) / 2
        self.assertEqual(self.strangers_of_the_first(), [3])

    def test_the_mate_decides_what_looks_the_same_and_the_query_what_is_similar(self):
        self.second[3] = self.first[0]  # 0.98 like the mate
        self.first[0] = self.second[5]
        self.assertEqual(self.strangers_of_the_first(), [5])

    def test_mates_with_too_few_strangers_are_left_out(self):
        self.places[0, 2] = 1000  # all but none of query 1 is near
        given = self.read([(self.first, [4, 2], self.places, self.positions, self.second)],
                          strangers=5)
        np.testing.assert_array_equal(given.first, self.first[1:].astype(np.float32))
        np.testing.assert_array_equal(given.second, self.second[[2]].astype(np.float32))
        self.assertEqual(given.strangers.shape, (1, 5, 128))

    def test_pairs_of_images_with_too_few_keypoints_are_left_out(self):
        small = (self.first[:1], [0], self.places[:1], self.positions[:2], self.second[:2])
        whole = (self.first, [4, 2], self.places, self.positions, self.second)
        given = self.read([small, whole], strangers=2)
        np.testing.assert_array_equal(given.first, self.first.astype(np.float32))

    def test_a_file_without_mates_is_refused(self):
        none = (self.first[:0], [], self.places[:0], self.positions, self.second)
        with self.assertRaisesRegex(ValueError, "samples.bin has no mates"):
            self.read([none])

    def test_a_file_without_mates_that_have_strangers_is_refused(self):
        self.places[:, 2] = 1000
        with self.assertRaisesRegex(ValueError, "samples.bin has no mates"):
            self.read([(self.first, [4, 2], self.places, self.positions, self.second)])

    def test_no_more_mates_of_a_pair_of_images_are_taken_than_asked_for(self):
        random = np.random.Generator(np.random.PCG64(5))
        rows = random_rows(random, 30)
        positions = 100 * np.arange(60).reshape(30, 2)
        # Each mate has a second keypoint beside it that looks similar, and is no stranger.
        beside = 0.6 * rows + 0.4 * random_rows(random, 30)
        given = self.read([(rows[::-1], np.arange(30)[::-1],
                            np.column_stack([positions, np.full(30, 10)])[::-1],
                            np.concatenate([positions, positions + 3]),
                            np.concatenate([rows, beside]))] * 2, most_of_a_pair=12)
        self.assertEqual(len(given.first), 24)
        taken = [[np.flatnonzero((rows == row).all(axis=1))[0] for row in side]
                 for side in (given.first, given.second)]
        self.assertEqual(taken[0], taken[1])
        for mate, stranger in zip(taken[1], given.strangers[:, 0]):
            self.assertFalse(np.allclose(stranger, beside[mate]))
        for half in (taken[0][:12], taken[0][12:]):
            self.assertEqual(len(set(half)), 12)
            self.assertLess(min(half), 18)  # not simply the first ones, which are 29 to 18

    def test_a_file_that_ends_early_is_refused(self):
        with tempfile.TemporaryDirectory() as name:
            path = pathlib.Path(name) / "samples.bin"
            write_samples(path, pairs=1)
            path.write_bytes(path.read_bytes()[:-1])
            with self.assertRaisesRegex(ValueError, "ends in the middle of a pair of images"):
                samples.read(path, 400, 4, np.random.Generator(np.random.PCG64(1)))

    def test_mirroring_twice_changes_nothing(self):
        values = np.arange(128)
        np.testing.assert_array_equal(values[samples.MIRRORED][samples.MIRRORED], values)
        # Cell row 0, column 1, direction 3 comes from cell row 3, column 1, direction 5.
        self.assertEqual(samples.MIRRORED[(0 * 4 + 1) * 8 + 3], (3 * 4 + 1) * 8 + 5)


class TablesTest(unittest.TestCase):
    def setUp(self):
        self.committed = (ROOT / "src/libfeatures/descriptors/detail/ldah_tables.cpp").read_text()
        numbers = numbers_of(self.committed)
        self.projection, self.offsets = numbers[:16384].reshape(128, 128), numbers[16384:]

    def test_the_source_is_as_it_was_written(self):
        self.assertEqual(tables.source(self.projection, self.offsets), self.committed)

    def test_the_library_s_tables_are_without_fault(self):
        self.assertEqual(tables.faults(self.projection, self.offsets), [])

    def test_each_fault_is_found(self):
        def faults(change):
            projection, offsets = self.projection.copy(), self.offsets.copy()
            change(projection, offsets)
            return "; ".join(tables.faults(projection, offsets))

        def swap(projection, _):
            projection[1:127] = projection[126:0:-1].copy()

        def change_entry(projection, offsets, table, index):
            (projection if table == "projection" else offsets)[index] *= np.float32(1.0001)

        def scale(projection, _):
            projection[60] *= np.float32(0.1)

        def lean(projection, _):
            projection[60] += np.float32(1e-4) * projection[61]

        def set_value(projection, _):
            projection[60, 5] = 26

        def set_offset(_, offsets):
            offsets[60] = 12

        self.assertIn("cosine", faults(lean))
        self.assertIn("row lengths go from", faults(scale))
        self.assertIn("do not grow", faults(swap))
        self.assertIn("values go", faults(set_value))
        self.assertIn("offsets go", faults(set_offset))
        for index in range(4):
            self.assertIn("the first row begins",
                          faults(lambda p, t: change_entry(p, t, "projection", (0, index))))
            self.assertIn("the last row ends",
                          faults(lambda p, t: change_entry(p, t, "projection", (127, 124 + index))))
        for index in (0, 1, 2, 3, 64, 65, 127):
            self.assertIn(f"offset {index} is",
                          faults(lambda p, t: change_entry(p, t, "offsets", index)))

    def test_tables_are_replaced_by_one_command(self):
        random = np.random.Generator(np.random.PCG64(6))
        numbers = (random.standard_normal(16512) * 10.0 ** random.integers(-9, 9, 16512))
        numbers = numbers.astype("<f4")
        with tempfile.TemporaryDirectory() as name:
            folder = pathlib.Path(name)
            numbers.tofile(folder / "tables.bin")
            np.savez(folder / "tables.npz", projection=numbers[:16384].reshape(128, 128),
                     offsets=numbers[16384:])
            written = []
            for given in ("tables.bin", "tables.npz"):
                subprocess.run([sys.executable, TOOLS / "write_tables.py", folder / given,
                                "--source", folder / "tables.cpp"], check=True, capture_output=True)
                written.append((folder / "tables.cpp").read_text())
        self.assertEqual(written[0], written[1])
        np.testing.assert_array_equal(numbers_of(written[0]), numbers)

    def test_tables_of_another_size_are_refused_and_the_source_stays(self):
        with tempfile.TemporaryDirectory() as name:
            folder = pathlib.Path(name)
            np.zeros(16511, "<f4").tofile(folder / "tables.bin")
            (folder / "tables.cpp").write_text("as before")
            run = subprocess.run([sys.executable, TOOLS / "write_tables.py", folder / "tables.bin",
                                  "--source", folder / "tables.cpp"], capture_output=True, text=True)
            self.assertEqual(run.returncode, 1)
            self.assertIn("has 16511 numbers, not 16512", run.stderr)
            self.assertEqual((folder / "tables.cpp").read_text(), "as before")


if __name__ == "__main__":
    unittest.main()
