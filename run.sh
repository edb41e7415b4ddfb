#!/usr/bin/env bash
# Builds katd, starts it in a demonstration home and asks it the questions of demo/questions.
set -euo pipefail
umask 022
# Every path below is relative to here: the path of a socket must be short, wherever this tree lies.
cd "$(dirname "${BASH_SOURCE[0]}")"
. scripts/lib.sh

usage() {
    cat << 'END'
Usage: ./run.sh [--once [--built FOLDER]]

Builds katd and its tools, makes a home directory for katd below build/ with lists and a catalogue, starts katd with
the catalogue engine, asks the questions of demo/questions, and serves until Ctrl-C, with katd-http for a browser.

  --once          ask the URLs of README.md too and end: status 0 if each answer was as expected, else 1
  --built FOLDER  use the programs of this build folder; katd's home is made there
  --help          print this
END
}

once=
build=
case "$#:${1:-}:${2:-}" in
    0::) ;;
    1:--once:) once=yes ;;
    3:--once:--built)
        once=yes
        build=${3#"$PWD/"}
        ;;
    1:--help: | 1:-h:)
        usage
        exit 0
        ;;
    *)
        usage >&2
        exit 2
        ;;
esac
home=${build:-build}/demo-home
folder=${build:-build/run}
katd_command=(env "LD_LIBRARY_PATH=$folder/engine/catalog${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}" "$folder/daemon/katd")
katc_command=("$folder/client/katc")

# A run that was killed could not stop its katd, which still holds the home directory.
stop_leftover() {
    local pid
    pid=$(tr -d '\0' 2> /dev/null < "$home/data/katd.pid") || return 0
    [[ $pid =~ ^[0-9]+$ ]] || return 0
    # Another program may have that number by now. A program that was rebuilt is "(deleted)".
    [[ $(readlink "/proc/$pid/exe" 2> /dev/null) == "$PWD/$folder/daemon/katd"* ]] || return 0
    say "Stopping the katd of an earlier run, process $pid"
    kill "$pid" 2> /dev/null || true
    wait_until 5 has_ended "$pid" || kill -KILL "$pid" 2> /dev/null || true
    wait_until 5 has_ended "$pid" || fail "process $pid does not end"
}
has_ended() { ! kill -0 "$1" 2> /dev/null; }

katc() { KATD_DIR=$home "${katc_command[@]}" "$@"; }

trim() { sed -E 's/^[[:space:]]+//; s/[[:space:]]+$//' <<< "$1"; }

# Prints katc's line for each question, and counts those that are not the expected ones in $problems.
ask_questions() {
    local url categories reason line expected
    while IFS='|' read -r url categories reason; do
        [[ $url != \#* ]] || continue
        url=$(trim "$url")
        expected="$url"$'\tknown\t'"$(trim "$categories")"
        printf '\n# %s\n' "$(trim "$reason")"
        line=$(katc -- "$url" < /dev/null) || true
        printf '%s\n' "$line"
        [[ $line == "$expected" ]] || problem "expected: $expected"
    done < demo/questions
}

# The commands and answers that README.md shows, against the programs.
check_readme() {
    local expected actual
    expected=$(sed -n '/^    http/,/^$/s/^    //p' README.md)
    actual=$(sed -n "/^    .*example/s#build/run/#$folder/#p" README.md | sed "s#build/demo-home#$home#" |
        while read -r command; do KATD_DIR=$home bash -c "$command" < /dev/null; done) || true
    [[ -n $expected && $actual == "$expected" ]] ||
        problem "README.md shows other answers than the programs give: $(diff <(echo "$expected") <(echo "$actual"))"
}

mkdir -p build
exec 9> "$home.lock"
flock -n 9 || fail "another run.sh serves in this tree: end it first"
stop_leftover
if [[ -z $build ]]; then
    scripts/packages.sh "${build_packages[@]}"
    say "Building (output in $folder.log)"
    build "$folder" release "" -DKATD_TESTS=OFF -DKATD_BENCH=OFF || exit 1
fi
say "Making katd's home directory $home"
rm -rf "$home"
make_home "$home"
[[ -e $folder/engine/catalog/libasapsdk.so ]] || fail "this build has no catalogue engine: liblmdb-dev was missing"
say "Making its catalogue from demo/blocklists"
"$folder/katcatalog/katcatalog" import --map demo/categories -o "$home/data/catalog.mdb" demo/blocklists
say "Starting katd"
start_katd "$home"

say "Asking (the answer: URL, known or unknown, categories as in demo/categories)"
ask_questions
if [[ -n $once ]]; then
    check_readme
    ((problems == 0)) || show_katd_log "$home"
    end_of_test
fi

# katd-http is left out where its libraries are missing.
address=
if [[ -x $folder/gateway/katd-http ]]; then
    # It runs katc for the administrator's page.
    PATH=$PWD/$folder/client:$PWD/$folder/katcatalog:$PATH KATD_DIR=$home "$folder/gateway/katd-http" > "$home/http.output" 2>&1 < /dev/null 9>&- &
    at_exit kill "$!"
    http_is_listening() { grep -q '^katd-http: listening' "$home/http.output"; }
    wait_until 5 http_is_listening || true
    address=$(sed -n 's/^katd-http: listening on //p' "$home/http.output")
    [[ -n $address ]] || problem "katd-http does not serve: $(< "$home/http.output")"
fi

say "Serving until Ctrl-C. From another terminal:"
cat << END
KATD_DIR=$PWD/$home $PWD/$folder/client/katc www.banner-farm.example
$PWD/$folder/katcatalog/katcatalog find $PWD/$home/data/catalog.mdb www.banner-farm.example
katd's own lists are in $home/lists, its log is $home/log/katd.log.
END
[[ -z $address ]] || echo "In a browser: $address"
status=0
wait "$katd_pid" || status=$?
katd_pid=
show_katd_log "$home"
fail "katd ended with status $status"
