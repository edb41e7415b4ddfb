#!/usr/bin/env bash
# Builds the Debian packages from a copy of the tree.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. scripts/lib.sh

usage() {
    cat << 'END'
Usage: scripts/build-packages.sh [--no-lint] [amd64|i386]...

Builds the Debian packages for these architectures, by default for that of this machine, from a copy of the tree, and
puts them into build/packages. Installs what the build needs first; lintian checks the packages at the end. The
packages for i386 are built on amd64 by the same compiler.

  --no-lint   leave lintian out
  -h, --help  print this

Exit status: 0 packages built, and lintian found no error; 1 failure; 2 bad usage.
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

packages=("${build_packages[@]}" debhelper dpkg-dev fakeroot)
[[ -z $lint ]] || packages+=(lintian)
for architecture in "${architectures[@]}"; do
    [[ $architecture == "$native" ]] || packages+=(g++-multilib binutils-i686-linux-gnu)
done
scripts/packages.sh "${packages[@]}"
libraries32=
[[ " ${architectures[*]} " != *i386* || $native == i386 ]] || libraries32=$(scripts/libraries32.sh) ||
    echo "The packages for i386 get no catalogue."

# The build dependencies in debian/control would have to be packages of i386 for i386; the list above replaces them.
# Only debian/control has the maintainer's address.
make_packages() {
    cd "$1/katd"
    sed -i "s/^ -- .*<>/ -- $(sed -n 's/^Maintainer: //p' debian/control)/" debian/changelog
    [[ $architecture == "$native" ]] || export KATD_LIBRARIES_32=$libraries32
    DEB_BUILD_OPTIONS="${DEB_BUILD_OPTIONS:+$DEB_BUILD_OPTIONS }parallel=$(nproc)" dpkg-buildpackage -b -us -uc -d "-a$architecture"
}

for architecture in "${architectures[@]}"; do
    folder=build/packages/$architecture
    log=$folder/build.log
    rm -rf "$folder" build/packages/*_"$architecture".deb
    mkdir -p "$folder/katd"
    # dpkg-buildpackage writes into the tree and beside it.
    tar --exclude=./build --exclude=./.git -cf - . | tar -C "$folder/katd" -xf -
    say "Building the packages for $architecture (output in $log)"
    (make_packages "$folder") 2>&1 | tee "$log" |
        sed -unE -e 's/^[[:space:]]*(dh_auto_(configure|build|install)|dh_strip|dh_builddeb)( .*)?$/   \1/p' \
            -e 's/^-- (Left out:)/   \1/p' || {
        tail -n 40 "$log" >&2
        fail "the packages for $architecture were not built; all output is in $log"
    }
    rm -rf "$folder/katd"
    if [[ -n $lint ]]; then
        echo "   lintian"
        lintian --allow-root --fail-on error --tag-display-limit 0 "$folder"/*.changes || exit 1
    fi
    mv "$folder"/*.deb build/packages
    ls build/packages/*_"$architecture".deb
done
