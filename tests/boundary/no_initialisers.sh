#!/bin/sh
# Checks that no object of the static library has code to run before or after main(): the library
# works when it is called from constructors and destructors of a program's static objects.
#
#   no_initialisers.sh NM READELF STATIC_LIBRARY
set -eu
LC_ALL=C
export LC_ALL

nm=$1 readelf=$2 static=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0

# found WHAT: the lines in $work/found are faults.
found() {
    if [ -s "$work/found" ]; then
        printf '%s:\n' "$1" >&2
        cat "$work/found" >&2
        failed=1
    fi
}

"$readelf" -SW "$static" >"$work/sections"
grep -q '\.text' "$work/sections" || {
    printf 'no sections found in %s\n' "$static" >&2
    exit 1
}
awk '/^File: / { object = $2 } / \.(init_array|ctors|fini_array|dtors)/ { print object }' \
    "$work/sections" | sort -u >"$work/found"
found "objects with an initialiser"

"$nm" -A -u "$static" | awk '$NF == "__cxa_atexit" || $NF == "atexit" { print $1 }' | sort -u \
    >"$work/found"
found "objects that register a destructor for the end of the process"
exit $failed
