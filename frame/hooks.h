// The two buffer hooks that the camera pipeline installs.
#ifndef BRIMVEL_FRAME_HOOKS_H
#define BRIMVEL_FRAME_HOOKS_H

#include <cstdint>

#include "brimvel_tocra.h"

namespace tocra {

extern FunConvert2Addr_t FunConvert2Addr;
extern FunInvalidBuff_t FunInvalidBuff;

// Turns a pipeline buffer handle into an address. A missing converter is
// treated as a failed conversion (0), so that every caller's null check
// answers for it instead of the library calling through a null pointer.
inline void* ConvertAddr(uint32_t handle) { return FunConvert2Addr ? FunConvert2Addr(handle) : nullptr; }

// Invalidates the processor's cache over a graphic buffer written by other
// hardware. Without an installed hook there is nothing to invalidate.
inline void InvalidateBuffer(void* addr) {
    if (FunInvalidBuff) FunInvalidBuff(addr);
}

}  // namespace tocra

#endif
