#!/usr/bin/env bash
# Installs, with apt-get, the Debian packages that the builds, tests, demo and
# benchmarks need; does nothing when they are all present.
#   --demo   also the real photographs the demo makes its default burst from
#            (opencv-doc); the tests do not need them.
set -euo pipefail

packages=(
  cmake ninja-build g++ pkg-config
  libgtest-dev googletest libbenchmark-dev
  libsimde-dev android-liblog-dev
  g++-arm-linux-gnueabihf g++-aarch64-linux-gnu qemu-user
  libopencv-dev
  libcli11-dev nlohmann-json3-dev  # the demo tool's options and report, read by its tests
  clang libclang-rt-14-dev clang-format
  blueprint-tools  # bpfmt, for the Android.bp check
)
[ "${1:-}" = "--demo" ] && packages+=(opencv-doc)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "installing: ${missing[*]}" >&2
SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"
export DEBIAN_FRONTEND=noninteractive
if ! $SUDO apt-get install -y -q --no-install-recommends "${missing[@]}"; then
  $SUDO apt-get update -q || true
  $SUDO apt-get install -y -q --no-install-recommends "${missing[@]}"
fi
