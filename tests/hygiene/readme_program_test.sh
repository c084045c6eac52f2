#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# The program that README shows, and its output, are those of the example that is built and run.
# Usage: readme_program_test.sh SOURCE_DIR
set -euo pipefail
cd "$1"

program=$(tail -n +2 examples/describe_image.cpp)  # without the licence line
output=$(<examples/describe_image.expected)
# The back quotes are Markdown's.
# shellcheck disable=SC2016
shown=$(printf '```cpp\n%s\n```\n\n```\n%s\n```' "$program" "$output")
if [[ $(<README.md) != *"$shown"* ]]; then
    echo "README.md does not show examples/describe_image.cpp followed by its output:" >&2
    echo "$shown" >&2
    exit 1
fi
