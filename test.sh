#!/usr/bin/env bash
# Builds katd for 64 and 32 bits and under the sanitizers, runs every test, and has the sources looked at.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"

all=(release release32 asan tsan lint bench)

usage() {
    cat <<END
usage: test.sh [--long] [STEP...]

Installs what the tests need (Debian packages) and goes through the steps, all of them without arguments:

  release, release32, asan, tsan   builds that preset below build/ and runs its tests (also: debug)
  lint                             compiles with clang, runs clang-tidy (on the tools with --long alone) and shellcheck
  bench                            runs each bench for a moment

--long then tries every fault and stresses the daemon at full size, on 64 and on 32 bits, fuzzes each reader of
outside bytes for five minutes, and tries the Debian packages in systems of their own: about an hour in all.
END
}

# A report of a sanitizer goes to a file, so that none is lost with a process that ends at once; the exit status
# is one that katd does not use.
reports=$PWD/build/reports
sanitizer_options() {
    echo "log_path=$reports/$1:exitcode=99:abort_on_error=0:halt_on_error=1"
}

# Runs a command quietly; what it printed is shown when it fails.
quietly() {
    local log=build/$1.log
    shift
    "$@" >"$log" 2>&1 || {
        tail -n 60 "$log"
        return 1
    }
}

run_preset() {
    local preset=$1
    rm -rf "$reports"
    mkdir -p "$reports"
    local options=()
    # The corpus of the fuzzers is replayed where a fault in memory shows.
    [ "$preset" = asan ] && options=(-DKATD_FUZZ=ON)
    # The step bench builds and tries the programs of the 64-bit release.
    [ "$preset" = release32 ] && options=(-DKATD_BENCH=OFF)
    echo "== $preset: building"
    quietly "$preset.configure" cmake --preset "$preset" "${options[@]}" &&
        quietly "$preset.build" cmake --build "build/$preset" || return 1
    echo "== $preset: testing"
    ASAN_OPTIONS="$(sanitizer_options asan):verify_asan_link_order=0:detect_stack_use_after_return=1" \
        UBSAN_OPTIONS="$(sanitizer_options ubsan):print_stacktrace=1" \
        TSAN_OPTIONS="$(sanitizer_options tsan):second_deadlock_stack=1" \
        ctest --test-dir "build/$preset" --output-on-failure --parallel 3 || return 1
    if [ -n "$(ls "$reports")" ]; then
        echo "== $preset: reports of a sanitizer"
        head -n 60 "$reports"/*
        return 1
    fi
}

run_lint() {
    echo "== lint: compiling with clang"
    quietly lint.configure cmake --preset release -B build/lint -DCMAKE_CXX_COMPILER=clang++ -DKATD_TESTS=OFF \
        -DKATD_LTO=OFF -DKATD_HARDEN=OFF -DKATD_BENCH=OFF -DCMAKE_CXX_FLAGS_RELEASE=-O0 &&
        quietly lint.build cmake --build build/lint || return 1
    echo "== lint: clang-tidy and shellcheck"
    git ls-files '*.sh' .ci/run | xargs shellcheck || return 1
    # The tools beside the daemon take it as long as all the rest: --long alone looks at them.
    local folders=(daemon modules engine libkatclient)
    [ -z "$long" ] || folders+=(client katlist tools)
    git ls-files "${folders[@]/%//*.cpp}" |
        quietly lint.tidy xargs -P2 -n1 clang-tidy -p build/lint --quiet
}

# Every fault and stress at full size, by the program itself: a test of ctest may take two minutes, not an hour.
run_long() {
    local preset
    for preset in release release32; do
        echo "== $preset: every fault, stress at full size"
        KATD_TESTS_LONG=1 "build/$preset/tests/fault_tests" || return 1
    done
    fuzz/run.sh 300 && tests/packaging/packages_test.sh
}

steps=()
long=
for argument in "$@"; do
    case "$argument" in
        -h | --help)
            usage
            exit 0
            ;;
        --long) long=yes ;;
        release | release32 | asan | tsan | debug | lint | bench) steps+=("$argument") ;;
        *)
            usage >&2
            exit 2
            ;;
    esac
done
[ ${#steps[@]} -gt 0 ] || steps=("${all[@]}")

scripts/packages.sh cmake ninja-build g++ g++-multilib googletest libcli11-dev nlohmann-json3-dev libbenchmark-dev clang clang-tidy shellcheck squid curl busybox mandoc systemd
mkdir -p build
failed=()
for step in "${steps[@]}"; do
    SECONDS=0
    case "$step" in
        lint) run_lint || failed+=("$step") ;;
        bench) quietly bench ./bench.sh --quick || failed+=("$step") ;;
        *) run_preset "$step" || failed+=("$step") ;;
    esac
    echo "== $step: ${SECONDS} s"
done
if [ -n "$long" ]; then
    { quietly long.configure32 cmake --preset release32 && quietly long.configure cmake --preset release &&
        quietly long.build32 cmake --build build/release32 && quietly long.build cmake --build build/release &&
        run_long; } || failed+=(long)
fi

if [ ${#failed[@]} -gt 0 ]; then
    echo "== failed: ${failed[*]}"
    exit 1
fi
echo "== all passed: ${steps[*]}"
