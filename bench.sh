#!/usr/bin/env bash
# Builds katd and its benchmarks, and measures.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
. scripts/bits32.sh

usage() {
    cat <<'END'
Usage: ./bench.sh [OPTION]... [NAME]...

Installs what the build needs (Debian packages), builds the presets release and release32, and runs the benchmarks, by
default all of them: about 25 minutes. The machine should be otherwise idle. A kernel that runs no 32-bit programs
measures 64 bits only.

  wire     throughput on the socket, compared with servers that only make the system calls
  lookup   searching a list, compared with a plain binary search; normalising a URL
  load     loading a list, compared with copying its items
  reload   answers and memory during a reload
  clients  memory of a connection, and how many there can be
  engine   an answer of the engine, compared with a server that calls it directly
  helper   katc as a proxy's helper
  log      a message, compared with the system calls that write it
  catalog  a catalogue of 5,000,000 hosts, compared with LMDB alone; katd and its helper with the engine that answers
           from it, compared with servers that only make the system calls; answers while it is changed
  http     katd-http, compared with its HTTP server alone

  --quick          run each briefly, on small lists and 64 bits only, without judging the figures
  --document FILE  put the tables and plots into FILE, as docs/performance.md is made
  --rounds N       rounds of each measurement, 7 by default
  --seconds S      seconds of each measurement in a round, 1 by default
  --cpu            rates by processor time instead of wall-clock time, for a machine that is not idle
  --help           print this

Exit status: 0 all targets reached; 1 one was missed, or a program failed; 2 bad usage.
END
}

quick=
document=
for argument in "$@"; do
    case $argument in
        -h | --help)
            usage
            exit 0
            ;;
        --quick) quick=yes ;;
        --document*) document=yes ;;
    esac
done

arguments=(--build build/release "$@")
presets=(release)
scripts/packages.sh "${build_packages[@]}" googletest libbenchmark-dev python3 gnuplot-nox wrk
if [[ -z $quick ]]; then
    scripts/packages.sh g++-multilib
    if kernel_runs_32_bits; then
        presets+=(release32)
        arguments+=(--build32 build/release32)
    elif [[ -n $document ]]; then
        fail "--document needs the figures of 32 bits, and this kernel runs no 32-bit programs"
    else
        echo "32 bits are not measured: this kernel runs no 32-bit programs"
    fi
fi

for preset in "${presets[@]}"; do
    echo "Building $preset"
    build "build/$preset" "$preset" bench_programs -DKATD_BENCH=ON || exit 1
done
exec bench/run.py "${arguments[@]}"
