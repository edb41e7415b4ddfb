#!/bin/bash
# Runs katd where there is no systemd, and starts it again as the unit would. As root, in the foreground:
#     katd-run.sh
# In the background, with Debian's start-stop-daemon:
#     start-stop-daemon --start --background --make-pidfile --pidfile /run/katd-run.pid \
#         --output /var/log/katd-run.log --startas /usr/local/sbin/katd-run.sh
#     start-stop-daemon --stop --retry 60 --pidfile /run/katd-run.pid --remove-pidfile
set -u
umask 022

systemd-tmpfiles --create katd.conf # Debian package systemd-standalone-tmpfiles
find /var/lib/katd/data /var/log/katd -maxdepth 1 -type f -links 1 ! -user katd -exec chown -h katd {} +
KATD_PROXY_CONF=
[ ! -r /etc/default/katd ] || {
    set -a
    # shellcheck source=/dev/null
    . /etc/default/katd
    set +a
}
export KATD_DIR=/var/lib/katd WRITE_SYSLOG=/usr/sbin/katd-syslog
ulimit -c 0
ulimit -n 8192

stop() {
    trap '' INT TERM
    timeout 45 katc --timeout 45 ctl save_cache
    kill "$katd"
    exit 0
}
katd=
while :; do
    # shellcheck disable=SC2086 # unset or empty: no argument
    setpriv --reuid katd --regid katd --init-groups katd $KATD_PROXY_CONF &
    katd=$!
    trap stop INT TERM
    wait "$katd"
    status=$?
    trap - INT TERM
    echo "katd has ended with status $status"
    # Bad settings or a second katd; a missing library: starting it again does not help.
    case $status in 255 | 127) exit "$status" ;; esac
    sleep 12
done
