#!/bin/bash
# Fuzzes the readers of bytes from outside, one after the other.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

all_targets=()
for source in fuzz/corpus/*/; do
    all_targets+=("$(basename "$source")")
done

usage() {
    cat << END
Usage: fuzz/run.sh SECONDS [TARGET...]

Builds the fuzzers with clang below build/fuzz and fuzzes each target for so many seconds.
Targets: ${all_targets[*]} (all without arguments).

Inputs that reach new code are kept in build/fuzz-inputs/TARGET and taken up by the next run. Findings
go to fuzz/findings; the status is 1 when there is one. To see one again:
    build/fuzz/fuzz/fuzz_TARGET fuzz/findings/FINDING
To take the kept inputs into the corpus, as few as reach the same code:
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
        echo "run.sh: there is no target $target" >&2
        exit 2
    fi
done

scripts/packages.sh cmake ninja-build clang libclang-rt-dev

mkdir -p build fuzz/findings
echo "== building"
{
    cmake --preset fuzz && cmake --build build/fuzz --target "${targets[@]/#/fuzz_}"
} > build/fuzz.build.log 2>&1 || {
    tail -n 40 build/fuzz.build.log >&2
    exit 1
}

# What the targets write, in memory where that can be had. A finding leaves it behind.
scratch=$(mktemp -d -p "$([[ -w /dev/shm ]] && echo /dev/shm || echo /tmp)" katd-fuzz-XXXXXX)
fuzzer=
# shellcheck disable=SC2317 # the trap calls it
clean_up() {
    [[ -z $fuzzer ]] || kill "$fuzzer" 2> /dev/null || true
    rm -rf "$scratch"
}
trap clean_up EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

# The fuzzer's last report: inputs so far, what they reached, inputs worth keeping, inputs a second.
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
    echo "== findings of: ${found[*]} (fuzz/findings, whole reports in build/fuzz-TARGET.log)"
    exit 1
fi
echo "== no findings: ${targets[*]}"
