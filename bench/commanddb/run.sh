#!/usr/bin/env bash
# Runs bench_commanddb of an existing build and prints each measurement as a
# ratio to its reference from the same run (CPU time):
#   verify_send of a status request with 20 job ids   vs  copying that packet
#   to_property of that request                       vs  copying the XmlRpcValue
#   to_xmlrpc of a reply of 100 task entries          vs  writing that reply's XML
#
#   bench/commanddb/run.sh <build-dir> [extra benchmark options]
set -euo pipefail
build=${1:?usage: bench/commanddb/run.sh <build-dir> [benchmark options]}
shift
out=$(mktemp)
trap 'rm -f "$out"' EXIT
"$build/bin/bench_commanddb" --benchmark_format=json --benchmark_min_time=0.5 "$@" >"$out"
python3 - "$out" <<'PY'
import json, sys
runs = {b["name"]: b["cpu_time"] for b in json.load(open(sys.argv[1]))["benchmarks"]}
pairs = [("BM_VerifySend", "BM_PacketCopy_Reference"),
         ("BM_ToProperty", "BM_ValueCopy_Reference"),
         ("BM_ToXmlRpc_100Tasks", "BM_ReplyXml_100Tasks_Reference")]
print("%-24s %12s %-32s %12s %7s" % ("measured", "cpu ns", "reference", "cpu ns", "ratio"))
for m, r in pairs:
    if m in runs and r in runs:
        print("%-24s %12.0f %-32s %12.0f %7.2f" % (m, runs[m], r, runs[r], runs[m] / runs[r]))
PY
