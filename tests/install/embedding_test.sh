#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# Builds the library inside another project's build, in as little time as it can be built.
# Usage: embedding_test.sh SOURCE_DIR WORK_DIR COMPILER QT_MAJOR
set -euo pipefail
source=$1 work=$2 compiler=$3 qt=$4

# With precompiled headers ccache works only if it may overlook what these hide.
export CCACHE_SLOPPINESS=pch_defines,time_macros

rm -rf "$work"
cmake -S "$source/tests/install/embedding" -B "$work" -G Ninja -DLIBFEATURES="$source" \
    -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_CXX_COMPILER_LAUNCHER="$(command -v ccache || true)" \
    -DFEATURES_QT_MAJOR="$qt" -DFEATURES_PRECOMPILE_HEADERS=ON
cmake --build "$work"
"$work/describe_image" | diff -u "$source/examples/describe_image.expected" -

# The host decides what is tested and installed.
if [[ $(ctest --test-dir "$work" --show-only 2>&1) != *"Total Tests: 0"* ]]; then
    echo "the host's build got this project's tests" >&2
    exit 1
fi
DESTDIR=$work/installed cmake --install "$work"
if [[ -n $(find "$work/installed" -type f 2>/dev/null) ]]; then
    echo "the host's installation got this project's files" >&2
    exit 1
fi
