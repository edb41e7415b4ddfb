#!/usr/bin/env bash
# Builds katd and loads it for as long as one likes, judging every answer.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"

usage() {
    cat <<'END'
Usage: ./soak.sh [MINUTES [PRESET]]

Installs what the build needs (Debian packages), builds the preset below build/, and starts katd with
the stand-in engine in a home of its own, under the load of clients good and bad. Every few seconds it
prints a line; Ctrl-C ends it early. Status 1 when an answer was wrong, a log record was torn or lost,
a cache file was not whole, katd ended, or threads, descriptors or memory have grown.

  MINUTES  how long, 0.2 for instance; 1 by default
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

packages=(cmake ninja-build g++ googletest libcli11-dev)
[[ $preset == release32 ]] && packages+=(g++-multilib)
scripts/packages.sh "${packages[@]}"

mkdir -p build
log=build/$preset.soak.log
echo "Building $preset"
if ! { cmake --preset "$preset" && cmake --build "build/$preset" --target soak; } >"$log" 2>&1; then
    tail -n 30 "$log" >&2
    echo "soak.sh: the build failed; all of its output is in $log" >&2
    exit 1
fi
exec "build/$preset/soak/soak" "$minutes"
