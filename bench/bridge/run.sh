#!/usr/bin/env bash
# What the gateway adds per call: getVersion through XMLRPCServer and
# ClientProxySim (a full proxy round trip), beside system.listMethods (the
# same HTTP path without the proxy) and a direct vxp client against the
# simulator, all in one run; then getVersion against a simulator that holds
# every reply 20 ms, at 16 and 64 connections, where the server must keep
# all of them waiting at once.
#   bench/bridge/run.sh BUILD_DIR
# Runs in a network namespace of its own (the server dials 127.0.0.1:40410
# and listens on 40431, fixed), so it needs root. Server and simulator run on
# core 0, wrk on core 1; each load lasts XMLRPCS_BENCH_SECONDS (default 5).
set -euo pipefail

build=$(cd "${1:?usage: bench/bridge/run.sh BUILD_DIR}" && pwd)
here=$(cd "$(dirname "$0")" && pwd)
seconds=${XMLRPCS_BENCH_SECONDS:-5}

if [[ -z ${XMLRPCS_BENCH_IN_NETNS:-} ]]; then
  if [[ $(id -u) -ne 0 ]]; then
    echo "bench/bridge: needs root to run the server in a network namespace of its own" >&2
    exit 1
  fi
  exec unshare --net env XMLRPCS_BENCH_IN_NETNS=1 \
    bash -c 'ip link set lo up && exec bash "$0" "$@"' "$here/run.sh" "$build"
fi

tmp=$(mktemp -d)
pids=()
cleanup() {
  for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done
  for p in "${pids[@]}"; do wait "$p" 2>/dev/null || true; done
  rm -rf "$tmp"
}
trap cleanup EXIT

"$build/bin/XMLRPCServer" --cfg | sed 's|<publish>true</publish>|<publish>false</publish>|' >"$tmp/cfg.xml"
# start_sim [OPTIONS]: a simulator on core 0; its PID in $sim.
start_sim() {
  taskset -c 0 "$build/bin/ClientProxySim" "$@" >>"$tmp/sim.log" 2>&1 &
  sim=$!
  pids+=($sim)
}
start_sim
taskset -c 0 "$build/bin/XMLRPCServer" --usecfg "$tmp/cfg.xml" >"$tmp/server.log" 2>&1 &
server=$!
pids+=($server)

# Waits until getVersion comes back without an error member (the server
# reaches a new simulator within its reconnect schedule, at most 6 s).
wait_linked() {
  python3 - <<'PY'
import time, xmlrpc.client
deadline = time.monotonic() + 20
while True:
    try:
        with xmlrpc.client.ServerProxy("http://127.0.0.1:40431/") as s:
            if "error" not in s.getVersion():
                break
    except OSError:
        pass
    if time.monotonic() > deadline:
        raise SystemExit("bench/bridge: the server did not reach the simulator")
    time.sleep(0.2)
PY
}
wait_linked

ticks=$(getconf CLK_TCK)
cpu_ticks() { awk '{print $14 + $15}' "/proc/$1/stat"; }

# load METHOD CONNECTIONS: one wrk run; prints "name req/s p50 p99 errors cpu_us".
load() {
  local method=$1 conns=$2 before after line
  before=$(cpu_ticks "$server")
  line=$(XMLRPC_METHOD=$method taskset -c 1 wrk -t1 -c"$conns" -d"${seconds}s" --latency \
           -s "$here/call.lua" http://127.0.0.1:40431/ | grep '^RESULT')
  after=$(cpu_ticks "$server")
  awk -v name="$method/$conns" -v cpu=$((after - before)) -v hz="$ticks" '{
      for (i = 2; i <= NF; i++) { split($i, kv, "="); v[kv[1]] = kv[2] }
      rps = v["requests"] / (v["duration_us"] / 1e6)
      printf "%s %.0f %.3f %.3f %d %.1f\n", name, rps, v["p50_us"] / 1000, v["p99_us"] / 1000,
             v["errors"], v["requests"] ? cpu / hz * 1e6 / v["requests"] : 0 }' <<<"$line"
}

results=()
for conns in 1 16; do
  results+=("$(load getVersion "$conns")")
  results+=("$(load system.listMethods "$conns")")
done

# A proxy that takes 20 ms per reply: at most 50 calls per second and
# connection, however fast the gateway.
kill "$sim"
wait "$sim" 2>/dev/null || true
start_sim --delay-ms 20
wait_linked
delayed=()
for conns in 16 64; do
  delayed+=("$(load getVersion "$conns" | sed 's|^getVersion/|getVersion+20ms/|')")
done

# The direct client: vxcapi::connection::send_sync to a simulator of its own.
direct_ns=$(taskset -c 1 "$build/bin/bench_vxp" --benchmark_filter='BM_RoundTripVersion' \
              --benchmark_min_time=2 --benchmark_format=csv 2>/dev/null |
            awk -F, '/BM_RoundTripVersion/ {print $4}')

python3 - "$direct_ns" "${#results[@]}" "${results[@]}" "${delayed[@]}" <<'PY'
import sys
direct_ns = float(sys.argv[1])
count = int(sys.argv[2])
rows, delayed = {}, {}
for i, r in enumerate(sys.argv[3:]):
    name, rps, p50, p99, err, cpu = r.split()
    (rows if i < count else delayed)[name] = (float(rps), float(p50), float(p99), int(err), float(cpu))
print("%-22s %10s %8s %8s %7s %11s %12s %12s" % ("scenario", "req/s", "p50-ms", "p99-ms", "errors",
                                                 "cpu-us/call", "vs-listMeth", "vs-direct"))
direct_rps = 1e9 / direct_ns
for name, (rps, p50, p99, err, cpu) in rows.items():
    method, conns = name.split("/")
    ref = rows["system.listMethods/" + conns][0]
    print("%-22s %10.0f %8.3f %8.3f %7d %11.1f %12.2f %12.2f" % (
        name, rps, p50, p99, err, cpu, rps / ref, rps / direct_rps))
print("%-22s %10.0f %8.3f %8s %7s %11s %12s %12.2f" % (
    "direct-vxp/1", direct_rps, direct_ns / 1e6, "-", "-", "-", "-", 1.0))
for name, (rps, p50, p99, err, cpu) in delayed.items():
    print("%-22s %10.0f %8.3f %8.3f %7d %11.1f %12s %12s" % (name, rps, p50, p99, err, cpu, "-", "-"))
gv1, gv16, lm16 = rows["getVersion/1"], rows["getVersion/16"], rows["system.listMethods/16"]


def target(text, value, goal, met):
    print("target: %s: %s (goal %s, %s)" % (text, value, goal, "met" if met else "missed"))


print()
target("getVersion p99 at 1 connection", "%.3f ms" % gv1[2], "<= 0.231 ms", gv1[2] <= 0.231)
ratio = gv16[0] / lm16[0]
target("getVersion at 16 connections vs system.listMethods", "%.2f" % ratio, ">= 0.80",
       ratio >= 0.8)
for conns in (16, 64):
    rps, _p50, _p99, err, _cpu = delayed["getVersion+20ms/%d" % conns]
    goal = 0.9 * conns * 50
    target("getVersion at %d connections, proxy 20 ms" % conns, "%.0f req/s, %d errors" % (rps, err),
           ">= %.0f req/s" % goal, rps >= goal and err == 0)
PY
