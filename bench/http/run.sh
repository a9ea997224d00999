#!/usr/bin/env bash
# HTTP benchmark of the XML-RPC engine. Starts xmlrpc-test-server and, in the
# same run, two references hosting the same calls (Python's standard
# SimpleXMLRPCServer and http-min-responder, a minimal C responder), loads
# each with wrk and prints one table.
#   bench/http/run.sh BUILD_DIR
# Environment: XMLRPCS_BENCH_SECONDS (default 5) per wrk run;
# XMLRPCS_BENCH_NICE (default 0), the nice value of servers and wrk: a
# negative one (root only) keeps other work on a busy machine from setting
# the pace.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "${1:?usage: bench/http/run.sh BUILD_DIR}" && pwd)
seconds=${XMLRPCS_BENCH_SECONDS:-5}
tick=$(getconf CLK_TCK)
pin() { nice -n "${XMLRPCS_BENCH_NICE:-0}" taskset -c "$@"; }

# Servers on one core (only one of them is loaded at a time), the load
# generator on another, so that neither steals the other's cycles; on a
# single-core machine both share core 0.
server_cpu=0
client_cpu=1
if (($(nproc) < 2)); then
  client_cpu=0
  echo "bench: only one core, client and server share it" >&2
fi

# The 1,000- and 5,000-connection scenarios need that many descriptors in
# wrk and in every server (they inherit the limit).
ulimit -n "$(ulimit -Hn)"
for tool in wrk taskset nice python3; do
  command -v "$tool" >/dev/null || { echo "bench: $tool is missing" >&2; exit 1; }
done
for exe in xmlrpc-test-server http-min-responder; do
  [[ -x $build/bin/$exe ]] || { echo "bench: $build/bin/$exe is not built" >&2; exit 1; }
done

scratch=$(mktemp -d)
declare -A pid port
cleanup() {
  for name in "${!pid[@]}"; do kill "${pid[$name]}" 2>/dev/null || true; done
  rm -rf "$scratch"
}
trap cleanup EXIT

# start_server NAME CMD...: runs the server pinned to its core and records
# its pid and, once it has printed "port N", its port.
start_server() {
  local name=$1
  shift
  # nice and taskset exec the server, so $! is its own pid.
  nice -n "${XMLRPCS_BENCH_NICE:-0}" taskset -c "$server_cpu" "$@" \
    >"$scratch/$name.out" 2>"$scratch/$name.err" &
  pid[$name]=$!
  for _ in $(seq 100); do
    port[$name]=$(awk '/^port /{print $2; exit}' "$scratch/$name.out")
    [[ -n ${port[$name]} ]] && return 0
    sleep 0.05
  done
  echo "bench: $name did not start: $(cat "$scratch/$name.err")" >&2
  exit 1
}

cpu_ticks() { awk '{print $14 + $15}' "/proc/$1/stat"; }

# Scenarios: name, connections, extra wrk arguments.
scenarios=("keepalive-1|1|" "keepalive-16|16|" "keepalive-63|63|" "close-16|16|-H Connection: close"
  "keepalive-1000|1000|" "keepalive-5000|5000|")
servers=(engine minimal python)

declare -A rps p50 p99 errs cpu rss

# measure NAME SCENARIO CONNECTIONS HEADER...: one wrk run against one server.
measure() {
  local name=$1 sname=$2 conns=$3
  shift 3
  local before after out key="$name/$sname"
  before=$(cpu_ticks "${pid[$name]}")
  out=$(pin "$client_cpu" wrk -t1 -c"$conns" -d"${seconds}s" --timeout 5s \
    -s "$here/xmlrpc.lua" "$@" "http://127.0.0.1:${port[$name]}/RPC2" | grep '^RESULT')
  after=$(cpu_ticks "${pid[$name]}")
  read -r rps[$key] p50[$key] p99[$key] errs[$key] cpu[$key] < <(
    awk -v line="$out" -v ticks=$((after - before)) -v tick="$tick" 'BEGIN {
      n = split(line, f, /[ =]/)
      for (i = 2; i < n; i += 2) v[f[i]] = f[i + 1]
      req = v["requests"] + 0
      printf "%.0f %.2f %.2f %d %.1f\n", req / (v["duration_us"] / 1e6),
        v["p50_us"] / 1000, v["p99_us"] / 1000, v["errors"] + v["non2xx"],
        req ? ticks / tick / req * 1e6 : 0 }')
}

echo "bench: ${seconds}s per run, servers on core $server_cpu, wrk on core $client_cpu" >&2
start_server engine "$build/bin/xmlrpc-test-server" --port 0 --backlog 1024
start_server minimal "$build/bin/http-min-responder" 0
start_server python python3 "$here/python_reference.py" 0

# One short warm-up each, so first-connection costs are not measured.
for name in "${servers[@]}"; do
  pin "$client_cpu" wrk -t1 -c4 -d1s -s "$here/xmlrpc.lua" \
    "http://127.0.0.1:${port[$name]}/RPC2" >/dev/null
done
# The servers take turns within each scenario, so that a change in the
# machine's load during the run falls on all three alike.
for scenario in "${scenarios[@]}"; do
  IFS='|' read -r sname conns extra <<<"$scenario"
  header=()
  [[ -n $extra ]] && header=(-H "${extra#-H }")
  for name in "${servers[@]}"; do
    measure "$name" "$sname" "$conns" "${header[@]}"
  done
done
for name in "${servers[@]}"; do
  rss[$name]=$(awk '/^VmHWM/{printf "%.1f", $2 / 1024}' "/proc/${pid[$name]}/status")
done

printf '%-8s %-13s %9s %8s %8s %6s %10s %9s %8s %9s\n' \
  server scenario req/s p50-ms p99-ms errors cpu-us/req peak-MiB vs-min vs-python
for name in engine minimal python; do
  for scenario in "${scenarios[@]}"; do
    sname=${scenario%%|*}
    key="$name/$sname"
    awk -v n="$name" -v s="$sname" -v r="${rps[$key]}" -v a="${p50[$key]}" -v b="${p99[$key]}" \
      -v e="${errs[$key]}" -v c="${cpu[$key]}" -v m="${rss[$name]}" \
      -v rm="${rps[minimal/$sname]}" -v rp="${rps[python/$sname]}" 'BEGIN {
        printf "%-8s %-13s %9d %8.2f %8.2f %6d %10.1f %9.1f %8.2f %9.1f\n",
          n, s, r, a, b, e, c, m, rm ? r / rm : 0, rp ? r / rp : 0 }'
  done
done
