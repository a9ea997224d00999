#!/usr/bin/env bash
# Sets everything up and runs the main job: the bundled client proxy simulator
# in the background and XMLRPCServer in the foreground on port 40431, whose
# dashboard is http://127.0.0.1:40431/. Extra arguments go to XMLRPCServer.
# Ctrl-C stops both.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
# Only the two programs (and the data files): the tests are test.sh's.
bash scripts/build.sh release XMLRPCServer ClientProxySim

bin=build/bin
if [[ ! -x $bin/XMLRPCServer || ! -x $bin/ClientProxySim ]]; then
  echo "run: XMLRPCServer or ClientProxySim is not built yet; built executables:" >&2
  ls "$bin" >&2 || true
  exit 1
fi

# Jobs take 20 s each, so their progress can be watched through statusTasks2.
# Both run in the background so that Ctrl-C (SIGINT to the whole group) and a
# SIGTERM to this script alike stop both.
sim='' server=''
stop_both() {
  kill $server $sim 2>/dev/null || true
  wait 2>/dev/null || true
}
trap stop_both EXIT
trap 'exit 130' INT
trap 'exit 143' TERM
"$bin/ClientProxySim" --job-duration-ms 20000 &
sim=$!
echo "run: dashboard at http://127.0.0.1:40431/ (Ctrl-C stops the server and the simulator)"
"$bin/XMLRPCServer" "$@" &
server=$!
wait "$server"
