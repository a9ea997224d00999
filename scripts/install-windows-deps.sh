#!/usr/bin/env bash
# Installs the Debian packages the Windows build and its tests need (the
# mingw-w64 cross compiler, Wine, the zip and installer makers) and adds a
# deb-src entry for bookworm, so that scripts/build-windows-deps.sh can
# fetch Debian's source packages. Safe to run again. Root (or sudo) on
# Debian 12.
set -euo pipefail

PACKAGES=(
  # the cross toolchain: the posix thread flavour has std::thread
  mingw-w64 g++-mingw-w64-x86-64-posix gcc-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64
  # running and testing the Windows programs
  wine wine64
  # Debian's header-only libraries and the GoogleTest sources (/usr/src)
  libmsgpack-cxx-dev libspdlog-dev libfmt-dev googletest libboost-dev
  # apt-get source, packaging
  dpkg-dev xz-utils zip nsis
)

SUDO=""
if [[ $(id -u) -ne 0 ]]; then SUDO="sudo"; fi

# apt-get source needs a deb-src line; one file of the project's own, written
# once, leaves the machine's other sources alone.
src_list=/etc/apt/sources.list.d/xmlrpcs-deb-src.sources
updated=0
if [[ ! -e $src_list ]]; then
  printf '%s\n' 'Types: deb-src' 'URIs: http://deb.debian.org/debian' \
    'Suites: bookworm bookworm-updates' 'Components: main' \
    'Signed-By: /usr/share/keyrings/debian-archive-keyring.gpg' | $SUDO tee "$src_list" >/dev/null
  $SUDO apt-get update -qq
  updated=1
fi

missing=()
for p in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done
if ((${#missing[@]} == 0)); then
  echo "install-windows-deps: all ${#PACKAGES[@]} packages present"
  exit 0
fi

echo "install-windows-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
((updated)) || $SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
