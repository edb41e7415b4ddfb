#!/usr/bin/env bash
# The Debian packages in a system of their own: installed, used, replaced by a higher version, removed and purged.
set -Eeuo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."

usage() {
    cat << 'END'
Usage: tests/packaging/packages_test.sh [--built] [amd64|i386]...

Builds the packages (scripts/build-packages.sh) for both architectures or those given, makes a small Debian system
below build/packages-test with debootstrap, and tries the packages in it with chroot. Needs root, or sudo without a
password, and the network.

  --built     take the packages that are in build/packages already
  -h, --help  print this

Exit status: 0 everything was as it should be; 1 not; 2 bad usage.
END
}

built=
architectures=()
for argument in "$@"; do
    case "$argument" in
        -h | --help)
            usage
            exit 0
            ;;
        --built) built=yes ;;
        amd64 | i386) architectures+=("$argument") ;;
        *)
            usage >&2
            exit 2
            ;;
    esac
done
[[ ${#architectures[@]} -gt 0 ]] || architectures=(amd64 i386)

if [[ $EUID -ne 0 ]]; then
    sudo -n true 2> /dev/null || {
        echo "packages_test.sh: making a system needs root: run it with sudo" >&2
        exit 1
    }
    exec sudo -n "$0" "$@"
fi
# Mounts and processes are gone when this script has ended, however it ends.
if [[ ${PACKAGES_TEST_APART:-} != yes ]]; then
    scripts/packages.sh debootstrap g++ g++-multilib pkgconf
    [[ -n $built ]] || scripts/build-packages.sh "${architectures[@]}"
    PACKAGES_TEST_APART=yes exec unshare --mount --pid --fork --kill-child "$0" --built "${architectures[@]}"
fi

mkdir -p build/packages-test
log=$PWD/build/packages-test/log
: > "$log"
step=
say() {
    step=$*
    echo "== $architecture: $*" | tee -a "$log"
}
fail() {
    echo "packages_test.sh: $architecture: $step: $*; all output is in $log" >&2
    exit 1
}
trap 'tail -n 15 "$log" >&2; fail "line $LINENO failed"' ERR

# Runs a command in the system, its output to the log.
inside() { chroot "$system" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin DEBIAN_FRONTEND=noninteractive \
    "http_proxy=${http_proxy:-}" "https_proxy=${https_proxy:-}" "$@" >> "$log" 2>&1; }
# The same, as a user, and printing.
as() {
    local user=$1
    shift
    chroot "$system" runuser -u "$user" -- env KATD_DIR=/var/lib/katd "$@" 2>&1 < /dev/null
}
refused() { ! "$@" >> "$log" 2>&1 || fail "this should be refused: $*"; }
holds() { [[ $2 == *$3* ]] || fail "$1: not [$3] but [$2]"; }

make_system() {
    local base=build/packages-test/base-$architecture
    local mirror
    # shellcheck disable=SC2016 # a format of apt's
    mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' 'Codename: bookworm' | head -n 1)
    if [[ ! -e $base/complete ]]; then
        say "a Debian system from $mirror"
        rm -rf "$base"
        debootstrap --variant=minbase "--arch=$architecture" bookworm "$base" "$mirror" >> "$log" 2>&1
        touch "$base/complete"
    fi
    rm -rf "$system"
    cp -a --reflink=auto "$base" "$system"
    mount -t proc proc "$system/proc"
    cp /etc/resolv.conf "$system/etc/resolv.conf"
    echo "127.0.0.1 localhost" > "$system/etc/hosts"
    # Nothing is started by itself here: no service manager runs.
    printf '#!/bin/sh\nexit 101\n' > "$system/usr/sbin/policy-rc.d"
    chmod +x "$system/usr/sbin/policy-rc.d"
    mkdir "$system/packages" "$system/higher"
    cp build/packages/*_"$architecture".deb "$system/packages"
    rm -f "$system"/packages/*-dbgsym_*
    inside apt-get update
}

# The same packages with a higher version, and with other settings.
make_higher() {
    local package name
    for package in "$system"/packages/*.deb; do
        name=${package##*/}
        rm -rf "$system/repacked"
        dpkg-deb -R "$package" "$system/repacked"
        sed -i "s/$version/$higher/" "$system/repacked/DEBIAN/control"
        [[ $name != katd_* ]] || echo "; of the higher version" >> "$system/repacked/etc/katd/katd.ini"
        dpkg-deb -b "$system/repacked" "$system/higher/${name/$version/$higher}" >> "$log"
    done
    rm -rf "$system/repacked"
}

check_modes() {
    local expected actual
    while read -r expected; do
        actual=$(chroot "$system" stat -c '%a %U %G %n' "${expected##* }") || fail "there is no ${expected##* }"
        [[ $actual == "$expected" ]] || fail "not [$expected] but [$actual]"
    done << 'END'
750 root katd /var/lib/katd
750 root katd /var/lib/katd/lists
700 katd katd /var/lib/katd/data
750 katd katd /var/lib/katd/run/
750 katd adm /var/lib/katd/log/
640 katd katd /var/lib/katd/conf/katd.ini
755 root root /etc/katd
END
}

start_katd() {
    { as katd env ASAPSDK_RULES=/rules katd >> "$log" || true; } &
    # The socket of the one before is still there.
    local attempt
    for attempt in {1..100}; do
        ! as asker katc ctl urls_stat >> "$log" || return 0
        sleep 0.1
    done
    fail "katd does not answer at the attempt number $attempt"
}

stop_katd() {
    kill "$(tr -d '\0' < "$system/var/lib/katd/data/katd.pid")"
    wait
}

# A program of somebody else, built with what the packages hold, asks as a member of the group.
try_library() {
    local triplet=x86_64-linux-gnu options=()
    [[ $architecture == amd64 ]] || { triplet=i386-linux-gnu && options=(-m32); }
    cat > "$system/ask.c" << 'END'
#include <katclient.h>
#include <stdio.h>

int main(void) {
    katclient *client;
    katclient_answer answer;
    if (katclient_open("/run/katd/katd.sock", &client) != KATCLIENT_OK) return 2;
    if (katclient_ask(client, "news.engine.example", 0, &answer) != KATCLIENT_OK) puts(katclient_message(client));
    printf("%s: %d of %d\n", katclient_version(), (int)answer.categories[0], (int)answer.count);
    katclient_close(client);
    return 0;
}
END
    local pkg_config=(env "PKG_CONFIG_SYSROOT_DIR=$system" "PKG_CONFIG_LIBDIR=$system/usr/lib/$triplet/pkgconfig"
        pkgconf katclient)
    # shellcheck disable=SC2046 # words
    {
        gcc "${options[@]}" -std=c99 -Wall -Wextra -Werror -o "$system/ask" "$system/ask.c" \
            $("${pkg_config[@]}" --cflags --libs)
        gcc "${options[@]}" -std=c99 -o "$system/ask-static" "$system/ask.c" \
            $("${pkg_config[@]}" --cflags) -Wl,-Bstatic $("${pkg_config[@]}" --static --libs) -Wl,-Bdynamic
    } >> "$log" 2>&1
    holds "the shared library" "$(as asker /ask)" ": 34 of 1"
    holds "the static library" "$(as asker /ask-static)" ": 34 of 1"
    ! ldd "$system/ask-static" | grep -q katclient || fail "the static library was not taken"
}

try_packages() {
    say "installing katd alone"
    inside apt-get install -y --no-install-recommends "/packages/katd_${version}_$architecture.deb"
    check_modes
    local output status=0
    output=$(as katd katd) || status=$?
    holds "without an engine" "$output" "libasapsdk.so: cannot open shared object file"
    [[ $status == 127 ]] || fail "without an engine the status is $status"
    ! dpkg-deb -f "build/packages/katd_${version}_$architecture.deb" Depends | grep -q standin ||
        fail "katd depends on the stand-in"

    say "installing the rest"
    inside sh -c 'apt-get install -y --no-install-recommends /packages/*.deb'
    local tool
    for tool in "katc --version" "katlist --version" "katd-syslog --version"; do
        # shellcheck disable=SC2086 # words
        holds "$tool" "$(as nobody $tool)" "$version"
    done

    say "asking"
    echo "host news.engine.example 34" > "$system/rules"
    cp demo/lists/*.list "$system/var/lib/katd/lists"
    inside useradd -G katd asker
    start_katd
    holds "a member" "$(as asker katc http://www.harbour-gazette.example/)" $'known\t12'
    holds "the engine" "$(as asker katc news.engine.example)" $'known\t34'
    refused as nobody katc news.engine.example
    refused as nobody katc -s /run/katd/katd.sock news.engine.example
    as asker katc ctl save_cache >> "$log"
    [[ -s $system/var/lib/katd/data/categories.cache ]] || fail "no cache is saved"
    refused as asker cat /var/lib/katd/log/katd.log
    refused as asker cat /var/lib/katd/data/categories.cache
    refused as asker sh -c 'echo >> /var/lib/katd/conf/katd.ini'
    refused as katd touch /var/lib/katd/lists/new
    try_library
    stop_katd

    say "replacing them by a higher version"
    make_higher
    echo "; of the administrator" >> "$system/etc/katd/katd.ini"
    # As an editor that writes a new file leaves it.
    chown root:root "$system/etc/katd/katd.ini"
    inside sh -c 'apt-get install -y --no-install-recommends -o Dpkg::Options::=--force-confold /higher/*.deb'
    holds "the version" "$(chroot "$system" dpkg-query -W katd katc libkatclient1)" "$higher"
    grep -q 'of the administrator' "$system/etc/katd/katd.ini" || fail "the administrator's settings are lost"
    check_modes
    start_katd
    holds "after the upgrade" "$(as asker katc http://www.harbour-gazette.example/)" $'known\t12'
    stop_katd

    say "removing"
    inside apt-get remove -y katd katc libkatclient1 libkatclient-dev katd-engine-standin
    local path
    for path in /usr/sbin/katd /usr/bin/katc /usr/bin/katlist /lib/systemd/system/katd.service; do
        [[ ! -e $system$path ]] || fail "$path is still there"
    done
    for path in /etc/katd/katd.ini /etc/default/katd /var/lib/katd/lists/urls.list /var/log/katd/katd.log; do
        [[ -e $system$path ]] || fail "$path is lost"
    done

    say "purging"
    # The others keep nothing and are gone.
    inside apt-get purge -y katd
    local left
    left=$(find "$system" -xdev \( -name '*katd*' -o -name '*katc*' -o -name '*katlist*' -o -name '*asapsdk*' \) \
        -not -path '*/zoneinfo/*' -not -path "$system/packages/*" -not -path "$system/higher/*" -not -path "$system/tmp/katd.log.*lock")
    [[ -z $left ]] || fail "left over: $left"
    chroot "$system" getent passwd katd >> "$log" || fail "the user is gone, whose files may be elsewhere"
}

for architecture in "${architectures[@]}"; do
    system=$PWD/build/packages-test/$architecture
    version=$(dpkg-parsechangelog -l debian/changelog -S Version)
    higher=$version+1
    make_system
    try_packages
    umount "$system/proc"
    rm -rf "$system"
    echo "== $architecture: as it should be"
done
