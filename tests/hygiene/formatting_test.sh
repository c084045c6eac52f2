#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# The sources are formatted as .clang-format says.
# Usage: formatting_test.sh SOURCE_DIR CLANG_FORMAT
set -euo pipefail
cd "$1"
files=$(git ls-files -co --exclude-standard -- '*.h' '*.cpp' '*.cu')
[[ -n $files ]]
xargs "$2" --dry-run --Werror <<<"$files"
