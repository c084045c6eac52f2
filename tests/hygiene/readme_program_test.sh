#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# The program that README shows, and its output, are those of the example that is built and run.
# Usage: readme_program_test.sh SOURCE_DIR
set -euo pipefail
cd "$1"

block() {  # block N: the text of the Nth fenced block of README that is a program or plain output
    awk -v wanted="$1" '
        /^```(cpp)?$/ && !inside { inside = 1; ++number; next }
        /^```/ && inside == 2 { inside = 0; next }
        /^```./ { inside = 2; next }
        /^```$/ { inside = 0; next }
        inside == 1 && number == wanted' README.md
}

diff -u <(tail -n +2 examples/keep_strongest.cpp) <(block 1)
diff -u examples/keep_strongest.expected <(block 2)
