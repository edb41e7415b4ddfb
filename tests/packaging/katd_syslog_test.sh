#!/usr/bin/env bash
# katd-syslog, with a logger and a mail command that write down how they were called.
# Usage: katd_syslog_test.sh KATD_SYSLOG, as it is built
set -uo pipefail

katd_syslog=$1
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
failures=0
fail() {
    echo "katd_syslog_test: $*; calls were:" >&2
    cat "$scratch/calls" >&2
    failures=$((failures + 1))
}

for tool in logger mailer; do
    cat > "$scratch/$tool" << END
#!/bin/sh
echo "$tool" "\$@" >> "$scratch/calls"
[ $tool = logger ] || cat >> "$scratch/calls"
exit "\$(cat "$scratch/$tool.status" 2> /dev/null || echo 0)"
END
    chmod +x "$scratch/$tool"
done
export PATH=$scratch:$PATH

# run STATUS WORD...
run() {
    local expected=$1 status=0
    shift
    : > "$scratch/calls"
    "$katd_syslog" "$@" > "$scratch/output" 2>&1 || status=$?
    [[ $status == "$expected" ]] || fail "katd-syslog $*: status $status instead of $expected"
}
called() { grep -qE -- "$1" "$scratch/calls" || fail "there is no call like: $1"; }

run 0 CheckDnsFail
called '^logger -t katd -p daemon.err -- .*cannot be resolved.*\(CheckDnsFail\)$'
[[ $(grep -c . "$scratch/calls") == 1 ]] || fail "a mail without being told"

export KATD_SYSLOG_MAIL="root ops@mail.example" KATD_SYSLOG_MAILER="mailer -q"
run 0 CheckNetFail
called '^logger -t katd -p daemon.err -- .*no answer.*\(CheckNetFail\)$'
called "^mailer -q -s katd on .*: CheckNetFail root ops@mail.example\$"
called '^katd ends: .*no answer'

# The one that fails does not keep the other from being told.
echo 1 > "$scratch/logger.status"
run 1 CheckNetFail
called '^mailer '
grep -q 'katd ends: ' "$scratch/output" || fail "without a logger the sentence is lost"
rm "$scratch/logger.status"
echo 1 > "$scratch/mailer.status"
run 1 CheckNetFail
called '^logger .*mail to root ops@mail.example was not sent'

for words in "" "Other" "-x" "CheckDnsFail CheckNetFail"; do
    # shellcheck disable=SC2086 # words
    run 2 $words
    grep -q '^katd-syslog: .*CheckDnsFail' "$scratch/output" || fail "no sentence for bad usage: $words"
    [[ ! -s $scratch/calls ]] || fail "bad usage is passed on"
done

exit "$((failures != 0))"
