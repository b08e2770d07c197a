// NEON intrinsics: native on ARM, through SIMDe elsewhere, so that every
// vector kernel builds and runs on every machine.
#ifndef BRIMVEL_FRAME_NEON_H
#define BRIMVEL_FRAME_NEON_H

#if defined(__ARM_NEON) || defined(__aarch64__)
#include <arm_neon.h>
#else
#define SIMDE_ENABLE_NATIVE_ALIASES
#include <simde/arm/neon.h>
#endif

#endif
