#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# Installs what is needed, then configures, builds and tests.
# Usage: test.sh [PRESET ...]   (default: ci qt5 asan tsan; see CMakePresets.json)
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

presets=("$@")
[[ ${#presets[@]} -gt 0 ]] || presets=(ci qt5 asan tsan)

scripts/install-deps.sh test
for preset in "${presets[@]}"; do
    printf '\n=== %s ===\n' "$preset"
    cmake --preset "$preset"
    cmake --build --preset "$preset"
    ctest --preset "$preset" --parallel "$(nproc)"
done
printf '\nAll tests passed under: %s\n' "${presets[*]}"
