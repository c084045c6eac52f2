#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""Draws the figures of selection_quality_bench --csv."""

import argparse
import csv
import statistics
import sys

import matplotlib

matplotlib.use("svg")
from matplotlib import pyplot  # noqa: E402  (after the back end is chosen)

# Several lie on top of each other: wide ones below, dashes above.
STYLES = {
    "TOP": ("tab:gray", "-", 4.0),
    "ANMS": ("tab:blue", "-", 4.0),
    "ANMSBound": ("tab:cyan", "-", 2.0),
    "ANMSOri": ("black", ":", 1.5),
    "ANMSOrig": ("black", "--", 1.0),
    "SDC": ("tab:orange", "-", 2.0),
    "SDCOri": ("tab:red", "-.", 2.0),
}


def means(lines, figure):
    """By selector and number, the mean over sets."""
    values = {}
    for line in lines:
        value = figure(line)
        values.setdefault((line["selector"], int(line["requested"])), []).append(value)
    return {key: statistics.fmean(of_sets) for key, of_sets in values.items()}


def main():
    parser = argparse.ArgumentParser(
        description="Draws the figures of selection_quality_bench --csv.")
    parser.add_argument("figures", help="the file of selection_quality_bench")
    parser.add_argument("picture", help="the .svg file to write")
    arguments = parser.parse_args()
    try:
        with open(arguments.figures, newline="", encoding="utf-8") as file:
            lines = [line for line in csv.DictReader(file) if line["selector"] in STYLES]
        top = {(line["set"], line["requested"]): float(line["correct"])
               for line in lines if line["selector"] == "TOP"}
        panels = (
            ("cells with keypoints, %", means(lines, lambda line: 100 *
                                              float(line["occupied_cells"]))),
            ("correct matches / those of TOP", means(
                lines, lambda line: float(line["correct"]) /
                top[line["set"], line["requested"]])),
            ("cells with correct matches, %", means(lines, lambda line: 100 *
                                                    float(line["correct_cells"]))))
    except OSError as error:
        sys.exit(f"plot_selection.py: {error}")
    except (KeyError, ValueError, ZeroDivisionError):
        sys.exit(f"plot_selection.py: {arguments.figures} has no figures of "
                 "selection_quality_bench")
    # The same picture from the same numbers: no date, fixed names.
    matplotlib.rcParams["svg.hashsalt"] = "selection"
    figure, axes = pyplot.subplots(1, len(panels), figsize=(11, 3.8))
    counts = sorted({int(line["requested"]) for line in lines})
    for (title, values), panel in zip(panels, axes):
        for selector, (colour, dashes, width) in STYLES.items():
            panel.plot(counts, [values[selector, count] for count in counts], color=colour,
                       linestyle=dashes, linewidth=width, label=selector)
        panel.set_title(title, fontsize=10)
        panel.set_xlabel("keypoints to select")
        panel.set_xscale("log")
        panel.set_xticks(counts, [str(count) for count in counts])
        panel.minorticks_off()
        panel.set_ylim(bottom=0)
        panel.grid(alpha=0.3)
    axes[-1].legend(loc="upper left", bbox_to_anchor=(1.02, 1.0), borderaxespad=0)
    figure.tight_layout()
    figure.savefig(arguments.picture, metadata={"Date": None, "Creator": None}, bbox_inches="tight")


if __name__ == "__main__":
    main()
