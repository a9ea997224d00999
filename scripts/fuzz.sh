#!/usr/bin/env bash
# Builds the fuzz configuration and runs every fuzz target for a bounded time
# from the seed corpus kept in fuzz/corpus/. Fails on the first crash, leak,
# sanitizer report or hang.
#   scripts/fuzz.sh [SECONDS]   (default: 60 seconds per target)
# The seeds are copied to fuzz/corpus-work/ (ignored by git) so the run never
# changes the committed corpus; crash inputs are left there as well.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-60}
targets=(connection vxp)

bash scripts/build.sh fuzz "${targets[@]/#/xmlrpc_fuzz_}"

for target in "${targets[@]}"; do
  work=fuzz/corpus-work/$target
  rm -rf "$work"
  mkdir -p "$work/corpus" "$work/artifacts"
  cp fuzz/corpus/"$target"/* "$work/corpus/"
  echo "fuzz: $target for ${seconds}s"
  # -timeout: one input taking this long counts as a hang.
  # -max_len: room for a header and a multi-kilobyte call.
  status=0
  build-fuzz/bin/xmlrpc_fuzz_"$target" "$work/corpus" \
    -max_total_time="$seconds" -timeout=10 -max_len=16384 -rss_limit_mb=2048 \
    -artifact_prefix="$work/artifacts/" -print_final_stats=1 >"$work/log" 2>&1 || status=$?
  tail -n 40 "$work/log"
  if ((status != 0)); then
    echo "fuzz: $target failed (exit $status); inputs in $work/artifacts/" >&2
    exit 1
  fi
done
echo "fuzz: all targets ran ${seconds}s without a finding"
