#!/usr/bin/env bash
# The instructions one kernel executes, by mnemonic: the plugin's histogram
# of a run calling the kernel minus that of its baseline, per column, the
# most frequent first, per output unit. Uses the drivers that
# bench/arm/cost.sh built.
#
#   bash bench/arm/mnemonics.sh KERNEL [WIDTHxHEIGHT] [COUNT] [TOP]
#   e.g. bash bench/arm/mnemonics.sh integral 1920x1080
set -euo pipefail
cd "$(dirname "$0")/../.."
kernel=${1:?usage: bench/arm/mnemonics.sh KERNEL [WIDTHxHEIGHT] [COUNT] [TOP]}
size=${2:-1920x1080}
count=${3:-}
top=${4:-12}
w=${size%x*}
h=${size#*x}
ocv=build/armcost-opencv/root
ocvlib=$ocv/usr/lib/aarch64-linux-gnu
plugin=$PWD/build/armcost-aarch64/bench/arm/libinsn_count.so
[ -f "$plugin" ] || { echo "run bash bench/arm/cost.sh first" >&2; exit 1; }
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

columns=(
  "plain-armhf|qemu-arm -L /usr/arm-linux-gnueabihf -E LD_LIBRARY_PATH=/usr/arm-linux-gnueabihf/lib|build/armcost-armhf/bench/arm/cost_driver_plain"
  "neon-armhf|qemu-arm -L /usr/arm-linux-gnueabihf -E LD_LIBRARY_PATH=/usr/arm-linux-gnueabihf/lib|build/armcost-armhf/bench/arm/cost_driver"
  "plain-aarch64|qemu-aarch64 -L /usr/aarch64-linux-gnu -E LD_LIBRARY_PATH=/usr/aarch64-linux-gnu/lib|build/armcost-aarch64/bench/arm/cost_driver_plain"
  "neon-aarch64|qemu-aarch64 -L /usr/aarch64-linux-gnu -E LD_LIBRARY_PATH=/usr/aarch64-linux-gnu/lib|build/armcost-aarch64/bench/arm/cost_driver"
  "opencv-aarch64|qemu-aarch64 -L /usr/aarch64-linux-gnu -E LD_LIBRARY_PATH=/usr/aarch64-linux-gnu/lib:$ocvlib:$ocvlib/lapack:$ocvlib/blas:$ocv/lib/aarch64-linux-gnu|build/armcost-aarch64/bench/arm/opencv_driver"
)
for col in "${columns[@]}"; do
  IFS='|' read -r name emu exe <<< "$col"
  ok=1
  for calls in 0 1; do
    # shellcheck disable=SC2086
    env -i PATH=/usr/bin:/bin $emu -plugin "$plugin,out=$tmp/$calls.count,mnemonics=$tmp/$calls.hist" "$exe" "$kernel" "$w" "$h" "$calls" $count \
      > "$tmp/$calls.out" 2> /dev/null || { ok=0; break; }
  done
  [ "$ok" = 1 ] || continue
  units=$(grep '^cost-units ' "$tmp/1.out" | tail -1 | cut -d' ' -f2)
  echo "== $name ($kernel $size, per $(grep '^cost-units ' "$tmp/1.out" | tail -1 | cut -d' ' -f3))"
  awk -v u="$units" -v top="$top" '
    FNR == NR { base[$1] = $2; next }
    { d = $2 - base[$1]; if (d > 0) { diff[$1] = d; total += d } }
    END {
      n = 0
      for (m in diff) order[++n] = m
      for (i = 1; i <= n; ++i) for (j = i + 1; j <= n; ++j)
        if (diff[order[j]] > diff[order[i]]) { t = order[i]; order[i] = order[j]; order[j] = t }
      printf "  total %.2f\n", total / u
      for (i = 1; i <= n && i <= top; ++i) printf "  %-10s %8.3f\n", order[i], diff[order[i]] / u
    }' "$tmp/0.hist" "$tmp/1.hist"
done
