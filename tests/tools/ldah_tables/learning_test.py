# SPDX-License-Identifier: BSD-3-Clause
"""The tools that learn the tables of the LDAH codes and write their source.

Usage: learning_test.py SOURCE_DIR"""

import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

import numpy as np

ROOT = pathlib.Path(sys.argv.pop())
TOOLS = ROOT / "tools/ldah_tables"
sys.path.insert(0, str(TOOLS))

import learning  # noqa: E402
import samples  # noqa: E402
import tables  # noqa: E402


def random_rows(random, count):
    rows = np.abs(random.standard_normal((count, 128)))
    return (rows / np.linalg.norm(rows, axis=1)[:, None]).astype(np.float32)


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
                        folder / name, "--steps", "40"], check=True, capture_output=True)
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

    def test_refinement_leaves_fixed_rows_and_offsets_alone(self):
        random = np.random.Generator(np.random.PCG64(4))
        with tempfile.TemporaryDirectory() as name:
            path = pathlib.Path(name) / "samples.bin"
            write_samples(path)
            given = samples.read(path, 400, 4, random)
        rotation = np.linalg.qr(random.standard_normal((128, 128)))[0].astype(np.float32)
        offsets = learning.median_offsets(rotation, given).astype(np.float32)
        settings = learning.Settings(steps=20)
        refined, moved = learning.refine(given, rotation, offsets, settings, random,
                                         fixed_rows=(0, 127), fixed_offsets=(3,))
        np.testing.assert_array_equal(refined[[0, 127]], rotation[[0, 127]])
        self.assertEqual(moved[3], offsets[3])
        self.assertGreater(np.abs(refined[1:127] - rotation[1:127]).max(), 1e-3)
        self.assertLess(np.abs(refined @ refined.T - np.eye(128)).max(), 1e-6)


class SamplesTest(unittest.TestCase):
    def test_strangers_are_the_most_similar_that_lie_elsewhere(self):
        random = np.random.Generator(np.random.PCG64(5))
        rows = random_rows(random, 6)
        alike = 0.95 * rows[0] + 0.05 * rows[5]
        second = np.stack([rows[0], alike, alike, rows[2], rows[3], rows[4]])
        positions = np.array([[50, 50], [55, 50], [90, 50], [10, 9], [9, 9], [1, 1]], np.float32)
        with tempfile.TemporaryDirectory() as name:
            path = pathlib.Path(name) / "samples.bin"
            with open(path, "wb") as file:
                file.write(np.array([1, 6], np.int32).tobytes() + rows[0].tobytes())
                file.write(np.array([0], np.int32).tobytes())
                file.write(np.array([50, 50, 10], np.float32).tobytes() + positions.tobytes())
                file.write(second.astype(np.float32).tobytes())
            given = samples.read(path, 10, 1, random)
            limit, samples.NEAR_DUPLICATES = samples.NEAR_DUPLICATES, 0.999999
            try:
                with_duplicates = samples.read(path, 10, 1, random)
            finally:
                samples.NEAR_DUPLICATES = limit
        np.testing.assert_array_equal(given.second[0], rows[0])
        # The one 5 pixels away shows the same; the one 40 pixels away is too similar to tell.
        best = max(second[3:], key=lambda row: row @ rows[0])
        np.testing.assert_array_equal(given.strangers[0, 0], best)
        np.testing.assert_allclose(with_duplicates.strangers[0, 0], alike, rtol=1e-6)

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
