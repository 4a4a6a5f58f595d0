#!/usr/bin/env bash
# The shared library's dynamic symbol table holds exactly the service's C names listed in
# exported_names.txt: no C++ symbol and nothing missing. Symbols the toolchain adds (the
# linker's section markers, AddressSanitizer's ODR indicators) are not ours and are skipped.
# The nm is the build's own (the cross binutils' for a cross build).
set -euo pipefail
nm=$1 library=$2 expected=$3
actual=$("$nm" -D --defined-only "$library" | awk '{print $3}' | grep -v -E '^(_init|_fini|_edata|_end|__bss_start|__odr_asan\..*)$' | sort)
if grep -q '^_Z' <<<"$actual"; then
    echo "C++ symbols exported:"; grep '^_Z' <<<"$actual"; exit 1
fi
if ! diff -u <(grep -v '^#' "$expected" | sort) <(echo "$actual"); then
    echo "exported names differ from $expected (- expected, + exported)"; exit 1
fi
echo "$(wc -l <<<"$actual") names exported, no C++ symbol"
