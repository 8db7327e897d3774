#!/bin/sh
# Compares what the shared library exports with the checked-in lists, in both directions.
#
#   exported_names.sh NM LIBRARY VERSION_SCRIPT LIST_FOLDER
#
# exported_names.txt  every name of the boundary
# weak_names.txt      those of them that a program may define itself: the platform interface
set -eu
LC_ALL=C
export LC_ALL

nm=$1 library=$2 map=$3 lists=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0

# same WHAT EXPECTED ACTUAL: two sorted lists of names must be equal.
same() {
    missing=$(comm -23 "$2" "$3")
    extra=$(comm -13 "$2" "$3")
    if [ -n "$missing" ]; then
        printf '%s: missing:\n%s\n' "$1" "$missing" >&2
        failed=1
    fi
    if [ -n "$extra" ]; then
        printf '%s: unexpected:\n%s\n' "$1" "$extra" >&2
        failed=1
    fi
}

for list in exported weak; do
    sort -cu "$lists/${list}_names.txt" || failed=1
    comm -23 "$lists/${list}_names.txt" "$lists/exported_names.txt" >"$work/strangers"
    same "${list}_names.txt, beside exported_names.txt" /dev/null "$work/strangers"
done

# An instrumented library carries symbols of the instrumentation; the version is a symbol, too.
"$nm" -D --defined-only "$library" >"$work/nm"
awk '$NF !~ /^__(asan|odr_asan|ubsan)/ && $NF !~ /^WQEVENTS_1(@@WQEVENTS_1)?$/ {
    print $(NF - 1), $NF
}' "$work/nm" >"$work/symbols"

# Every name carries the version node.
awk '$2 !~ /@@WQEVENTS_1$/ { print $2 }' "$work/symbols" | sort >"$work/unversioned"
same "names without the version WQEVENTS_1" /dev/null "$work/unversioned"

sed 's/@.*//' "$work/symbols" >"$work/plain"
awk '{ print $2 }' "$work/plain" | sort >"$work/actual"
same "names that the library exports" "$lists/exported_names.txt" "$work/actual"

awk '$1 == "W" || $1 == "V" { print $2 }' "$work/plain" | sort >"$work/weak_actual"
same "names that are weak" "$lists/weak_names.txt" "$work/weak_actual"

# The version script names the whole boundary, without a pattern but for the local ones.
sed -e 's,/\*.*\*/,,' -e '/^local:/,$d' "$map" | sed -n 's/^ *\([^ ;]*\);$/\1/p' | sort \
    >"$work/mapped"
same "names in the version script" "$lists/exported_names.txt" "$work/mapped"

exit $failed
