# Sourced by the scripts beside it: places, messages, small helpers.
# shellcheck shell=bash

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
# shellcheck disable=SC2034
cache=${LUMARO_CACHE_DIR:-${XDG_CACHE_HOME:-${HOME:-/root}/.cache}/lumaro-render}

say() { printf '\033[1m== %s\033[0m\n' "$*"; }

# die MESSAGE…: what is missing and, after it, what to do about it.
die() {
    printf '%s: %s\n' "${0##*/}" "$1" >&2
    shift
    (($# == 0)) || printf '  %s\n' "$@" >&2
    exit 1
}

# configure_and_build PRESET [TARGET…]: the whole preset, or only these targets.
configure_and_build() {
    local preset=$1
    shift
    local log=$root/build/$preset/configure.log
    mkdir -p "$root/build/$preset"
    say "$preset: configuring"
    if ! (cd "$root" && cmake --preset "$preset") >"$log" 2>&1; then
        cat "$log" >&2
        printf '%s: cmake could not configure the preset %s (output above, also in %s)\n' \
            "${0##*/}" "$preset" "$log" >&2
        return 1
    fi
    say "$preset: building"
    (cd "$root" && cmake --build --preset "$preset" ${1:+--target "$@"})
}
