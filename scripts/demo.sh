#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# Installs what is needed, builds the library and the program marlo, installs them into
# build/demo/installed, builds the example programs against that installation and runs them, then
# runs `marlo demo`.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

prefix=$PWD/build/demo/installed
programs=$PWD/build/demo/programs
log=$PWD/build/demo/build.log

scripts/install-deps.sh apps
mkdir -p build/demo
echo "Building libfeatures (log: build/demo/build.log)"
if ! {
    cmake --preset release &&
        cmake --build --preset release &&
        cmake --install build/release --prefix "$prefix" &&
        cmake -S examples -B "$programs" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
            -DCMAKE_BUILD_TYPE=Release &&
        cmake --build "$programs"
} >"$log" 2>&1; then
    tail -n 40 "$log" >&2
    echo "The build failed; the whole log is in $log" >&2
    exit 1
fi
echo "Installed in build/demo/installed; programs in build/demo/programs"

for program in describe_image match_images own_plug_ins; do
    printf '\n$ %s        (examples/%s.cpp)\n' "$program" "$program"
    "$programs/$program"
done

printf '\n$ marlo demo -o build/demo/marlo\n'
"$prefix/bin/marlo" demo -o build/demo/marlo
