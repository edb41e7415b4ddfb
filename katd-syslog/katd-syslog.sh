#!/bin/sh
# Reports why katd gives up, to the system log and, if configured, by mail. katd runs it as the program of WRITE_SYSLOG
# with the event as its only argument, waits for it (for at most 60 seconds), and ends.
set -fu
# The umask inherited from katd is 0.
umask 077
PATH=${PATH:-/usr/sbin:/usr/bin:/sbin:/bin}

usage() {
    cat << 'END'
Usage: katd-syslog CheckDnsFail|CheckNetFail

Writes the reason why katd ends to the system log, by logger(1), with tag katd and priority
daemon.err:

  CheckDnsFail  the name of the classification service cannot be resolved
  CheckNetFail  the classification service does not answer

  -h, --help    print this
  --version     print the version

Environment:

  KATD_SYSLOG_MAIL    addresses that get the same message by mail, separated by blanks
  KATD_SYSLOG_MAILER  the mail command, called with "-s SUBJECT ADDRESS..." and the message on
                      its standard input; default: mail

Exit status: 0 reported; 1 logger or the mail command failed; 2 bad usage.
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
        echo "katd-syslog: unknown event $1: use CheckDnsFail or CheckNetFail" >&2
        exit 2
        ;;
    *)
        echo "katd-syslog: give one event, CheckDnsFail or CheckNetFail; see katd-syslog --help" >&2
        exit 2
        ;;
esac

# logger blocks while the system log's buffer is full. All limits together stay below the 60 seconds.
to_log() { timeout -k 2 8 logger -t katd -p daemon.err -- "$1"; }

status=0
if ! to_log "$text ($1)"; then
    echo "katd-syslog: logger failed; the message was: $text ($1)" >&2
    status=1
fi

if [ -n "${KATD_SYSLOG_MAIL:-}" ]; then
    # shellcheck disable=SC2086 # a command with its arguments, and several addresses
    if ! printf '%s.\n\nHost: %s\nTime: %s\n' "$text" "$(uname -n)" "$(date)" |
        timeout -k 5 30 ${KATD_SYSLOG_MAILER:-mail} -s "katd on $(uname -n): $1" $KATD_SYSLOG_MAIL; then
        echo "katd-syslog: the mail to $KATD_SYSLOG_MAIL was not sent: check KATD_SYSLOG_MAILER" >&2
        to_log "katd-syslog: the mail to $KATD_SYSLOG_MAIL was not sent"
        status=1
    fi
fi
exit "$status"
