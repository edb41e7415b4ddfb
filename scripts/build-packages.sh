#!/usr/bin/env bash
# Builds the Debian packages from a copy of the tree.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

usage() {
    cat << 'END'
Usage: scripts/build-packages.sh [--no-lint] [amd64|i386]...

Builds the Debian packages for these architectures, or for this machine's, from a copy of the tree; they come to lie
in build/packages. What the build needs is installed before; lintian judges the packages. i386 packages are built on
amd64 by the same compiler.

  --no-lint  leave lintian out
  -h, --help print this

Exit status: 0 built, and lintian has no error; 1 not; 2 bad usage.
END
}

lint=yes
architectures=()
for argument in "$@"; do
    case "$argument" in
        -h | --help)
            usage
            exit 0
            ;;
        --no-lint) lint= ;;
        amd64 | i386) architectures+=("$argument") ;;
        *)
            usage >&2
            exit 2
            ;;
    esac
done
native=$(dpkg --print-architecture)
[[ ${#architectures[@]} -gt 0 ]] || architectures=("$native")

packages=(cmake ninja-build g++ libcli11-dev nlohmann-json3-dev debhelper dpkg-dev fakeroot)
[[ -z $lint ]] || packages+=(lintian)
for architecture in "${architectures[@]}"; do
    [[ $architecture == "$native" ]] || packages+=(g++-multilib binutils-i686-linux-gnu)
done
scripts/packages.sh "${packages[@]}"

build() {
    local architecture=$1
    local folder=build/packages/$architecture
    rm -rf "$folder" build/packages/*_"$architecture".deb
    mkdir -p "$folder/katd"
    # dpkg-buildpackage writes into the tree and beside it.
    tar --exclude=./build --exclude=./.git -cf - . | tar -C "$folder/katd" -xf -
    # The build dependencies of i386 would be packages of i386: what stands above is what is needed.
    if ! (cd "$folder/katd" && DEB_BUILD_OPTIONS="${DEB_BUILD_OPTIONS:-} parallel=$(nproc)" \
        dpkg-buildpackage -b -us -uc -d "-a$architecture") > "$folder/build.log" 2>&1; then
        tail -n 40 "$folder/build.log" >&2
        echo "build-packages.sh: the packages for $architecture were not built; all output is in $folder/build.log" >&2
        return 1
    fi
    rm -rf "$folder/katd"
    [[ -z $lint ]] || lintian --allow-root --fail-on error --tag-display-limit 0 "$folder"/*.changes || return 1
    mv "$folder"/*.deb build/packages
}

for architecture in "${architectures[@]}"; do
    echo "Building the packages for $architecture"
    build "$architecture" || exit 1
    ls build/packages/*_"$architecture".deb
done
