#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (ASan + UBSan) and runs each for the
# given number of seconds on its corpus in tests/fuzz/corpus/<target>/.
# New inputs go to fuzz-out/<target>/corpus/, findings to fuzz-out/<target>/crash-*.
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
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for f in tests/fuzz/fuzz_*.cpp; do targets+=("$(basename "$f" .cpp)"); done
fi
# Only the fuzz targets: the shared library is not needed here, and with
# clang's sanitizers it cannot link with --no-undefined (the runtime comes
# with the executable).
cmake --build build/fuzz -j "$(nproc)" --target "${targets[@]}"
status=0
for t in "${targets[@]}"; do
  out="fuzz-out/$t"
  mkdir -p "$out/corpus" "tests/fuzz/corpus/$t"
  echo "=== $t: ${seconds}s" >&2
  # The working corpus is fuzz-out/<target>/corpus; the committed seeds are
  # read, not written. The log and any finding stay outside the corpus, so a
  # crash file is never picked up as an input of the next run.
  if ! "build/fuzz/tests/fuzz/$t" -max_total_time="$seconds" -print_final_stats=1 -rss_limit_mb=2048 \
          -timeout=10 -artifact_prefix="$out/" "$out/corpus" "tests/fuzz/corpus/$t" 2> "$out/$t.log"; then
    status=1
    echo "$t: FINDING, see $out/$t.log" >&2
    ls "$out"/crash-* "$out"/leak-* "$out"/timeout-* "$out"/oom-* >&2 2> /dev/null || true
  fi
  grep -E "stat::number_of_executed_units|stat::new_units_added|Done [0-9]+ runs" "$out/$t.log" >&2 || true
done
exit $status
