#!/usr/bin/env bash
# The systemd unit: no complaint, and no weaker than it was.
# Usage: unit_test.sh UNIT KATD KATC KATD_SYSLOG, as they are built
set -euo pipefail

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
# The programs are not installed where the unit looks for them.
sed -E "s#[^ =-]*/sbin/katd-syslog#$4#; s#[^ =-]*/sbin/katd #$2 #; s#[^ =-]*/bin/katc #$3 #" "$1" > "$scratch/katd.service"

complaints=$(systemd-analyze verify --man=no "$scratch/katd.service" 2>&1 | grep -F katd.service || true)
if [[ -n $complaints ]]; then
    echo "unit_test: systemd-analyze verify complains: $complaints" >&2
    exit 1
fi
# Tenths of the exposure level, of 100.
systemd-analyze security --offline=true --no-pager --threshold=15 "$scratch/katd.service" > "$scratch/report" || {
    tail -n 1 "$scratch/report" >&2
    exit 1
}
tail -n 1 "$scratch/report"
