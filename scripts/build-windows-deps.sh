#!/usr/bin/env bash
# Builds the libraries the Windows build links, for x86_64-w64-mingw32, from
# Debian's packages only:
#   header-only   msgpack-cxx, spdlog, fmt   copied from their -dev packages
#   compiled      libxml2, Boost.Filesystem  from Debian's source packages
#                 GoogleTest                 from /usr/src/googletest
# Each lands in build-windows-deps/<package>-<version>/ (include/, lib/ and
# CMake package files); a folder that is complete is reused, so only a new
# package version or a new compiler builds again. Finally it writes
# build-windows-deps/windows-deps.cmake, which the toolchain file reads.
#   scripts/build-windows-deps.sh [DEPS_DIR]
set -euo pipefail
cd "$(dirname "$0")/.."

deps=$(realpath -m "${1:-${XMLRPCS_WINDOWS_DEPS:-build-windows-deps}}")
host=x86_64-w64-mingw32
cc=$host-gcc-posix
cxx=$host-g++-posix
jobs=${XMLRPCS_JOBS:-$(nproc)}
mkdir -p "$deps/src"

# The compiler is part of every key: a new mingw-w64 rebuilds everything.
compiler=$($cxx -dumpfullversion)

# The version of a binary package that is installed.
installed_version() { dpkg-query -W -f='${Version}' "$1"; }

# The version `apt-get source` fetches: the highest one apt knows.
source_version() {
  local best="" v
  while read -r v; do
    if [[ -z $best ]] || dpkg --compare-versions "$v" gt "$best"; then best=$v; fi
  done < <(apt-cache showsrc "$1" | sed -n 's/^Version: //p')
  [[ -n $best ]] || { echo "build-windows-deps: no source package $1 (deb-src entry missing? run scripts/install-windows-deps.sh)" >&2; exit 1; }
  echo "$best"
}

# prefix NAME VERSION: the cache folder of one package (':' and '~' are
# awkward in paths, '+' is not).
prefix() { echo "$deps/$1-$(tr ':~' '__' <<<"$2")"; }

done_stamp() { echo "$compiler" >"$1/.complete"; }
is_done() { [[ -f $1/.complete && $(cat "$1/.complete") == "$compiler" ]]; }

# fetch_source NAME VERSION: unpacks Debian's source package (with its
# patches applied) into src/NAME-VERSION and prints that folder.
fetch_source() {
  local name=$1 version=$2 dir
  dir="$deps/src/$name-$(tr ':~' '__' <<<"$version")"
  if [[ ! -d $dir ]]; then
    (cd "$deps/src" && apt-get source -qq --download-only "$name=$version" >/dev/null)
    local dsc
    dsc=$(ls "$deps/src/${name}_${version#*:}.dsc")
    dpkg-source -x "$dsc" "$dir" >/dev/null
  fi
  echo "$dir"
}

cmake_cross() {
  cmake -G Ninja -DCMAKE_SYSTEM_NAME=Windows -DCMAKE_C_COMPILER=$cc -DCMAKE_CXX_COMPILER=$cxx \
    -DCMAKE_RC_COMPILER=$host-windres -DCMAKE_BUILD_TYPE=Release -DBUILD_SHARED_LIBS=OFF \
    -DCMAKE_FIND_ROOT_PATH=/usr/$host -DCMAKE_FIND_ROOT_PATH_MODE_PROGRAM=NEVER \
    -DCMAKE_FIND_ROOT_PATH_MODE_LIBRARY=ONLY -DCMAKE_FIND_ROOT_PATH_MODE_INCLUDE=ONLY "$@" >/dev/null
}

# --- header-only libraries: their headers, and CMake files naming the same
# targets as Debian's own, without the paths of this machine's glibc tree.
header_only() {
  local pkg=$1 out
  out=$(prefix "$pkg" "$(installed_version "$pkg")")
  if ! is_done "$out"; then
    rm -rf "$out" && mkdir -p "$out/include" "$out/lib/cmake"
    shift
    local h
    for h in "$@"; do cp -r "/usr/include/$h" "$out/include/"; done
    done_stamp "$out"
  fi
  echo "$out"
}

msgpack=$(header_only libmsgpack-cxx-dev msgpack msgpack.hpp)
mkdir -p "$msgpack/lib/cmake/msgpack"
cat >"$msgpack/lib/cmake/msgpack/msgpack-config.cmake" <<'EOF'
if(NOT TARGET msgpackc-cxx)
  add_library(msgpackc-cxx INTERFACE IMPORTED)
  set_target_properties(msgpackc-cxx PROPERTIES
    INTERFACE_INCLUDE_DIRECTORIES "${CMAKE_CURRENT_LIST_DIR}/../../../include")
endif()
EOF

fmt=$(header_only libfmt-dev fmt)
spdlog=$(header_only libspdlog-dev spdlog)
mkdir -p "$spdlog/lib/cmake/spdlog"
# spdlog and fmt both header-only: nothing of either is compiled separately.
cat >"$spdlog/lib/cmake/spdlog/spdlogConfig.cmake" <<EOF
if(NOT TARGET spdlog::spdlog)
  add_library(spdlog::spdlog INTERFACE IMPORTED)
  set_target_properties(spdlog::spdlog PROPERTIES
    INTERFACE_INCLUDE_DIRECTORIES "\${CMAKE_CURRENT_LIST_DIR}/../../../include;$fmt/include"
    INTERFACE_COMPILE_DEFINITIONS "SPDLOG_HEADER_ONLY;SPDLOG_FMT_EXTERNAL;FMT_HEADER_ONLY")
endif()
EOF

# --- libxml2 from its source package: static, no iconv (UTF-8, UTF-16 and
# Latin-1 are built in), no compression, no network, no Python.
xml_version=$(source_version libxml2)
libxml2=$(prefix libxml2 "$xml_version")
if ! is_done "$libxml2"; then
  echo "build-windows-deps: libxml2 $xml_version"
  src=$(fetch_source libxml2 "$xml_version")
  rm -rf "$libxml2" "$deps/src/libxml2-build"
  cmake_cross -S "$src" -B "$deps/src/libxml2-build" -DCMAKE_INSTALL_PREFIX="$libxml2" \
    -DLIBXML2_WITH_ICONV=OFF -DLIBXML2_WITH_LZMA=OFF -DLIBXML2_WITH_ZLIB=OFF \
    -DLIBXML2_WITH_PYTHON=OFF -DLIBXML2_WITH_TESTS=OFF -DLIBXML2_WITH_PROGRAMS=OFF \
    -DLIBXML2_WITH_HTTP=OFF -DLIBXML2_WITH_FTP=OFF -DLIBXML2_WITH_MODULES=OFF \
    -DLIBXML2_WITH_ICU=OFF
  cmake --build "$deps/src/libxml2-build" -j "$jobs" >/dev/null
  cmake --install "$deps/src/libxml2-build" >/dev/null
  rm -rf "$deps/src/libxml2-build"
  done_stamp "$libxml2"
fi

# --- Boost: the headers and Boost.Filesystem's sources out of the source
# package's upstream tarball. Debian's patches are not applied: one changes
# a Boost.Phoenix header this program does not include, the others touch the
# build tools, documentation and Python bindings;
# Boost.System is header-only, its library an empty one for FindBoost.
boost_version=$(source_version boost1.81)
boost=$(prefix boost1.81 "$boost_version")
if ! is_done "$boost"; then
  echo "build-windows-deps: Boost.Filesystem $boost_version"
  (cd "$deps/src" && apt-get source -qq --download-only "boost1.81=$boost_version" >/dev/null)
  tarball=$(ls "$deps"/src/boost1.81_"${boost_version%%-*}".orig.tar.*)
  work="$deps/src/boost-work"
  rm -rf "$boost" "$work" && mkdir -p "$work" "$boost/include" "$boost/lib"
  tar -xf "$tarball" -C "$work" --wildcards '*/libs/*/include/*' '*/libs/filesystem/src/*'
  for inc in "$work"/*/libs/*/include "$work"/*/libs/numeric/*/include; do
    [[ -d $inc/boost ]] && cp -r "$inc/boost" "$boost/include/"
  done
  fs_src=$(echo "$work"/*/libs/filesystem/src)
  objs=()
  for f in codecvt_error_category exception operations directory path path_traits portability \
    unique_path utf8_codecvt_facet windows_file_codecvt; do
    $cxx -std=c++20 -O2 -c "$fs_src/$f.cpp" -o "$work/$f.o" -I"$boost/include" -I"$fs_src" \
      -DBOOST_FILESYSTEM_SOURCE -DBOOST_FILESYSTEM_STATIC_LINK=1 -DBOOST_FILESYSTEM_NO_LIB \
      -DBOOST_ALL_NO_LIB -DBOOST_USE_WINDOWS_H -DWIN32_LEAN_AND_MEAN -DNOMINMAX \
      -D_WIN32_WINNT=0x0A00 &
    objs+=("$work/$f.o")
    (($(jobs -r | wc -l) >= jobs)) && wait -n
  done
  wait
  $host-ar rcs "$boost/lib/libboost_filesystem.a" "${objs[@]}"
  echo 'namespace boost_system_library { void placeholder() {} }' >"$work/system.cpp"
  $cxx -c "$work/system.cpp" -o "$work/system.o"
  $host-ar rcs "$boost/lib/libboost_system.a" "$work/system.o"
  rm -rf "$work"
  done_stamp "$boost"
fi

# --- GoogleTest from the sources Debian's googletest package installs.
gtest=$(prefix googletest "$(installed_version googletest)")
if ! is_done "$gtest"; then
  echo "build-windows-deps: GoogleTest $(installed_version googletest)"
  rm -rf "$gtest" "$deps/src/gtest-build"
  cmake_cross -S /usr/src/googletest -B "$deps/src/gtest-build" -DCMAKE_INSTALL_PREFIX="$gtest" \
    -DCMAKE_CXX_STANDARD=20
  cmake --build "$deps/src/gtest-build" -j "$jobs" >/dev/null
  cmake --install "$deps/src/gtest-build" >/dev/null
  rm -rf "$deps/src/gtest-build"
  done_stamp "$gtest"
fi

cat >"$deps/windows-deps.cmake" <<EOF
# Written by scripts/build-windows-deps.sh: where the Windows libraries are.
set(XMLRPCS_WINDOWS_DEPS_PREFIXES "$msgpack;$fmt;$spdlog;$libxml2;$boost;$gtest")
EOF
echo "build-windows-deps: libraries ready in $deps"
