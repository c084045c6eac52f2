#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# The libraries export what is meant to be exported and nothing else. `*.symbols` list it; a new
# public function is added there by hand. Inline functions are exported or not as compiler and
# optimisation decide; they are not listed and only have to be in our namespace.
# Usage: exported_symbols_test.sh LISTS_DIR LIBFEATURES LIBMARLOCUDA
set -euo pipefail
export LC_ALL=C
lists=$1
failed=0

exported() {  # exported LIBRARY [TYPES]: demangled dynamic symbols, of these nm types only
    nm -D --defined-only -C "$1" | sed -nE "s/^[0-9a-f]+ [${2:-TDBRWVu}] (.*)@@.*$/\1/p" | sort -u
}

listable() {  # listable LIBRARY: those that do not depend on what the compiler inlines
    { exported "$1" TDBR; exported "$1" |
        grep -E '^(vtable|typeinfo) |ExtensibleFactory<|::classifyLdah<' |
        grep -v '::factory$' || true; } | sort -u
}

compare() {  # compare LIBRARY LIST
    if ! diff -u "$2" <(listable "$1"); then
        echo "$1 does not export what $2 lists" >&2
        failed=1
    fi
}

only_ours() {  # only_ours LIBRARY: nothing outside our namespace, nothing private
    local foreign
    foreign=$(
        exported "$1" | grep -vE \
            '^((QString|void|typeinfo for|typeinfo name for|vtable for|non-virtual thunk to) )?marlo::|^mlc[A-Z]'
        exported "$1" | grep -E '::(detail|test)::|\(anonymous namespace\)'
    ) || true  # grep's status: nothing found is what is wanted
    if [[ -n $foreign ]]; then
        echo "$1 exports what it should not:" >&2
        echo "$foreign" >&2
        failed=1
    fi
}

links_only() {  # links_only LIBRARY PATTERN: direct dependencies match the pattern
    local needed
    needed=$(readelf -d "$1" | sed -nE 's/.*\(NEEDED\).*\[(.*)\]/\1/p' | grep -vE "$2" || true)
    if [[ -n $needed ]]; then
        echo "$1 depends on what it should not: $needed" >&2
        failed=1
    fi
}

compare "$2" "$lists/libfeatures.symbols"
compare "$3" "$lists/libmarlocuda.symbols"
only_ours "$2"
only_ours "$3"
system='^(libc|libm|libstdc\+\+|libgcc_s|libpthread|ld-linux.*|lib[al]san|libubsan|libtsan|librt|libdl)\.so'
links_only "$2" "$system|^lib(marlocuda\.so\.1|Qt[56]Core\.so\.[56]|gomp\.so|omp\.so)"
links_only "$3" "$system"
exit "$failed"
