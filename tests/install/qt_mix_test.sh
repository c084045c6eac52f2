#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# A host that already uses the other Qt is refused in plain words.
# Usage: qt_mix_test.sh PREFIX WORK_DIR COMPILER QT_MAJOR
set -euo pipefail
prefix=$1 work=$2 compiler=$3 qt=$4
other=$((qt == 6 ? 5 : 6))

rm -rf "$work"
mkdir -p "$work"
cat >"$work/CMakeLists.txt" <<END
cmake_minimum_required(VERSION 3.16)
project(host LANGUAGES CXX)
add_library(Qt$other::Core INTERFACE IMPORTED)
find_package(libfeatures 1 REQUIRED)
END
if cmake -S "$work" -B "$work/build" -G Ninja -DCMAKE_CXX_COMPILER="$compiler" \
    -DCMAKE_PREFIX_PATH="$prefix" >"$work/output" 2>&1; then
    echo "a host with Qt $other was not refused" >&2
    exit 1
fi
if ! tr -s '[:space:]' ' ' <"$work/output" | grep -q "it was built with Qt $qt and this project uses"; then
    cat "$work/output" >&2
    exit 1
fi
