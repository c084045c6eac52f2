#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# Builds the Debian packages, looks into them, and builds a program against what they contain.
# Usage: debian_packages_test.sh BUILD_DIR EXAMPLES COMPILER LIBDIR
set -euo pipefail
build=$1 examples=$2 compiler=$3 libdir=$4
work=$build/debian_packages

rm -rf "$work"
mkdir -p "$work/root"
(cd "$build" && cpack -G DEB -B "$work/packages")

runtime=$(echo "$work"/packages/libfeatures1_*.deb)
dev=$(echo "$work"/packages/libfeatures-dev_*.deb)

field() { dpkg-deb --field "$1" "$2"; }
expect() {  # expect TEXT PATTERN WHAT
    if ! grep -qE "$2" <<<"$1"; then
        echo "$3: '$1' does not match '$2'" >&2
        exit 1
    fi
}

expect "$(field "$runtime" Package)" '^libfeatures1$' "runtime package name"
expect "$(field "$dev" Package)" '^libfeatures-dev$' "dev package name"
expect "$(field "$runtime" Depends)" 'libc6 ' "runtime dependencies"
expect "$(field "$runtime" Depends)" 'libqt[56]core' "runtime dependencies"
expect "$(field "$runtime" Description)" '^ Shared libraries: what programs need to run\.$' "description"
expect "$(field "$dev" Depends)" 'libfeatures1 \(= ' "dev dependencies"
expect "$(field "$dev" Depends)" 'libeigen3-dev' "dev dependencies"
expect "$(field "$dev" Depends)" 'qt6-base-dev|qtbase5-dev' "dev dependencies"

files=$(dpkg-deb --contents "$runtime")
expect "$files" "/usr/$libdir/libfeatures\.so\.1 -> " "runtime files"
expect "$files" "/usr/$libdir/libmarlocuda\.so\.1 -> " "runtime files"
if grep -E '\.h$|\.cmake$|/libfeatures\.so ' <<<"$files"; then
    echo "the runtime package has development files" >&2
    exit 1
fi

dpkg-deb --extract "$runtime" "$work/root"
dpkg-deb --extract "$dev" "$work/root"
cmake -S "$examples" -B "$work/consumer" -G Ninja -DCMAKE_CXX_COMPILER="$compiler" \
    -DCMAKE_PREFIX_PATH="$work/root/usr"
cmake --build "$work/consumer" --target describe_image
"$work/consumer/describe_image" | diff -u "$examples/describe_image.expected" -
