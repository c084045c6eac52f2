#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# Builds the examples against an installed tree, with CMake and with pkg-config, and compares what
# they print.
# Usage: consumer_test.sh PREFIX WORK_DIR EXAMPLES COMPILER LIBDIR [SANITIZERS]
set -euo pipefail
prefix=$1 work=$2 examples=$3 compiler=$4 libdir=$5 sanitizers=${6:-}

flags=()
[[ -z $sanitizers ]] || flags=("-fsanitize=$sanitizers")

check() {  # check PROGRAM EXPECTED: runs the program and compares its output
    "$1" >"$work/output"
    diff -u "$2" "$work/output"
    echo "$1: output as expected"
}

rm -rf "$work"

# The tree can be moved: nothing in it names the place it was installed to.
mkdir -p "$work"
cp -r "$prefix" "$work/moved"
if grep -rIl "$prefix" "$work/moved"; then
    echo "these installed files name the place they were installed to" >&2
    exit 1
fi

cmake -S "$examples" -B "$work/cmake" -G Ninja \
    -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_CXX_FLAGS="${flags[*]}" \
    -DCMAKE_PREFIX_PATH="$work/moved"
cmake --build "$work/cmake"
for example in camera_rays describe_image match_images own_plug_ins; do
    check "$work/cmake/$example" "$examples/$example.expected"
done

export PKG_CONFIG_PATH=$work/moved/$libdir/pkgconfig LD_LIBRARY_PATH=$work/moved/$libdir
# Word splitting is what pkg-config's output is made for.
# shellcheck disable=SC2046
"$compiler" -std=c++17 "${flags[@]}" "$examples/describe_image.cpp" -o "$work/describe_image" \
    $(pkg-config --cflags --libs libfeatures)
check "$work/describe_image" "$examples/describe_image.expected"
