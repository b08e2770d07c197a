#!/usr/bin/env bash
# Installs what is missing, builds the library and the demo tool, and runs the
# whole capture pipeline on the built-in burst (or on the frames given as
# arguments, passed through to the tool). Pictures and the report land in
# demo-output/.
set -euo pipefail
cd "$(dirname "$0")"
bash cmake/setup-debian.sh --demo
mkdir -p build
cmake -S . -B build/host -G Ninja -Wno-dev -DCMAKE_BUILD_TYPE=Release -DBRIMVEL_BUILD_TOOLS=ON \
  -DBRIMVEL_BUILD_BENCH=ON > build/host-configure.log 2>&1 || { cat build/host-configure.log; exit 1; }
cmake --build build/host -j "$(nproc)" --target tocra_demo
exec build/host/tools/tocra_demo --out demo-output "$@"
