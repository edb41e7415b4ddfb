#!/usr/bin/env bash
# The configurations of docs/web-servers.md in the real nginx and Caddy, katd-http's pages in a real browser, and what
# monitoring reads by Prometheus' own checks. In a network namespace of its own, so that the addresses of the
# documentation are free.
# usage: front_servers_test.sh KATD KATC KATD_HTTP KATCATALOG
set -euo pipefail
# shellcheck source=scripts/lib.sh
. "$(dirname "${BASH_SOURCE[0]}")/../../scripts/lib.sh"

need_root "$@"
[[ ${KATD_TEST_NAMESPACE:-} == yes ]] || KATD_TEST_NAMESPACE=yes exec unshare --net -- "$0" "$@"
ip link set lo up
katd_command=("$1")
katc_command=("$2")
katd_http=$3
PATH=$(dirname "$2"):$(dirname "$4"):$PATH # for the administrator's page
make_scratch
home=$scratch/home
make_home "$home" "front-servers-$$.log"
chmod 755 "$scratch"

# start NAME PORT COMMAND...: in the background, until something listens on the port.
start() {
    local name=$1 port=$2
    shift 2
    "$@" > "$scratch/$name.log" 2>&1 &
    at_exit kill $!
    # shellcheck disable=SC2016 # the inner shell expands it
    wait_until 30 bash -c 'exec 3<> "/dev/tcp/127.0.0.1/$1"' port "$port" 2> /dev/null || {
        tail -n 20 "$scratch/$name.log" >&2
        fail "$name does not listen on port $port"
    }
}

# code_block LANGUAGE PATTERN: the block of the page in that language that matches.
code_block() {
    awk -v language="\`\`\`$1" -v pattern="$2" '
        $0 == language { inside = 1; text = ""; next }
        $0 == "```" { if (inside && text ~ pattern) { printf "%s", text; exit } inside = 0 }
        inside { text = text $0 "\n" }' "$source_tree/docs/web-servers.md"
}

# expect WHAT PATTERN CURL-ARGUMENT...: curl's output, with the reply's head, matches.
expect() {
    local what=$1 pattern=$2 output
    shift 2
    output=$(curl -sS -i --max-time 10 "$@" 2>&1) || true
    # shellcheck disable=SC2053 # a pattern
    [[ $output == $pattern ]] || problem "$what: not as expected: $output"
}

printf '%s\n' shop.example '||play.shop.example^' > "$scratch/ads.txt"
"$4" import -q --category 44 -o "$home/data/catalog.mdb" "$scratch/ads.txt"
start_katd "$home"
start katd-http 8480 env KATD_DIR="$home" "$katd_http"

mkdir "$scratch/site"
echo 'the site' > "$scratch/site/index.html"
mkdir -p "$scratch/site/ads"
echo 'an advertisement' > "$scratch/site/ads/top.gif"
start site 8000 busybox httpd -f -p 127.0.0.1:8000 -h "$scratch/site"

{
    printf 'pid %s/nginx.pid; daemon off; error_log stderr; events {} http { access_log off;\n' "$scratch"
    code_block nginx auth_request
    echo '}'
} > "$scratch/nginx.conf"
start nginx 80 nginx -c "$scratch/nginx.conf"
{
    printf '{\n admin off\n}\n'
    code_block caddyfile forward_auth
} > "$scratch/Caddyfile"
start caddy 8081 env HOME="$scratch" caddy run --config "$scratch/Caddyfile" --adapter caddyfile

expect "nginx passes" 'HTTP/1.1 200*the site*' -H 'Host: www.orchard-museum.example' http://127.0.0.1/
expect "nginx refuses" 'HTTP/1.1 302*Location: http://127.0.0.1:8480/blocked?policy=guests&url=http*category=44*' \
    -H 'Host: media.cdn-edge.example' http://127.0.0.1/ads/top.gif
expect "nginx refuses a long URL" 'HTTP/1.1 302*HTTP/1.1 403*<dd>advertising</dd>*' -L \
    -H 'Host: media.cdn-edge.example' "http://127.0.0.1/ads/$(printf '%%41%.0s' {1..4000})"
expect "nginx replaces a client's header" 'HTTP/1.1 302*' -H 'Host: media.cdn-edge.example' \
    -H 'X-Original-URL: http://www.orchard-museum.example/' http://127.0.0.1/ads/top.gif
expect "nginx serves the block page" 'HTTP/1.1 403*<dd>advertising</dd>*' \
    'http://127.0.0.1/blocked?policy=guests&url=http://media.cdn-edge.example/ads/top.gif'
expect "Caddy passes" 'HTTP/1.1 200*the site*' -H 'Host: www.orchard-museum.example' http://127.0.0.1:8081/
expect "Caddy refuses" 'HTTP/1.1 302*Location: http://127.0.0.1:8480/blocked?policy=staff&url=http*category=12*' \
    -H 'Host: www.harbour-gazette.example' http://127.0.0.1:8081/
expect "Caddy replaces a client's headers" 'HTTP/1.1 302*' -H 'Host: www.harbour-gazette.example' \
    -H 'X-Forwarded-Host: www.orchard-museum.example' http://127.0.0.1:8081/
expect "the administrator's page" 'HTTP/1.1 200*5 education, 8 travel*' \
    'http://127.0.0.1:8480/?url=www.orchard-museum.example'
expect "the item of a list" '*domains.list</code>*<code>www.harbour-gazette.example</code>, which is the host<br>12 news*' \
    'http://127.0.0.1:8480/?url=www.harbour-gazette.example'
expect "the entries of a catalogue" \
    '*catalog.mdb</code></dd>*<code>play.shop.example</code><br>44 advertising, from <code>/*/ads.txt</code> (2 lines)*' \
    'http://127.0.0.1:8480/?url=play.shop.example'

"${katc_command[@]}" -s "$home/run/katd.sock" ctl urls_stat
curl -sS http://127.0.0.1:8480/metrics > "$scratch/metrics"
promtool check metrics < "$scratch/metrics" || problem "promtool refuses the metrics page"
promtool check rules "$source_tree/docs/katd-alerts.yml" > "$scratch/promtool" ||
    problem "promtool refuses the alert rules: $(< "$scratch/promtool")"
grep -q '^katd_engine_urls{kind="asked"}' "$scratch/metrics" || problem "katd's own counters are not on the metrics page"

# A browser runs what could be markup; the title would then be another one. URLs of 16 KB.
page() {
    timeout 60 chromium --headless --no-sandbox --disable-gpu --disable-quic --no-first-run \
        --disable-background-networking --disable-component-update --disable-sync --user-data-dir="$scratch/browser" \
        --dump-dom "${@:2}" "http://127.0.0.1:8480$1" 2> /dev/null
}
script='%3C/code%3E%3Cscript%3Edocument.title=%22run%22%3C/script%3E%3Cimg/src=x/onerror=%22document.title=1%22%3E'
rest=%E2%80%AE%D7%90$script$(printf 'a%.0s' {1..16000})
for path in "/?url=$script" "/?url=media.cdn-edge.example/ads/$rest" "/?url=play.shop.example/$rest" \
    "/blocked?policy=guests&category=$script&url=http://media.cdn-edge.example/ads/$rest"; do
    for size in 360,640 1600,900; do
        dom=$(page "$path" --window-size="$size") || true
        [[ $dom == *"<title>"*"</title>"* ]] || problem "the browser shows nothing of ${path:0:60}"
        [[ $dom != *"<title>run"* && $dom != *"<title>1"* && $dom != *"<img"* ]] || problem "a script of ${path:0:60} ran"
        # Only the field holds the URL as it was typed.
        printf '%s\n' "$dom" | sed 's/value="[^"]*"//' | { ! grep -q $'\u202e'; } ||
            problem "${path:0:60} changes the direction of the text"
    done
done

# SIGHUP: a wrong file keeps the policies, a right one replaces them.
http_pid=$(pgrep -f "^$katd_http" | head -n 1)
cp "$home/conf/katd-http.ini" "$scratch/good.ini"
echo 'nonsense = 1' >> "$home/conf/katd-http.ini"
kill -HUP "$http_pid"
wait_until 10 grep -q 'stay as they were' "$scratch/katd-http.log" || problem "a wrong file is not reported"
sed 's/^block = advertising.*/block = education/' "$scratch/good.ini" > "$home/conf/katd-http.ini"
kill -HUP "$http_pid"
wait_until 10 grep -q 'were read again' "$scratch/katd-http.log" || problem "a right file is not taken"
expect "new policies" 'HTTP/1.1 302*' -H 'Host: www.orchard-museum.example' http://127.0.0.1/
expect "new policies" 'HTTP/1.1 200*' -H 'Host: media.cdn-edge.example' http://127.0.0.1/ads/top.gif

# Without katd: the failure of each policy, and the health check says so.
stop_katd
expect "katd is away" 'HTTP/1.1 500*' -H 'Host: www.campus-cloud.example' http://127.0.0.1/
expect "katd is away" 'HTTP/1.1 503*' -H 'Host: www.campus-cloud.example' http://127.0.0.1:8081/
sleep 1 # the health check's answer is kept for a second
expect "katd is away" 'HTTP/1.1 503*does not answer*' http://127.0.0.1:8480/healthz
start_katd "$home"
sleep 1
expect "katd is back" 'HTTP/1.1 200*' http://127.0.0.1:8480/healthz
end_of_test
