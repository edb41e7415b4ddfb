#!/bin/sh
# Passes on why katd gives up: to the system log and, when told, by mail. katd runs it as the program of
# WRITE_SYSLOG, with the event as its one argument, and ends when it has ended.
set -u
# katd's own mask is 0 and is inherited.
umask 077
PATH=${PATH:-/usr/sbin:/usr/bin:/sbin:/bin}

usage() {
    cat << 'END'
Usage: katd-syslog CheckDnsFail|CheckNetFail

Writes to the system log, by logger(1) with the tag katd and the priority daemon.err, why katd ends:

  CheckDnsFail  the name of the classification service cannot be resolved
  CheckNetFail  the classification service does not answer

  -h, --help    print this
  --version     print the version

Environment:

  KATD_SYSLOG_MAIL    addresses that get the same sentence by mail, with blanks between
  KATD_SYSLOG_MAILER  the mail command, called with "-s SUBJECT ADDRESS..." and the text on its
                      standard input; without the variable: mail

Exit status: 0 passed on; 1 the log or the mail command failed; 2 bad usage.
END
}

case "$#:${1-}" in
    1:-h | 1:--help)
        usage
        exit 0
        ;;
    1:--version)
        echo "katd-syslog @PROJECT_VERSION@"
        exit 0
        ;;
    1:CheckDnsFail)
        text="katd ends: the name of the classification service (server_address in katd.ini) cannot be resolved; check \
the name and this machine's resolver"
        ;;
    1:CheckNetFail)
        text="katd ends: the classification engine gave no answer to its first question; check the network, the HTTP \
proxy and server_address in katd.ini"
        ;;
    1:*)
        echo "katd-syslog: there is no event $1: give CheckDnsFail or CheckNetFail." >&2
        exit 2
        ;;
    *)
        echo "katd-syslog: one event is needed, CheckDnsFail or CheckNetFail; katd-syslog --help tells more." >&2
        exit 2
        ;;
esac

status=0
# Without a system log the sentence still reaches whoever keeps katd's standard error.
if ! logger -t katd -p daemon.err -- "$text ($1)"; then
    echo "katd-syslog: logger failed; the message was: $text ($1)" >&2
    status=1
fi

if [ -n "${KATD_SYSLOG_MAIL:-}" ]; then
    # katd waits for this program: a mail command that hangs must not keep it from being started anew.
    # shellcheck disable=SC2086 # a command with its arguments, and several addresses
    if ! printf '%s.\n\nHost: %s\nTime: %s\n' "$text" "$(uname -n)" "$(date)" |
        timeout -k 5 60 ${KATD_SYSLOG_MAILER:-mail} -s "katd on $(uname -n): $1" $KATD_SYSLOG_MAIL; then
        logger -t katd -p daemon.err -- "katd-syslog: the mail to $KATD_SYSLOG_MAIL was not sent" || true
        echo "katd-syslog: the mail to $KATD_SYSLOG_MAIL was not sent: check KATD_SYSLOG_MAILER." >&2
        status=1
    fi
fi
exit "$status"
