#!/bin/bash
# Installs the Debian packages of its arguments that are not there yet.
set -euo pipefail

if [[ $# -eq 0 || $1 == -* ]]; then
    echo "Usage: scripts/packages.sh PACKAGE..."
    [[ ${1:-} == --help || ${1:-} == -h ]] && exit 0
    exit 2
fi
if ! command -v dpkg-query > /dev/null; then
    echo "This is not a Debian system. Install the equivalents of these Debian packages: $*" >&2
    exit 1
fi

missing=()
for package in "$@"; do
    state=$(dpkg-query -W -f '${db:Status-Status}' "$package" 2> /dev/null || true)
    [[ $state == installed ]] || missing+=("$package")
done
[[ ${#missing[@]} -eq 0 ]] && exit 0

as_root=()
if [[ $EUID -ne 0 ]]; then
    # On a terminal sudo may ask for the password.
    if ! sudo -n true 2> /dev/null && ! { [[ -t 0 ]] && sudo -v; }; then
        echo "Packages are missing. Please run: sudo apt-get install ${missing[*]}" >&2
        exit 1
    fi
    as_root=(sudo -n)
fi
echo "Installing packages: ${missing[*]}"
output=$(mktemp)
trap 'rm -f "$output"' EXIT
if ! { "${as_root[@]}" apt-get update &&
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y --no-install-recommends "${missing[@]}"; } > "$output" 2>&1; then
    tail -n 20 "$output" >&2
    echo "The packages could not be installed: ${missing[*]}. Please install them, then try again." >&2
    exit 1
fi
