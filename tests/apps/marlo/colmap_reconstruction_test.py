# SPDX-License-Identifier: BSD-3-Clause
"""COLMAP reconstructs the demonstration's scene from this program's databases.

Usage: colmap_reconstruction_test.py MARLO   (77: COLMAP or NumPy is missing)"""

import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

try:
    import numpy as np
except ImportError:
    sys.exit(77)
if shutil.which("colmap") is None:
    sys.exit(77)

MARLO = sys.argv.pop()


def colmap(*arguments):
    environment = dict(os.environ, QT_QPA_PLATFORM="offscreen")
    return subprocess.run(["colmap", *map(str, arguments)], check=True, capture_output=True,
                          text=True, env=environment).stdout


def centres(model):
    """Camera centres by name, from COLMAP's images.txt."""
    found = {}
    lines = [line for line in (model / "images.txt").read_text().splitlines()
             if not line.startswith("#")]
    for line in lines[::2]:
        words = line.split()
        w, x, y, z = map(float, words[1:5])
        rotation = np.array([
            [1 - 2 * (y * y + z * z), 2 * (x * y - z * w), 2 * (x * z + y * w)],
            [2 * (x * y + z * w), 1 - 2 * (x * x + z * z), 2 * (y * z - x * w)],
            [2 * (x * z - y * w), 2 * (y * z + x * w), 1 - 2 * (x * x + y * y)]])
        found[words[9]] = -rotation.T @ np.array(list(map(float, words[5:8])))
    return found


def aligned(points, truth):
    """`points` moved, turned and scaled onto `truth`. S. Umeyama, Least-Squares Estimation of
    Transformation Parameters Between Two Point Patterns, PAMI 13(4), 1991."""
    mean, true_mean = points.mean(axis=0), truth.mean(axis=0)
    a, b = points - mean, truth - true_mean
    left, values, right = np.linalg.svd(b.T @ a)
    signs = np.array([1, 1, np.sign(np.linalg.det(left @ right))])
    rotation = left @ np.diag(signs) @ right
    scale = (values * signs).sum() / np.square(a).sum()
    return scale * a @ rotation.T + true_mean


class ReconstructionTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = pathlib.Path(tempfile.mkdtemp())
        subprocess.run([MARLO, "demo", "-o", cls.folder], check=True, capture_output=True)
        cameras = json.loads((cls.folder / "cameras.json").read_text())
        cls.truth = {camera["name"]: np.array(camera["centre"]) for camera in cameras}

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.folder)

    def check(self, features):
        project, model = self.folder / features, self.folder / features / "model"
        model.mkdir()
        colmap("mapper", "--database_path", project / "database.db", "--image_path",
               self.folder / "photographs", "--output_path", model)
        self.assertEqual([path.name for path in model.iterdir()], ["0"], "one model")
        report = colmap("model_analyzer", "--path", model / "0")
        error = float(report.split("Mean reprojection error: ")[1].split("px")[0])
        self.assertLess(error, 1)
        colmap("model_converter", "--input_path", model / "0", "--output_path", model / "0",
               "--output_type", "TXT")
        found = centres(model / "0")
        self.assertEqual(set(found), set(self.truth), "all views are registered")
        names = sorted(found)
        points = np.array([found[name] for name in names])
        truth = np.array([self.truth[name] for name in names])
        extent = np.linalg.norm(truth - truth.mean(axis=0), axis=1).max()
        errors = np.linalg.norm(aligned(points, truth) - truth, axis=1)
        self.assertLess(errors.max(), 0.01 * extent)

    def test_from_sift_features(self):
        self.check("sift")

    def test_from_ldah_features(self):
        self.check("ldah")


if __name__ == "__main__":
    unittest.main()
