# SPDX-License-Identifier: MIT
# Shared by the run-* commands: what the build needs on a Debian 12 machine. Sourced, not run.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

die() {
    printf '%s: %s\n' "${0##*/}" "$*" >&2
    exit 1
}

# need PACKAGE...: installs those that are missing and leaves the rest alone.
need() {
    local missing=() package
    for package in "$@"; do
        dpkg-query -W -f '${db:Status-Status}\n' "$package" 2>/dev/null | grep -qx installed \
            || missing+=("$package")
    done
    [ "${#missing[@]}" -gt 0 ] || return 0
    command -v apt-get >/dev/null \
        || die "these packages are missing and there is no apt-get: ${missing[*]}"
    local as_root=()
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || die "run as root, or install sudo; missing: ${missing[*]}"
        as_root=(sudo)
    fi
    printf 'Installing %s\n' "${missing[*]}"
    local log
    log=$(mktemp)
    if ! { "${as_root[@]}" apt-get update -qq \
        && "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
            apt-get install -y -qq --no-install-recommends "${missing[@]}"; } >"$log" 2>&1 </dev/null; then
        local reason
        reason=$(grep -m 1 '^E:' "$log" || tail -n 1 "$log")
        rm -f "$log"
        die "cannot install ${missing[*]}: $reason"
    fi
    rm -f "$log"
}

# build PRESET [TARGET...]: configures and builds; prints nothing unless it fails.
build() {
    local preset=$1 log
    shift
    log=$(mktemp)
    if ! { cmake --preset "$preset" && cmake --build --preset "$preset" ${1:+--target "$@"}; } >"$log" 2>&1; then
        grep -E -A 5 'error|Error|FAILED' "$log" >&2 || tail -n 40 "$log" >&2
        rm -f "$log"
        die "the build of preset $preset failed"
    fi
    rm -f "$log"
}

toolchain=(g++ cmake ninja-build)
