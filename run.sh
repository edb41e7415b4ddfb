#!/bin/bash
# Builds katd, starts it in a home directory of its own and asks it a dozen questions.
set -euo pipefail
umask 022

root=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
build=build/run
home=build/demo-home
build_log=build/run.log
answer_limit_sec=60 # for katd's first answer

usage() {
    cat << END
Usage: ./run.sh [--once]

Builds katd and katc, makes a home directory for katd below build/, starts katd with the
stand-in engine, asks what demo/questions holds, and serves until Ctrl-C.

  --once  end after the answers: status 0 if each was the expected one, else 1
  --help  print this
END
}

once=false
case "$#:${1:-}" in
    0:) ;;
    1:--once) once=true ;;
    1:--help | 1:-h)
        usage
        exit 0
        ;;
    *)
        usage >&2
        exit 2
        ;;
esac

# Every path below is relative to here: the path of a socket must be short, wherever this tree lies.
cd "$root"

say() { printf '\n== %s\n' "$*"; }

fail() {
    printf 'run.sh: %s\n' "$*" >&2
    exit 1
}

show_log() {
    [[ -s $home/output ]] && tail -n 10 "$home/output" >&2
    [[ -s $home/log/katd.log ]] && tail -n 15 "$home/log/katd.log" >&2
    return 0
}

katd_pid=
# shellcheck disable=SC2317 # the trap calls it
stop_katd() {
    [[ -n $katd_pid ]] || return 0
    kill "$katd_pid" 2> /dev/null || true
    wait "$katd_pid" 2> /dev/null || true
    katd_pid=
}
trap stop_katd EXIT
trap 'exit 129' HUP
trap 'echo; exit 130' INT
trap 'exit 143' TERM

# A run that was killed could not stop its katd, which still holds the home directory.
stop_leftover() {
    local pid
    pid=$(tr -d '\0' 2> /dev/null < "$home/data/katd.pid") || return 0
    [[ $pid =~ ^[0-9]+$ ]] || return 0
    # The number may have gone to another program meanwhile. A program that was built anew is "(deleted)".
    [[ $(readlink "/proc/$pid/exe" 2> /dev/null) == "$root/$build/daemon/katd"* ]] || return 0
    say "Stopping the katd of an earlier run, process $pid"
    kill "$pid" 2> /dev/null || true
    for _ in {1..50}; do
        kill -0 "$pid" 2> /dev/null || return 0
        sleep 0.1
    done
    kill -KILL "$pid" 2> /dev/null || true
    sleep 0.2
}

build_all() {
    say "Building (output in $build_log)"
    if ! { cmake --preset release -B "$build" -DKATD_TESTS=OFF -DKATD_BENCH=OFF && cmake --build "$build"; } > "$build_log" 2>&1 9>&-; then
        tail -n 30 "$build_log" >&2
        fail "the build failed; all of its output is in $root/$build_log"
    fi
}

make_home() {
    say "Making katd's home directory $home"
    rm -rf "$home"
    # katd's own file-creation mask is 0: the folders' modes say who may come near its files.
    mkdir -p "$home"
    mkdir -m 0755 "$home/conf" "$home/lists"
    mkdir -m 0750 "$home/run" "$home/log" "$home/data"
    cp demo/conf/katd.ini "$home/conf/"
    cp demo/lists/*.list "$home/lists/"
    cp demo/rules "$home/rules"
}

start_katd() {
    say "Starting katd"
    KATD_DIR=$home ASAPSDK_RULES=$home/rules "$build/daemon/katd" > "$home/output" 2>&1 < /dev/null 9>&- &
    katd_pid=$!
    local deadline=$((SECONDS + answer_limit_sec))
    until katc ctl urls_stat 2> /dev/null; do
        if ! kill -0 "$katd_pid" 2> /dev/null; then
            local status=0
            wait "$katd_pid" || status=$?
            katd_pid=
            show_log
            fail "katd ended with status $status; above are its last messages"
        fi
        if ((SECONDS >= deadline)); then
            show_log
            fail "katd does not answer within $answer_limit_sec seconds; above are its last messages"
        fi
        sleep 0.1
    done
}

katc() { KATD_DIR=$home "$build/client/katc" "$@"; }

trim() {
    local text=$1
    text=${text#"${text%%[![:space:]]*}"}
    printf '%s' "${text%"${text##*[![:space:]]}"}"
}

# Prints katc's line for each question below the word on it. Status 1 when a line is not the expected one.
ask_questions() {
    local option url answer categories word line expected arguments wrong=0
    while IFS='|' read -r option url answer categories word; do
        [[ -n $option && $option != \#* ]] || continue
        url=$(trim "$url")
        expected="$url"$'\t'"$(trim "$answer")"$'\t'"$(trim "$categories")"
        arguments=()
        [[ $(trim "$option") == - ]] || arguments=("$(trim "$option")")
        printf '\n# %s\n' "$(trim "$word")"
        line=$(katc "${arguments[@]}" -- "$url" < /dev/null) || true
        printf '%s\n' "$line"
        if [[ $line != "$expected" ]]; then
            printf '! expected: %s\n' "$expected"
            wrong=$((wrong + 1))
        fi
    done < demo/questions
    if ((wrong != 0)); then
        printf '\nrun.sh: %d answers are not the expected ones; the last messages of katd are:\n' "$wrong" >&2
        show_log
        return 1
    fi
}

scripts/packages.sh cmake ninja-build g++ libcli11-dev nlohmann-json3-dev
mkdir -p build
exec 9> build/run.lock
flock -n 9 || fail "another run.sh serves in this tree: end it first"
stop_leftover
build_all
make_home
start_katd

say "Asking (a line of katc: the URL, known or unknown, the categories as in demo/categories)"
status=0
ask_questions || status=1

if [[ $once == true ]]; then
    say "Done"
    exit "$status"
fi

say "Serving. Ctrl-C ends katd. Ask on your own in another terminal:"
cat << END
KATD_DIR=$root/$home $root/$build/client/katc www.harbour-gazette.example
The engine answers what $home/rules says, the log is $home/log/katd.log.
END
status=0
wait "$katd_pid" || status=$?
katd_pid=
show_log
fail "katd ended with status $status; above are its last messages"
