# shellcheck shell=bash
# What the scripts share. Sourced from the root of the tree, never run.

program=script/$(basename "$0")

say() {
    printf '==> %s\n' "$*"
}

warn() {
    printf '%s: %s\n' "$program" "$*" >&2
}

die() {
    warn "$*"
    exit 1
}

usage_error() {
    warn "$*"
    printf 'Try "%s --help".\n' "$program" >&2
    exit 2
}

# need COMMAND GROUP: stops with the remedy where a command is missing.
need() {
    command -v "$1" >/dev/null || die "$1 is missing: run \"script/bootstrap $2\" first"
}

cores() {
    nproc 2>/dev/null || echo 2
}

presets() {
    sed -n '/"configurePresets"/,/"buildPresets"/s/.*"name": "\([a-z]*\)".*/\1/p' \
        CMakePresets.json | grep -v '^base$'
}

check_preset() {
    local names
    names=$(presets | paste -sd ' ')
    [[ " $names " == *" $1 "* ]] || usage_error "no preset \"$1\"; there are: $names"
}

# The folder that a preset builds in.
build_folder() {
    if [[ $1 == release ]]; then echo build; else echo "build-$1"; fi
}

# Files of the tree, NUL-terminated: those that git knows or would add; all outside a checkout.
# Arguments are patterns such as '*.cpp'.
tree_files() {
    local pattern names=()
    if git rev-parse --is-inside-work-tree >/dev/null 2>&1; then
        git ls-files -z --cached --others --exclude-standard -- "$@" | existing_files
        return
    fi
    for pattern in "$@"; do
        case $pattern in
            \*) names+=(-o -name '*') ;;
            \*.*) names+=(-o -name "$pattern") ;;
            *) names+=(-o -path "./$pattern") ;;
        esac
    done
    find . \( -path './build*' -o -path ./.git \) -prune -o -type f \( "${names[@]:1}" \) -printf '%P\0'
}

existing_files() {
    local name
    while IFS= read -r -d '' name; do
        if [[ -f $name ]]; then printf '%s\0' "$name"; fi
    done
}
