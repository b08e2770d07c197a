#!/usr/bin/env bash
# ARM cost model: guest instructions per output pixel (or keypoint, pair,
# call) of every vector kernel, counted under qemu-user by the plugin in this
# folder, for plain armhf, NEON armhf, plain aarch64, NEON aarch64 and
# OpenCV aarch64. Builds what it needs into build/armcost-*/ and writes
# bench/ARM_COST.md.
#
#   bash bench/arm/cost.sh [--out FILE] [--sizes "1920x1080 4000x3000"] [--jobs N]
#
# Every figure is (count of a run that calls the kernel CALLS times - count of
# the same run with the kernel skipped) / CALLS / units.
set -euo pipefail
cd "$(dirname "$0")/../.."
root=$PWD

out=bench/ARM_COST.md
sizes="1920x1080 4000x3000"
jobs=$(nproc)
calls=1
table_only=0
while [ $# -gt 0 ]; do
  case "$1" in
    --table-only) table_only=1; shift ;;
    --out) out=$2; shift 2 ;;
    --sizes) sizes=$2; shift 2 ;;
    --jobs) jobs=$2; shift 2 ;;
    *) echo "usage: bench/arm/cost.sh [--out FILE] [--sizes \"WxH ...\"] [--jobs N] [--table-only]" >&2; exit 2 ;;
  esac
done

start=$(date +%s)
bash cmake/setup-debian.sh
mkdir -p build
bash bench/arm/fetch-opencv-arm64.sh build/armcost-opencv
ocv=$root/build/armcost-opencv/root

# build <arch> <folder> [cmake options]: the drivers of one column pair; the
# plain columns come from the library built with -DBRIMVEL_PLAIN_ONLY=ON.
build() {
  local arch=$1
  local dir=build/$2
  shift 2
  echo "=== $arch: configure and build the drivers" >&2
  cmake -S . -B "$dir" -G Ninja -Wno-dev -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-$arch.cmake -DBRIMVEL_BUILD_TESTS=OFF -DBRIMVEL_BUILD_ARM_COST=ON \
    -DCMAKE_BUILD_RPATH_USE_ORIGIN=ON \
    "$@" > "$dir.configure.log" 2>&1 || { cat "$dir.configure.log"; return 1; }
  cmake --build "$dir" -j "$jobs" --target insn_count_plugin cost_driver \
    $([ "$dir" = build/armcost-aarch64 ] && echo opencv_driver) > "$dir.build.log" 2>&1 || { tail -50 "$dir.build.log"; return 1; }
}
if [ "$table_only" = 0 ]; then
  build armhf armcost-armhf
  build armhf armcost-armhf-plain -DBRIMVEL_PLAIN_ONLY=ON
  build aarch64 armcost-aarch64 -DBRIMVEL_ARM_OPENCV_ROOT="$ocv"
  build aarch64 armcost-aarch64-plain -DBRIMVEL_PLAIN_ONLY=ON
fi
plugin=$root/build/armcost-aarch64/bench/arm/libinsn_count.so
built=$(date +%s)

# The emulators, the guest's environment and the uncounted calls:
# bench/arm/guest.sh.
# shellcheck source=bench/arm/guest.sh
. bench/arm/guest.sh
# The five columns (name, emulator, executable): $columns, from guest.sh.

# The rows: kernel id, keypoint count (0: none), whether it depends on the
# frame size, and the label.
rows=(
  "integral 0 1 \`IntergralMat_MT\` integral image"
  "box_h 0 1 \`IntegralMat_H_MT\` horizontal box sums, R = 40"
  "box_v 0 1 \`IntegralMat_V_MT\` vertical box sums and scaling, R = 40"
  "box_filter 0 1 \`BoxFiltering_neon\` box filter, R = 40"
  "downscale 0 1 \`DownScaleX4_Neon_MT\` x2 down-scale (output W/2 x H/2)"
  "upscale 0 1 \`MT_UpScale4X_NEON\` x2 up-scale (input W/2 x H/2)"
  "upscale_error 0 1 \`UpScaleError_Neon_MT\` up-scale error"
  "yuv2rgb_hist 0 1 \`YUV2RGB_LUTX4_NEON_MT\` colour conversion with block histograms"
  "cum_sum 0 1 \`GetCumSum_Neon_MT\` cumulative histogram"
  "cum_hist 0 1 \`GetCumHist_Neon_MT\` cumulative histogram, step 2"
  "brief_kernel 5000 1 \`GenerateDiscriptor_Brief_MT\` descriptor kernel, 5,000 keypoints"
  "brief_api 1000 1 \`GetBrief_Descriptors_TocraAPI\`, 1,000 keypoints"
  "brief_api 5000 1 \`GetBrief_Descriptors_TocraAPI\`, 5,000 keypoints"
  "ransac 0 0 \`RansacEstimation\`, both passes of the entry point, 2,000 pairs"
  "dlt_normal 0 0 DLT normal matrix (\`tocra::DltNormalMatrix_NEON\`), 1,400 pairs"
  "warp_yuv420 0 1 \`AffineTransform_neon\` planar, with the border fill"
  "warp_nv12 0 1 \`AffineTransform_neon\` NV12, with the border fill"
  "fill_nv12 0 1 \`FillBlank_neon_NV12\` border copy"
  "ransac_regis 0 1 \`Ransac_Regis_TocraAPI\`, 2,000 matches, planar"
)

runs=build/armcost-runs

# The uncounted-address list of one executable (the plain and NEON drivers
# have the same name in different folders).
uncounted_name() { echo "$(echo "$1" | tr / _)-$2.uncounted"; }

# One emulator run: writes NAME.count ("insns N", "uncounted N"), NAME.units
# or NAME.na. Our drivers leave out the calls that bench/arm/uncounted.txt
# names (the list made for each executable below).
run_one() {
  local name=$1 emu=$2 exe=$3
  shift 3
  local status=0 uncounted=""
  [ "$emu" != opencv ] && uncounted=",uncounted=$runs/$(uncounted_name "$exe" "$emu")"
  # shellcheck disable=SC2046
  $(emulator "$emu") -plugin "$plugin,out=$runs/$name.count$uncounted" "$exe" "$@" > "$runs/$name.stdout" 2> "$runs/$name.stderr" ||
    status=$?
  if [ "$status" -eq 3 ]; then
    touch "$runs/$name.na"
  elif [ "$status" -ne 0 ]; then
    echo "run failed ($status): $exe $*" >&2
    tail -5 "$runs/$name.stderr" >&2
    return 1
  elif ! grep -q '^insns ' "$runs/$name.count" 2> /dev/null; then
    echo "no count: $exe $*" >&2
    cat "$runs/$name.count" >&2 2> /dev/null || true
    return 1
  else
    grep '^cost-units ' "$runs/$name.stdout" | tail -1 | cut -d' ' -f2- > "$runs/$name.units"
  fi
}
export -f run_one emulator uncounted_name
export runs plugin guest_env

# Every (row, size, column) pair: the kernel run and its baseline. Longest
# first, so that the two cores finish together.
list=$runs/jobs.txt
if [ "$table_only" = 0 ]; then
rm -rf "$runs"
mkdir -p "$runs"
for col in "${columns[@]}"; do
  read -r cname emu exe <<< "$col"
  if [ "$emu" != opencv ]; then uncounted_list "$emu" "$exe" "$runs/$(uncounted_name "$exe" "$emu")"; fi
done
for size in $sizes; do
  w=${size%x*}
  h=${size#*x}
  for row in "${rows[@]}"; do
    read -r kernel count sized _ <<< "$row"
    if [ "$sized" = 0 ] && [ "$size" != "${sizes%% *}" ]; then continue; fi
    for col in "${columns[@]}"; do
      read -r cname emu exe <<< "$col"
      id="${kernel}_${count}_${w}x${h}__${cname}"
      echo "$((w * h)) ${id}__k $emu $exe $kernel $w $h $calls $([ "$count" != 0 ] && echo "$count")" >> "$list"
      echo "$((w * h)) ${id}__b $emu $exe $kernel $w $h 0 $([ "$count" != 0 ] && echo "$count")" >> "$list"
    done
  done
done
echo "=== $(wc -l < "$list") emulator runs on $jobs jobs" >&2
sort -k1,1nr "$list" | cut -d' ' -f2- | sed 's/ *$//' | xargs -P "$jobs" -L 1 bash -c 'run_one "$@"' _
fi
finished=$(date +%s)

# ---------------------------------------------------------------------------
# The table.
# ---------------------------------------------------------------------------
# value ID COLUMN: "instructions units units-name" of the kernel, or "na"
# (read with the shell's builtins: the table reads 360 files).
value() {
  local base="$runs/$1__$2" k b units
  if [ -e "${base}__k.na" ]; then
    echo na
    return
  fi
  read -r _ k < "${base}__k.count"
  read -r _ b < "${base}__b.count"
  read -r units < "${base}__k.units"
  echo "$((k - b)) $units"
}

# figures N1 U1 ... N5 U5 (the five columns' instructions and units, "na na"
# where there is no form): the five figures per unit and call (three
# significant figures, two decimals below 1; "—" for none), then the two
# NEON speed-ups and ours / OpenCV (two decimals, one from 10 on).
figures() {
  awk -v c="$calls" 'BEGIN {
    for (i = 1; i <= 5; ++i) {
      n = ARGV[2 * i - 1]; u = ARGV[2 * i]
      if (n == "na") { f[i] = "—"; continue }
      f[i] = sprintf("%.6f", n / u / c)
    }
    r[1] = ratio(f[1], f[2]); r[2] = ratio(f[3], f[4]); r[3] = ratio(f[4], f[5])
    line = ""
    for (i = 1; i <= 5; ++i) line = line (f[i] == "—" ? "—" : shown(f[i] + 0)) " "
    print line r[1] " " r[2] " " r[3]
    exit
  }
  function shown(v, e) {
    if (v >= 100) { e = 10 ^ (int(log(v) / log(10)) - 2); return sprintf("%.0f", int(v / e + 0.5) * e) }
    if (v >= 10) return sprintf("%.1f", v)
    return sprintf("%.2f", v)
  }
  function ratio(a, b) {
    if (a == "—" || b == "—" || b + 0 <= 0) return "—"
    return a / b >= 10 ? sprintf("%.1f", a / b) : sprintf("%.2f", a / b)
  }' "$@"
}
pretty_size() {
  case "$1" in
    1920x1080) echo "1920 x 1080" ;;
    4000x3000) echo "4000 x 3000" ;;
    *) echo "${1/x/ x }" ;;
  esac
}

{
  cat <<'EOF'
# ARM cost model: instructions per output pixel

Guest instructions that qemu-user executes for each kernel, counted by the
plugin `bench/arm/insn_count.c` (every executed translation block adds its
instruction count to the total of the thread that executes it; the threads'
totals are added up at exit). With the synchronisation calls left out
(below), this is a deterministic measure of ARM work: the same program
gives the same count on every run, with no timing noise. It knows nothing of
caches, memory bandwidth, pipelines or the cost of each instruction (a
multiply or a 16-byte load counts one, like an add), so it goes beside the
x86-64 wall-clock benchmarks of [RESULTS.md](RESULTS.md), not in place of
them.

Reproduce (builds what it needs into `build/armcost-*/`; fetches OpenCV's
arm64 runtime from Debian with `apt-get download` and unpacks it with
`dpkg -x`, nothing is installed). From a clean clone on this 2-core
machine, while other builds kept its load average between 7 and 10:
8 minutes 1 second (4 minutes 29 seconds for the download and the two
builds, 3 minutes 26 seconds for the 360 emulator runs), using 4 minutes
6 seconds of processor time; run again in the same clone, which builds
nothing, 4 minutes 26 seconds at a load average near 7:

```sh
bash bench/arm/cost.sh
```

Repeatability: two runs of the command give the same raw count in every
row and column, and so does a run from a fresh clone in another folder
(checked: two runs in one clone and one in each of two fresh clones under
`/tmp` gave the raw-count table at the end digit for digit). What makes
them so:

- Our drivers are static executables (the cross sysroot's C and C++
  libraries linked in): no loader, no library path. The C library's
  start-up would keep the executable's absolute folder (qemu's answer for
  `/proc/self/exe`) on the heap, moving every later heap block with the
  length of the clone's path (the 1,000-keypoint descriptor rows by 4
  instructions): the drivers are linked with `--wrap=_dl_get_origin`, and
  the folder is unknown to it, as it is when that link cannot be read
  (it only serves `$ORIGIN` in `dlopen`). OpenCV's driver is
  dynamic; it finds its libraries under fixed absolute guest paths, through
  a guest root given to qemu's `-L` (`bench/arm/fetch-opencv-arm64.sh`
  makes it). With relative library paths the loader put the clone's folder
  in front of every library's name, which moved the heap and with it two of
  OpenCV's rows by 12 and 24 instructions between clones.
- Every guest gets the same environment, `PATH` and
  `GLIBC_TUNABLES=glibc.malloc.arena_max=8`, and paths relative to the
  clone (`bench/arm/guest.sh`). Without a fixed limit the C library sizes
  its number of malloc arenas from the host's core count, which qemu passes
  through: on this 2-core machine the fourth pool worker of an armhf run
  shared an arena with another thread, and on one core the armhf vertical
  box sums counted 25 instructions fewer. With eight, every thread that
  allocates gets an arena of its own on any host.
- The box filter prints the time of its passes: the drivers are linked with
  `--wrap=gettimeofday`, and the library's calls get a fixed time (every
  pass prints `time:0 ms`). The drivers' log sink leaves out the time and
  the process and thread ids.
- The calls whose count depends on which thread gets there first are left
  out, as follows.

What the counts leave out (`bench/arm/uncounted.txt`): in our columns, the
calls of the C library's `sem_wait`, `sem_post`, `sem_trywait`,
`pthread_join` and `arena_get2`, each with everything the calling thread
executes until the call returns. The first four are the library's
synchronisation: the worker pool's two semaphores per worker, and the joins
of the pool's workers and of the warp's four threads. A semaphore that is
already posted costs a few instructions, one that is not a futex wait with
its retries, atomic operations and cancellation checks; a join waits in the
same way for a thread that is still running, then puts the thread's stack
back in the C library's cache. `arena_get2` runs at a thread's first
allocation (the workers of the vertical box sums) and attaches the thread to
a malloc arena, which it creates when there is no free one; whether it finds
one free or waits for the arena list's lock depends on which worker
allocates first. None of them touches the pixels: what runs inside them
(the plugin's per-function histogram, `symbols=`) is atomic operations,
futex and memory-mapping system calls, cancellation state, list and lock
bookkeeping and the new arena's empty bins; no `memcpy`, `memset` or
arithmetic on data. They are small: in four runs of the command (two in
one clone, two in fresh clones), at most 10,354 instructions in one run
(the box filter on armhf: two passes on the pool, and the workers' first
allocations), a kernel run at most 8,355 more than its baseline, at most
0.35% of a kernel's count (the plain x2 down-scale at 1920 x 1080, 0.57 to
0.65 million instructions) and at most 0.05% of every count above 10
million; `cost.sh` prints these figures for its own run at the end. The
library reaches these functions through wrappers
(`bench/arm/sync_calls.cpp`, linked with `--wrap`) that call them with a
call instruction, because its own code may jump to them (a tail call) and
the plugin ends an uncounted call where it returns; the wrappers' own few
instructions per call are counted. OpenCV runs on one thread: it starts no
thread (no `clone` system call under qemu's `-strace`), its libraries do
not import the semaphore or join functions, and its thread allocates from
the main arena, which never goes through `arena_get2`. None of the
exclusions applies to it, and it needs none.

Static linking has one more effect: our calls into the C library go
straight to the function (or through the same IFUNC stub as from a shared
object, for `memcpy` and its kind), where a shared object's call goes
through a PLT stub of 3 to 5 instructions, as OpenCV's do. Ours are
therefore a little lower than the library would execute as a shared object:
RANSAC by 43,000 to 49,000 instructions (0.2% to 0.5% of its count, mostly
its calls of `hypotf`), the DLT normal matrix by up to 900, the
single-threaded warps and the border copy not at all.

How each figure is made: for each kernel, size and column, the driver runs
once calling the kernel and once with the same set-up but the kernel
skipped (the baseline); the difference is divided by the number of output
pixels (or keypoints, pairs, calls; the "per" column). Our kernels run as the
library runs them: their four bands on the four pool workers, or four
threads of their own for the warp, and the count is the total over all
threads, what a phone executes but for the calls left out above. OpenCV
runs single-threaded (`cv::setNumThreads(1)`), Debian's arm64 build 4.6
(its NEON code paths);
its baselines include one call on a 256 x 256 input, so that its one-time
initialisation is not counted. Compilers: Debian's cross g++ 12, `-O3`
(Release), `-march=armv7-a -mfpu=neon -mfloat-abi=hard` for armhf (Thumb-2
by default); our drivers are linked statically with the cross sysroots'
glibc 2.36 and libstdc++, OpenCV's dynamically with the same arm64 ones.

Columns:

- plain armhf / plain aarch64: the same driver and exported names, linked
  with the library built with plain rows only (`-DBRIMVEL_PLAIN_ONLY=ON`:
  no NEON file, every exported vector name runs the plain rows on the same
  band split and pool), the whole entry points included; the compiler may
  still auto-vectorise plain loops on aarch64, where NEON is always
  present, and on armhf, where the build enables it.
- NEON armhf / NEON aarch64: the exported kernels as built
  (`bench/arm/kernels_library.cpp`).
- OpenCV aarch64: the work done by OpenCV (list below).
- NEON speed-up: plain / NEON instructions, per architecture.
- ours / OpenCV: NEON aarch64 / OpenCV aarch64; above 1, we execute more
  instructions.

EOF
  printf '| Kernel | Size | Per | plain armhf | NEON armhf | plain aarch64 | NEON aarch64 | OpenCV aarch64 | NEON speed-up armhf | NEON speed-up aarch64 | ours / OpenCV |\n'
  printf '|---|---|---|---:|---:|---:|---:|---:|---:|---:|---:|\n'
  raw=""
  for row in "${rows[@]}"; do
    read -r kernel count sized label <<< "$row"
    for size in $sizes; do
      if [ "$sized" = 0 ] && [ "$size" != "${sizes%% *}" ]; then continue; fi
      id="${kernel}_${count}_${size}"
      declare -A ins=()
      unit=""
      args=()
      for col in "${columns[@]}"; do
        read -r cname _ <<< "$col"
        v=$(value "$id" "$cname")
        if [ "$v" = na ]; then
          ins[$cname]="—"
          args+=(na na)
        else
          read -r n u uname <<< "$v"
          ins[$cname]=$n
          args+=("$n" "$u")
          unit=$uname
        fi
      done
      read -r f1 f2 f3 f4 f5 sp32 sp64 vs <<< "$(figures "${args[@]}")"
      shown_size=$(pretty_size "$size")
      if [ "$sized" = 0 ]; then shown_size="any"; fi
      printf '| %s | %s | %s | %s | %s | %s | %s | %s | %s | %s | %s |\n' "$label" "$shown_size" "$unit" \
        "$f1" "$f2" "$f3" "$f4" "$f5" "$sp32" "$sp64" "$vs"
      kps=""
      if [ "$count" != 0 ]; then kps=$count; fi
      raw+="| $kernel | $shown_size | $kps | ${ins[plain-armhf]} | ${ins[neon-armhf]} | ${ins[plain-aarch64]} | ${ins[neon-aarch64]} | ${ins[opencv-aarch64]} |"$'\n'
      unset ins
    done
  done
  cat <<'EOF'

What OpenCV does in each row (— where it has no counterpart):

- integral image: `cv::integral` to `CV_32S`.
- box filter: `cv::blur` with the same (2R+1) x (2R+1) window, borders
  replicated (ours averages the pixels that exist; the border rows are a
  small part either way).
- x2 down-scale: `cv::resize` `INTER_AREA` to half size; x2 up-scale:
  `cv::resize` `INTER_LINEAR` to double size; up-scale error: `cv::subtract`
  into `CV_8S` (saturated signed difference; `CV_8U` inputs with a `CV_8S`
  result take OpenCV's mixed-depth path, hence its large figure).
- colour conversion with block histograms: `cv::cvtColor` NV12 to BGR at the
  same output size (reads a quarter of our chroma bytes: ours has a chroma
  pair per pixel), `cv::resize` `INTER_AREA` of the BGR image to half size
  (the 2 x 2 block means) and one 256-bin `cv::calcHist` per channel.
- cumulative histogram: one 256-bin `cv::calcHist` (no running sum).
- descriptors: `cv::ORB::compute` on the same keypoints with one pyramid
  level; it also copies the frame into a bordered level image, blurs it and
  computes each keypoint's orientation, while ours builds the full-frame
  integral image.
- RANSAC: `cv::findHomography` with `RANSAC` on the same 2,000 full-frame
  pairs, the same squared inlier bound (80) and confidence (0.9995), at most
  2,000 iterations; ours runs both passes (threshold 160 on the quarter-frame
  pairs, then 80), each with up to three least-squares refits per promising
  sample.
- warp: `cv::warpPerspective` with the same matrix (`WARP_INVERSE_MAP`),
  luma `INTER_LINEAR`, chroma `INTER_NEAREST` (planar: U and V apart; NV12:
  one two-channel plane), borders replicated; ours also fills the border
  outside the valid area (mirror for planar, copy from the source for NV12).
- registration: `cv::findHomography` (RANSAC, squared bound 80) on the
  keypoint matches and the planar warp above; ours also runs the second
  RANSAC pass, the refit and the motion check.

Which instructions a kernel executes, per output unit and column (the
plugin's `mnemonics=` histogram of the kernel run minus its baseline's):
`bash bench/arm/mnemonics.sh KERNEL [WIDTHxHEIGHT]`, with the kernel ids of
the raw-count table below.

Set-up of the rows: planes with 128-byte-aligned pitches (the registration
layout; NV12 frames have pitch `width`); the box radius is 40; the colour
conversion runs on a W x H luma plane whose every pixel has its own chroma
pair, as it runs on the half-size planes in the pipeline; the step-2
histogram is counted per pixel of the plane (it reads a quarter of them);
the warp's matrix is a 1 degree rotation with a few pixels of shift and
slight perspective, its area the one the library's motion check gives; the
border copy is counted per pixel outside that area. Inputs:
`bench/arm/cost_inputs.h`.

EOF
  echo "Raw counts (kernel run minus baseline, $calls call per run), for comparing runs:"
  echo
  echo "| Kernel | Size | Keypoints | plain armhf | NEON armhf | plain aarch64 | NEON aarch64 | OpenCV aarch64 |"
  echo "|---|---|---:|---:|---:|---:|---:|---:|"
  printf '%s' "$raw"
} > "$out"
# What the uncounted calls took (not in the table: their counts differ from
# run to run): the most in one run, and the most by which a kernel run's
# exceeds its baseline's, against the kernel's count of the same row and
# column.
uncounted_summary() {
  local f base k b ku bu
  for f in "$runs"/*__k.count; do
    base=${f%__k.count}
    [ -e "${base}__b.count" ] || continue
    { read -r _ k; read -r _ ku || true; } < "$f"
    { read -r _ b; read -r _ bu || true; } < "${base}__b.count"
    [ -n "$ku" ] && echo "$ku $bu $((ku - bu)) $((k - b)) ${base##*/}"
    ku=""
  done | awk '{ if ($1 > run) { run = $1; rat = $5 } if ($2 > run) { run = $2; rat = $5 }
                if ($3 > diff) { diff = $3; dat = $5 } if ($4 > 0 && $3 / $4 > share) { share = $3 / $4; sat = $5 } }
    END { printf "uncounted calls: at most %d instructions in a run (%s); a kernel run at most %d more than its baseline (%s), at most %.4f%% of a kernel count (%s)\n", run, rat, diff, dat, 100 * share, sat }'
}
end=$(date +%s)
machine="$(nproc) cores, load average $(cut -d' ' -f1-3 /proc/loadavg) at the end"
if [ "$table_only" = 0 ]; then
  echo "wrote $out: build $((built - start)) s, $(wc -l < "$list") runs $((finished - built)) s, total $((end - start)) s ($machine)" >&2
fi
uncounted_summary >&2
