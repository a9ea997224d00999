#!/usr/bin/env bash
# Installs exactly the Debian packages that building, testing and benchmarking
# XMLRPCServer need. Safe to run again: it only calls apt-get when something
# is missing. Must run as root (or through sudo) on Debian 12.
#   scripts/install-deps.sh            what building and running need
#   scripts/install-deps.sh --tests    also what only the tests need:
#                                      chromium and, from the npm registry,
#                                      playwright-core (the dashboard's
#                                      browser test), and the client
#                                      libraries of the interoperability
#                                      suite (install-interop-deps.sh)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
tests=false
if [[ ${1:-} == --tests ]]; then tests=true; fi

PACKAGES=(
  # toolchain
  build-essential cmake ninja-build pkg-config clang libclang-rt-14-dev
  # libraries
  libboost-filesystem-dev libxml2-dev libxml2-utils libssl-dev
  libmsgpack-cxx-dev libspdlog-dev libavahi-client-dev
  # tests and benchmarks
  libgtest-dev libgmock-dev libbenchmark-dev python3 iproute2 util-linux
  dbus avahi-daemon avahi-utils wrk procps locales curl
  # packaging, the systemd unit and the manual page
  systemd groff-base man-db fakeroot dpkg-dev file
)
if $tests; then PACKAGES+=(chromium); fi

# The browser test's driver comes from the npm registry, installed with the
# machine's Node.js and npm (Debian's npm would replace Node.js), pinned by
# tests/web/package-lock.json.
install_browser_driver() {
  $tests || return 0
  [[ -d $root/tests/web/node_modules/playwright-core ]] && return 0
  (cd "$root/tests/web" && npm ci --no-audit --no-fund --loglevel=error)
}

# The dashboard must be tested: without Node.js and npm the tests stop here,
# before anything is installed.
if $tests; then
  for tool in node npm; do
    if ! command -v "$tool" >/dev/null; then
      echo "install-deps: $tool not found. The dashboard's browser test needs Node.js" \
        "and its npm on PATH: install the nodejs package that brings its own npm (as" \
        "this machine image has it), not Debian's npm package, which replaces Node.js;" \
        "then run this again." >&2
      exit 1
    fi
  done
fi

missing=()
for p in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

# The client libraries of the interoperability suite have a script of their own.
interop_deps() { $tests || return 0; bash "$(dirname "$0")/install-interop-deps.sh"; }

if ((${#missing[@]} == 0)); then
  echo "install-deps: all ${#PACKAGES[@]} packages present"
  install_browser_driver
  interop_deps
  exit 0
fi

SUDO=""
if [[ $(id -u) -ne 0 ]]; then SUDO="sudo"; fi

echo "install-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
# avahi-daemon's package scripts try to start the daemon; the project starts
# its own daemons in test namespaces only, so keep package services down.
if [[ ! -e /usr/sbin/policy-rc.d ]]; then
  printf '#!/bin/sh\nexit 101\n' | $SUDO tee /usr/sbin/policy-rc.d >/dev/null
  $SUDO chmod +x /usr/sbin/policy-rc.d
  trap '$SUDO rm -f /usr/sbin/policy-rc.d' EXIT
fi
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
install_browser_driver
interop_deps
