#!/usr/bin/env bash
# The units: systemd has no complaint, and they are no weaker than they were.
# Usage: unit_test.sh FOLDER KATD KATC KATD_SYSLOG KATD_UPDATE [KATD_HTTP]: the folder of the units, and the programs, as they are built
# shellcheck source=scripts/lib.sh
. "$(dirname "${BASH_SOURCE[0]}")/../../scripts/lib.sh"
make_scratch

# The programs are not installed where the units look for them.
cp "$1"/*.service "$source_tree/systemd/katd-update.timer" "$scratch"
for program in "${@:2}"; do sed -i -E "s#[^ =+-]*/s?bin/${program##*/}( |\$)#$program\1#" "$scratch"/*.service; done
complaints=$(systemd-analyze verify --man=no "$scratch"/katd* 2>&1 | grep -F katd)
[[ -z $complaints ]] || problem "systemd-analyze verify: $complaints"
# In tenths of the exposure level.
for limit in katd:15 katd-update:30 katd-http:15; do
    [[ -e $scratch/${limit%:*}.service ]] || continue
    systemd-analyze security --offline=true --no-pager --threshold="${limit#*:}" "$scratch/${limit%:*}.service" |
        tail -n 1
    ((PIPESTATUS[0] == 0)) || problem "${limit%:*}.service has become weaker"
done
end_of_test
