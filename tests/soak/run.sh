#!/usr/bin/env bash
# Soak run under ASan + UBSan: every entry point in turn with varying valid
# inputs for SECONDS (default 600), sampling resident memory, open
# descriptors and threads every SAMPLE seconds (default 10). Not part of the
# test command. Exits non-zero when a call answers other than 0, when
# descriptors or threads at the end differ from the start, or when
# LeakSanitizer finds a leak at exit.
#   tests/soak/run.sh 600
set -euo pipefail
cd "$(dirname "$0")/../.."
seconds=${1:-600}
sample=${2:-10}
bash cmake/setup-debian.sh
cmake -S . -B build/asan -G Ninja -Wno-dev -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBRIMVEL_SANITIZE=address \
  > build/asan-soak-configure.log 2>&1 || { cat build/asan-soak-configure.log; exit 1; }
cmake --build build/asan --target tocra_soak
# ASan holds freed blocks in a quarantine (256 MB by default) before reusing
# them, which by itself grows the resident size for the first minutes; a
# small quarantine lets the figures show the library's own use sooner.
export ASAN_OPTIONS=${ASAN_OPTIONS:-quarantine_size_mb=16:detect_leaks=1}
exec build/asan/tests/tocra_soak "$seconds" "$sample" 2>&1
