#!/usr/bin/env bash
# Builds katd and its bench, and measures.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"

usage() {
    cat <<'END'
Usage: ./bench.sh [OPTION]... [NAME]...

Installs what the build needs (Debian packages), builds the presets release and release32, and runs
the benches, all of them without names: about 15 minutes. The machine should have nothing else to do.

  wire     throughput on the socket against servers that make the system calls alone
  lookup   the searches in a list against the plain binary search; the normalisation of a URL
  load     loading a list against copying its items
  reload   answers during a reload, and its memory
  clients  what a connection costs, and how many there can be
  engine   an answer of the engine against a server that calls it directly
  helper   katc as a proxy's helper
  log      a message against the system calls of its records

  --quick          a moment for each, on small lists and 64 bits alone: only whether they still run
  --document FILE  put tables and plots into FILE, as docs/performance.md is made
  --rounds N       rounds of each measurement; 7 by default
  --seconds S      of each measurement in a round; 1 by default
  --cpu            rates by the processor's time, not by the clock: for a machine that is not quiet
  --help           print this

Exit status: 0 all aims reached, 1 one was missed or something failed, 2 bad usage.
END
}

quick=
arguments=()
for argument in "$@"; do
    case $argument in
        -h | --help)
            usage
            exit 0
            ;;
        --quick) quick=yes ;;
    esac
    arguments+=("$argument")
done

presets=(release)
packages=(cmake ninja-build g++ googletest libcli11-dev nlohmann-json3-dev libbenchmark-dev python3 gnuplot-nox)
if [[ -z $quick ]]; then
    presets+=(release32)
    packages+=(g++-multilib)
    arguments+=(--build32 build/release32)
fi
scripts/packages.sh "${packages[@]}"

mkdir -p build
for preset in "${presets[@]}"; do
    log=build/$preset.bench.log
    echo "Building $preset"
    if ! { cmake --preset "$preset" -DKATD_BENCH=ON &&
        cmake --build "build/$preset" --target bench_programs; } >"$log" 2>&1; then
        tail -n 30 "$log" >&2
        echo "bench.sh: the build failed; all of its output is in $log" >&2
        exit 1
    fi
done
exec bench/run.py --build build/release "${arguments[@]}"
