#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# Learns tables from two small photographs, from their samples to the source of the library, and
# compares the codes of the two.
# Usage: smoke_test.sh PYTHON TOOLS_SOURCE_DIR COLLECT_MATES EVALUATE_CODES
set -euo pipefail
python=$1 tools=$2 collect_mates=$3 evaluate_codes=$4

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export PYTHONDONTWRITEBYTECODE=1

fail() {
    echo "smoke_test.sh: $1" >&2
    exit 1
}

expect() {  # expect STATUS TEXT COMMAND...: runs it; its output has TEXT
    local status=0
    "${@:3}" >"$work/output" 2>&1 || status=$?
    if [[ $status != "$1" ]] || ! grep -qF -- "$2" "$work/output"; then
        cat "$work/output"
        fail "'${*:3}' ended with $status, or does not say '$2'"
    fi
    echo "${*:3}: as expected"
}

# Two photographs of one textured wall, the second taken 24 pixels to the right and 10 down; and two
# of nothing.
mkdir "$work/wall" "$work/grey" "$work/empty"
"$python" - "$work" <<'EOF'
import pathlib
import sys

import numpy as np


def write(path, image):
    height, width = image.shape
    path.write_bytes(b"P5 %d %d 255\n" % (width, height) + image.astype(np.uint8).tobytes())


work = pathlib.Path(sys.argv[1])
random = np.random.Generator(np.random.PCG64(1))
wall = np.zeros((310, 424))
for size in (4, 8, 16, 32):
    blocks = random.standard_normal((310 // size + 1, 424 // size + 1)) * size**0.5
    wall += np.kron(blocks, np.ones((size, size)))[:310, :424]
for axis in (0, 1):
    for _ in range(2):
        wall = (np.roll(wall, 1, axis) + 2 * wall + np.roll(wall, -1, axis)) / 4
wall = np.clip(128 + 40 * wall / wall.std(), 0, 255)
write(work / "wall/1.pgm", wall[:300, :400])
write(work / "wall/2.pgm", wall[10:, 24:])
(work / "wall/H1to2p").write_text("1 0 -24\n0 1 -10\n0 0 1\n")
for name in ("1.pgm", "2.pgm"):
    write(work / "grey" / name, np.full((120, 160), 128.0))
(work / "grey/H1to2p").write_text("1 0 0\n0 1 0\n0 0 1\n")
EOF

# From photographs to samples to tables to the library's source.
expect 0 "pairs of images" \
    "$collect_mates" --views 1 --keypoints 300 "$work/samples.bin" "$work/wall"
mates=$(sed -n 's/.* pairs of images, \([0-9]*\) mates$/\1/p' "$work/output")
((mates >= 100)) || fail "only $mates mates"

"$python" - "$tools" "$work/samples.bin" "$mates" <<'EOF'
import sys

sys.path.insert(0, sys.argv[1])

import numpy as np  # noqa: E402

import samples  # noqa: E402

random = np.random.Generator(np.random.PCG64(1))
given = samples.read(sys.argv[2], 300, 1, random)
assert len(given.first) == int(sys.argv[3]), f"{len(given.first)} mates, not {sys.argv[3]}"
for rows in (given.first, given.second, given.strangers):
    lengths = np.linalg.norm(rows, axis=-1)
    assert np.abs(lengths / lengths[0] - 1).max() < 1e-3, "these are no descriptors"
mates = (given.first * given.second).sum(axis=1)
strangers = (given.first * given.strangers[:, 0]).sum(axis=1)
share = (mates > strangers).mean()
assert share > 0.8, f"only {share} of the mates are more alike than strangers"
EOF

expect 0 "$work/tables.npz: tables " \
    "$python" "$tools/learn_tables.py" "$work/samples.bin" "$work/tables.npz" --steps 4
identifier=$(sed -n 's/.*: tables //p' "$work/output")
expect 0 "$work/tables.cpp: tables $identifier" \
    "$python" "$tools/write_tables.py" "$work/tables.npz" --source "$work/tables.cpp"
grep -qF "\"$identifier\"," "$work/tables.cpp" || fail "tables.cpp does not name its tables"
[[ ! -e $work/tables.cpp.partial ]] || fail "tables.cpp.partial was left behind"

# The codes of the library.
expect 0 "False positives among random pairs" \
    "$evaluate_codes" --keypoints 300 --curves "$work/curves.csv" "$work/wall/"
grep -q "^| wall  " "$work/output" || fail "the line of the folder does not name it"
[[ $(wc -l <"$work/curves.csv") == 53 ]] || fail "the curves are not 26 ratios of each kind of rows"
awk -F'|' '/^\| wall/ { exit !($4 > 100 && $5 > 90 && $6 > 100 && $7 > 90) }' "$work/output" ||
    fail "too few matches are correct"
expect 0 "| grey       |     1 |       0 |" "$evaluate_codes" "$work/grey"
expect 1 "the photographs have no mates" "$collect_mates" --views 1 "$work/none.bin" "$work/grey"

# What goes wrong.
collect() {
    "$collect_mates" "$work/none.bin" "$@"
}
evaluate() {
    "$evaluate_codes" "$@"
}
for program in collect evaluate; do
    expect 1 "$work/missing" $program "$work/missing"
    expect 1 "no photographs in $work/empty" $program "$work/empty"
    expect 2 "unknown option --keys" $program --keys 7 "$work/wall"
    expect 2 "--keypoints needs a whole number, 1 or more, not '0'" \
        $program --keypoints 0 "$work/wall"
    expect 2 "no folder of photographs given" $program
    expect 0 "usage: " $program --help
done
expect 1 "cannot write $work/missing/samples.bin" \
    "$collect_mates" "$work/missing/samples.bin" "$work/wall"
expect 1 "learn_tables.py: " "$python" "$tools/learn_tables.py" "$work/missing.bin" "$work/new.npz"
expect 2 "argument --steps" \
    "$python" "$tools/learn_tables.py" "$work/samples.bin" "$work/new.npz" --steps 0
expect 1 "write_tables.py: " \
    "$python" "$tools/write_tables.py" "$work/missing.npz" --source "$work/new.cpp"
[[ ! -e $work/new.npz && ! -e $work/new.cpp ]] || fail "files were written after an error"
