#!/bin/sh
# Checks that the shared library's calls reach its own functions, the platform's apart: no relocation
# may name an exported function unless it is weak, and the weak ones that objects call must have one.
#
#   own_calls.sh NM READELF SHARED_LIBRARY STATIC_LIBRARY
set -eu
LC_ALL=C
export LC_ALL

nm=$1 readelf=$2 shared=$3 static=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0

"$nm" -D --defined-only "$shared" | sed 's/@.*//' >"$work/symbols"
awk '$2 == "T" && $3 !~ /^__(asan|odr_asan|ubsan)/ { print $3 }' "$work/symbols" | sort >"$work/own"
awk '$2 == "W" { print $3 }' "$work/symbols" | sort >"$work/replaceable"
"$readelf" -rW "$shared" | awk '$5 ~ /@/ { sub("@.*", "", $5); print $5 }' | sort -u >"$work/looked_up"
"$nm" -u "$static" | awk '$1 == "U" { print $2 }' | sort -u >"$work/called"

comm -12 "$work/own" "$work/looked_up" >"$work/found"
if [ -s "$work/found" ]; then
    printf 'names of its own that the library looks up by name:\n' >&2
    cat "$work/found" >&2
    failed=1
fi

comm -12 "$work/replaceable" "$work/called" | comm -23 - "$work/looked_up" >"$work/found"
if [ -s "$work/found" ]; then
    printf 'functions of the platform that a program cannot replace:\n' >&2
    cat "$work/found" >&2
    failed=1
fi

# Both lists are empty when a tool printed nothing.
if [ ! -s "$work/own" ] || [ ! -s "$work/replaceable" ] || [ ! -s "$work/looked_up" ]; then
    printf 'no symbols found in %s\n' "$shared" >&2
    failed=1
fi
exit $failed
