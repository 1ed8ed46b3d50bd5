# SPDX-License-Identifier: MIT
# Shared by the run-* commands: what the build needs on a Debian 12 machine. Sourced, not run.
set -euo pipefail
if [ "${1:-}" = --help ] || [ "${1:-}" = -h ]; then
    # The command's own head, without the line of its licence.
    sed -n '3,/^[^#]/s/^# \{0,1\}//p' "$0"
    exit 0
fi
called_from=$PWD
cd "$(dirname "${BASH_SOURCE[0]}")/.."

die() {
    printf '%s: %s\n' "${0##*/}" "$*" >&2
    exit 1
}

# need PACKAGE...: installs those that are missing and leaves the rest alone. Where that cannot be done,
# one line says why and what root has to type.
need() {
    local missing=() package
    for package in "$@"; do
        dpkg-query -W -f '${db:Status-Status}\n' "$package" 2>/dev/null | grep -qx installed \
            || missing+=("$package")
    done
    [ "${#missing[@]}" -gt 0 ] || return 0
    command -v apt-get >/dev/null \
        || die "these packages are missing and there is no apt-get: ${missing[*]}"
    local log as_root=() reason=
    log=$(mktemp)
    if [ "$(id -u)" -ne 0 ]; then
        as_root=(sudo)
        if ! command -v sudo >/dev/null; then
            reason='there is no sudo'
        elif ! sudo true >"$log" 2>&1 </dev/null; then
            reason=$(tail -n 1 "$log")
        fi
    fi
    if [ -z "$reason" ]; then
        printf 'Installing %s (a minute or two)\n' "${missing[*]}" >&2
        if ! { "${as_root[@]}" apt-get update -qq \
            && "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
                apt-get install -y -qq --no-install-recommends "${missing[@]}"; } >"$log" 2>&1 </dev/null; then
            # Without a network the first error is about a package; the warning before it tells why.
            reason=$(sed -n '/^[EW]: Failed to fetch /{s/.* \{2\}//p;q}' "$log")
            [ -n "$reason" ] || reason=$(grep -m 1 '^E:' "$log" || tail -n 1 "$log")
        fi
    fi
    rm -f "$log"
    [ -z "$reason" ] || die "cannot install what is missing ($reason); as root:" \
        "apt-get update && apt-get install --no-install-recommends ${missing[*]}"
}

# build PRESET [TARGET...]: configures and builds. Tells how far it is on a terminal, else one line;
# what went wrong when it fails.
build() {
    local preset=$1 log
    shift
    log=$(mktemp)
    if ! { cmake --preset "$preset" && cmake --build --preset "$preset" ${1:+--target "$@"}; } 2>&1 \
        | tee "$log" | progress "$preset"; then
        grep -E -A 5 'error:|Error|FAILED' "$log" >&2 || tail -n 40 "$log" >&2
        rm -f "$log"
        die "the build of preset $preset failed"
    fi
    rm -f "$log"
}

# progress PRESET: makes one line of Ninja's "[done/all] what".
progress() {
    local line begun=
    while IFS= read -r line; do
        [[ $line =~ ^\[([0-9]+)/([0-9]+)\] ]] || continue
        if [ -t 2 ]; then
            printf '\r\033[KBuilding preset %s: %d of %d' "$1" "${BASH_REMATCH[1]}" \
                "${BASH_REMATCH[2]}" >&2
        elif [ -z "$begun" ]; then
            printf 'Building preset %s: %d steps\n' "$1" "${BASH_REMATCH[2]}" >&2
        fi
        begun=1
    done
    if [ -n "$begun" ] && [ -t 2 ]; then
        printf '\r\033[K' >&2
    fi
}

toolchain=(g++ cmake ninja-build)
for_tests=(libgtest-dev googletest)
