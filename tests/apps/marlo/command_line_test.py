# SPDX-License-Identifier: BSD-3-Clause
"""The program as its users meet it: exit codes, messages, what is in the project afterwards.

Usage: command_line_test.py MARLO"""

import functools
import json
import os
import pathlib
import re
import resource
import shutil
import signal
import sqlite3
import struct
import subprocess
import sys
import tempfile
import time
import unittest
import zlib

import numpy as np

MARLO = sys.argv.pop()


@functools.lru_cache
def texture(seed, rows=240, columns=320):
    """Blobs of several sizes: keypoints for everybody. Values from 0 to 1."""
    random = np.random.Generator(np.random.PCG64(seed))
    y, x = np.mgrid[0:rows, 0:columns]
    image = np.full((rows, columns), 0.5)
    for _ in range(150):
        size = random.uniform(1.5, 8)
        cx, cy, height = random.uniform(0, columns), random.uniform(0, rows), random.uniform(-1, 1)
        image += 0.3 * height * np.exp(-((x - cx) ** 2 + (y - cy) ** 2) / (2 * size**2))
    return np.clip(image, 0, 1)


def write_pgm(path, image, bits=8):
    most = 2**bits - 1
    values = np.round(image * most).astype(">u2" if bits == 16 else np.uint8)
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_bytes(b"P5 %d %d %d\n" % (image.shape[1], image.shape[0], most) + values.tobytes())


def write_png(path, pixels, colour_type, bit_depth=8, palette=None):
    """`pixels`: rows of bytes as PNG stores them."""
    def chunk(kind, data):
        return (struct.pack(">I", len(data)) + kind + data
                + struct.pack(">I", zlib.crc32(kind + data)))

    rows = len(pixels)
    channels = {0: 1, 2: 3, 3: 1, 6: 4}[colour_type]
    columns = len(pixels[0]) * 8 // (bit_depth * channels)
    content = b"\x89PNG\r\n\x1a\n" + chunk(
        b"IHDR", struct.pack(">IIBBBBB", columns, rows, bit_depth, colour_type, 0, 0, 0))
    if palette is not None:
        content += chunk(b"PLTE", palette)
    content += chunk(b"IDAT", zlib.compress(b"".join(b"\0" + bytes(row) for row in pixels)))
    path.write_bytes(content + chunk(b"IEND", b""))


class CommandLineTest(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp())
        self.photographs = self.folder / "photographs"
        self.project = self.folder / "project"

    def tearDown(self):
        shutil.rmtree(self.folder)

    def marlo(self, *arguments, **options):
        return subprocess.run([MARLO, *map(str, arguments)], capture_output=True, text=True,
                              timeout=250, **options)

    def extract(self, *arguments):
        return self.marlo("extract", self.photographs, "-o", self.project, *arguments)

    def rows(self, query):
        connection = sqlite3.connect(self.project / "database.db")
        try:
            return connection.execute(query).fetchall()
        finally:
            connection.close()

    def write_photographs(self, count=3):
        for i in range(count):
            write_pgm(self.photographs / f"{i}.pgm", texture(1)[:, 5 * i : 5 * i + 280])

    # What users do.

    def test_run_equals_its_four_commands(self):
        self.write_photographs()
        run = self.marlo("run", self.photographs, "-o", self.project)
        self.assertEqual(run.returncode, 0, run.stderr)
        tables = {table: self.rows(f"SELECT * FROM {table}")
                  for table in ("keypoints", "descriptors", "matches", "two_view_geometries")}
        self.assertTrue((self.project / "summary.md").exists())
        self.assertTrue(list((self.project / "pictures").glob("matches *.jpg")))
        self.project = self.folder / "other"
        self.assertEqual(self.extract().returncode, 0)
        self.assertEqual(self.marlo("match", self.project).returncode, 0)
        self.assertEqual(self.marlo("verify", self.project).returncode, 0)
        for table, rows in tables.items():
            self.assertEqual(self.rows(f"SELECT * FROM {table}"), rows, table)
            self.assertTrue(rows, table)

    def test_matches_are_at_the_same_place_of_the_scene(self):
        self.write_photographs()
        for features in ("sift", "ldah"):
            self.project = self.folder / features
            self.assertEqual(self.marlo("run", self.photographs, "-o", self.project, "--features",
                                        features).returncode, 0)
            positions = {i: np.frombuffer(data, "<f4").reshape(-1, 4)
                         for i, data in self.rows("SELECT image_id, data FROM keypoints")}
            for pair, data in self.rows("SELECT pair_id, data FROM two_view_geometries"):
                first, second = pair // 2147483647, pair % 2147483647
                inliers = np.frombuffer(data, "<u4").reshape(-1, 2)
                self.assertGreater(len(inliers), 50)
                shift = positions[first][inliers[:, 0]] - positions[second][inliers[:, 1]]
                self.assertLess(np.abs(np.median(shift[:, 0]) - 5 * (second - first)), 0.05)
                self.assertLess(np.abs(np.median(shift[:, 1])), 0.05)

    def test_the_number_of_threads_changes_nothing(self):
        self.write_photographs(5)
        contents = []
        for threads in (1, 3):
            self.project = self.folder / str(threads)
            self.assertEqual(self.marlo("run", self.photographs, "-o", self.project, "--threads",
                                        threads).returncode, 0)
            contents.append([self.rows(f"SELECT * FROM {table}")
                             for table in ("cameras", "images", "keypoints", "descriptors",
                                           "matches", "two_view_geometries")])
        self.assertEqual(contents[0], contents[1])

    def test_a_gpu_changes_nothing_but_the_time(self):
        # Enough codes for a GPU to be asked to compare them.
        squares = np.random.Generator(np.random.PCG64(3)).uniform(0, 1, (60, 70))
        image = np.kron(squares, np.ones((6, 6)))
        for i in range(3):
            write_pgm(self.photographs / f"{i}.pgm", image[:, 10 * i : 10 * i + 400])
        for features in ("sift", "ldah"):
            contents = []
            for gpu in ("auto", "off"):
                self.project = self.folder / features / gpu
                result = self.marlo("run", self.photographs, "-o", self.project, "--features",
                                    features, "--matcher", "DistFrac", "--gpu", gpu)
                self.assertEqual(result.returncode, 0, result.stderr)
                self.assertGreater(self.rows("SELECT MIN(rows) FROM keypoints")[0][0], 1024)
                self.assertGreater(self.rows("SELECT MIN(rows) FROM matches")[0][0], 100)
                contents.append([self.rows(f"SELECT * FROM {table}")
                                 for table in ("cameras", "images", "keypoints", "descriptors",
                                               "matches", "two_view_geometries", "marlo_settings",
                                               "marlo_features", "marlo_pairs")]
                                + [self.rows("SELECT stamp FROM marlo_photographs")])
            # On a GPU the last digit of some scales is another one.
            gpu = json.loads(self.marlo("info", "--json").stdout)["gpu"]
            if gpu.startswith("no GPU: "):
                self.assertEqual(contents[0], contents[1])
            else:
                numbers = [[len(table) for table in content] for content in contents]
                self.assertEqual(numbers[0], numbers[1])
            # What one has done the other need not.
            again = self.marlo("run", self.photographs, "-o", self.project, "--features", features,
                               "--matcher", "DistFrac")
            for task in ("extract", "match", "verify"):
                self.assertIn(f"{task}: 0 done, 3 were done already, 0 failed", again.stderr)

    def test_a_rerun_does_only_what_is_new_or_changed(self):
        self.write_photographs()
        self.extract()
        write_pgm(self.photographs / "1.pgm", texture(2))
        write_pgm(self.photographs / "9.pgm", texture(3))
        again = self.extract()
        self.assertIn("extract: 2 done, 2 were done already, 0 failed", again.stderr)
        other = self.extract("--keypoints", "50")
        self.assertIn("extract: 4 done, 0 were done already", other.stderr)
        forced = self.extract("--keypoints", "50", "--force")
        self.assertIn("extract: 4 done, 0 were done already", forced.stderr)

    def test_masks_apply_before_selection(self):
        self.write_photographs(1)
        mask = np.zeros((240, 280))
        mask[:, 140:] = 1
        masks = self.folder / "masks"
        masks.mkdir()
        write_png(masks / "0.pgm.png", (mask * 255).astype(np.uint8).tolist(), 0)
        self.assertEqual(self.extract("--keypoints", "40", "--mask-dir", masks).returncode, 0)
        keypoints = np.frombuffer(self.rows("SELECT data FROM keypoints")[0][0], "<f4")
        self.assertEqual(len(keypoints), 4 * 40)
        self.assertGreaterEqual(keypoints[0::4].min(), 140)

    def test_a_mask_of_another_size_fails_the_photograph(self):
        self.write_photographs(2)
        masks = self.folder / "masks"
        masks.mkdir()
        write_png(masks / "0.pgm.png", np.full((10, 20), 255, np.uint8).tolist(), 0)
        result = self.extract("--mask-dir", masks)
        self.assertEqual(result.returncode, 3)
        self.assertIn("has 20 x 10 pixels, the photograph 280 x 240", result.stderr)

    def test_positions_are_those_of_the_original_when_it_is_made_smaller(self):
        large = np.kron(texture(1), np.ones((4, 4)))
        write_pgm(self.photographs / "0.pgm", texture(1))
        write_pgm(self.photographs / "1.pgm", large)
        self.assertEqual(self.extract("--max-size", "320").returncode, 0)
        small, shrunk = (np.frombuffer(data, "<f4").reshape(-1, 4)
                         for data, in self.rows("SELECT data FROM keypoints ORDER BY image_id"))
        self.assertEqual(len(small), len(shrunk))
        # The same image after the reduction; COLMAP's positions count from the image's corner.
        np.testing.assert_allclose(shrunk[:, :2], 4 * small[:, :2], atol=0.05)
        np.testing.assert_allclose(shrunk[:, 2], 4 * small[:, 2], rtol=0.01)

    def test_16_bits_reach_the_detector(self):
        # Contrast that 8 bits cannot show.
        image = 0.5 + (texture(1) - 0.5) * 0.01
        write_pgm(self.photographs / "8.pgm", image, 8)
        write_pgm(self.photographs / "16.pgm", image, 16)
        self.assertEqual(self.extract().returncode, 0)
        counts = dict(self.rows("SELECT name, keypoints FROM marlo_photographs"))
        self.assertGreater(counts["16.pgm"], 100)
        self.assertNotEqual(counts["16.pgm"], counts["8.pgm"])

    def test_json_is_one_object_a_line_on_standard_output(self):
        self.write_photographs()
        (self.photographs / "bad.jpg").write_bytes(b"")
        result = self.marlo("run", self.photographs, "-o", self.project, "--json")
        events = [json.loads(line) for line in result.stdout.splitlines()]
        self.assertEqual(result.stderr, "")
        self.assertIn({"event": "failed", "name": "bad.jpg", "reason": "is empty (0 bytes)"}, events)
        self.assertEqual([e["failed"] for e in events if e["event"] == "outcome"], [1, 0, 0])
        self.assertEqual(result.returncode, 3)

    def test_every_export_is_written(self):
        self.write_photographs()
        self.marlo("run", self.photographs, "-o", self.project)
        for form, file in (("colmap", "features/0.pgm.txt"), ("openmvg", "0.feat"),
                           ("opencv-yaml", "0.pgm.yml.gz"), ("npz", "0.pgm.npz")):
            result = self.marlo("export", self.project, "--to", form)
            self.assertEqual(result.returncode, 0, result.stderr)
            self.assertTrue((self.project / form / file).exists(), form)

    def test_every_picture_is_drawn(self):
        self.write_photographs()
        self.marlo("run", self.photographs, "-o", self.project)
        for what in (("keypoints", "0.pgm"), ("coverage", "0.pgm"), ("matches", "0.pgm", "2.pgm")):
            picture = self.folder / (what[0] + ".png")
            result = self.marlo("show", what[0], self.project, *what[1:], "-o", picture)
            self.assertEqual(result.returncode, 0, result.stderr)
            self.assertEqual(picture.read_bytes()[:4], b"\x89PNG")

    def write_panoramas(self):
        # As two cameras in one place see it, of which one is turned by a quarter.
        image = texture(1, 200, 400)
        write_pgm(self.photographs / "a.pgm", image)
        write_pgm(self.photographs / "b.pgm", np.roll(image, 100, axis=1))

    def test_panoramas_are_extracted_matched_verified_and_drawn(self):
        self.write_panoramas()
        result = self.marlo("run", self.photographs, "-o", self.project, "--panorama")
        self.assertEqual(result.returncode, 0, result.stderr)
        cameras = self.rows("SELECT model, width, height, params FROM cameras")
        self.assertEqual(cameras, [(17, 400, 200, struct.pack("<2d", 400, 200))] * 2)
        inliers, config, fundamental, essential = self.rows(
            "SELECT rows, config, F, E FROM two_view_geometries")[0]
        self.assertGreater(inliers, 50)
        self.assertEqual((config, fundamental), (6, None))
        self.assertEqual(len(essential), 72)
        self.assertTrue((self.project / "pictures" / "panorama a.pgm.jpg").exists())
        picture = self.folder / "panorama.png"
        result = self.marlo("show", "panorama", self.project, "a.pgm", "-o", picture)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(picture.read_bytes()[:4], b"\x89PNG")
        # The working image is wider by a margin of 5 pixels on either side, and 250 high.
        self.assertEqual(struct.unpack(">II", picture.read_bytes()[16:24]), (410, 200 + 12 + 250))

    def test_panoramas_have_keypoints_across_the_seam(self):
        image = np.full((200, 400), 0.2)
        y, x = np.mgrid[0:200, 0:400]
        across = (x - 202.0) % 400 - 200  # from column 2
        write_pgm(self.photographs / "0.pgm",
                  image + 0.7 * np.exp(-(across**2 + (y - 100.0) ** 2) / 32))
        self.assertEqual(self.extract("--panorama").returncode, 0)
        points = np.frombuffer(self.rows("SELECT data FROM keypoints")[0][0], "<f4").reshape(-1, 4)
        large = points[(points[:, 2] > 2.7) & (points[:, 2] < 6)]
        self.assertGreater(len(large), 0)  # one for each direction
        # COLMAP's positions count from the image's corner.
        np.testing.assert_allclose(large[:, :2], np.tile([2.5, 100.5], (len(large), 1)), atol=0.3)

    def test_coverage_is_said_in_figures(self):
        self.write_photographs()
        self.extract()
        show = ("show", "coverage", self.project, "0.pgm")
        self.assertRegex(self.marlo(*show).stderr,
                         r"^\d+ keypoints, occupied cells of a 20 x 20 grid: \d+ %, "
                         r"nearest-neighbour ratio: \d\.\d\d\nWritten to ")
        figures = json.loads(self.marlo(*show, "--json").stdout)
        self.assertGreater(figures["keypoints"], 0)
        self.assertGreater(figures["occupied_cells"], 0.0)
        self.assertLessEqual(figures["occupied_cells"], 1.0)
        self.assertGreater(figures["nearest_neighbour_ratio"], 0.0)

    def test_pairs_by_sequence_and_by_list(self):
        self.write_photographs(4)
        self.extract()
        self.marlo("match", self.project, "--pairs", "sequence:1")
        self.assertEqual(len(self.rows("SELECT * FROM matches")), 3)
        pairs = self.folder / "pairs.txt"
        pairs.write_text('# some\n0.pgm 3.pgm\n\n"3.pgm" "1.pgm"\n')
        self.marlo("match", self.project, "--pairs", f"list:{pairs}")
        self.assertEqual(len(self.rows("SELECT * FROM matches")), 5)

    def test_info_and_version_need_nothing(self):
        self.assertEqual(self.marlo("info").returncode, 0)
        info = json.loads(self.marlo("info", "--json").stdout)
        self.assertIn("kernels", info)
        for gpu in info["gpus"]:
            self.assertIn(f"\n    {gpu}\n", self.marlo("info").stdout)
        self.assertIn("libfeatures", self.marlo("--version").stdout)

    def test_photographs_on_edges_only_have_fewer_keypoints(self):
        stripes = 0.5 + 0.4 * np.sin(np.arange(280) / 2.5) * np.ones((240, 1))
        spot = np.exp(-((np.mgrid[0:240, 0:280] - 120.0) ** 2).sum(axis=0) / 18)
        write_pgm(self.photographs / "0.pgm", np.clip(stripes + 0.5 * spot, 0, 1))
        self.extract("--edge-ratio", "0")
        every = self.rows("SELECT rows FROM keypoints")[0][0]
        self.extract()
        self.assertLess(self.rows("SELECT rows FROM keypoints")[0][0], every)

    def test_the_distance_of_sift_rows_can_be_chosen(self):
        self.write_photographs(2)
        self.extract()
        for distance in ("hellinger", "euclidean"):
            result = self.marlo("match", self.project, "--distance", distance)
            self.assertIn("match: 1 done", result.stderr)
            self.assertIn(distance, self.rows("SELECT match_stamp FROM marlo_pairs")[0][0])

    def test_photographs_whose_folder_has_moved_are_found(self):
        self.write_photographs(2)
        self.extract()
        moved = self.folder / "moved"
        self.photographs.rename(moved)
        self.photographs = moved
        result = self.extract()
        self.assertIn("extract: 0 done, 2 were done already, 0 failed", result.stderr)
        picture = self.folder / "keypoints.png"
        shown = self.marlo("show", "keypoints", self.project, "0.pgm", "-o", picture)
        self.assertEqual(shown.returncode, 0, shown.stderr)

    def test_photographs_that_are_gone_are_named_and_removed_on_demand(self):
        self.write_photographs(3)
        self.marlo("run", self.photographs, "-o", self.project)
        (self.photographs / "1.pgm").unlink()
        result = self.extract()
        self.assertIn("1 of the project's photographs (1.pgm) are not in", result.stderr)
        self.assertEqual(self.rows("SELECT COUNT(*) FROM keypoints"), [(3,)])
        self.assertEqual(self.extract("--prune").returncode, 0)
        for table, rows in (("keypoints", 2), ("marlo_photographs", 2), ("matches", 1)):
            self.assertEqual(self.rows(f"SELECT COUNT(*) FROM {table}"), [(rows,)], table)

    def test_every_selector_selects(self):
        self.write_photographs(1)
        for selector in ("TOP", "ANMS", "ANMSBound", "ANMSOri", "ANMSOrig"):
            self.extract("--selector", selector, "--keypoints", "40")
            self.assertEqual(self.rows("SELECT rows FROM keypoints"), [(40,)], selector)
        for selector in ("SDC", "SDCOri", "Default"):
            self.extract("--selector", selector, "--keypoints", "40")
            self.assertGreater(self.rows("SELECT rows FROM keypoints")[0][0], 15, selector)
        self.assertEqual(self.extract("--selector", "Best").returncode, 2)

    def test_small_photographs_can_be_enlarged(self):
        self.write_photographs(1)
        self.extract()
        as_they_are = self.rows("SELECT rows FROM keypoints")[0][0]
        self.extract("--enlarge-below", "280")  # it is as long
        self.assertEqual(self.rows("SELECT rows FROM keypoints")[0][0], as_they_are)
        result = self.extract("--enlarge-below", "281")
        self.assertIn("1 photographs had features of other content or parameters", result.stderr)
        self.assertGreater(self.rows("SELECT rows FROM keypoints")[0][0], 1.5 * as_they_are)
        data = self.rows("SELECT data FROM keypoints")[0][0]
        points = np.frombuffer(data, np.float32).reshape(-1, 4)
        self.assertGreater(points[:, 0].max(), 200)
        self.assertLess(points[:, 0].max(), 280)
        self.assertLess(points[:, 1].max(), 240)

    def test_a_rerun_draws_nothing_anew(self):
        self.write_photographs(2)
        self.marlo("run", self.photographs, "-o", self.project)
        result = self.marlo("run", self.photographs, "-o", self.project)
        self.assertNotIn("pictures:", result.stderr)

    def test_names_with_bars_keep_their_cell_of_the_summary(self):
        write_pgm(self.photographs / "a|b.pgm", texture(1))
        self.extract()
        self.assertIn("| a\\|b.pgm |", (self.project / "summary.md").read_text())

    def test_a_demo_beside_other_images_uses_its_own(self):
        write_pgm(self.folder / "photographs" / "other.pgm", texture(1))
        result = self.marlo("demo", "-o", self.folder)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertNotIn("other", (self.folder / "sift" / "summary.md").read_text())
        # What seeing a panorama as one brings: keypoints, matches and the share that is right,
        # verified ones and their share.
        lines = {way: [float(number) for number in re.findall(r"\| (\d+(?:\.\d)?)", line)]
                 for way in ("as ordinary photographs", "with --panorama")
                 for line in result.stderr.splitlines() if line.startswith(f"| {way} |")}
        keypoints, matches, share, verified, right = lines["with --panorama"]
        self.assertGreater(keypoints, 10000)
        self.assertGreater(share, 90)
        self.assertGreater(matches, 1.5 * lines["as ordinary photographs"][1])
        self.assertGreater(right, 95)
        self.assertGreater(verified, 5 * lines["as ordinary photographs"][3])
        self.assertTrue((self.folder / "panorama" / "pictures" /
                         "panorama panorama_1.png.jpg").exists())

    def test_one_more_photograph_is_matched_with_all(self):
        self.write_photographs(3)
        self.marlo("run", self.photographs, "-o", self.project)
        write_pgm(self.photographs / "more.pgm", texture(1))
        result = self.marlo("run", self.photographs / "more.pgm", "-o", self.project)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(self.rows("SELECT COUNT(*) FROM matches"), [(6,)])

    def test_a_project_in_the_photographs_own_folder_leaves_out_its_pictures(self):
        self.write_photographs(2)
        self.project = self.photographs
        for _ in range(2):
            result = self.marlo("run", self.photographs, "-o", self.project)
            self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(self.rows("SELECT COUNT(*) FROM marlo_photographs"), [(2,)])

    def test_masks_among_the_photographs_are_no_photographs(self):
        self.write_photographs(1)
        masks = self.photographs / "masks"
        masks.mkdir()
        write_png(masks / "0.pgm.png", np.full((240, 280), 255, np.uint8).tolist(), 0)
        self.assertEqual(self.extract("--mask-dir", masks).returncode, 0)
        self.assertEqual(self.rows("SELECT name FROM marlo_photographs"), [("0.pgm",)])

    def test_the_database_of_another_program_does_not_hide_photographs(self):
        self.write_photographs(1)
        (self.photographs / "database.db").write_bytes(b"")
        self.assertEqual(self.extract().returncode, 0)

    # What goes wrong.

    def test_photographs_of_another_shape_are_no_panoramas(self):
        self.write_photographs(1)
        result = self.extract("--panorama")
        self.assertEqual(result.returncode, 1)
        self.assertIn("failed: 0.pgm: is 280 x 240 pixels and so no full panorama, which is twice "
                      "as wide as high (--allow-non-spherical takes it as an ordinary photograph)",
                      result.stderr)
        self.assertEqual(self.extract("--panorama", "--allow-non-spherical").returncode, 0)
        allowed = self.rows("SELECT * FROM keypoints")
        self.assertEqual(self.rows("SELECT model FROM cameras"), [(2,)])
        self.assertEqual(self.extract("--force").returncode, 0)
        self.assertEqual(self.rows("SELECT * FROM keypoints"), allowed)
        result = self.marlo("show", "panorama", self.project, "0.pgm")
        self.assertEqual(result.returncode, 1)
        self.assertIn("0.pgm was extracted as an ordinary photograph; a full panorama is extracted "
                      "with `marlo extract --panorama`.", result.stderr)

    def test_a_panorama_and_an_ordinary_photograph_are_not_verified(self):
        self.write_panoramas()
        write_pgm(self.photographs / "c.pgm", texture(1, 200, 400)[:, :300])
        self.marlo("run", self.photographs, "-o", self.project, "--panorama",
                   "--allow-non-spherical")
        result = self.marlo("verify", self.project)
        self.assertEqual(result.returncode, 3)
        self.assertIn("failed: a.pgm and c.pgm: one is a full panorama and the other is not: such "
                      "pairs cannot be verified", result.stderr)
        self.assertIn("verify: 0 done, 1 were done already, 2 failed", result.stderr)

    def test_another_folder_does_not_take_the_place_of_one_that_is_gone(self):
        self.write_photographs(1)
        self.extract()
        other = self.folder / "other"
        write_pgm(other / "b.pgm", texture(1))
        self.photographs.rename(self.folder / "away")
        for more in ((), ("--prune",)):
            result = self.marlo("extract", other, "-o", self.project, *more)
            self.assertEqual(result.returncode, 1)
            self.assertIn("none of them is in", result.stderr)
        (self.folder / "away").rename(self.photographs)
        self.assertIn("1 were done already", self.extract().stderr)

    def test_features_of_two_kinds_are_matched_each_in_its_own_way(self):
        self.write_photographs(2)
        self.extract()
        for i in (0, 1):  # become unreadable: their SIFT rows stay
            (self.photographs / f"{i}.pgm").write_bytes(b"")
        for i in (3, 4):
            write_pgm(self.photographs / f"{i}.pgm", texture(1))
        self.assertEqual(self.extract("--force", "--features", "ldah").returncode, 3)
        result = self.marlo("match", self.project)
        self.assertIn("match: 2 done, 0 were done already, 4 failed", result.stderr)
        stamps = [json.loads(s) for s, in self.rows("SELECT match_stamp FROM marlo_pairs")]
        self.assertEqual([s.get("distance") for s in stamps], ["hellinger", None])
        self.assertEqual(self.marlo("match", self.project, "--matcher", "LeftRight").returncode, 2)
        result = self.marlo("export", self.project, "--to", "colmap")
        self.assertEqual(result.returncode, 2)
        self.assertIn("LDAH rows", result.stderr)

    def test_matches_that_another_program_has_changed_are_reported(self):
        self.write_photographs(2)
        self.marlo("run", self.photographs, "-o", self.project)
        connection = sqlite3.connect(self.project / "database.db")
        connection.execute("UPDATE matches SET rows = 1, data = x'0000000000000000'")
        connection.commit()
        connection.close()
        result = self.marlo("show", "matches", self.project, "0.pgm", "1.pgm")
        self.assertEqual(result.returncode, 1)
        self.assertIn("changed by another program", result.stderr)

    def test_a_database_with_rigs_of_a_later_colmap_is_left_alone(self):
        self.write_photographs(1)
        self.extract()
        connection = sqlite3.connect(self.project / "database.db")
        connection.execute("CREATE TABLE frames(frame_id INTEGER)")
        connection.commit()
        connection.close()
        self.write_photographs(2)
        result = self.extract()
        self.assertEqual(result.returncode, 1)
        self.assertIn("rigs and frames", result.stderr)

    def test_a_gpu_that_is_insisted_on_and_missing_exits_with_4_before_anything_is_done(self):
        self.write_photographs(2)
        none = {**os.environ, "CUDA_VISIBLE_DEVICES": "-1"}
        reason = json.loads(self.marlo("info", "--json", env=none).stdout)["gpu"]
        for command in (("extract", self.photographs, "-o", self.project),
                        ("run", self.photographs, "-o", self.project),
                        ("match", self.project), ("demo", "-o", self.project)):
            result = self.marlo(*command, "--gpu", "on", env=none)
            self.assertEqual(result.returncode, 4, command)
            self.assertEqual(result.stderr, f"marlo: --gpu on: {reason}\n", command)
            self.assertFalse(self.project.exists(), command)
        result = self.marlo("match", self.project, "--gpu", "on", "--json", env=none)
        self.assertEqual(json.loads(result.stdout),
                         {"event": "error", "text": f"--gpu on: {reason}", "code": 4})

    def test_without_a_gpu_none_is_mentioned(self):
        self.write_photographs(1)
        result = self.marlo("extract", self.photographs, "-o", self.project,
                            env={**os.environ, "CUDA_VISIBLE_DEVICES": "-1"})
        self.assertEqual(result.returncode, 0)
        self.assertNotIn("GPU", result.stderr)

    def test_numbers_that_are_none_are_refused(self):
        for arguments in (("verify", "x", "--max-error", "nan"), ("match", "x", "--ratio", "nan"),
                          ("extract", "x", "-o", "y", "--edge-ratio", "nan"),
                          ("extract", "x", "-o", "y", "--edge-ratio", "0.5")):
            self.assertEqual(self.marlo(*arguments).returncode, 2, arguments)

    def test_an_interrupted_run_or_demo_is_not_done(self):
        self.write_photographs(1)
        for i in range(60):
            write_pgm(self.photographs / f"more{i}.pgm", texture(1))
        for command in (("run", self.photographs), ("demo",)):
            process = subprocess.Popen([MARLO, *command, "-o", self.folder / command[0], "--json"],
                                       stdout=subprocess.PIPE, text=True)
            while json.loads(process.stdout.readline()).get("task") != "extract":
                pass
            process.send_signal(signal.SIGINT)
            output, _ = process.communicate(timeout=250)
            self.assertEqual(process.returncode, 130)
            self.assertNotIn('"event":"done"', output)

    def test_masks_that_no_photograph_has_are_reported(self):
        self.write_photographs(1)
        masks = self.folder / "masks"
        masks.mkdir()
        result = self.extract("--mask-dir", masks)
        self.assertEqual(result.returncode, 0)
        self.assertIn("no photograph has a mask in", result.stderr)
        self.assertIn("0.pgm.png", result.stderr)

    def test_pairs_that_a_list_cannot_hold_are_named_and_exit_with_3(self):
        for name in ("a.pgm", "b.pgm", "c d.pgm"):
            write_pgm(self.photographs / name, texture(1))
        self.marlo("run", self.photographs, "-o", self.project)
        result = self.marlo("export", self.project, "--to", "colmap")
        self.assertEqual(result.returncode, 3)
        self.assertIn('"a.pgm" and "c d.pgm"', result.stderr)
        self.assertIn("a.pgm b.pgm", (self.project / "colmap" / "matches.txt").read_text())

    @unittest.skipIf(os.geteuid() == 0, "the administrator may write everywhere")
    def test_a_project_that_cannot_be_written_to_can_be_read(self):
        self.write_photographs(2)
        self.marlo("run", self.photographs, "-o", self.project)
        self.project.chmod(0o500)
        result = self.marlo("export", self.project, "--to", "npz", "-o", self.folder / "arrays")
        self.project.chmod(0o700)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertTrue((self.folder / "arrays" / "matches.npz").exists())

    def test_usage_errors_exit_with_2(self):
        self.write_photographs(1)
        for arguments in ((), ("nothing",), ("extract",), ("extract", self.photographs),
                          ("extract", self.photographs, "-o", "x", "--features", "orb"),
                          ("extract", self.photographs, "-o", "x", "--keypoints", "0"),
                          ("extract", self.photographs, "-o", self.project, "--memory", "lots"),
                          ("extract", self.photographs, "-o", "x", "--allow-non-spherical"),
                          ("extract", self.photographs, "-o", self.project, "--gpu", "maybe"),
                          ("match", "x", "--gpu", "ON"), ("demo", "-o", "x", "--gpu"),
                          ("verify", "x", "--gpu", "off"),
                          ("show", "panorama", "x"), ("show", "panorama", "x", "a", "b"),
                          ("export", "x", "--to", "paper")):
            self.assertEqual(self.marlo(*arguments).returncode, 2, arguments)
        self.assertIn("--gpu: maybe not in {auto,off,on}",
                      self.marlo("match", "x", "--gpu", "maybe").stderr)

    def test_every_command_s_help_has_an_example(self):
        for command in ("demo", "run", "extract", "match", "verify", "show", "export", "info"):
            result = self.marlo(command, "--help")
            self.assertEqual(result.returncode, 0)
            self.assertIn(f"Example: marlo {command}", result.stdout)

    def test_a_matcher_of_codes_refuses_sift_features_and_keeps_what_is_there(self):
        self.write_photographs(2)
        self.marlo("run", self.photographs, "-o", self.project)
        before = self.rows("SELECT * FROM matches")
        result = self.marlo("match", self.project, "--matcher", "LeftRight")
        self.assertEqual(result.returncode, 2)
        self.assertIn("is for LDAH codes", result.stderr)
        self.assertEqual(self.rows("SELECT * FROM matches"), before)

    def test_wrong_pairs_are_refused_before_anything_is_extracted(self):
        self.write_photographs(2)
        result = self.marlo("run", self.photographs, "-o", self.project, "--pairs", "seq:3")
        self.assertEqual(result.returncode, 2)
        self.assertFalse(self.project.exists())

    def test_a_project_among_the_photographs_is_not_searched(self):
        self.write_photographs(2)
        self.project = self.photographs / "project"
        for _ in range(2):
            result = self.marlo("run", self.photographs, "-o", self.project)
            self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(self.rows("SELECT COUNT(*) FROM marlo_photographs"), [(2,)])

    def test_commands_that_need_a_project_make_none(self):
        for command in ("match", "verify"):
            result = self.marlo(command, self.project)
            self.assertEqual(result.returncode, 1)
            self.assertIn("There is no project in", result.stderr)
            self.assertFalse(self.project.exists())

    def test_a_photograph_that_became_unreadable_keeps_what_was_done(self):
        self.write_photographs(2)
        self.marlo("run", self.photographs, "-o", self.project)
        (self.photographs / "1.pgm").write_bytes(b"")
        result = self.extract()
        self.assertEqual(result.returncode, 3)
        self.assertEqual(len(self.rows("SELECT * FROM keypoints")), 2)
        self.assertEqual(len(self.rows("SELECT * FROM two_view_geometries")), 1)

    def test_pictures_of_similar_names_do_not_meet(self):
        for name in ("a/b.pgm", "a_b.pgm"):
            write_pgm(self.photographs / name, texture(1))
        self.marlo("run", self.photographs, "-o", self.project)
        self.assertEqual(len(list((self.project / "pictures").glob("*.jpg"))), 5)

    def test_a_picture_that_cannot_be_drawn_is_a_warning(self):
        self.write_photographs(2)
        self.extract()
        (self.photographs / "0.pgm").unlink()
        result = self.marlo("run", self.photographs, "-o", self.project)
        self.assertEqual(result.returncode, 0)
        self.assertIn("warning: no picture of", result.stderr)

    def test_tables_that_a_later_colmap_has_upgraded_are_written_to(self):
        self.write_photographs(1)
        self.extract()
        connection = sqlite3.connect(self.project / "database.db")
        connection.execute("ALTER TABLE descriptors ADD COLUMN type INTEGER NOT NULL DEFAULT 0")
        connection.execute("PRAGMA user_version = 4000000")
        connection.commit()
        connection.close()
        self.write_photographs(2)
        self.assertEqual(self.extract().returncode, 0)
        self.assertEqual(self.rows("SELECT COUNT(*) FROM descriptors"), [(2,)])
        self.assertEqual(self.rows("PRAGMA user_version"), [(4000000,)])

    def test_any_colour_of_a_mask_keeps_keypoints(self):
        self.write_photographs(1)
        masks = self.folder / "masks"
        masks.mkdir()
        yellow = np.tile(np.array([255, 255, 0], np.uint8), (240, 280))
        write_png(masks / "0.pgm.png", yellow.tolist(), 2)
        self.assertEqual(self.extract("--mask-dir", masks).returncode, 0)
        self.assertGreater(self.rows("SELECT rows FROM keypoints")[0][0], 50)

    def test_a_folder_without_photographs_exits_with_1(self):
        self.photographs.mkdir()
        (self.photographs / "notes.txt").write_text("none")
        result = self.extract()
        self.assertEqual(result.returncode, 1)
        self.assertIn("There is no photograph in", result.stderr)
        self.assertFalse(self.project.exists())

    def test_bad_files_fail_with_their_reason_and_others_are_done(self):
        self.write_photographs(1)
        bad = self.photographs
        (bad / "empty.jpg").write_bytes(b"")
        (bad / "text.png").write_text("no image")
        self.marlo("extract", bad / "0.pgm", "-o", self.folder / "for_picture")
        self.marlo("show", "keypoints", self.folder / "for_picture", "0.pgm", "-o", bad / "good.jpg")
        jpeg = (bad / "good.jpg").read_bytes()
        (bad / "cut.jpg").write_bytes(jpeg[: len(jpeg) // 2])
        write_png(bad / "whole.png", np.round(texture(1) * 255).astype(np.uint8).tolist(), 0)
        png = (bad / "whole.png").read_bytes()
        (bad / "cut.png").write_bytes(png[: len(png) // 2])
        result = self.extract()
        self.assertEqual(result.returncode, 3)
        states = dict(self.rows("SELECT name, status FROM marlo_photographs"))
        self.assertEqual({name for name, state in states.items() if state == "failed"},
                         {"empty.jpg", "text.png", "cut.jpg", "cut.png"})
        self.assertIn("failed: empty.jpg: is empty (0 bytes)", result.stderr)
        self.assertIn("failed: cut.jpg: ends early", result.stderr)

    def test_unusual_images_are_done(self):
        self.photographs.mkdir()
        grey = np.round(texture(1) * 255).astype(np.uint8)
        colours = np.repeat(grey[:, :, None], 4, axis=2)
        write_png(self.photographs / "rgba.png", colours.reshape(240, -1).tolist(), 6)
        write_png(self.photographs / "palette.png", grey.tolist(), 3,
                  palette=bytes(np.repeat(np.arange(256), 3).astype(np.uint8)))
        write_png(self.photographs / "bits.png", np.packbits(grey > 127, axis=1).tolist(), 0, 1)
        write_png(self.photographs / "pixel.png", [[7]], 0)
        write_pgm(self.photographs / "wide.pgm", np.tile(texture(1)[:64], (1, 94)))
        result = self.extract("--keypoints", "500")
        self.assertEqual(result.returncode, 0, result.stderr)
        counts = dict(self.rows("SELECT name, keypoints FROM marlo_photographs"))
        self.assertEqual(counts["pixel.png"], 0)
        self.assertEqual(counts["rgba.png"], counts["palette.png"])
        self.assertGreater(counts["bits.png"], 100)
        self.assertEqual(counts["wide.pgm"], 500)

    def test_names_may_have_spaces_folders_and_any_letters(self):
        for name in ("a b.pgm", "één/ü.pgm", "zwei/ü.pgm"):
            write_pgm(self.photographs / name, texture(1))
        self.assertEqual(self.marlo("run", self.photographs, "-o", self.project).returncode, 0)
        names = [name for name, in self.rows("SELECT name FROM images ORDER BY image_id")]
        self.assertEqual(names, ["a b.pgm", "zwei/ü.pgm", "één/ü.pgm"])

    def test_other_features_are_refused_without_force(self):
        self.write_photographs(2)
        self.extract()
        result = self.extract("--features", "ldah")
        self.assertEqual(result.returncode, 1)
        self.assertIn("holds sift features", result.stderr)
        self.assertEqual(self.extract("--features", "ldah", "--force").returncode, 0)
        self.assertEqual(self.rows("SELECT cols FROM marlo_features"), [(16,), (16,)])

    def test_a_database_of_another_program_stays_as_it_is(self):
        self.write_photographs(1)
        self.project.mkdir()
        connection = sqlite3.connect(self.project / "database.db")
        connection.execute("CREATE TABLE theirs(x)")
        connection.commit()
        connection.close()
        before = (self.project / "database.db").read_bytes()
        result = self.extract()
        self.assertEqual(result.returncode, 1)
        self.assertIn("was made by another program", result.stderr)
        self.assertEqual((self.project / "database.db").read_bytes(), before)

    def test_a_file_that_is_no_database_is_refused(self):
        self.write_photographs(1)
        self.project.mkdir()
        (self.project / "database.db").write_text("no database, but long enough to look at" * 50)
        result = self.extract()
        self.assertEqual(result.returncode, 1)
        self.assertIn("Move the file away", result.stderr)

    def test_a_project_of_another_format_is_refused(self):
        self.write_photographs(1)
        self.extract()
        connection = sqlite3.connect(self.project / "database.db")
        connection.execute("UPDATE marlo_settings SET value = '99' WHERE key = 'format'")
        connection.commit()
        connection.close()
        result = self.extract()
        self.assertEqual(result.returncode, 1)
        self.assertIn("has the format 99", result.stderr)

    def test_two_at_once_on_one_project_are_refused(self):
        self.write_photographs(1)
        for i in range(40):
            write_pgm(self.photographs / f"more{i}.pgm", texture(1))
        first = subprocess.Popen([MARLO, "extract", self.photographs, "-o", self.project,
                                  "--threads", "1"], stderr=subprocess.DEVNULL)
        try:
            while not (self.project / "database.db").exists():
                time.sleep(0.01)
            second = self.extract()
        finally:
            first.wait(timeout=250)
        self.assertEqual(second.returncode, 1)
        self.assertIn(f"Another marlo (process {first.pid}", second.stderr)
        self.assertEqual(first.returncode, 0)

    def start_long_extraction(self):
        self.write_photographs(1)
        for i in range(60):
            write_pgm(self.photographs / f"more{i}.pgm", texture(1))
        process = subprocess.Popen([MARLO, "extract", self.photographs, "-o", self.project,
                                    "--threads", "1", "--json"], stdout=subprocess.PIPE, text=True)
        done = 0
        while done < 3:
            done = json.loads(process.stdout.readline()).get("done", 0)
        return process, done

    def test_an_interruption_finishes_what_is_in_hand(self):
        for number in (signal.SIGINT, signal.SIGTERM):
            self.project = self.folder / str(number)
            process, _ = self.start_long_extraction()
            process.send_signal(number)
            output, _ = process.communicate(timeout=250)
            self.assertEqual(process.returncode, 128 + number)
            done = [json.loads(line)["done"] for line in output.splitlines()
                    if json.loads(line)["event"] == "outcome"][0]
            self.assertLess(done, 61)
            self.assertEqual(self.rows("SELECT COUNT(*) FROM keypoints"), [(done,)])
            again = self.extract()
            self.assertEqual(again.returncode, 0)
            self.assertIn(f"extract: {61 - done} done, {done} were done already", again.stderr)

    def test_a_killed_process_leaves_what_it_has_reported(self):
        process, done = self.start_long_extraction()
        process.kill()
        process.communicate(timeout=250)
        self.assertEqual(self.rows("PRAGMA integrity_check"), [("ok",)])
        self.assertGreaterEqual(self.rows("SELECT COUNT(*) FROM keypoints")[0][0], done)
        self.assertEqual(self.extract().returncode, 0)
        self.assertEqual(self.rows("SELECT COUNT(*) FROM keypoints"), [(61,)])

    def test_a_full_disk_exits_with_4_and_a_rerun_goes_on(self):
        self.write_photographs(6)

        def little_space():
            resource.setrlimit(resource.RLIMIT_FSIZE, (400_000, 400_000))
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)

        result = self.marlo("extract", self.photographs, "-o", self.project, preexec_fn=little_space)
        self.assertEqual(result.returncode, 4, result.stderr)
        again = self.extract()
        self.assertEqual(again.returncode, 0, again.stderr)
        self.assertEqual(self.rows("SELECT COUNT(*) FROM keypoints"), [(6,)])

    @unittest.skipIf(os.geteuid() == 0, "the administrator may write everywhere")
    def test_a_folder_without_permission_to_write_is_named(self):
        self.write_photographs(1)
        self.project.mkdir()
        self.project.chmod(0o500)
        result = self.extract()
        self.assertEqual(result.returncode, 1)
        self.assertIn(str(self.project), result.stderr)

    def test_an_unreadable_list_of_pairs_names_the_line(self):
        self.write_photographs(2)
        self.extract()
        pairs = self.folder / "pairs.txt"
        pairs.write_text("0.pgm 1.pgm\n0.pgm 7.pgm\n")
        result = self.marlo("match", self.project, "--pairs", f"list:{pairs}")
        self.assertEqual(result.returncode, 1)
        self.assertIn("pairs.txt, line 2: the project has no photograph with features named "
                      "'7.pgm'", result.stderr)


if __name__ == "__main__":
    unittest.main()
