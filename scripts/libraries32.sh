#!/usr/bin/env bash
# Fetches the 32-bit libraries of the catalogue programs into build/i386.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. scripts/lib.sh

if [[ $# -gt 0 ]]; then
    cat << 'END'
Usage: scripts/libraries32.sh

Downloads the Debian packages for i386 of the libraries that the catalogue programs need, unpacks them below build/i386
and prints the folder of the libraries. i386 does not become an architecture of this system, and apt's own files stay
as they are. On failure, which is no obstacle to building the rest for 32 bits, prints nothing on standard output.

Exit status: 0 the libraries are there; 1 they could not be fetched; 2 bad usage.
END
    [[ $# -eq 1 && ($1 == --help || $1 == -h) ]] && exit 0
    exit 2
fi

packages=(libhiredis-dev libidn2-0 libidn2-dev liblmdb0 liblmdb-dev libpsl5 libpsl-dev libunistring2)
folder=$PWD/build/i386
libraries=$folder/usr/lib/i386-linux-gnu
[[ ! -e $folder/complete ]] || { echo "$libraries" && exit 0; }

make_scratch
chmod 755 "$scratch" # apt downloads as a user of its own
mkdir -p "$scratch"/{lists,cache/archives}/partial "$scratch/packages"
options=(-o APT::Architectures::=i386 -o "Dir::State::Lists=$scratch/lists" -o "Dir::Cache=$scratch/cache"
    -o Dir::State::Status=/dev/null -o APT::Sandbox::User=root)
fetch() {
    # A mirror that is just being updated can lack one list, which need not be the one with these packages.
    apt-get "${options[@]}" update || true
    (cd "$scratch/packages" && apt-get "${options[@]}" download "${packages[@]/%/:i386}")
}
fetch > "$scratch/output" 2>&1 || {
    tail -n 5 "$scratch/output" >&2
    fail "the 32-bit libraries of the catalogue programs could not be fetched"
}
rm -rf "$folder"
for package in "$scratch"/packages/*.deb; do
    dpkg-deb -x "$package" "$folder"
done
touch "$folder/complete"
echo "$libraries"
