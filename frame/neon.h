// NEON intrinsics: native on ARM, through SIMDe elsewhere, so that every
// vector kernel builds and runs on every machine.
#ifndef BRIMVEL_FRAME_NEON_H
#define BRIMVEL_FRAME_NEON_H

#if defined(BRIMVEL_PLAIN_ONLY)
#error "frame/neon.h in a plain-only build: NEON code belongs in *_neon.cpp files"
#endif

#if defined(__ARM_NEON) || defined(__aarch64__)
#include <arm_neon.h>
#else
#define SIMDE_ENABLE_NATIVE_ALIASES
#include <simde/arm/neon.h>
#endif

#endif
