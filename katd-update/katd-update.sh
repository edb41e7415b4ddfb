#!/bin/sh
# Brings the catalogue and katd's lists up to date with newly fetched lists, unless something about them looks wrong.
set -fu
umask 027
PATH=/usr/sbin:/usr/bin:/sbin:/bin

settings=/etc/default/katd-update
lists=/var/lib/katd/lists
catalog=$lists/catalog.mdb
cache=/var/cache/katd-update # its folders fetched and built belong to the user katd-update

usage() {
    cat << END
Usage: katd-update [-f] [-n]

Fetches block lists and brings the catalogue and katd's own lists up to date with them. Nothing
changes unless all could be read and have not shrunk too much. The settings are in
$settings; see katd-update(8).

  -f, --force    accept lists and a catalogue of any size
  -n, --dry-run  say what would change, and change nothing
  -h, --help     print this
  --version      print the version

Exit status: 0 all is up to date; 1 an update failed, what was in use still is;
2 bad usage or settings; 3 the lists were replaced, but katd has not reloaded them.
END
}

fail() {
    echo "katd-update: $1" >&2
    exit "${2:-1}"
}

force=
dry_run=
for argument in "$@"; do
    case "$argument" in
        -f | --force) force=yes ;;
        -n | --dry-run) dry_run=yes ;;
        -h | --help)
            usage
            exit 0
            ;;
        --version)
            echo "katd-update @PROJECT_VERSION@"
            exit 0
            ;;
        *) fail "unknown argument $argument; see katd-update --help" 2 ;;
    esac
done
[ "$(id -u)" = 0 ] || fail "run this as root" 2

FETCH='' CATALOG='' DOMAINS='' URLS='' MIN_ITEMS=1 MAX_SHRINK=50
# shellcheck source=/dev/null
[ ! -e "$settings" ] || . "$settings"
[ -n "$FETCH" ] || fail "set FETCH in $settings to the command that fetches the block lists" 2
[ -n "$CATALOG$DOMAINS$URLS" ] || fail "set CATALOG, DOMAINS or URLS in $settings: what to build from the block lists" 2

# as USER COMMAND...
as() {
    user=$1
    shift
    setpriv --reuid "$user" --regid "$user" --init-groups --inh-caps=-all env HOME="$cache/fetched" "$@"
}
# A list of katd without its first line, in an order that comm(1) takes.
items() { tail -n +2 "$1" | LC_ALL=C sort; }

cd "$cache/fetched" || fail "create the folders: systemd-tmpfiles --create katd.conf" 2
exec 9< .
flock -n 9 || fail "another katd-update is running"

as katd-update bash -o pipefail -ec "$FETCH" 9<&- || fail "FETCH failed with status $?; nothing changes"

limits="--min-items $MIN_ITEMS --max-shrink $MAX_SHRINK"
[ -z "$force" ] || limits=
trap 'rm -f "$lists/domains.list.new" "$lists/urls.list.new"' EXIT
trap 'exit 1' HUP INT TERM

# build NAME ARGUMENTS: makes NAME.list.new beside NAME.list. All reading and writing below $cache is done as
# katd-update, which could have put links there.
build() {
    old=$lists/$1.list
    new=$old.new
    # katlist compares a list with the one that it replaces.
    as katd-update rm -f "../built/$1.list"
    if [ -e "$old" ]; then
        as katd-update sh -c "umask 022; cat > ../built/$1.list" < "$old" || return
    fi
    as katd-update sh -c "umask 022; exec katlist build --quiet --$1 $limits -o ../built/$1.list $2" || return
    rm -f "$new"
    [ ! -e "$old" ] || cp --attributes-only --preserve=mode,ownership "$old" "$new" || return
    as katd-update cat "../built/$1.list" > "$new" && sync "$new" || return
    findings=$(as katd katlist check "$new" 2>&1) && return
    echo "$findings" >&2
    return 1
}

# The catalogue changes in place, in one transaction. Only the group katd may enter its folder, and FETCH runs without
# that group, so owning the file does not let FETCH write to it.
update_catalog() {
    chown katd-update "$catalog" || return
    setpriv --reuid katd-update --regid katd --clear-groups --inh-caps=-all \
        sh -c "exec katcatalog sync $limits ${dry_run:+--dry-run} $catalog $CATALOG" 9<&-
}

# install_new NAME: says what changes, and replaces the list.
install_new() {
    old=$lists/$1.list
    new=$old.new
    if cmp -s "$old" "$new"; then
        echo "$1.list: $(items "$new" | wc -l) items, unchanged"
        return 0
    fi
    items "$new" > "$work/new"
    : > "$work/old"
    [ ! -e "$old" ] || items "$old" > "$work/old"
    echo "$1.list: $(wc -l < "$work/new") items, $(LC_ALL=C comm -13 "$work/old" "$work/new" | wc -l) added," \
        "$(LC_ALL=C comm -23 "$work/old" "$work/new" | wc -l) removed"
    changed=yes
    [ -n "$dry_run" ] || mv "$new" "$old"
}

[ -z "$DOMAINS" ] || build domains "$DOMAINS" || fail "no new domains.list; nothing changes"
[ -z "$URLS" ] || build urls "$URLS" || fail "no new urls.list; nothing changes"
[ -z "$CATALOG" ] || update_catalog || fail "no update of the catalogue; nothing changes"

work=$(mktemp -d) || exit 1
trap 'rm -rf "$work" "$lists/domains.list.new" "$lists/urls.list.new"' EXIT
changed=
[ -z "$DOMAINS" ] || install_new domains || fail "cannot replace $lists/domains.list"
[ -z "$URLS" ] || install_new urls || fail "cannot replace $lists/urls.list"

[ -z "$dry_run" ] || changed=
[ -z "$changed" ] || as katd katc -s /run/katd/katd.sock --timeout 600 ctl reload ||
    fail "the new lists are in place, but katd has not loaded them; once it runs: systemctl reload katd" 3
