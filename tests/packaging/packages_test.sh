#!/usr/bin/env bash
# The Debian packages in a Debian system of their own: installed, used, upgraded, removed and purged. Needs root, or sudo
# without a password, and the network. Usage: packages_test.sh [--built] [amd64|i386]...; --built: those in build/packages
set -Eeuo pipefail
cd "$(dirname "$0")/../.."
. scripts/bits32.sh
need_root "$@"
[[ ${1:-} == --built ]] && built=yes && shift || built=
(($#)) || set -- amd64 i386
scripts/packages.sh mmdebstrap arch-test g++ g++-multilib
[[ -n $built ]] || scripts/build-packages.sh "$@"
katc_command=(as asker katc)
log=$PWD/build/packages-test.log
trap 'tail -n 20 "$log" >&2; fail "$architecture: line $LINENO failed; all output is in $log"' ERR

inside() { chroot "$system" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin DEBIAN_FRONTEND=noninteractive \
    "http_proxy=${http_proxy:-}" "https_proxy=${https_proxy:-}" "$@" >> "$log" 2>&1; }
install() { inside sh -c "apt-get install -y --no-install-recommends -o Dpkg::Options::=--force-confold $*"; }
as() { chroot "--userspec=$1" "$system" env KATD_DIR=/var/lib/katd HOME=/ "${@:2}"; }
# Each line: USER@COMMAND@what its output has to contain, or ! if it has to fail.
check() {
    local user command expected output status
    while IFS=@ read -r user command expected; do
        status=0
        output=$(as "$user" sh -c "$command" 2>&1 < /dev/null) || status=$?
        if [[ $expected == ! ]]; then ((status != 0)); else [[ $output == *"$expected"* ]]; fi ||
            fail "$architecture: $user: $command: status $status, not [$expected] but [$output]"
    done
}
unmount_proc() { ! mountpoint -q "$system/proc" || umount "$system/proc"; }
has() { compgen -G "$system/packages/$1_*" > /dev/null; }
check_installed() {
    check << 'END'
root@cd /var/lib/katd && stat -c '%a %U %G' . conf/katd.ini | xargs@750 root katd 640 katd katd
root@cd /var/lib/katd && stat -c '%a %U %G' lists data run/ log/ | xargs@2750 root katd 700 katd katd 750 katd katd 2750 katd adm
END
}

for architecture; do
    [[ $architecture == amd64 ]] || find_run32
    [[ ${run32:=native} == native || -n $run32_nested ]] || { say "i386: built, not tried: no 32-bit programs run" && continue; }
    [[ $architecture == amd64 ]] && flags=() || flags=(-m32)
    say "$architecture: making a system, installing katd alone, then the rest"
    system=$PWD/build/packages-test-$architecture
    # Not by as(): stop_katd would end its shell and leave katd.
    katd_command=(chroot --userspec=katd "$system" env KATD_DIR=/var/lib/katd ASAPSDK_RULES=/rules katd)
    unmount_proc
    rm -rf "$system"
    # shellcheck disable=SC2016 # a format of apt's
    mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' 'Codename: bookworm' | head -n 1)
    mmdebstrap --variant=apt --skip=cleanup/apt "--architectures=$architecture" bookworm "$system" "$mirror" > "$log" 2>&1
    mount -t proc proc "$system/proc"
    at_exit unmount_proc
    cp /etc/resolv.conf /etc/hosts "$system/etc"
    mkdir "$system/packages" "$system/higher"
    cp build/packages/*[a-z1]_*_"$architecture".deb "$system/packages"
    rm -f "$system"/packages/*-dbgsym_*
    version=$(dpkg-deb -f "$system"/packages/katd_* Version)
    install /packages/katd_*
    check_installed
    check <<< 'katd@katd@libasapsdk.so: cannot open shared object file'
    inside useradd -G katd asker
    # The packages' scripts find a running systemd; it records each start of katd with the lists of that moment.
    mkdir -p "$system/run/systemd/system"
    cat > "$system/usr/bin/systemctl" << 'END'
#!/bin/sh
case "$*" in
    *is-enabled*) echo enabled ;;
    *"start katd.service") echo start $(ls /var/lib/katd/lists) >> /starts ;;
esac
END
    if has katd-engine-catalog; then
        inside apt-get purge -y katd
        install /packages/katd_* /packages/katc_* /packages/katd-engine-catalog_*
        start_katd "$system"
        check << 'END'
root@[ "$(cat /starts)" = "start catalog.mdb" ] && echo once@once
asker@katc http://www.shop.example/ | grep 'known	$'@known
root@umask 077 && printf 'shop.example\ngames.example\n' > /two && katcatalog import -o /var/lib/katd/lists/catalog.mdb 7=/two@2 entries
asker@timeout 20 sh -c 'until katc http://www.shop.example/ | grep "known	7"; do sleep 0.1; done'@known	7
root@stat -c '%a %U %G' /var/lib/katd/lists/catalog.mdb@640 root katd
root@umask 077 && printf 'FETCH="cp /hosts ." CATALOG=9=hosts MAX_SHRINK=0' > /etc/default/katd-update && install -m 644 /two /hosts && echo toys.example >> /hosts@
root@katd-update --dry-run@1 entries added
root@katd-update@2 entries changed
asker@katc http://www.toys.example/@known	9
root@echo toys.example > /hosts && katd-update@!
asker@katc http://www.shop.example/@known	9
root@stat -c '%a %U %G' /var/lib/katd/lists/catalog.mdb@640 katd-update katd
END
        stop_katd
        rm "$system"/packages/katd-engine-catalog_* "$system/etc/default/katd-update"
    fi
    install '/packages/*.deb' # the stand-in in place of the catalogue
    echo "host news.engine.example 34" > "$system/rules"
    cp demo/lists/*.list "$system/var/lib/katd/lists"
    for library in "$system"/usr/lib/*/libkatclient.{so,a}; do
        gcc "${flags[@]}" -I "$system/usr/include" -o "$system/${library##*.}" tests/libkatclient/c/ask.c "$library"
    done
    start_katd "$system"
    check << END
nobody@katc --version && katlist --version && katd-syslog --version@$version
asker@katc http://www.harbour-gazette.example/@known	12
asker@/so /run/katd/katd.sock news.engine.example | grep 'first 34' && /a /run/katd/katd.sock news.engine.example | sed s/^/static:/@static:news.engine.example status 0 known 1 count 1 first 34
nobody@katc news.engine.example || katc -s /run/katd/katd.sock news.engine.example@!
asker@katc ctl save_cache && cat /var/lib/katd/data/*@!
root@[ -s /var/lib/katd/data/categories.cache ] && echo saved@saved
asker@cat /var/lib/katd/log/katd.log@!
asker@echo >> /var/lib/katd/conf/katd.ini@!
katd@touch /var/lib/katd/lists/new@!
END
    ! has katd-http || check << 'END'
katd-http@id -Gn && katd-http -s /etc/katd/katd-http.ini --check@katd-http katd
root@systemd-analyze verify --man=no /lib/systemd/system/katd*.* && echo verified@verified
katd-http@cd /tmp && printf '[katd-http]\nlisten = unix:/tmp/http\n' > ini && katd-http -s ini & while [ ! -S /tmp/http ]; do sleep 0.1; kill -0 $! || exit; done; perl -MIO::Socket::UNIX -e '$s = IO::Socket::UNIX->new("/tmp/http"); $s->print("GET /healthz HTTP/1.0\r\n\r\n"); print <$s>'; kill $!@ 200 OK
END
    stop_katd

    say "$architecture: upgrading, with settings that the administrator has changed"
    for package in "$system"/packages/*.deb; do
        dpkg-deb -R "$package" "$system/tmp/new"
        sed -i "s/$version/$version+1/" "$system/tmp/new/DEBIAN/control"
        [[ $package != */katd_* ]] || echo "; of the higher version" >> "$system/tmp/new/etc/katd/katd.ini"
        dpkg-deb -b "$system/tmp/new" "$system/higher" >> "$log"
        rm -r "$system/tmp/new"
    done
    echo "; of the administrator" >> "$system/etc/katd/katd.ini"
    chown root:root "$system/etc/katd/katd.ini" # as some editors leave a file
    rm "$system/starts"
    install '/higher/*.deb'
    check_installed
    check <<< 'root@wc -l < /starts@1'
    start_katd "$system"
    check << END
root@dpkg-query -W katd && cat /etc/katd/katd.ini | xargs -d '\n'@$version+1
root@cat /etc/katd/katd.ini@of the administrator
asker@katc http://www.harbour-gazette.example/@known	12
root@katd-update@!
root@seq -f h%g.example 300 > /hosts && echo 'FETCH="cp /hosts ." DOMAINS=12=hosts' > /etc/default/katd-update@
root@umask 077 && katd-update@domains.list: 300 items, 300 added
root@echo h1.example > /hosts && katd-update@!
asker@katc h300.example@known	12
root@katd-update --force@domains.list: 1 items, 0 added, 299 removed
asker@katc h300.example@unknown
END
    stop_katd

    say "$architecture: removing and purging"
    inside apt-get remove -y '~i~nkat[dc]'
    check << 'END'
root@find /usr /lib/systemd -name 'kat[dcl]*' -not -path '*/zoneinfo/*' | grep .@!
root@ls /etc/katd/katd.ini /etc/default/katd /var/lib/katd/lists/urls.list /var/log/katd/katd.log && echo kept@kept
root@apt-get purge -y '~c'@Purging
root@find /etc /var /run -name '*kat[dcl]*' -not -path '/var/lib/apt/*' -not -path '/var/cache/apt/*' | grep .@!
root@getent passwd katd@katd
END
    unmount_proc
    rm -rf "$system"
done
