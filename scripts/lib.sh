# Functions shared by katd's scripts and shell tests. To be sourced by bash; sets no shell option and starts nothing.
# shellcheck shell=bash
#
# Messages
#   say TEXT...                print a heading
#   fail TEXT...               print "SCRIPT: TEXT" to standard error and exit with status 1
#   problem TEXT...            print the same, count it in $problems and go on
#   end_of_test                exit with status 1 if there was a problem, else 0
#   quietly LOG COMMAND...     run the command with its output in LOG; if it fails, show the end of LOG and where the
#                              rest is, and return its status
# Cleaning up
#   at_exit COMMAND...         run the command when the script ends, also by SIGHUP, SIGINT or SIGTERM; the last one
#                              registered runs first; the exit status of the script is kept
#   make_scratch               set $scratch to a new temporary folder below TMPDIR, removed at the end
# Waiting and privileges
#   wait_until SECONDS COMMAND...  run the command every 50 ms until it succeeds; 1 when the time is over first
#   as_root COMMAND...         run the command as root, by sudo if need be; 1 where that takes a password
#   need_root ARGUMENT...      start the script again as root, with these arguments, unless it is root already
# Building
#   $build_packages            the Debian packages that every build needs, for scripts/packages.sh
#   build FOLDER PRESET TARGETS OPTION...  configure the preset in FOLDER with CMake's OPTIONs and build TARGETS (one
#                              string; all targets if empty); output in FOLDER.log; 1 if it fails
# katd
#   make_home HOME [LOG]       make a home directory with the settings, lists and rules of demo/; LOG is the log's file
#                              name, katd.log by default (katd's lock files in /tmp are named after it)
#   start_katd HOME            start "${katd_command[@]}" in the background, with KATD_DIR and the rules of HOME and the
#                              output in HOME/output, and wait until "${katc_command[@]} ctl urls_stat" succeeds; sets
#                              $katd_pid; fails when katd ends or does not answer in 60 s. Descriptor 9, which scripts
#                              use for a lock, is closed in katd.
#   stop_katd                  end that katd, if any, and wait for it; start_katd registers it with at_exit
#   show_katd_log HOME         print the last lines of katd's output and log to standard error

[[ -z ${source_tree:-} ]] || return 0 # sourced before

source_tree=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
# shellcheck disable=SC2034 # the callers read it
build_packages=(cmake ninja-build g++ libcli11-dev libhiredis-dev libidn2-dev liblmdb-dev libpsl-dev libxxhash-dev nlohmann-json3-dev libcpp-httplib-dev prometheus-cpp-dev)
problems=0
katd_pid=
exit_commands=()
katd_command=(katd)
katc_command=(katc)

say() { printf '== %s\n' "$*"; }

problem() {
    printf '%s: %s\n' "${0##*/}" "$*" >&2
    problems=$((problems + 1))
}

fail() {
    problem "$@"
    exit 1
}

end_of_test() { exit "$((problems != 0))"; }

quietly() {
    local log=$1 status=0
    shift
    "$@" > "$log" 2>&1 || status=$?
    if ((status != 0)); then
        tail -n 60 "$log" >&2
        printf '%s: failed; all output is in %s\n' "${0##*/}" "$log" >&2
    fi
    return "$status"
}

run_exit_commands() {
    local status=$? i
    trap - EXIT HUP INT TERM
    for ((i = ${#exit_commands[@]} - 1; i >= 0; i--)); do
        eval "${exit_commands[i]}" || true
    done
    exit "$status"
}

at_exit() {
    if ((${#exit_commands[@]} == 0)); then
        trap run_exit_commands EXIT
        trap 'exit 129' HUP
        trap 'exit 130' INT
        trap 'exit 143' TERM
    fi
    exit_commands+=("$(printf '%q ' "$@")")
}

make_scratch() {
    scratch=$(mktemp -d "${TMPDIR:-/tmp}/katd-XXXXXX") || exit 1
    at_exit rm -rf "$scratch"
}

wait_until() {
    local end=$((SECONDS + $1))
    shift
    until "$@"; do
        ((SECONDS < end)) || return 1
        sleep 0.05
    done
}

as_root() {
    if ((EUID == 0)); then
        "$@"
    else
        sudo -n true 2> /dev/null && sudo -n "$@"
    fi
}

need_root() {
    ((EUID != 0)) || return 0
    as_root true || fail "this needs root: run it with sudo"
    exec sudo -n "$0" "$@"
}

configure_and_build() {
    local folder=$1 preset=$2 targets=$3
    shift 3
    cmake --preset "$preset" -B "$folder" "$@" || return 1
    # shellcheck disable=SC2086 # words
    cmake --build "$folder" ${targets:+--target $targets}
}

build() {
    mkdir -p "${1%/*}"
    quietly "$1.log" configure_and_build "$@" 9>&-
}

make_home() {
    local home=$1 folder
    mkdir -p "$home"
    # katd's own file-creation mask is 0: the folders' modes decide who may use its files.
    for folder in conf lists; do mkdir -m 0755 "$home/$folder"; done
    for folder in run log data; do mkdir -m 0750 "$home/$folder"; done
    sed "s#log/katd\.log#log/${2:-katd.log}#" "$source_tree/demo/conf/katd.ini" > "$home/conf/katd.ini"
    sed "s#log/katd\.log#log/${2:-katd.log}#" "$source_tree/demo/conf/katd-http.ini" > "$home/conf/katd-http.ini"
    cp "$source_tree"/demo/lists/*.list "$home/lists"
    cp "$source_tree"/demo/{rules,categories} "$home"
}

katd_answers_or_ended() {
    KATD_DIR=$1 "${katc_command[@]}" ctl urls_stat > /dev/null 2>&1 || ! kill -0 "$katd_pid" 2> /dev/null
}

start_katd() {
    local home=$1 status=0
    KATD_DIR=$home ASAPSDK_RULES=$home/rules "${katd_command[@]}" > "$home/output" 2>&1 < /dev/null 9>&- &
    katd_pid=$!
    at_exit stop_katd
    wait_until 60 katd_answers_or_ended "$home" || {
        show_katd_log "$home"
        fail "katd does not answer"
    }
    kill -0 "$katd_pid" 2> /dev/null || {
        wait "$katd_pid" || status=$?
        katd_pid=
        show_katd_log "$home"
        fail "katd ended with status $status"
    }
}

stop_katd() {
    [[ -n $katd_pid ]] || return 0
    kill "$katd_pid" 2> /dev/null || true
    wait "$katd_pid" 2> /dev/null || true
    katd_pid=
}

show_katd_log() {
    local file
    for file in "$1"/output "$1"/log/*.log; do
        [[ ! -s $file ]] || tail -n 15 "$file" >&2
    done
}
