#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# Every file that can carry a comment names its licence.
# Usage: licence_lines_test.sh SOURCE_DIR
set -euo pipefail
cd "$1"
files=$(git ls-files -co --exclude-standard | grep -vE '^LICENSE$|\.json$|\.symbols$|\.expected$|\.svg$|\.jpg$')
without=$(xargs grep -L 'SPDX-License-Identifier: BSD-3-Clause' <<<"$files" || true)
if [[ -n $without ]]; then
    echo "these files have no SPDX-License-Identifier line:" >&2
    echo "$without" >&2
    exit 1
fi
