#!/usr/bin/env bash
# Fuzzes the readers of outside bytes, one after the other.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. scripts/lib.sh

all_targets=()
for source in fuzz/corpus/*/; do
    all_targets+=("$(basename "$source")")
done

usage() {
    cat << END
Usage: fuzz/run.sh SECONDS [TARGET...]

Builds the fuzzers with clang below build/fuzz and runs each target for SECONDS.
Targets: ${all_targets[*]} (by default all).

Inputs that reach new code are kept in build/fuzz-inputs/TARGET, and the next run starts from them. Findings go to
fuzz/findings; the exit status is 1 if there is one. To reproduce one:
    build/fuzz/fuzz/fuzz_TARGET fuzz/findings/FINDING
To add a minimal set of the kept inputs to the corpus:
    build/fuzz/fuzz/fuzz_TARGET -merge=1 fuzz/corpus/TARGET build/fuzz-inputs/TARGET
END
}

case "${1:-}" in
    -h | --help)
        usage
        exit 0
        ;;
    '' | *[!0-9]*)
        usage >&2
        exit 2
        ;;
esac
seconds=$1
shift
targets=("$@")
[[ $# -gt 0 ]] || targets=("${all_targets[@]}")
for target in "${targets[@]}"; do
    if [[ ! -f fuzz/$target.cpp || ! -d fuzz/corpus/$target ]]; then
        echo "fuzz/run.sh: there is no target $target" >&2
        exit 2
    fi
done

scripts/packages.sh "${build_packages[@]}" clang libclang-rt-dev

mkdir -p fuzz/findings
say "building"
build build/fuzz fuzz "${targets[*]/#/fuzz_}" || exit 1

# The targets write temporary files, in memory if possible. After a finding they do not remove them.
[[ ! -w /dev/shm ]] || TMPDIR=/dev/shm
make_scratch
fuzzer=
stop_fuzzer() { [[ -z $fuzzer ]] || kill "$fuzzer" 2> /dev/null; }
at_exit stop_fuzzer

# The last line that the fuzzer printed: number of inputs, coverage, inputs kept, inputs per second.
report() {
    local line
    line=$(grep -aE '^#[0-9]+' "$log" | tail -n 1 | sed -E 's/ +(lim|L): .*(exec\/s)/ \2/; s/ rss: .*//') || line='starting'
    printf '%-9s %5d s  %s\n' "$target" "$SECONDS" "$line"
}

found=()
for target in "${targets[@]}"; do
    inputs=build/fuzz-inputs/$target
    log=build/fuzz-$target.log
    mkdir -p "$inputs"
    SECONDS=0
    TMPDIR=$scratch "build/fuzz/fuzz/fuzz_$target" -max_total_time="$seconds" -timeout=20 -print_final_stats=1 \
        -artifact_prefix="fuzz/findings/$target-" "$inputs" "fuzz/corpus/$target" > "$log" 2>&1 &
    fuzzer=$!
    shown=0
    while kill -0 "$fuzzer" 2> /dev/null; do
        sleep 1
        if [[ $SECONDS -ge $((shown + 5)) ]]; then
            shown=$SECONDS
            report
        fi
    done
    status=0
    wait "$fuzzer" || status=$?
    fuzzer=
    report
    if [[ $status -ne 0 ]]; then
        grep -aE 'does not hold|^==[0-9]+==ERROR|^SUMMARY|runtime error|Test unit written' "$log" >&2 ||
            tail -n 20 "$log" >&2
        found+=("$target")
    fi
done

if [[ ${#found[@]} -gt 0 ]]; then
    say "findings of: ${found[*]} (in fuzz/findings; complete reports in build/fuzz-TARGET.log)"
    exit 1
fi
say "no findings: ${targets[*]}"
