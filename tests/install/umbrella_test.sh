#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# Every installed header of libfeatures and its support code is included by libfeatures/features.h.
# Usage: umbrella_test.sh INCLUDE_DIR
set -euo pipefail
cd "$1"
headers=$(find libfeatures support -name '*.h' ! -path libfeatures/features.h | sort)
missing=0
for header in $headers; do
    if ! grep -qF "#include \"$header\"" libfeatures/features.h; then
        echo "libfeatures/features.h does not include $header" >&2
        missing=1
    fi
done
private=$(find . -path '*/detail/*')
if [[ -n $private ]]; then
    echo "private headers are installed: $private" >&2
    missing=1
fi
exit "$missing"
