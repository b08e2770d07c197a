# Compiler flags per target processor, the log library, sanitizers.
#
# The flags are usage requirements of INTERFACE targets, which each of the
# project's own targets links (brimvel_use_flags below); nothing is set for
# the whole directory tree, so third-party code built in the tree (Debian's
# googletest sources in the cross builds) gets none of them.
#   brimvel_build_flags  every target of ours: floating point, sanitizers
#   brimvel_neon_flags   whatever compiles NEON intrinsics, that is the library
#                        and what includes its kernel headers (tests,
#                        benchmarks, fuzz targets, the ARM cost drivers): the
#                        processor flags, and SIMDe's headers on x86-64
#   brimvel_warnings     every target of ours: -Wall -Wextra, and -Werror
#                        with BRIMVEL_WERROR

add_library(brimvel_build_flags INTERFACE)
add_library(brimvel_neon_flags INTERFACE)
add_library(brimvel_warnings INTERFACE)

# Plain and vector kernels must give the same bytes on every processor: no
# contraction of a*b+c into a fused multiply-add anywhere (x86-64-v3 and
# aarch64 have fused instructions), in the library and in the tests that
# recompute its arithmetic.
target_compile_options(brimvel_build_flags INTERFACE -ffp-contract=off)

# Plain-only builds (BRIMVEL_PLAIN_ONLY, see the top CMakeLists.txt): every
# target of ours sees BRIMVEL_PLAIN_ONLY=1, so that plane drivers pick the
# plain rows and tests leave out what compares with the NEON rows.
if(BRIMVEL_PLAIN_ONLY)
  target_compile_definitions(brimvel_build_flags INTERFACE BRIMVEL_PLAIN_ONLY=1)
endif()

option(BRIMVEL_WERROR "Warnings are errors in the project's own targets (test.sh turns it on)" OFF)
target_compile_options(brimvel_warnings INTERFACE -Wall -Wextra $<$<BOOL:${BRIMVEL_WERROR}>:-Werror>)

if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64)$")
  # NEON intrinsics go through SIMDe here, which maps them onto the vector
  # instructions that -march allows: the level decides both what the x86-64
  # binaries need from a processor and how fast the emulated kernels (and so
  # the benchmark figures in bench/RESULTS.md) are. The default is fixed, so
  # that the same commands give the same binaries on every machine. It is
  # x86-64-v3 (AVX2, FMA, BMI2: Intel from Haswell, AMD from Excavator and
  # Zen): the level bench/RESULTS.md was measured at, and the one where
  # SIMDe has AVX2's variable shifts and three-operand forms instead of
  # longer SSE sequences. Its binaries stop with an illegal instruction on
  # an older processor; configure with -DBRIMVEL_X86_LEVEL=x86-64-v2
  # (SSE4.2, POPCNT) there. The kernels give the same bytes at every level.
  #
  # FMA: -ffp-contract=off (brimvel_build_flags) keeps the compiler from
  # fusing a*b+c at v3. SIMDe itself implements vmla(q)_f32 and vmls(q)_f32
  # with fused instructions when FMA is on, unlike ARM's separate multiply
  # and add: float kernels use vmulq_f32 and vaddq_f32 (or vfmaq_f32 where
  # a fused result is meant), never vmla/vmls on floats.
  set(BRIMVEL_X86_LEVELS x86-64 x86-64-v2 x86-64-v3 x86-64-v4)
  set(BRIMVEL_X86_LEVEL "x86-64-v3" CACHE STRING "x86-64 level of the x86-64 build (-march): ${BRIMVEL_X86_LEVELS}")
  set_property(CACHE BRIMVEL_X86_LEVEL PROPERTY STRINGS ${BRIMVEL_X86_LEVELS})
  if(BRIMVEL_X86_LEVEL STREQUAL "")
    # Build folders configured when empty meant "detect".
    set_property(CACHE BRIMVEL_X86_LEVEL PROPERTY VALUE "x86-64-v3")
  endif()
  if(NOT BRIMVEL_X86_LEVEL IN_LIST BRIMVEL_X86_LEVELS)
    message(FATAL_ERROR "BRIMVEL_X86_LEVEL is '${BRIMVEL_X86_LEVEL}': one of ${BRIMVEL_X86_LEVELS}")
  endif()
  message(STATUS "x86-64 level: ${BRIMVEL_X86_LEVEL} (BRIMVEL_X86_LEVEL)")
  target_compile_options(brimvel_neon_flags INTERFACE -march=${BRIMVEL_X86_LEVEL})
  if(NOT BRIMVEL_PLAIN_ONLY)
    find_path(SIMDE_INCLUDE_DIR simde/arm/neon.h REQUIRED)
    target_include_directories(brimvel_neon_flags SYSTEM INTERFACE ${SIMDE_INCLUDE_DIR})
  endif()
elseif(ANDROID)
  # The NDK chooses the architecture and the float ABI of armeabi-v7a
  # (soft-float calling convention); the kernels need NEON there.
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "^armv7")
    target_compile_options(brimvel_neon_flags INTERFACE -mfpu=neon)
  endif()
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(arm|armv7|armv7-a|armhf)$")
  target_compile_options(brimvel_neon_flags INTERFACE -march=armv7-a -mfpu=neon -mfloat-abi=hard)
endif()

# brimvel_use_flags(<target> [NEON]): the flags of every target of ours, and
# with NEON those of code that compiles NEON intrinsics.
function(brimvel_use_flags target)
  cmake_parse_arguments(PARSE_ARGV 1 _arg "NEON" "" "")
  target_link_libraries(${target} PRIVATE brimvel_build_flags brimvel_warnings)
  if(_arg_NEON)
    target_link_libraries(${target} PRIVATE brimvel_neon_flags)
  endif()
endfunction()

# The Android log library: the NDK's on Android, Debian's build on the host;
# where a build has none (the Linux cross builds), a stand-in with the same
# entry point and line shape, installed next to the library.
set(BRIMVEL_LOG_STANDIN OFF)
if(ANDROID)
  set(BRIMVEL_LOG_LIBRARY log)
else()
  find_library(BRIMVEL_ANDROID_LOG log PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android NO_DEFAULT_PATH)
  if(BRIMVEL_ANDROID_LOG AND NOT CMAKE_CROSSCOMPILING)
    set(BRIMVEL_LOG_LIBRARY ${BRIMVEL_ANDROID_LOG})
    get_filename_component(_logdir ${BRIMVEL_ANDROID_LOG} DIRECTORY)
    set(CMAKE_BUILD_RPATH ${_logdir})
    set(CMAKE_INSTALL_RPATH ${_logdir})
  else()
    add_library(log SHARED ${BRIMVEL_LOG_STANDIN_SOURCES})
    target_compile_options(log PRIVATE -fvisibility=hidden)
    brimvel_use_flags(log)
    set(BRIMVEL_LOG_LIBRARY log)
    set(BRIMVEL_LOG_STANDIN ON)
  endif()
endif()

if(BRIMVEL_BUILD_FUZZ)
  # Coverage for libFuzzer in every object of ours; the targets add the
  # fuzzer main.
  target_compile_options(brimvel_build_flags INTERFACE -fsanitize=fuzzer-no-link,address,undefined
                                                       -fno-sanitize-recover=undefined -g)
  target_link_options(brimvel_build_flags INTERFACE -fsanitize=address,undefined)
elseif(BRIMVEL_SANITIZE STREQUAL "address")
  target_compile_options(brimvel_build_flags INTERFACE -fsanitize=address,undefined -fno-omit-frame-pointer
                                                       -fno-sanitize-recover=undefined)
  target_link_options(brimvel_build_flags INTERFACE -fsanitize=address,undefined)
elseif(BRIMVEL_SANITIZE STREQUAL "thread")
  target_compile_options(brimvel_build_flags INTERFACE -fsanitize=thread -fno-omit-frame-pointer)
  target_link_options(brimvel_build_flags INTERFACE -fsanitize=thread)
elseif(NOT BRIMVEL_SANITIZE STREQUAL "")
  message(FATAL_ERROR "BRIMVEL_SANITIZE must be empty, address or thread")
endif()
