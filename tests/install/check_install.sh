#!/usr/bin/env bash
# Installs the build into a temporary prefix, checks what a board gets, then builds the
# small C application (app.c) against the installed tree twice, with pkg-config and with
# find_package(zoomaf), and runs both builds. Everything it makes is removed at the end.
# From ctest (tests/install/CMakeLists.txt), in the environment:
#   ZOOMAF_BUILD        the build directory to install
#   CC                  the build's C compiler
#   ZOOMAF_TOOLCHAIN    the build's toolchain file (cross builds)
#   ZOOMAF_EMULATOR     the command that runs a target program (cross builds)
#   ZOOMAF_APP_LDFLAGS  the build's link options (a sanitizer's runtime), for the application
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
read -r -a emulator <<<"${ZOOMAF_EMULATOR:-}"
read -r -a app_ldflags <<<"${ZOOMAF_APP_LDFLAGS:-}"

work=$(mktemp -d "${TMPDIR:-/tmp}/zoomaf-install.XXXXXX")
# cmake --install records what it installed in the build directory: keep the record of a
# real install there, not ours.
manifest=$ZOOMAF_BUILD/install_manifest.txt
[ -e "$manifest" ] && cp -p "$manifest" "$work/manifest"
restore() {
    if [ -e "$work/manifest" ]; then mv "$work/manifest" "$manifest"; else rm -f "$manifest"; fi
    rm -rf "$work"
}
trap restore EXIT

prefix=$work/prefix
cmake --install "$ZOOMAF_BUILD" --prefix "$prefix" >/dev/null

fail() { echo "FAIL: $*"; exit 1; }
library=$(find "$prefix" -name libzoomaf.so -type l)
[ -n "$library" ] || fail "no lib*/libzoomaf.so link"
libdir=$(dirname "$library")
soname=$(readelf -d "$library" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')
[[ $soname == libzoomaf.so.[0-9]* ]] || fail "SONAME is '$soname'"
[ -e "$libdir/$soname" ] || fail "$soname is not installed beside libzoomaf.so"
[ -x "$prefix/bin/zoomaf-shm" ] || fail "bin/zoomaf-shm is missing"
for data in zy_240408_tvk_update.csv 0416_-1930_-1960 calibration/pd_calibration.cfg; do
    [ -f "$prefix/share/zoomaf/$data" ] || fail "share/zoomaf/$data is missing"
done
stray=$(find "$prefix" -name '*.a' -o -name '*twin*')
[ -z "$stray" ] || fail "installed but not for a board: $stray"
echo "installed: $(cd "$prefix" && find . -type f -o -type l | sort | tr '\n' ' ')"

# pkg-config sees only the installed tree, as a cross build's would see only the target's.
pc_flags=$(PKG_CONFIG_LIBDIR=$libdir/pkgconfig pkg-config --cflags --libs zoomaf)
"$CC" -std=c11 -Wall -Wextra -Werror "${app_ldflags[@]}" -o "$work/app-pkg-config" \
      "$here/app.c" $pc_flags
echo "pkg-config: $(LD_LIBRARY_PATH=$libdir "${emulator[@]}" "$work/app-pkg-config")"

toolchain=()
[ -n "${ZOOMAF_TOOLCHAIN:-}" ] && toolchain=(-DCMAKE_TOOLCHAIN_FILE="$ZOOMAF_TOOLCHAIN")
cmake -S "$here/consumer" -B "$work/consumer" -G Ninja "${toolchain[@]}" -DCMAKE_C_COMPILER="$CC" \
      -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_EXE_LINKER_FLAGS="${app_ldflags[*]}" >/dev/null
cmake --build "$work/consumer" >/dev/null
echo "find_package: $("${emulator[@]}" "$work/consumer/app")"
