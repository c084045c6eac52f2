#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""Draws the precision-recall curves of evaluate_codes --curves."""

import argparse
import csv
import sys

import matplotlib

matplotlib.use("svg")
from matplotlib import pyplot  # noqa: E402  (after the back end is chosen)

DEFAULT = "0.8"


def main():
    parser = argparse.ArgumentParser(
        description="Draws the precision-recall curves of evaluate_codes --curves.")
    parser.add_argument("curves", help="the file of evaluate_codes")
    parser.add_argument("picture", help="the .svg file to write")
    arguments = parser.parse_args()
    try:
        with open(arguments.curves, newline="", encoding="ascii") as file:
            lines = list(csv.DictReader(file))
    except OSError as error:
        sys.exit(f"plot_curves.py: {error}")

    def points(rows):
        return [(line["fraction"], int(line["correct"]), int(line["matches"]))
                for line in lines if line["rows"] == rows and int(line["matches"])]

    try:
        unit = next(correct for fraction, correct, _ in points("SIFT") if fraction == DEFAULT)
    except (KeyError, StopIteration):
        sys.exit(f"plot_curves.py: {arguments.curves} has no curves of evaluate_codes")
    # The same picture from the same numbers: no date, fixed names.
    matplotlib.rcParams["svg.hashsalt"] = "curves"
    figure, axes = pyplot.subplots(figsize=(6.4, 4.2))
    for rows, colour in (("SIFT", "tab:gray"), ("LDAH", "tab:blue")):
        curve = [(correct / unit, 100 * correct / matches, fraction)
                 for fraction, correct, matches in points(rows)]
        axes.plot([x for x, _, _ in curve], [y for _, y, _ in curve], color=colour, label=rows)
        for x, y, fraction in curve:
            if fraction == DEFAULT:
                axes.plot(x, y, "o", color=colour)
    axes.set_xlabel(f"correct matches / those of SIFT rows at a ratio of {DEFAULT}")
    axes.set_ylabel("correct among all matches, %")
    axes.set_xlim(left=0)
    axes.grid(alpha=0.3)
    axes.legend(loc="lower left")
    figure.savefig(arguments.picture, metadata={"Date": None, "Creator": None}, bbox_inches="tight")


if __name__ == "__main__":
    main()
