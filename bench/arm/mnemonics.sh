#!/usr/bin/env bash
# The instructions one kernel executes, by mnemonic: the plugin's histogram
# of a run calling the kernel minus that of its baseline, per column, the
# most frequent first, per output unit; the uncounted calls are left out as
# in the cost table. Uses the drivers that bench/arm/cost.sh built.
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
plugin=$PWD/build/armcost-aarch64/bench/arm/libinsn_count.so
[ -f "$plugin" ] || { echo "run bash bench/arm/cost.sh first" >&2; exit 1; }
# The emulators and the uncounted calls, as bench/arm/cost.sh runs them.
# shellcheck source=bench/arm/guest.sh
. bench/arm/guest.sh
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

for col in "${columns[@]}"; do
  read -r name kind exe <<< "$col"
  uncounted=""
  if [ "$kind" != opencv ]; then
    uncounted_list "$kind" "$exe" "$tmp/uncounted"
    uncounted=",uncounted=$tmp/uncounted"
  fi
  ok=1
  for calls in 0 1; do
    # shellcheck disable=SC2046,SC2086
    $(emulator "$kind") -plugin "$plugin,out=$tmp/$calls.count,mnemonics=$tmp/$calls.hist$uncounted" "$exe" "$kernel" "$w" "$h" "$calls" $count \
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
