#!/usr/bin/env bash
# Installs the XML-RPC client libraries of the interoperability suite
# (tests/interop): Debian packages, and the Node packages of
# tests/interop/node from the npm registry with the machine's own Node.js
# and npm. Safe to run again: it installs only what is missing. Runs as root
# (or through sudo) on Debian 12; scripts/install-deps.sh calls it.
set -euo pipefail
cd "$(dirname "$0")/.."

PACKAGES=(
  ruby ruby-xmlrpc                                   # Ruby xmlrpc
  librpc-xml-perl libxmlrpc-lite-perl libfrontier-rpc-perl
  libaxmlrpc-java default-jdk-headless               # Java aXMLRPC
  golang-go golang-github-kolo-xmlrpc-dev
  golang-golang-x-text-dev                           # imported by kolo/xmlrpc, not declared by its package
  tcl tcl-xmlrpc
  lua5.1 lua-xmlrpc
)

missing=()
for p in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

SUDO=""
if [[ $(id -u) -ne 0 ]]; then SUDO="sudo"; fi

if ((${#missing[@]})); then
  echo "install-interop-deps: installing ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get update -qq
  $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
else
  echo "install-interop-deps: all ${#PACKAGES[@]} packages present"
fi

# Debian's npm package would replace the machine's Node.js: the Node clients
# use the npm that came with Node.js, or are not installed at all.
node_dir=tests/interop/node
if ! command -v npm >/dev/null 2>&1; then
  echo "install-interop-deps: no npm on this machine; the Node clients of the suite will fail" >&2
elif [[ ! -f $node_dir/node_modules/.package-lock.json ||
        $node_dir/package-lock.json -nt $node_dir/node_modules/.package-lock.json ]]; then
  echo "install-interop-deps: npm ci in $node_dir"
  (cd "$node_dir" && npm ci --no-audit --no-fund --loglevel=error)
else
  echo "install-interop-deps: Node packages present"
fi
