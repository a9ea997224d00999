#!/usr/bin/env bash
# Sets everything up and runs all tests: the release build (unit and
# black-box tests), the sanitizer build (unit tests) and a bounded fuzz run.
# The last line sums up the test counts of both builds.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh --tests

logs=$(mktemp -d)
trap 'rm -rf "$logs"' EXIT

# run_ctest DIR LOG [ctest options]: runs one configuration's tests, keeping
# ctest's own output on the terminal and a copy for the summary.
run_ctest() {
  local dir=$1 log=$2
  shift 2
  (cd "$dir" && ctest --output-on-failure -j 2 --timeout 600 "$@") | tee "$log"
  return "${PIPESTATUS[0]}"
}

bash scripts/build.sh release
run_ctest build "$logs/release"

bash scripts/build.sh asan
run_ctest build-asan "$logs/asan" -L unit

if [[ -x scripts/fuzz.sh ]]; then
  bash scripts/fuzz.sh "${XMLRPCS_FUZZ_SECONDS:-60}"
fi

# ctest says "N% tests passed, F tests failed out of T".
total=0 failed=0
for log in "$logs"/release "$logs"/asan; do
  line=$(grep -E 'tests failed out of [0-9]+' "$log" | tail -n 1)
  failed=$((failed + $(sed -E 's/.* ([0-9]+) tests failed.*/\1/' <<<"$line")))
  total=$((total + $(sed -E 's/.*out of ([0-9]+).*/\1/' <<<"$line")))
done
echo "tests: $((total - failed)) passed, $failed failed"
