#!/usr/bin/env bash
# Unpacks Debian's arm64 build of the OpenCV runtime (the modules the peer
# driver links, and the libraries they load) under DEST, without installing
# anything: the arm64 architecture is added to apt's configuration, the
# packages are fetched with `apt-get download` into DEST/debs and unpacked
# with `dpkg -x` into DEST/root; both are skipped when DEST/root is
# complete. Also makes DEST/guest, the root that qemu's -L gives the guest: the
# cross sysroot's loader as /lib/ld-linux-aarch64.so.1 and the unpacked tree
# as /opencv, so that the driver finds its libraries under absolute guest
# paths that do not depend on where the clone is.
#
# Installing arm64 packages instead would put a second ARM C library beside
# the cross toolchain's, and qemu would then mix the two.
set -euo pipefail
dest=${1:?usage: fetch-opencv-arm64.sh DEST}
mkdir -p "$dest"
dest=$(cd "$dest" && pwd)

packages=(
  libopencv-core406 libopencv-imgproc406 libopencv-features2d406 libopencv-flann406 libopencv-calib3d406
  libtbb12 libtbbmalloc2 zlib1g libgomp1 liblapack3 libblas3 libgfortran5
  libglx0 libglvnd0 libx11-6 libxcb1 libxau6 libxdmcp6 libbsd0 libmd0
)
mkdir -p "$dest/guest/lib"
ln -sfn /usr/aarch64-linux-gnu/lib/ld-linux-aarch64.so.1 "$dest/guest/lib/ld-linux-aarch64.so.1"
ln -sfn ../root "$dest/guest/opencv"

stamp="$dest/root/.complete"
[ -f "$stamp" ] && exit 0

SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"
if ! dpkg --print-foreign-architectures | grep -qx arm64; then
  echo "adding the arm64 architecture to apt's configuration (nothing is installed)" >&2
  $SUDO dpkg --add-architecture arm64
fi
if [ -z "$(apt-cache policy libopencv-core406:arm64 2>/dev/null | awk '/Candidate:/ {print $2}' | grep -v none)" ]; then
  $SUDO apt-get update -q >&2
fi

mkdir -p "$dest/debs"
missing=()
for p in "${packages[@]}"; do
  compgen -G "$dest/debs/${p}_*_arm64.deb" > /dev/null || missing+=("$p:arm64")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "downloading: ${missing[*]}" >&2
  (cd "$dest/debs" && apt-get download -q "${missing[@]}" >&2)
fi

rm -rf "$dest/root"
mkdir -p "$dest/root"
for deb in "$dest"/debs/*_arm64.deb; do
  dpkg -x "$deb" "$dest/root"
done
touch "$stamp"
