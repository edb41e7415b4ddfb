#!/usr/bin/env bash
# Builds katd for 64 and 32 bits and under the sanitizers, runs all tests and checks the sources.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
. scripts/bits32.sh

all=(sizes release release32 asan tsan lint bench)
test_jobs=$(($(nproc) * 2)) # many tests mostly wait
size_limit=34 # per cent of the product code that tests/ may have

usage() {
    cat << 'END'
Usage: ./test.sh [--long] [STEP...]
       ./test.sh --sizes

Installs what the tests need (Debian packages) and runs the steps, by default all of them except debug:

  sizes                                   compare the size of tests/ with that of the product code
  release, release32, asan, tsan, debug   build that preset below build/ and run its tests
  lint                                    clang's warnings; clang-tidy (on the tools only with --long), shellcheck
  bench                                   run each benchmark briefly

  --long   then run the fault and stress tests at full size, for 64 and 32 bits; fuzz each reader of outside bytes for
           five minutes; install and try the Debian packages in chroots: about an hour
  --sizes  only print the lines of code of each folder, and the share of the tests
  --help   print this

Where the kernel runs no 32-bit programs, qemu-user runs the tests of release32, except those that it cannot imitate.
KATD_RUN32=native, qemu or none in the environment overrides what the script finds out.

Exit status: 0 all steps passed; 1 one failed; 2 bad usage.
END
}

# Prints the lines of the files named on standard input (separated by zero bytes); blank lines and lines with nothing
# but a // comment do not count.
lines_of_code() { xargs -0 -r cat | grep -cvE '^[[:space:]]*(//.*)?$' || true; }

# lines_by_folder DEPTH PATHSPEC...: "LINES FOLDER" for each folder, and the total, which it leaves in $total.
lines_by_folder() {
    local depth=$1 folder lines
    shift
    total=0
    while read -r folder; do
        lines=$(git ls-files -z -- "$@" | grep -zE "^$folder(/|\$)" | lines_of_code)
        printf '%7d  %s\n' "$lines" "$folder"
        total=$((total + lines))
    done < <(git ls-files -- "$@" | cut -d/ -f"1-$depth" | sort -u)
}

run_sizes() {
    local product share
    lines_by_folder 1 '*.cpp' '*.h' '*.hpp' '*.c' ':!tests' ':!bench' ':!fuzz'
    product=$total
    lines_by_folder 2 tests
    share=$((total * 1000 / product))
    printf 'product %d, tests %d: %d.%d %% (at most %d %%)\n' "$product" "$total" $((share / 10)) $((share % 10)) \
        "$size_limit"
    ((share <= size_limit * 10))
}

# The sanitizers report to files, so that no report is lost with a process that ends at once. The exit status is one
# that katd does not use.
reports=$PWD/build/reports
sanitizer_options() {
    echo "log_path=$reports/$1:exitcode=99:abort_on_error=0:halt_on_error=1"
}

# count_tests PRESET CTEST-OPTION...
count_tests() { ctest --test-dir "build/$1" -N "${@:2}" | sed -n 's/^Total Tests: //p'; }

# The lists of tests that qemu cannot run must name tests that exist, on every machine.
check_lists32() {
    local name
    for name in "${qemu_lacks_programs[@]}" "${nested_programs[@]}"; do
        [[ $name != katcatalog_tests || -n $LD_LIBRARY_PATH ]] || continue # left out
        [[ $(count_tests release32 --label-regex "^$name\$") -gt 0 ]] || fail "scripts/bits32.sh: no tests in $name"
    done
    for name in "${qemu_lacks_tests[@]}" "${nested_tests[@]}"; do
        [[ $name != @(Push|Sync)Test* || -n $LD_LIBRARY_PATH ]] || continue # left out
        [[ $(count_tests release32 --tests-regex "^$name\$") -gt 0 ]] || fail "scripts/bits32.sh: no test $name"
    done
}

run_preset() {
    local preset=$1 options=() selection=() count libraries failure=
    rm -rf "$reports"
    mkdir -p "$reports"
    case $preset in
        # Replays the fuzzers' corpora, where memory errors show.
        asan) options=(-DKATD_FUZZ=ON) ;;
        # The longest of the tests that start no threads, or only those that others start too.
        tsan) selection=(--exclude-regex '^(PushTest|ListLookUpTest|CatalogModelTest)\.') ;;
        release32)
            find_run32
            libraries=$(scripts/libraries32.sh) ||
                notes+=("32 bits: built and tested without the catalogue, for lack of its libraries")
            local -x LD_LIBRARY_PATH=$libraries
            options=(-DKATD_BENCH=OFF -DKATD_LTO=OFF -DCMAKE_UNITY_BUILD=ON -DCMAKE_CROSSCOMPILING_EMULATOR=
                "-DKATD_LIBRARIES_32=$libraries")
            [[ $run32 != qemu ]] || options+=("-DCMAKE_CROSSCOMPILING_EMULATOR=$qemu32")
            ;;
    esac
    echo "== $preset: building"
    build "build/$preset" "$preset" "" "${options[@]}" || return 1
    if [[ $preset == release32 ]]; then
        [[ $run32 != none ]] || return 0
        (check_lists32) || return 1
        ctest_options32
        selection=("${options32[@]}")
    fi
    echo "== $preset: testing"
    ASAN_OPTIONS="$(sanitizer_options asan):verify_asan_link_order=0:detect_stack_use_after_return=1" \
        UBSAN_OPTIONS="$(sanitizer_options ubsan):print_stacktrace=1" \
        TSAN_OPTIONS="$(sanitizer_options tsan):second_deadlock_stack=1" \
        ctest --test-dir "build/$preset" --output-on-failure --parallel "$test_jobs" "${selection[@]}" || failure=yes
    if [[ -n $(ls "$reports") ]]; then
        echo "== $preset: sanitizer reports"
        head -n 60 "$reports"/*
        failure=yes
    fi
    [[ -z $failure ]] || return 1
    if [[ $preset == release32 && ${#selection[@]} -gt 0 ]]; then
        count=$(($(count_tests "$preset") - $(count_tests "$preset" "${selection[@]}")))
        notes+=("32 bits: tested by qemu; $count tests that qemu cannot run were left out")
    fi
}

# Prints the jobs of lint, three arguments of clang-tidy each. Most of its time goes to the headers of a source, so it
# gets the sources of each program joined. The static analyzer gets them singly: it passes over the functions of
# included files, which joined sources are.
list_tidy_jobs() {
    local joined=build/lint single=build/lint-single analyzed='daemon|engine|libkatclient|modules' tidied source
    tidied="catalog|$analyzed"
    if [[ -n $long ]]; then # the tools take twice as long as the daemon and its libraries
        tidied="$tidied|client|katcatalog|katlist|listreader|tools"
        analyzed=$tidied
    fi
    # Elsewhere only clang's own warnings and one check, without which clang-tidy does not start.
    sed -n "s#^ *\"file\": \"$PWD/\(.*\)\",*\$#\1#p" "$joined/compile_commands.json" | tac | while read -r source; do
        if [[ ${source#"$joined/"} =~ ^($tidied)/ ]]; then
            echo "-p=$joined --checks=-clang-analyzer-*,-bugprone-suspicious-include $source"
        else
            echo "-p=$joined --checks=-*,clang-diagnostic-*,readability-misleading-indentation $source"
        fi
    done
    git ls-files '*.cpp' | grep -E "^($tidied)/" | xargs ls -S | while read -r source; do
        if ! grep -q "/$source\"" "$single/compile_commands.json"; then
            echo "-p=$single --checks=-clang-diagnostic-* $source" # for systems that lack a library
        elif [[ $source =~ ^($analyzed)/ ]]; then
            echo "-p=$single --checks=-*,clang-analyzer-*,-clang-analyzer-optin.cplusplus.VirtualCall $source"
        fi
    done
}

run_lint() {
    local folder options=(-DCMAKE_CXX_COMPILER=clang++ -DKATD_TESTS=OFF -DKATD_LTO=OFF -DKATD_HARDEN=OFF -DKATD_BENCH=OFF)
    echo "== lint: shellcheck"
    git ls-files '*.sh' .ci/run | xargs shellcheck -x || return 1
    echo "== lint: clang and clang-tidy"
    quietly build/lint.log cmake --preset release -B build/lint-single "${options[@]}" || return 1
    quietly build/lint.log cmake --preset release -B build/lint "${options[@]}" -DCMAKE_UNITY_BUILD=ON \
        -DCMAKE_UNITY_BUILD_BATCH_SIZE=0 || return 1
    for folder in build/lint build/lint-single; do
        cmake -DOUTPUT=$folder/daemon/generated/BuildInfo.h -DVERSION=0 -P cmake/WriteBuildInfo.cmake || return 1
    done
    list_tidy_jobs > build/lint.jobs
    quietly build/lint.tidy.log xargs -P2 -n3 clang-tidy --quiet < build/lint.jobs
}

# The test program itself runs them: under ctest, one test may not take an hour.
run_long() {
    local presets=(release) preset
    build build/release release "" || return 1
    find_run32
    if [[ $run32 == native ]]; then
        build build/release32 release32 "" || return 1
        presets+=(release32)
    else
        notes+=("32 bits: the fault and stress tests were not run at full size: the kernel runs no 32-bit programs")
    fi
    for preset in "${presets[@]}"; do
        echo "== $preset: fault and stress tests at full size"
        KATD_TESTS_LONG=1 "build/$preset/tests/fault_tests" || return 1
    done
    fuzz/run.sh 300 && tests/packaging/packages_test.sh
}

steps=()
long=
for argument in "$@"; do
    case $argument in
        -h | --help)
            usage
            exit 0
            ;;
        --sizes)
            status=0
            run_sizes || status=1
            exit "$status"
            ;;
        --long) long=yes ;;
        sizes | release | release32 | asan | tsan | debug | lint | bench) steps+=("$argument") ;;
        *)
            usage >&2
            exit 2
            ;;
    esac
done
[[ ${#steps[@]} -gt 0 ]] || steps=("${all[@]}")

scripts/packages.sh "${build_packages[@]}" g++-multilib googletest libbenchmark-dev clang clang-tidy shellcheck squid \
    curl busybox iproute2 mandoc systemd nginx-light caddy chromium prometheus redis-server wrk
mkdir -p build
failed=()
notes=()
run32=
for step in "${steps[@]}"; do
    start=$SECONDS
    case $step in
        sizes | lint) "run_$step" || failed+=("$step") ;;
        bench) quietly build/bench.log ./bench.sh --quick || failed+=("$step") ;;
        *) run_preset "$step" || failed+=("$step") ;;
    esac
    echo "== $step: $((SECONDS - start)) s"
done
[[ -z $long ]] || run_long || failed+=(long)

[[ $run32 != none ]] || notes+=("32 bits: built and not run: neither the kernel nor qemu runs 32-bit programs here")
[[ ${#notes[@]} -eq 0 ]] || printf '== %s\n' "${notes[@]}"
if [[ ${#failed[@]} -gt 0 ]]; then
    echo "== failed: ${failed[*]}"
    exit 1
fi
echo "== all passed: ${steps[*]}"
