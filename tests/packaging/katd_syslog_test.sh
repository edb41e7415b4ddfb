#!/usr/bin/env bash
# katd-syslog, with commands that record how they are called. Usage: katd_syslog_test.sh KATD_SYSLOG
# shellcheck source=scripts/lib.sh
. "$(dirname "${BASH_SOURCE[0]}")/../../scripts/lib.sh"
make_scratch
cd "$scratch" || exit 1
# The variables $logger and $mailer are their exit statuses; mailer records its input too.
# shellcheck disable=SC2016 # their scripts
{
    printf '#!/bin/sh\necho logger "$@" >> calls\nexit ${logger:-0}\n' > ./logger
    printf '#!/bin/sh\n{ echo mailer "$@"; head -n 1; } >> calls\nexit ${mailer:-0}\n' > ./mailer
    printf '#!/bin/sh\nprintf "%%s: " "$3" >> calls\nshift 3\nexec "$@"\n' > ./timeout
}
chmod +x logger mailer timeout
PATH=$scratch:$PATH

# expect STATUS "EVENT..." CALL...: the calls, each with its time limit in front, or the message, as patterns.
expect() {
    local status=0 pattern
    : > calls
    # shellcheck disable=SC2086 # words
    "$program" $2 2> message || status=$?
    [[ $status == "$1" ]] || problem "$2: status $status, not $1"
    [[ $(wc -l < calls) == $(($# - 2)) ]] || problem "$2: calls $(cat calls)"
    for pattern in "${@:3}"; do grep -qE "^$pattern" calls || problem "$2: no $pattern but $(cat calls)"; done
}
program=$1
text='katd ends: .*no answer'
log='8: logger -t katd -p daemon.err --'
expect 0 CheckDnsFail "$log katd ends: .*cannot be resolved.*\(CheckDnsFail\)$"
for arguments in "" Other -x "CheckDnsFail CheckNetFail"; do
    expect 2 "$arguments"
    grep -q '^katd-syslog: .*CheckDnsFail' message || problem "no message for bad usage: $arguments"
done
# An asterisk is not expanded, and a command that fails does not keep the other from being called.
export KATD_SYSLOG_MAIL='root * ops@mail.example' KATD_SYSLOG_MAILER="mailer -q"
mail='30: mailer -q -s katd on .*: CheckNetFail root \* ops@mail.example$'
expect 0 CheckNetFail "$log $text.*\(CheckNetFail\)$" "$mail" "$text"
logger=1 expect 1 CheckNetFail "$log $text" "$mail" "$text"
grep -q "$text" message || problem "a message that logger refuses is lost"
mailer=1 expect 1 CheckNetFail "$log $text" "$mail" "$text" "$log .*mail to root \* ops@mail.example was not sent"
end_of_test
