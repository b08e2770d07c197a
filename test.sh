#!/usr/bin/env bash
# Installs what is missing, then builds and runs every test suite:
#   host     x86-64, optimised (tests, benchmarks and demo built; demo tests run)
#   plain    x86-64, the library from its plain rows only (no NEON, no SIMDe)
#   asan     x86-64 with AddressSanitizer and UndefinedBehaviorSanitizer
#   tsan     x86-64 with ThreadSanitizer, the threaded suites
#   armhf    ARMv7-A NEON hard float, cross-compiled, run under qemu-arm
#   aarch64  ARMv8-A, cross-compiled, run under qemu-aarch64
# Give build names as arguments to run only those (e.g. ./test.sh host armhf).
set -euo pipefail
cd "$(dirname "$0")"
bash cmake/setup-debian.sh

jobs=$(nproc)
builds=("$@")
[ ${#builds[@]} -eq 0 ] && builds=(host plain asan tsan armhf aarch64)

run() {
  local name=$1 label=$2
  shift 2
  echo "=== $name: configure and build" >&2
  # Warnings are errors in our own targets here (not for users' builds).
  cmake -S . -B "build/$name" -G Ninja -Wno-dev -DBRIMVEL_WERROR=ON "$@" > "build/$name-configure.log" 2>&1 ||
    { cat "build/$name-configure.log"; return 1; }
  cmake --build "build/$name" -j "$jobs"
  echo "=== $name: test" >&2
  local args=(--test-dir "build/$name" --output-on-failure -j "$jobs")
  [ -n "$label" ] && args+=(-L "$label")
  ctest "${args[@]}"
}

mkdir -p build
for b in "${builds[@]}"; do
  case "$b" in
    host) run host "" -DCMAKE_BUILD_TYPE=Release -DBRIMVEL_BUILD_BENCH=ON -DBRIMVEL_BUILD_TOOLS=ON ;;
    plain) run plain "" -DCMAKE_BUILD_TYPE=Release -DBRIMVEL_PLAIN_ONLY=ON ;;
    asan) run asan "" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBRIMVEL_SANITIZE=address ;;
    tsan) run tsan threads -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBRIMVEL_SANITIZE=thread ;;
    armhf) run armhf "" -DCMAKE_BUILD_TYPE=Release -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-armhf.cmake ;;
    aarch64) run aarch64 "" -DCMAKE_BUILD_TYPE=Release -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-aarch64.cmake ;;
    *) echo "unknown build: $b (host, plain, asan, tsan, armhf, aarch64)" >&2; exit 2 ;;
  esac
done
echo "all tests passed: ${builds[*]}" >&2
