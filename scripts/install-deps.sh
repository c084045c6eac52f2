#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# Installs the Debian packages that the project needs.
# Usage: install-deps.sh [build|apps|test|bench|tools]
#   build: to build, install and package the library (default)
#   apps:  also to build the command-line program
#   test:  also to run every test
#   bench: to build the library, its benchmarks and what they compare with
#   tools: to learn and compare the tables of the LDAH codes
set -euo pipefail

build=(g++ cmake ninja-build ccache pkg-config libeigen3-dev qt6-base-dev dpkg-dev file)
apps=(libcli11-dev libexiv2-dev libopencv-dev libsqlite3-dev libsqlitecpp-dev libzip-dev
      nlohmann-json3-dev)
tests=(libgtest-dev libgmock-dev clang-14 clang-format-14 clang-tidy-14 libomp-14-dev
       libclang-rt-14-dev lld qtbase5-dev binutils colmap git python3-numpy python3-scipy)
benchmarks=(libbenchmark-dev libfaiss-dev libopenblas-dev libopencv-dev libvlfeat-dev
    python3-matplotlib)
tools=(libopencv-dev python3-matplotlib python3-numpy python3-scipy)

case ${1:-build} in
    build) packages=("${build[@]}") ;;
    apps) packages=("${build[@]}" "${apps[@]}") ;;
    test) packages=("${build[@]}" "${apps[@]}" "${tests[@]}") ;;
    bench) packages=("${build[@]}" "${benchmarks[@]}") ;;
    tools) packages=("${build[@]}" "${tools[@]}") ;;
    *)
        echo "usage: $0 [build|apps|test|bench|tools]" >&2
        exit 2
        ;;
esac

missing=()
for package in "${packages[@]}"; do
    status=$(dpkg-query --show --showformat='${Status}' "$package" 2>/dev/null || true)
    [[ $status == "install ok installed" ]] || missing+=("$package")
done
if [[ ${#missing[@]} -eq 0 ]]; then
    exit 0
fi

as_root=()
if [[ $EUID -ne 0 ]]; then
    if ! command -v sudo >/dev/null; then
        echo "$0: cannot install ${missing[*]}: neither root nor sudo" >&2
        exit 1
    fi
    as_root=(sudo)
fi
echo "Installing ${missing[*]}"
# Errors still come through; what apt says of each package does not.
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -qq -y --no-install-recommends -o Dpkg::Use-Pty=0 "${missing[@]}" >/dev/null
