# SPDX-License-Identifier: BSD-3-Clause
"""Positions, orientations and bins of SIFT features in a project's database are COLMAP's.

Describes one image with `marlo` and with COLMAP, and compares the rows of keypoints that both have
found. Ends with 77 where COLMAP or NumPy is missing.

Usage: colmap_bin_order_test.py MARLO_PROGRAM"""

import itertools
import os
import pathlib
import shutil
import sqlite3
import struct
import subprocess
import sys
import tempfile
import unittest
import zlib

try:
    import numpy as np
except ImportError:
    print("skipped: no NumPy")
    sys.exit(77)
if shutil.which("colmap") is None:
    print("skipped: no COLMAP")
    sys.exit(77)

MARLO = sys.argv.pop()
ROWS, COLUMNS = 480, 640


def textured_image():
    """Noise that is smooth at three scales: blobs of all shapes, everywhere."""
    random = np.random.Generator(np.random.PCG64(11))
    fy = np.fft.fftfreq(ROWS)[:, None]
    fx = np.fft.fftfreq(COLUMNS)[None, :]
    image = np.zeros((ROWS, COLUMNS))
    for sigma in (2.0, 4.0, 8.0):
        noise = np.fft.fft2(random.standard_normal((ROWS, COLUMNS)))
        gauss = np.exp(-2 * (np.pi * sigma) ** 2 * (fx**2 + fy**2))
        smooth = np.real(np.fft.ifft2(noise * gauss))
        image += smooth / smooth.std()
    return np.clip(128 + 40 * image, 0, 255).astype(np.uint8)


def write_png(path, image):
    def chunk(kind, data):
        checked = kind + data
        return struct.pack(">I", len(data)) + checked + struct.pack(">I", zlib.crc32(checked))

    lines = b"".join(b"\0" + line.tobytes() for line in image)
    size = struct.pack(">IIBBBBB", image.shape[1], image.shape[0], 8, 0, 0, 0, 0)
    path.write_bytes(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", size) +
                     chunk(b"IDAT", zlib.compress(lines)) + chunk(b"IEND", b""))


def run(*command):
    environment = dict(os.environ, QT_QPA_PLATFORM="offscreen")
    return subprocess.run([str(word) for word in command], env=environment,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)


def run_colmap(database, photographs):
    for group in ("SiftExtraction", "FeatureExtraction"):  # up to 3.12, later
        # As marlo does, without enlarging the image.
        result = run("colmap", "feature_extractor", "--database_path", database,
                     "--image_path", photographs, f"--{group}.use_gpu", 0,
                     "--SiftExtraction.first_octave", 0)
        if result.returncode == 0:
            return
    raise RuntimeError(result.stdout)


def read_features(database):
    """x, y, scale and orientation, N x 4, and rows, N x 128, of the one image."""
    connection = sqlite3.connect(database)
    rows, columns, data = connection.execute("SELECT rows, cols, data FROM keypoints").fetchone()
    keypoints = np.frombuffer(data, "<f4").reshape(rows, columns)
    if columns == 6:  # x, y and an affine matrix
        a11, a21 = keypoints[:, 2], keypoints[:, 4]
        keypoints = np.column_stack(
            [keypoints[:, :2], np.hypot(a11, a21), np.arctan2(a21, a11)])
    rows, columns, data = connection.execute("SELECT rows, cols, data FROM descriptors").fetchone()
    connection.close()
    return keypoints, np.frombuffer(data, np.uint8).reshape(rows, columns).astype(float)


def same_places(ours, theirs):
    """Index pairs of keypoints less than a pixel apart that differ in scale by less than 10 %."""
    steps = ours[:, None, :2] - theirs[None, :, :2]
    distances = np.hypot(steps[..., 0], steps[..., 1])
    ratios = np.abs(np.log(ours[:, None, 2] / theirs[None, :, 2]))
    return np.nonzero((distances < 1.0) & (ratios < 0.1))


def difference(first, second):
    return np.abs((first - second + np.pi) % (2 * np.pi) - np.pi)


def permuted(rows, transposed, rows_turned, columns_turned, sense, offset):
    cells = rows.reshape(-1, 4, 4, 8)
    if transposed:
        cells = cells.transpose(0, 2, 1, 3)
    if rows_turned:
        cells = cells[:, ::-1]
    if columns_turned:
        cells = cells[:, :, ::-1]
    return cells[..., (sense * np.arange(8) + offset) % 8].reshape(-1, 128)


class ColmapBinOrderTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        with tempfile.TemporaryDirectory() as name:
            folder = pathlib.Path(name)
            (folder / "photographs").mkdir()
            write_png(folder / "photographs/noise.png", textured_image())
            result = run(MARLO, "extract", folder / "photographs", "-o", folder / "project")
            if result.returncode != 0:
                raise RuntimeError(result.stdout)
            run_colmap(folder / "theirs.db", folder / "photographs")
            cls.ours, cls.our_rows = read_features(folder / "project/database.db")
            cls.theirs, cls.their_rows = read_features(folder / "theirs.db")
        cls.pairs = same_places(cls.ours, cls.theirs)

    def same_directions(self):
        i, j = self.pairs
        same = difference(self.ours[i, 3], self.theirs[j, 3]) < 0.05
        return i[same], j[same]

    def test_many_keypoints_are_found_by_both(self):
        self.assertGreater(len(self.same_directions()[0]), 200)

    def test_positions_are_the_same(self):
        i, j = self.pairs
        offset = np.median(self.ours[i, :2] - self.theirs[j, :2], axis=0)
        print("median of the differences in position:", offset)
        self.assertLess(np.abs(offset).max(), 0.05)

    def test_orientations_run_the_same_way(self):
        i, j = self.pairs
        same = (difference(self.ours[i, 3], self.theirs[j, 3]) < 0.05).mean()
        opposite = (difference(-self.ours[i, 3], self.theirs[j, 3]) < 0.05).mean()
        print("share of equal orientations:", same, "and with the other sign:", opposite)
        self.assertGreater(same, 0.5)
        self.assertLess(opposite, 0.1)

    def test_bins_are_in_the_same_order(self):
        i, j = self.same_directions()
        results = []
        for order in itertools.product((0, 1), (0, 1), (0, 1), (1, -1), range(8)):
            rows = permuted(self.our_rows[i], *order)
            results.append((np.linalg.norm(rows - self.their_rows[j], axis=1).mean(), order))
        results.sort()
        for distance, order in results[:4]:
            print("mean distance %.1f:" % distance,
                  "transposed %d, rows turned %d, columns turned %d, sense %+d, offset %d" % order)
        self.assertEqual(results[0][1], (0, 0, 0, 1, 0))
        self.assertLess(results[0][0], 100)  # rows have a length of 512
        self.assertGreater(results[1][0], 200)


if __name__ == "__main__":
    unittest.main()
