#!/usr/bin/env bash
# The manual pages against what they describe: every option of a program's help, and every key that the daemon reads,
# stands in its page; the page has no option that the program lacks; mandoc has no complaint.
# Usage: manuals_test.sh PROGRAM..., the built katd, katc, katlist and katd-syslog, as far as there are.
set -uo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
failures=0
fail() {
    echo "manuals_test: $*" >&2
    failures=$((failures + 1))
}

declare -A program
for path in "$@"; do
    program[${path##*/}]=$path
done

# Each page and the words that make its programs print the options.
commands=("katd.8 katd -h" "katd-syslog.8 katd-syslog --help" "katc.1 katc --help" "katc.1 katc ctl --help")
for request in log_level timeout save_cache urls_stat reload; do
    commands+=("katc.1 katc ctl $request --help")
done
commands+=("katc-helper.1 katc helper --help")
for command in "" build check find stat; do
    commands+=("katlist.1 katlist $command --help")
done

# katd shows its usage in a home that is in order alone.
mkdir -p "$scratch/home/conf"
cp "$root/demo/conf/katd.ini" "$scratch/home/conf"
export KATD_DIR=$scratch/home

# The words that look like options.
options() {
    grep -oE -- '(^|[][[:space:],(|/])--?[A-Za-z][A-Za-z0-9-]*' | sed -E 's/^[^-]//' | sort -u
}

# The options of a page's lines ".It Fl x , -long Ar argument".
described() {
    sed -nE "s/^\\.$1Fl (.*)/\\2/p" "$2" | sed -E 's/ (Ar|Cm|Op|Ns|No) .*//; s/(^| )Fl / /g' |
        tr -s ' ,' '\n' | sed '/./!d; s/^/-/' | sort -u
}

declare -A help
for entry in "${commands[@]}"; do
    read -r page name words <<< "$entry"
    [[ -v program[$name] ]] || continue
    # shellcheck disable=SC2086 # words
    text=$("${program[$name]}" $words 2>&1 < /dev/null)
    [[ -n $(options <<< "$text") ]] || fail "$name $words prints no option"
    help[$page]+=$text$'\n'
done

for page in "${!help[@]}"; do
    if [[ ! -e $root/man/$page ]]; then
        fail "there is no man/$page"
        continue
    fi
    # A mention in an example is no description.
    missing=$(comm -23 <(options <<< "${help[$page]}") <(described '(It )?' "$root/man/$page"))
    [[ -z $missing ]] || fail "man/$page does not describe what --help has: ${missing//$'\n'/ }"
    stale=$(comm -13 <(options <<< "${help[$page]}") <(described '(It )' "$root/man/$page"))
    [[ -z $stale ]] || fail "man/$page describes what --help lacks: ${stale//$'\n'/ }"
done

# The keys in the sources' calls, and those of the sample settings.
keys=$(grep -hoE '(readText|readNumber|readPositive|readValue|findValue)\(ini, [^"]*"[A-Za-z_]+"' \
    "$root"/daemon/KatdConf/*.cpp | grep -oE '"[A-Za-z_]+"' | tr -d '"')
keys+=$'\n'$(sed -nE 's/^([a-z_]+) *=.*/\1/p' "$root/demo/conf/katd.ini")
keys=$(sort -u <<< "$keys")
[[ $(wc -l <<< "$keys") -ge 23 ]] || fail "the sources' keys are not found any more"
for key in $keys; do
    grep -qE "^\.It Ic $key\$" "$root/man/katd.ini.5" || fail "man/katd.ini.5 lacks the key $key"
done
while read -r key; do
    grep -qx "$key" <<< "$keys" || fail "man/katd.ini.5 has the key $key, which nothing reads"
done < <(sed -nE 's/^\.It Ic ([A-Za-z_]+)$/\1/p' "$root/man/katd.ini.5")

for path in "$root"/man/*.[1-9]; do
    page=${path##*/}
    # Whether a page of another package is installed here is no matter; one of ours is looked for below.
    complaints=$(mandoc -T lint -W style "$path" 2>&1 | grep -vE 'referenced manual not found|outdated mandoc.db')
    [[ -z $complaints ]] || fail "$complaints"
    ! grep -nP '[^\x00-\x7F]' "$path" || fail "man/$page is not plain ASCII"
    while read -r name section; do
        [[ -e $root/man/$name.$section ]] || fail "man/$page refers to $name($section), which there is not"
    done < <(grep -ohE 'Xr kat[^ ]* [1-9]' "$path" | cut -d' ' -f2,3)
done

# The packages have the version of the programs.
version=$(sed -nE 's/^project\(katd VERSION ([0-9.]+).*/\1/p' "$root/CMakeLists.txt")
[[ $(head -n 1 "$root/debian/changelog") == "katd ($version) "* ]] ||
    fail "debian/changelog does not begin with version $version"

((failures == 0)) && echo "manuals_test: ${#help[@]} programs' pages, $(wc -w <<< "$keys") keys"
((failures == 0))
