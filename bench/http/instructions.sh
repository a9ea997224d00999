#!/usr/bin/env bash
# Instructions per call of xmlrpc-test-server builds, counted by callgrind:
# repeatable where a shared machine makes times wander. Each server serves a
# warm-up, then N keep-alive calls (keepalive_client.py) whose instructions
# are counted; the script prints instructions per call for each.
#   bench/http/instructions.sh [-n N] [-c CONNECTIONS] SERVER...
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
calls=10000
conns=16
while getopts n:c: opt; do
  case $opt in
    n) calls=$OPTARG ;;
    c) conns=$OPTARG ;;
    *) exit 2 ;;
  esac
done
shift $((OPTIND - 1))
(($#)) || { echo "usage: $0 [-n N] [-c CONNECTIONS] SERVER..." >&2; exit 2; }
for tool in valgrind callgrind_control python3; do
  command -v "$tool" >/dev/null || { echo "instructions: $tool is missing" >&2; exit 1; }
done

scratch=$(mktemp -d)
vpid=
cleanup() {
  [[ -n $vpid ]] && kill "$vpid" 2>/dev/null || true
  rm -rf "$scratch"
}
trap cleanup EXIT

for server in "$@"; do
  rm -f "$scratch"/*
  valgrind --tool=callgrind --callgrind-out-file="$scratch/cg.%p" "$server" --port 0 \
    >"$scratch/out" 2>"$scratch/err" &
  vpid=$!
  port=
  for _ in $(seq 300); do
    port=$(awk '/^port /{print $2; exit}' "$scratch/out")
    [[ -n $port ]] && break
    sleep 0.1
  done
  [[ -n $port ]] || { echo "instructions: $server did not start" >&2; exit 1; }
  python3 "$here/keepalive_client.py" "$port" 400 "$conns"
  callgrind_control -z "$vpid" >/dev/null 2>&1
  python3 "$here/keepalive_client.py" "$port" "$calls" "$conns"
  callgrind_control -d "$vpid" >/dev/null 2>&1
  kill "$vpid"
  wait "$vpid" 2>/dev/null || true
  vpid=
  # The dump taken after the counted calls is the file with suffix ".1".
  ir=$(awk '/^summary:/ {print $2; exit}' "$scratch"/cg.*.1)
  awk -v s="$server" -v ir="$ir" -v n="$calls" -v c="$conns" \
    'BEGIN { printf "%-60s %d calls over %d connections: %.0f instructions per call\n", s, n, c, ir / n }'
done
