#!/usr/bin/env bash
# Runs the value benchmarks of an existing build and compares them with
# Python's xmlrpc.client on the same payload. Builds nothing itself.
# Usage: bench/value/run.sh <build-dir> [extra Google Benchmark flags]
set -euo pipefail
build=${1:?usage: bench/value/run.sh <build-dir> [benchmark flags]}
shift
bin="$build/bin/bench_value"
if [[ ! -x $bin ]]; then
  echo "run.sh: $bin not found; build the target bench_value first" >&2
  exit 1
fi
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$bin" --dump-payload >"$work/payload.xml"
"$bin" --benchmark_out="$work/cpp.json" --benchmark_out_format=json "$@"
python3 "$here/compare.py" "$work/cpp.json" "$work/payload.xml"
