#!/bin/sh
# Whoever builds from source by another compiler gets its warnings, not an end of the build; the
# presets, which CI builds, take warnings for errors. Configures only, in a folder of its own.
set -eu

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    printf '%s\n' "$1" >&2
    exit 1
}

"$CMAKE" -S "$ROOT" -B "$work" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DWQEVENTS_SANITIZE=ON >"$work/log" ||
    fail "$(cat "$work/log")"
grep -q -e '-Wshadow' "$work/compile_commands.json" || fail "no warnings without a preset"
if grep -q -e '-Werror' "$work/compile_commands.json"; then
    fail "warnings are errors without a preset"
fi

cd "$ROOT"
for preset in release debug asan coverage fuzz; do
    "$CMAKE" --preset "$preset" -N | grep -q 'WQEVENTS_WERROR="ON"' ||
        fail "warnings are no errors in the preset $preset"
done
