#!/usr/bin/env bash
# Runs the vxp benchmarks of an existing build and prints each figure beside
# its reference from the same run. Builds nothing itself.
# Usage: bench/vxp/run.sh <build-dir> [extra Google Benchmark flags]
set -euo pipefail
build=${1:?usage: bench/vxp/run.sh <build-dir> [benchmark flags]}
shift
bin="$build/bin/bench_vxp"
if [[ ! -x $bin ]]; then
  echo "run.sh: $bin not found; build the target bench_vxp first" >&2
  exit 1
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$bin" --benchmark_out="$work/vxp.json" --benchmark_out_format=json "$@"
python3 - "$work/vxp.json" <<'PY'
import json, sys

runs = {b["name"].split("/")[0]: b for b in json.load(open(sys.argv[1]))["benchmarks"]}

def pair(label, name, ref, key, unit, scale):
    if name not in runs or ref not in runs:
        return
    a, r = runs[name][key] * scale, runs[ref][key] * scale
    print(f"{label:<34} {a:10.1f} {unit}   reference {r:10.1f} {unit}   ratio {a / r:5.2f}")

print()
pair("decode status reply vs parse", "BM_DecodeStatusReply", "BM_ReferenceMsgpackParse",
     "bytes_per_second", "MB/s", 1e-6)
pair("encode status reply vs parse", "BM_EncodeStatusReply", "BM_ReferenceMsgpackParse",
     "bytes_per_second", "MB/s", 1e-6)
pair("link round trip vs ping-pong", "BM_RoundTripVersion", "BM_ReferenceTcpPingPong",
     "real_time", "us", 1e-3)
PY
