#!/usr/bin/env bash
# Installs a build of the library and builds two small C programs against the
# installed copy, outside the source tree: one with CMake's find_package, one
# with a pkg-config compile line. Both are C99 with -Wall -Wextra -Werror
# -pedantic; each installs the buffer hooks, calls one entry point and checks
# its answer.
#
#   tests/package/run.sh BUILD_DIR WORK_DIR C_COMPILER [TOOLCHAIN_FILE [EMULATOR...]]
#
# Host builds are installed into a prefix that is then moved elsewhere (the
# installed tree must not depend on where it was installed). Cross builds are
# staged into a target root file system (DESTDIR, prefix /usr), as a cross
# build of a camera stack would, and the programs run under EMULATOR.
set -euo pipefail

build=$(cd "$1" && pwd)
work=$2
cc=$3
toolchain=${4:-}
shift 4 2>/dev/null || shift $#
emulator=("$@")
here=$(cd "$(dirname "$0")" && pwd)
source_dir=$(cd "$here/../.." && pwd)
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")
tools=$(sed -n 's/^BRIMVEL_BUILD_TOOLS:BOOL=//p' "$build/CMakeCache.txt")

rm -rf "$work"
mkdir -p "$work"
work=$(cd "$work" && pwd)

step() { echo "--- $*"; }
fail() { echo "FAILED: $*" >&2; exit 1; }
run() { "${emulator[@]}" "$@"; }

if [ -z "$toolchain" ]; then
  step "install into a prefix, then move it"
  cmake --install "$build" --prefix "$work/first-place" > "$work/install.log"
  mv "$work/first-place" "$work/prefix"
  root=$work/prefix
  prefix=$root
else
  step "install into a staged target root (DESTDIR=$work/root, prefix /usr)"
  DESTDIR="$work/root" cmake --install "$build" --prefix /usr > "$work/install.log"
  root=$work/root
  prefix=$root/usr
fi

# What is installed: the loaded file itself (no version suffix, no link
# chain), the header, both package files.
step "installed files"
lib=$(find "$prefix" -name 'libbrimvel_tocra.so*')
[ "$(echo "$lib" | wc -l)" -eq 1 ] || fail "more than one libbrimvel_tocra file: $lib"
[ "$(basename "$lib")" = libbrimvel_tocra.so ] && [ -f "$lib" ] && [ ! -L "$lib" ] ||
  fail "the library is not a plain libbrimvel_tocra.so: $lib"
libdir=$(dirname "$lib")
[ -f "$prefix/include/brimvel_tocra.h" ] || fail "no include/brimvel_tocra.h"
config=$(find "$prefix" -name BrimvelTocraConfig.cmake)
[ -n "$config" ] || fail "no BrimvelTocraConfig.cmake"
[ -f "$(dirname "$config")/BrimvelTocraConfigVersion.cmake" ] || fail "no BrimvelTocraConfigVersion.cmake"
pc=$(find "$prefix" -name brimvel_tocra.pc)
[ -n "$pc" ] || fail "no brimvel_tocra.pc"
if [ "$tools" = ON ] && [ -z "$toolchain" ]; then
  [ -x "$prefix/bin/tocra_demo" ] || fail "the demo tool is built but not installed"
  "$prefix/bin/tocra_demo" --help > /dev/null || fail "the installed demo tool does not start"
fi
# Relocatable: the package files name neither the build, the sources nor the
# place they were installed to.
for f in "$(dirname "$config")"/*.cmake "$pc"; do
  for p in "$build" "$source_dir" "$work"; do
    ! grep -qF "$p" "$f" || fail "$f names $p"
  done
done

step "find_package consumer"
args=(-S "$here/consumer" -B "$work/cmake-consumer" -G Ninja -DCMAKE_BUILD_TYPE=Release)
if [ -z "$toolchain" ]; then
  args+=(-DCMAKE_C_COMPILER="$cc" -DCMAKE_PREFIX_PATH="$prefix")
else
  # A cross toolchain searches packages only in its root paths; name the
  # package folder directly.
  args+=(-DCMAKE_TOOLCHAIN_FILE="$toolchain" -DBrimvelTocra_DIR="$(dirname "$config")")
fi
cmake "${args[@]}" > "$work/cmake-consumer.log" 2>&1 || { cat "$work/cmake-consumer.log"; fail "configure"; }
cmake --build "$work/cmake-consumer" > "$work/cmake-consumer-build.log" 2>&1 ||
  { cat "$work/cmake-consumer-build.log"; fail "build"; }
out=$(run "$work/cmake-consumer/consumer_cmake" 2> "$work/cmake-consumer-run.log") ||
  { cat "$work/cmake-consumer-run.log"; fail "run: $out"; }
[ "$(printf '%s\n' "$out" | tail -n 1)" = "OK find_package" ] || { cat "$work/cmake-consumer-run.log"; fail "output: $out"; }
printf '%s\n' "$out" | tail -n 1

step "pkg-config consumer"
export PKG_CONFIG_PATH=
export PKG_CONFIG_LIBDIR
PKG_CONFIG_LIBDIR=$(dirname "$pc")
if [ -n "$toolchain" ]; then
  export PKG_CONFIG_SYSROOT_DIR=$root
fi
[ "$(pkg-config --modversion brimvel_tocra)" = "$version" ] ||
  fail "pkg-config version $(pkg-config --modversion brimvel_tocra), project $version"
flags=(-std=c99 -Wall -Wextra -Werror -pedantic '-DCONSUMER_NAME="pkg-config"')
# shellcheck disable=SC2046
"$cc" "${flags[@]}" $(pkg-config --cflags brimvel_tocra) "$here/consumer/consumer.c" \
  -o "$work/consumer_pkgconfig" $(pkg-config --libs brimvel_tocra) \
  -Wl,-rpath,"$(pkg-config --variable=libdir brimvel_tocra)" ||
  fail "compile with $(pkg-config --cflags --libs brimvel_tocra)"
out=$(run "$work/consumer_pkgconfig" 2> "$work/pkgconfig-consumer-run.log") ||
  { cat "$work/pkgconfig-consumer-run.log"; fail "run: $out"; }
[ "$(printf '%s\n' "$out" | tail -n 1)" = "OK pkg-config" ] || { cat "$work/pkgconfig-consumer-run.log"; fail "output: $out"; }
printf '%s\n' "$out" | tail -n 1

rm -rf "$work"
echo "package: both consumers built and ran against the installed $(basename "$libdir")/libbrimvel_tocra.so"
