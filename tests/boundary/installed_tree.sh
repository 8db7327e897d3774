#!/bin/sh
# Installs the library into a folder, builds and runs programs against it by its pkg-config file and
# its CMake package, moves the folder elsewhere and does the same again.
#
# Taken from the environment: BUILD (the build folder), SOURCE (this folder), LIBDIR and INCLUDEDIR
# (relative to the prefix), CMAKE, CC, CXX, PKG_CONFIG_PROGRAM and FLAGS (what the library was
# instrumented with).
set -eu

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
unset DESTDIR PKG_CONFIG_LIBDIR PKG_CONFIG_SYSROOT_DIR LD_LIBRARY_PATH
PKG_CONFIG_ALLOW_SYSTEM_CFLAGS=1 PKG_CONFIG_ALLOW_SYSTEM_LIBS=1
export PKG_CONFIG_ALLOW_SYSTEM_CFLAGS PKG_CONFIG_ALLOW_SYSTEM_LIBS

complain() {
    printf 'installed_tree: %s\n' "$*" >&2
    exit 1
}

# by_pkg_config PREFIX: the C99 program, with the flags that the pkg-config file gives.
by_pkg_config() {
    PKG_CONFIG_PATH=$1/${LIBDIR:?}/pkgconfig
    export PKG_CONFIG_PATH
    found=$("$PKG_CONFIG_PROGRAM" --variable=libdir wqevents)
    [ "$(cd "$found" && pwd -P)" = "$(cd "$1/$LIBDIR" && pwd -P)" ] ||
        complain "the pkg-config file points to $found, not below $1"
    # The flags are meant to be split into words.
    # shellcheck disable=SC2046,SC2086
    "$CC" -std=c99 -pedantic -Wall -Wextra -Werror $FLAGS "$SOURCE/c99_program.c" \
        -o "$work/by_pkg_config" $("$PKG_CONFIG_PROGRAM" --cflags --libs wqevents) \
        "-Wl,-rpath,$found"
    (cd "$work" && ./by_pkg_config) || complain "the program built by pkg-config failed"
}

# logged COMMAND...: runs it, and shows what it wrote only when it fails.
logged() {
    "$@" >"$work/log" 2>&1 || {
        cat "$work/log" >&2
        complain "failed: $*"
    }
}

# by_cmake PREFIX: the programs of the consumer project, which finds the CMake package.
by_cmake() {
    rm -rf "$work/consumer"
    logged "$CMAKE" -S "$SOURCE/consumer" -B "$work/consumer" -DCMAKE_PREFIX_PATH="$1" \
        -DCMAKE_FIND_USE_CMAKE_SYSTEM_PATH=OFF -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF \
        -DCMAKE_C_COMPILER="$CC" -DCMAKE_CXX_COMPILER="$CXX" \
        -DCMAKE_C_FLAGS="$FLAGS" -DCMAKE_CXX_FLAGS="$FLAGS"
    logged "$CMAKE" --build "$work/consumer"
    case $(sed -n 's/^wqevents_DIR:PATH=//p' "$work/consumer/CMakeCache.txt") in
    "$1"/*) ;;
    *) complain "the consumer project found another installation" ;;
    esac
    for program in c99_shared c99_static cxx17_shared; do
        (cd "$work/consumer" && "./$program") || complain "the consumer's $program failed"
    done
}

logged "$CMAKE" --install "$BUILD" --prefix "$work/first"
for header in "$SOURCE"/../../include/*.h "$SOURCE"/../../include/wqevents/*.h; do
    installed=$work/first/$INCLUDEDIR/${header##*/include/}
    cmp "$header" "$installed" || complain "${header##*/} is not installed as it is"
done
by_pkg_config "$work/first"
by_cmake "$work/first"

mv "$work/first" "$work/elsewhere"
by_pkg_config "$work/elsewhere"
by_cmake "$work/elsewhere"
