# Compiler flags per target processor, the log library, sanitizers.

# Plain and vector kernels must give the same bytes on every processor: no
# contraction of a*b+c into a fused multiply-add anywhere.
add_compile_options(-Wall -Wextra -ffp-contract=off)

if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64)$")
  # NEON intrinsics go through SIMDe here; give it the vector units this
  # machine has.
  set(BRIMVEL_X86_LEVEL "" CACHE STRING "x86-64 micro-architecture level (empty: detect)")
  if(BRIMVEL_X86_LEVEL STREQUAL "")
    set(BRIMVEL_X86_LEVEL "x86-64-v2")
    if(EXISTS /proc/cpuinfo)
      file(READ /proc/cpuinfo _cpuinfo)
      if(_cpuinfo MATCHES " avx2 " AND _cpuinfo MATCHES " fma ")
        set(BRIMVEL_X86_LEVEL "x86-64-v3")
      endif()
    endif()
  endif()
  add_compile_options(-march=${BRIMVEL_X86_LEVEL})
  find_path(SIMDE_INCLUDE_DIR simde/arm/neon.h REQUIRED)
  include_directories(SYSTEM ${SIMDE_INCLUDE_DIR})
elseif(ANDROID)
  # The NDK chooses the architecture and the float ABI of armeabi-v7a
  # (soft-float calling convention); the kernels need NEON there.
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "^armv7")
    add_compile_options(-mfpu=neon)
  endif()
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(arm|armv7|armv7-a|armhf)$")
  add_compile_options(-march=armv7-a -mfpu=neon -mfloat-abi=hard)
endif()

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
    set(BRIMVEL_LOG_LIBRARY log)
    set(BRIMVEL_LOG_STANDIN ON)
  endif()
endif()

if(BRIMVEL_BUILD_FUZZ)
  # Coverage for libFuzzer in every object; the targets add the fuzzer main.
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=undefined -g)
  add_link_options(-fsanitize=address,undefined)
elseif(BRIMVEL_SANITIZE STREQUAL "address")
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
elseif(BRIMVEL_SANITIZE STREQUAL "thread")
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
elseif(NOT BRIMVEL_SANITIZE STREQUAL "")
  message(FATAL_ERROR "BRIMVEL_SANITIZE must be empty, address or thread")
endif()
