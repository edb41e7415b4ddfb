#!/usr/bin/env bash
# Builds katd and loads it for a given time, verifying every answer.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
. scripts/bits32.sh

usage() {
    cat << 'END'
Usage: ./soak.sh [MINUTES [PRESET]]

Installs what the build needs (Debian packages), builds the preset below build/, and starts katd with the stand-in
engine in a home directory of its own, under the load of well-behaved and misbehaving clients. Prints a line every few
seconds; Ctrl-C ends it early. Status 1 if an answer was wrong, a log record was torn or lost, a cache file was
incomplete, katd ended, or threads, descriptors or memory have grown.

  MINUTES  how long, for instance 0.2; 1 by default
  PRESET   release (the default), release32, debug, asan or tsan
  --help   print this
END
}

minutes=${1:-1}
preset=${2:-release}
if [[ $minutes == -h || $minutes == --help ]]; then
    usage
    exit 0
fi
if [[ $# -gt 2 || ! $minutes =~ ^[0-9]+(\.[0-9]+)?$ || ! $preset =~ ^(release|release32|debug|asan|tsan)$ ]]; then
    usage >&2
    exit 2
fi

packages=("${build_packages[@]}" googletest)
[[ $preset != release32 ]] || packages+=(g++-multilib)
scripts/packages.sh "${packages[@]}"
[[ $preset != release32 ]] || kernel_runs_32_bits ||
    fail "this kernel runs no 32-bit programs; an emulator's threads and memory would be measured with katd's"
echo "Building $preset"
build "build/$preset" "$preset" soak || exit 1
exec "build/$preset/soak/soak" "$minutes"
