# How bench/arm/cost.sh and bench/arm/mnemonics.sh run the cost drivers under
# qemu (sourced; paths relative to the clone).
#
# The guest sees the same environment, arguments and files wherever the
# clone is, so that the sizes of strings and paths move neither the stack
# nor the heap, and with them the counts of alignment-dependent code such as
# memcpy: an empty environment but for PATH and GLIBC_TUNABLES; paths
# relative to the clone for the executables. Our drivers are static
# executables (no loader, no library path). OpenCV's driver is dynamic: its
# libraries are found under fixed absolute guest paths through the guest
# root build/armcost-opencv/guest (qemu's -L; fetch-opencv-arm64.sh makes
# it), never through the clone's folder (the loader would add the current
# folder to every relative library name it loads).
#
# GLIBC_TUNABLES=glibc.malloc.arena_max=8: at most eight malloc arenas,
# whatever the host's core count (by default the C library sizes the limit
# from the core count that qemu passes through, and on 32-bit ARM a 2-core
# host then makes the fourth pool worker share an arena): every thread that
# allocates gets an arena of its own (our runs have at most four threads
# besides the main one).

guest_env="env -i PATH=/usr/bin:/bin GLIBC_TUNABLES=glibc.malloc.arena_max=8"

# emulator KIND: the command that runs a driver of that kind (armhf and
# aarch64: our static drivers; opencv: OpenCV's dynamic one).
emulator() {
  local o=/opencv/usr/lib/aarch64-linux-gnu
  case "$1" in
    armhf) echo "$guest_env qemu-arm" ;;
    aarch64) echo "$guest_env qemu-aarch64" ;;
    opencv) echo "$guest_env qemu-aarch64 -L build/armcost-opencv/guest -E LD_LIBRARY_PATH=/usr/aarch64-linux-gnu/lib:$o:$o/lapack:$o/blas:/opencv/lib/aarch64-linux-gnu" ;;
  esac
}

# uncounted_list KIND EXE OUT: writes the plugin's uncounted= file for one of
# our static drivers: the functions named in bench/arm/uncounted.txt, with
# their addresses and sizes from the executable's symbol table. Fails when a
# name is missing. OpenCV's driver needs none (it runs on one thread; see
# bench/ARM_COST.md).
uncounted_list() {
  local kind=$1 exe=$2 out=$3 nm
  case "$kind" in
    armhf) nm=arm-linux-gnueabihf-nm ;;
    aarch64) nm=aarch64-linux-gnu-nm ;;
    *) echo "uncounted_list: no list for $kind" >&2; return 1 ;;
  esac
  "$nm" -S --defined-only "$exe" |
    awk 'NR == FNR { if ($0 !~ /^#/ && NF) want[$1] = 1; next }
         ($4 in want) && !($4 in seen) { print $1, $2, $4; seen[$4] = 1 }
         END { for (n in want) if (!(n in seen)) { print "uncounted_list: no " n " in the executable" > "/dev/stderr"; bad = 1 }
               exit bad }' bench/arm/uncounted.txt - > "$out"
}

# The five columns of the cost table, name, emulator and executable: the
# plain ones from the library built with plain rows only.
columns=(
  "plain-armhf armhf build/armcost-armhf-plain/bench/arm/cost_driver"
  "neon-armhf armhf build/armcost-armhf/bench/arm/cost_driver"
  "plain-aarch64 aarch64 build/armcost-aarch64-plain/bench/arm/cost_driver"
  "neon-aarch64 aarch64 build/armcost-aarch64/bench/arm/cost_driver"
  "opencv-aarch64 opencv build/armcost-aarch64/bench/arm/opencv_driver"
)
