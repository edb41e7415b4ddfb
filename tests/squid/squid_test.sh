#!/usr/bin/env bash
# Debian's squid with its own squid.conf and the configurations of docs/squid.md, asked from its own machine and from its
# LAN, while lists change and katd goes and comes back. Needs root, for namespaces. Usage: squid_test.sh KATD KATC
# [KATD_HTTP]. The catalogue's engine and katcatalog are those of KATD's build, if it has them.
set -euo pipefail
# shellcheck source=scripts/lib.sh
. "$(dirname "${BASH_SOURCE[0]}")/../../scripts/lib.sh"

as_root true || { echo "squid_test.sh: left out, since making a LAN needs root" && exit 77; }
need_root "$@"
[[ -n ${APART:-} ]] || APART=yes exec unshare --mount --net --pid --fork --kill-child --mount-proc "$0" "$@"
for folder in /run /dev/shm /var/log/squid; do mount -t tmpfs -o mode=0777 tmpfs "$folder"; done

ip link set lo up
ip netns add lan
ip link add veth0 type veth peer name veth1 netns lan
ip addr add 192.168.7.1/24 dev veth0 && ip link set veth0 up
ip -n lan addr add 192.168.7.2/24 dev veth1 && ip -n lan link set veth1 up
printf '%s\n' "127.0.0.1 localhost" "192.168.7.1 ads.example good.example games.example both.example" > /run/hosts
mount --bind /run/hosts /etc/hosts
mkdir /run/www && echo page > /run/www/index.html
for port in 80 443; do busybox httpd -p "192.168.7.1:$port" -h /run/www; done

katd_command=("$1")
katc_command=(/run/katc)
install "$2" /run/katc
log=squid-test-$RANDOM$RANDOM.log
at_exit rm -f "/tmp/$log.lock" "/tmp/$log.rlock"
make_home /run/home "$log"
chgrp proxy /run/home/run && ln -s home/run /run/katd
domain() { printf '1|%d\n044|%s\n' ${#1} "$1" > /run/home/lists/domains.list; }
domain ads.example
printf '1|20\n044|good.example/page/ad b\n' > /run/home/lists/urls.list
printf 'host %s\n' "both.example 33,44" "games.example 33" > /run/home/rules
printf '%s\n' advertising=44 games=33 gambling=34 > /run/categories
start_katd /run/home

cp -a /etc/squid /run/etc-squid
mount --bind /run/etc-squid /etc/squid
sed -i 's/^#http_access allow localnet/http_access allow localnet/' /etc/squid/conf.d/debian.conf

# start_squid FILE PATTERN [EDIT]: the configuration of the page that matches, in that file, changed by sed.
start_squid() {
    variant=$*
    rm -f /etc/squid/conf.d/*katd.conf /var/log/squid/*.log
    awk -v RS= "/$2/" "$source_tree/docs/squid.md" | sed -n 's/^    //p' | sed -E "s/ttl=60/ttl=0/g
        s#/(usr/bin|etc/katd)/#/run/#g; s/time MTWHF.*/src all/; ${3-}" > "/etc/squid/conf.d/$1"
    printf '%s\n' "visible_hostname test.invalid" "shutdown_lifetime 0 seconds" "cache deny all" \
        "logformat test %ru %Hs %ea [%note{category_}] [%note{name_}]" \
        "access_log stdio:/var/log/squid/test.log test" >> "/etc/squid/conf.d/$1"
    squid -N > /run/squid.out 2>&1 < /dev/null &
    squid_pid=$!
    wait_until 60 curl -s -o /dev/null -x 127.0.0.1:3128 http://192.168.7.1/ ||
        fail "$variant: $(tail -n 9 /run/squid.out /var/log/squid/cache.log)"
}
stop_squid() {
    kill "$squid_pid" || problem "$variant: squid has ended"
    wait "$squid_pid" || true
    ! grep -iE 'exited|crash|FATAL|assert' /var/log/squid/cache.log || problem "$variant: squid lost a helper"
}

# expect ANSWER URL [CURL-OPTION...]: the statuses of the page and of CONNECT, and the location of a redirect, a pattern
# with @ for the client's address. Asked by each of $clients.
clients="lan self"
expect() {
    local client answer
    for client in $clients; do
        local from=() proxy=127.0.0.1 ip=127.0.0.1
        [[ $client == self ]] || from=(ip netns exec lan) proxy=192.168.7.1 ip=192.168.7.2
        answer=$("${from[@]}" curl -s -o /dev/null --max-time 60 -x "$proxy:3128" "${@:3}" \
            -w '%{http_code} %{http_connect} %{redirect_url}' "http://$2" || true)
        # shellcheck disable=SC2053 # a pattern
        [[ $answer == ${1/@/$ip} ]] || problem "$variant: $2 from $client gives [$answer], not [$1]"
    done
}

page="302 000 http://intranet.example/blocked?"
for edit in "" 's/ concurrency=64//; s/ --concurrency//'; do
    start_squid 10-katd.conf "external_acl_type katd_block" "$edit"
    blocked="${page}category=advertising&client=@&url=http%3A%2F%2F"
    expect "${blocked}both.example%2F" both.example
    expect "${blocked}ads.example%3A8080%2Fx%2520y%3Fz" user@ads.example.:8080/x%20y?z
    expect "${blocked}good.example%2Fpage%2Fad%2520b.html" good.example/page/ad%20b.html
    expect "200 000 " good.example
    expect "000 302 " ads.example:443 -p
    expect "200 200 " good.example:443 -p
    # Each of many gets its own answer, by the new list.
    domain good.example
    "${katc_command[@]}" -s /run/katd/katd.sock ctl reload
    curl -s -Z --no-progress-meter --parallel-max 30 -o /dev/null -x 192.168.7.1:3128 'http://{ads,good,good}.example/?[1-20]' \
        -w '%{http_code} %{url}\n' | sed 's/?.*//' | sort | uniq -c | tr -s ' \n' ' ' > /run/many
    [[ $(cat /run/many) == " 20 200 http://ads.example/ 40 302 http://good.example/ " ]] ||
        problem "$variant: of many pages: $(cat /run/many)"
    stop_katd
    expect "${page}category=no%20daemon%20answers*" games.example # BH, which http_access takes for a refusal
    domain ads.example
    start_katd /run/home
    expect "200 000 " games.example
    stop_squid

    start_squid 10-katd.conf "external_acl_type katd " "$edit"
    expect "200 000 " ads.example
    expect "403 000 " both.example
    logged='http://both.example/ 403 games,advertising [33,44] [games,advertising]'
    wait_until 60 grep -qF "$logged" /var/log/squid/test.log || problem "$variant: $(cat /var/log/squid/test.log)"
    stop_squid

    start_squid 10-katd.conf "url_rewrite_program" "$edit"
    expect "200 000 " good.example
    expect "${page}category=44&url=http%3A%2F%2Fads.example%2F%3Fa%3D%2520" ads.example/?a=%20
    expect "000 302 " ads.example:443 -p
    stop_squid
done

# The block page of katd-http, to which squid redirects and which asks katd itself.
if (($# > 2)); then
    awk '$0 == "```ini" { inside = 1; next } $0 == "```" { inside = 0 } inside' "$source_tree/docs/squid.md" |
        sed 's#/etc/katd/#/run/#' > /run/home/conf/katd-http.ini
    KATD_DIR=/run/home "$3" > /run/http.out 2>&1 &
    at_exit kill $!
    wait_until 30 curl -s -o /dev/null http://127.0.0.1:8480/healthz || fail "katd-http: $(< /run/http.out)"
    line=$(sed -n 's/^    \(deny_info.*policy=lan.*\)/\1/p' "$source_tree/docs/squid.md")
    start_squid 10-katd.conf "external_acl_type katd_block" "s|^deny_info.*|${line//&/\\&}|"
    expect "302 000 http://192.168.7.1:8480/blocked?policy=lan&url=http%3A%2F%2Fads.example%2Fa%2520b&category=advertising" \
        ads.example/a%20b
    page_of() { ip netns exec lan curl -s -L -x 192.168.7.1:3128 "$1"; }
    [[ $(page_of http://ads.example/a%20b) == *'<code>ads.example</code></dd>'*'<dd>advertising</dd>'*'<code>http://ads.example/a%20b</code>'* ]] ||
        problem "no block page: $(page_of http://ads.example/a%20b)"
    [[ $(page_of "http://192.168.7.1:8480/blocked?policy=lan&url=http://good.invalid/&category=advertising") == *"not blocked"* ]] ||
        problem "a forged link claims a block"
    [[ $(page_of http://192.168.7.1:8480/) == *"no such page"* ]] || problem "the LAN sees the administrator's page"
    stop_squid
fi

# A helper that was configured otherwise than squid refuses, and does not bring squid down.
start_squid 10-katd.conf "external_acl_type katd_block" 's/ --concurrency//; /^deny_info/d'
expect "403 000 " good.example
stop_squid
# The reason for the file's name: a rule behind those of Debian's file does not reach the LAN.
start_squid katd.conf "external_acl_type katd_block" '/^deny_info/d'
clients=lan expect "200 000 " ads.example
clients=self expect "403 000 " ads.example
stop_squid

# By a catalogue, which covers what is below its entries.
build=$(dirname "$1")/..
if [[ -x $build/katcatalog/katcatalog ]]; then
    stop_katd
    "$build/katcatalog/katcatalog" import -q -o /run/home/data/catalog.mdb - <<< '44|both.example'
    katd_command=(env "LD_LIBRARY_PATH=$build/engine/catalog" "$1")
    start_katd /run/home
    start_squid 10-katd.conf "external_acl_type katd_block"
    blocked="${page}category=advertising&*"
    expect "$blocked" www.both.example
    expect "$blocked" both.example
    expect "200 000 " games.example
    stop_squid
fi
end_of_test
