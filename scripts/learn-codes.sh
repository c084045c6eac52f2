#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# Learns the tables of the LDAH codes from photographs and puts them into the source.
# Usage: learn-codes.sh FOLDER...   (each with photographs; those of one scene next to each other by
#                                    name; what lies in build/tools/ldah_tables is written anew)
set -euo pipefail
if [[ $# -eq 0 ]]; then
    sed -n '4,5s/^# //p' "${BASH_SOURCE[0]}" >&2
    exit 2
fi
folders=()
for folder in "$@"; do folders+=("$(realpath -e -- "$folder")"); done
cd "$(dirname "${BASH_SOURCE[0]}")/.."

scripts/install-deps.sh tools
cmake --preset tools
cmake --build --preset tools
results=build/tools/ldah_tables
mkdir -p "$results"
trap 'rm -f "$results/samples.bin"' EXIT  # a gigabyte
build/tools/tools/ldah_tables/collect_mates "$results/samples.bin" "${folders[@]}"
# Debian's Python, where its packages are.
/usr/bin/python3 tools/ldah_tables/learn_tables.py "$results/samples.bin" "$results/tables.npz"
/usr/bin/python3 tools/ldah_tables/write_tables.py "$results/tables.npz"
