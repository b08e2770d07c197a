#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (ASan + UBSan) and runs each for the
# given number of seconds on its corpus in tests/fuzz/corpus/<target>/.
# New inputs go to fuzz-out/<target>/, findings to fuzz-out/<target>/crash-*.
#   tests/fuzz/run.sh 600                 # every target, ten minutes each
#   tests/fuzz/run.sh 60 fuzz_parse_string
set -euo pipefail
cd "$(dirname "$0")/../.."
seconds=${1:-60}
shift || true
bash cmake/setup-debian.sh
CC=clang CXX=clang++ cmake -S . -B build/fuzz -G Ninja -Wno-dev -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DBRIMVEL_BUILD_FUZZ=ON -DBRIMVEL_BUILD_TESTS=OFF > build/fuzz-configure.log 2>&1 ||
  { cat build/fuzz-configure.log; exit 1; }
cmake --build build/fuzz -j "$(nproc)"
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for f in tests/fuzz/fuzz_*.cpp; do targets+=("$(basename "$f" .cpp)"); done
fi
status=0
for t in "${targets[@]}"; do
  out="fuzz-out/$t"
  mkdir -p "$out" "tests/fuzz/corpus/$t"
  echo "=== $t: ${seconds}s" >&2
  # Working corpus in fuzz-out; the committed seeds are read, not written.
  if ! (cd "$out" && "../../build/fuzz/tests/fuzz/$t" -max_total_time="$seconds" -print_final_stats=1 \
          -rss_limit_mb=2048 -timeout=10 . "../../tests/fuzz/corpus/$t" 2> "$t.log"); then
    status=1
    echo "$t: FINDING, see $out/$t.log" >&2
  fi
  grep -E "stat::number_of_executed_units|stat::new_units_added|Done [0-9]+ runs" "$out/$t.log" >&2 || true
done
exit $status
