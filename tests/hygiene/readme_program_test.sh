#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# The programs that README shows, and their output, are those of examples that are built and run.
# Usage: readme_program_test.sh SOURCE_DIR
set -euo pipefail
cd "$1"

shows() {  # shows NAME: README has the example and its output
    local program output shown
    program=$(tail -n +2 "examples/$1.cpp")  # without the licence line
    output=$(<"examples/$1.expected")
    # The back quotes are Markdown's.
    # shellcheck disable=SC2016
    shown=$(printf '```cpp\n%s\n```\n\n```\n%s\n```' "$program" "$output")
    if [[ $(<README.md) != *"$shown"* ]]; then
        echo "README.md does not show examples/$1.cpp followed by its output:" >&2
        echo "$shown" >&2
        exit 1
    fi
}
shows describe_image
shows camera_rays
