#!/usr/bin/env bash
# Configures and builds one configuration of the project.
#   scripts/build.sh [release|asan|fuzz|deb|windows] [TARGET...]   (default: release, all targets)
# release -> build/          the program, tools, tests and benchmarks
# deb     -> build/          the release build, then its Debian package
#                            build/corvane-xmlrpcserver_<version>_<arch>.deb
# asan    -> build-asan/     everything with AddressSanitizer + UBSan
# fuzz    -> build-fuzz/     the libFuzzer targets, built with clang
# windows -> build-windows/  the Windows programs and tests (mingw-w64), and
#                            the zip build-windows/XMLRPCServer-<version>-win64.zip
set -euo pipefail
cd "$(dirname "$0")/.."

config=${1:-release}
shift || true
targets=("$@")
jobs=${XMLRPCS_JOBS:-$(nproc)}
case "$config" in
  release|deb) dir=build;  args=(-DCMAKE_BUILD_TYPE=RelWithDebInfo) ;;
  asan)    dir=build-asan; args=(-DCMAKE_BUILD_TYPE=Debug -DXMLRPCS_SANITIZE=ON -DXMLRPCS_BUILD_BENCH=OFF) ;;
  fuzz)    dir=build-fuzz; args=(-DCMAKE_BUILD_TYPE=Debug -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++
                                 -DXMLRPCS_BUILD_FUZZ=ON -DXMLRPCS_BUILD_TESTS=OFF -DXMLRPCS_BUILD_BENCH=OFF)
           ((${#targets[@]})) || targets=(fuzzers) ;;
  windows) dir=build-windows; args=(-DCMAKE_BUILD_TYPE=Release -DXMLRPCS_BUILD_BENCH=OFF
                                 -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-mingw-w64-x86_64.cmake)
           bash scripts/install-windows-deps.sh
           bash scripts/build-windows-deps.sh
           # The build runs vxdatatool.exe under Wine (the data files) in a
           # prefix of its own, whose server ends with the build.
           export WINEPREFIX=$PWD/build-windows/wineprefix
           bash scripts/wine-run.sh --start
           trap 'bash scripts/wine-run.sh --stop' EXIT
           ((${#targets[@]})) || targets=(all package-zip) ;;
  *) echo "usage: $0 [release|asan|fuzz|deb|windows] [TARGET...]" >&2; exit 2 ;;
esac

# The package needs only the programs (and the data files they depend on).
if [[ $config == deb ]] && ((${#targets[@]} == 0)); then
  targets=(XMLRPCServer ClientProxySim vxdatatool)
fi

cmake -S . -B "$dir" -G Ninja "${args[@]}" >/dev/null
if ((${#targets[@]})); then
  cmake --build "$dir" -j "$jobs" --target "${targets[@]}"
else
  cmake --build "$dir" -j "$jobs"
fi
if [[ $config == deb ]]; then
  # The package puts the unit and the manual page where systemd and man look.
  (cd "$dir" && XMLRPCS_PACKAGE_LAYOUT=1 cpack -G DEB >/dev/null)
  echo "build: Debian package $(ls "$dir"/corvane-xmlrpcserver_*.deb)"
  exit 0
fi
echo "build: $config configuration in $dir/"
