#!/usr/bin/env bash
# The demo: builds the SDK, starts the reference service and a small web
# server on the loopback interface, and walks through the API with the
# command-line tool. Everything it starts is stopped again, whatever happens.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh
bash scripts/install-deps.sh "${BUILD_PACKAGES[@]}" "${DEMO_PACKAGES[@]}"

echo "== Building the SDK (library, reference service, command-line tool) =="
cmake --preset default -DPAM_BUILD_TESTS=OFF -DPAM_BUILD_BENCHMARKS=OFF >/dev/null
cmake --build --preset default

build=$PWD/build/default
service=$build/service/palvonauthd
tool=$build/tools/palvonauth
webserver=$build/examples/pam_demo_web_server

work=$(mktemp -d /tmp/palvon-demo-XXXXXX)
service_pid=""
web_pid=""
proxy_pid=""
cleanup() {
  for pid in "$proxy_pid" "$service_pid" "$web_pid"; do
    if [ -n "$pid" ] && kill -0 "$pid" 2>/dev/null; then
      kill -TERM "$pid" 2>/dev/null || true
      wait "$pid" 2>/dev/null || true
    fi
  done
  rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

# The demo runs as a user of its own: a fresh home folder, so nothing of the
# real user's is touched.
export HOME=$work/home
mkdir -p "$HOME"

step() {
  echo
  echo "== $1 =="
  shift
  printf '$ palvonauth'
  local arg
  for arg in "$@"; do
    if [[ $arg =~ [[:space:]] ]]; then printf " '%s'" "$arg"; else printf ' %s' "$arg"; fi
  done
  printf '\n'
  "$tool" "$@"
}

wait_for() {  # wait_for <description> <test...>
  local what=$1
  shift
  for _ in $(seq 1 100); do
    if "$@"; then return 0; fi
    sleep 0.1
  done
  echo "demo: $what did not come up" >&2
  exit 1
}

echo
echo "== Starting a web server on 127.0.0.1 =="
"$webserver" "$work/port" &
web_pid=$!
wait_for "the web server" test -s "$work/port"
port=$(cat "$work/port")
echo "listening on http://127.0.0.1:$port/"

echo
echo "== Starting the reference service (its log is shown at the end) =="
"$service" 2>"$work/service.log" &
service_pid=$!
wait_for "the service" test -p "$HOME/.RZPClient/.tmp/.AuthManagerListnerPipe"
echo "palvonauthd is listening in $HOME/.RZPClient/.tmp"

step "API level negotiated with the service" api-level
step "The service's version text" version
step "One connection, several calls on it" connect -c version -c server-type=https://intranet.example.com/ \
  -c window=10,700,1024,768,demo
step "Server type of a gateway URL" server-type https://gateway.example.com/apps/
step "Trampoline URL for an application behind the gateway" \
  trampoline https://gateway.example.com/apps/mail --ref https://portal.example.com/
step "Logon status before and after a trampoline URL, on one connection" \
  connect -c logon-status=https://gateway.example.com/apps/mail -c trampoline=https://gateway.example.com/apps/mail \
  -c logon-status=https://gateway.example.com/apps/mail
step "HTTP GET through the service, with status line and headers" http -i "http://127.0.0.1:$port/hello"
step "HTTP POST through the service" http -i -X POST -H "Content-Type: text/plain" \
  -d "Greetings through the authentication manager." "http://127.0.0.1:$port/echo"
echo
step "Launch-file hand-off (the default service only records it)" \
  launch --url https://gateway.example.com/apps/desktop.rzp -- --fullscreen --title "Demo desktop"
echo "launch log:"
sed 's/^/  /' "$HOME/.RZPClient/logs/launches.log" 2>/dev/null || true
step "The same question in machine-readable form" --json server-type https://gateway.example.com/apps/

echo
echo "== curl through the tool's local proxy: the service performs the request =="
"$tool" proxy --listen 127.0.0.1:0 --workers 2 2>"$work/proxy.log" &
proxy_pid=$!
wait_for "the proxy" grep -q "listening on" "$work/proxy.log"
proxy=$(grep -o 'http://127\.0\.0\.1:[0-9]*' "$work/proxy.log" | head -n 1)
echo "\$ palvonauth proxy --listen 127.0.0.1:0 --workers 2    # listening on $proxy"
echo "\$ curl -sS -i -x $proxy http://127.0.0.1:$port/hello"
NO_PROXY= no_proxy= curl -sS -i -x "$proxy" "http://127.0.0.1:$port/hello"
kill -TERM "$proxy_pid" 2>/dev/null || true
wait "$proxy_pid" 2>/dev/null || true
proxy_pid=""
echo "proxy log:"
sed 's/^/  /' "$work/proxy.log"

echo
echo "== End of the service log (run palvonauthd -v to see every request and reply) =="
kill -TERM "$service_pid" 2>/dev/null || true
wait "$service_pid" 2>/dev/null || true
service_pid=""
tail -n 12 "$work/service.log" | sed 's/^/  /'
echo
echo "Demo finished: every call above went from the tool through libpalvonauthmanager to palvonauthd."
