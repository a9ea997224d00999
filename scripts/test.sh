#!/usr/bin/env bash
# Sets everything up and runs all tests: the release build (unit and
# black-box tests), the sanitizer build (unit tests) and a bounded fuzz run.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh

bash scripts/build.sh release
(cd build && ctest --output-on-failure -j 2 --timeout 600)

bash scripts/build.sh asan
(cd build-asan && ctest --output-on-failure -j 2 --timeout 600 -L unit)

if [[ -x scripts/fuzz.sh ]]; then
  bash scripts/fuzz.sh "${XMLRPCS_FUZZ_SECONDS:-60}"
fi
