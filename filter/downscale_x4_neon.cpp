// Vector row of the x2 down-scale (see downscale_x4.cpp).
#include <cstdint>

#include "filter/filter_kernels.h"
#include "frame/neon.h"

namespace tocra {

namespace {

// Sixteen outputs from 32 bytes of each row: added pairwise into 16-bit
// lanes (the second row accumulated onto the first), then one rounding
// narrowing shift by 2. Block sums are at most 1020, so nothing saturates.
inline uint8x16_t Mean16(const uint8_t* s0, const uint8_t* s1) {
    const uint16x8_t lo = vpadalq_u8(vpaddlq_u8(vld1q_u8(s0)), vld1q_u8(s1));
    const uint16x8_t hi = vpadalq_u8(vpaddlq_u8(vld1q_u8(s0 + 16)), vld1q_u8(s1 + 16));
    return vcombine_u8(vrshrn_n_u16(lo, 2), vrshrn_n_u16(hi, 2));
}

}  // namespace

// Thirty-two outputs per step (adjacent loads pair up), then sixteen; the
// plain row does the rest.
void DownScaleRow_NEON(const uint8_t* s0, const uint8_t* s1, uint8_t* dst, int cols) {
    int x = 0;
    for (; x + 32 <= cols; x += 32) {
        const uint8x16_t a = Mean16(s0 + 2 * x, s1 + 2 * x);
        const uint8x16_t b = Mean16(s0 + 2 * x + 32, s1 + 2 * x + 32);
        vst1q_u8(dst + x, a);
        vst1q_u8(dst + x + 16, b);
    }
    for (; x + 16 <= cols; x += 16) vst1q_u8(dst + x, Mean16(s0 + 2 * x, s1 + 2 * x));
    DownScaleRow_C(s0 + 2 * x, s1 + 2 * x, dst + x, cols - x);
}

}  // namespace tocra
