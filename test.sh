#!/usr/bin/env bash
# Builds katd for 64 and 32 bits and under the sanitizers, and runs every test.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"

usage() {
    cat <<'END'
usage: test.sh [PRESET...]

Installs what the tests need (Debian packages), builds each preset below build/ and runs its tests.
Without arguments: release, release32, asan and tsan. Also: debug.
END
}

case "${1:-}" in
    -h | --help)
        usage
        exit 0
        ;;
esac

scripts/packages.sh cmake ninja-build g++ g++-multilib googletest libcli11-dev

# A report of a sanitizer goes to a file, so that none is lost with a process that ends at once; its exit status
# is one that katd does not use.
reports=$PWD/build/reports
sanitizer_options() {
    echo "log_path=$reports/$1:exitcode=99:abort_on_error=0:halt_on_error=1"
}

failed=()
run_preset() {
    local preset=$1
    rm -rf "$reports"
    mkdir -p "$reports"
    echo "== $preset: building"
    cmake --preset "$preset" >"build/$preset.configure.log" || { cat "build/$preset.configure.log"; return 1; }
    cmake --build "build/$preset" >"build/$preset.build.log" || { cat "build/$preset.build.log"; return 1; }
    echo "== $preset: testing"
    ASAN_OPTIONS="$(sanitizer_options asan):verify_asan_link_order=0:detect_stack_use_after_return=1" \
        UBSAN_OPTIONS="$(sanitizer_options ubsan):print_stacktrace=1" \
        TSAN_OPTIONS="$(sanitizer_options tsan):second_deadlock_stack=1" \
        ctest --test-dir "build/$preset" --output-on-failure --parallel 2 || return 1
    if [ -n "$(ls "$reports")" ]; then
        echo "== $preset: reports of a sanitizer"
        head -n 60 "$reports"/*
        return 1
    fi
}

mkdir -p build
presets=("$@")
[ $# -gt 0 ] || presets=(release release32 asan tsan)
for preset in "${presets[@]}"; do
    run_preset "$preset" || failed+=("$preset")
done

if [ ${#failed[@]} -gt 0 ]; then
    echo "== failed: ${failed[*]}"
    exit 1
fi
echo "== all passed: ${presets[*]}"
