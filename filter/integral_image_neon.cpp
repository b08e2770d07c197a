// Vector rows of the summed-area table; tails go to the plain rows.
#include <cstdint>

#include "filter/filter_kernels.h"
#include "frame/neon.h"

namespace tocra {

// Sixteen pixels per step. The bytes are widened, each 64-bit half gets a
// four-lane running sum in 16-bit lanes (two shift-and-add steps), and the
// four quarters are widened on top of the running total, one after the
// other; the row above is added on the way out.
uint32_t IntegralRow_NEON(uint32_t* out, const uint32_t* above, const uint8_t* p, int width, uint32_t sum) {
    uint32x4_t carry = vdupq_n_u32(sum);
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        const uint8x16_t b = vld1q_u8(p + x);
        uint64x2_t lo = vreinterpretq_u64_u16(vmovl_u8(vget_low_u8(b)));
        uint64x2_t hi = vreinterpretq_u64_u16(vmovl_u8(vget_high_u8(b)));
        lo = vaddq_u64(lo, vshlq_n_u64(lo, 16));
        hi = vaddq_u64(hi, vshlq_n_u64(hi, 16));
        lo = vaddq_u64(lo, vshlq_n_u64(lo, 32));
        hi = vaddq_u64(hi, vshlq_n_u64(hi, 32));
        const uint16x8_t l16 = vreinterpretq_u16_u64(lo), h16 = vreinterpretq_u16_u64(hi);
        const uint32x4_t s0 = vaddw_u16(carry, vget_low_u16(l16));
        const uint32x4_t s1 = vaddw_u16(vdupq_lane_u32(vget_high_u32(s0), 1), vget_high_u16(l16));
        const uint32x4_t s2 = vaddw_u16(vdupq_lane_u32(vget_high_u32(s1), 1), vget_low_u16(h16));
        const uint32x4_t s3 = vaddw_u16(vdupq_lane_u32(vget_high_u32(s2), 1), vget_high_u16(h16));
        carry = vdupq_lane_u32(vget_high_u32(s3), 1);
        vst1q_u32(out + x, vaddq_u32(s0, vld1q_u32(above + x)));
        vst1q_u32(out + x + 4, vaddq_u32(s1, vld1q_u32(above + x + 4)));
        vst1q_u32(out + x + 8, vaddq_u32(s2, vld1q_u32(above + x + 8)));
        vst1q_u32(out + x + 12, vaddq_u32(s3, vld1q_u32(above + x + 12)));
    }
    return IntegralRow_C(out + x, above + x, p + x, width - x, vgetq_lane_u32(carry, 0));
}

// Sixteen columns per step, a prefetch ahead.
void IntegralAddRow_NEON(uint32_t* row, const uint32_t* add, int cols) {
    int c = 0;
    for (; c + 16 <= cols; c += 16) {
        __builtin_prefetch(row + c + 64);
        vst1q_u32(row + c, vaddq_u32(vld1q_u32(row + c), vld1q_u32(add + c)));
        vst1q_u32(row + c + 4, vaddq_u32(vld1q_u32(row + c + 4), vld1q_u32(add + c + 4)));
        vst1q_u32(row + c + 8, vaddq_u32(vld1q_u32(row + c + 8), vld1q_u32(add + c + 8)));
        vst1q_u32(row + c + 12, vaddq_u32(vld1q_u32(row + c + 12), vld1q_u32(add + c + 12)));
    }
    IntegralAddRow_C(row + c, add + c, cols - c);
}

// Sixteen bytes per step widened onto the 32-bit column sums.
void IntegralColSumRow_NEON(uint32_t* sums, const uint8_t* p, int width) {
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        const uint8x16_t b = vld1q_u8(p + x);
        const uint16x8_t lo = vmovl_u8(vget_low_u8(b)), hi = vmovl_u8(vget_high_u8(b));
        vst1q_u32(sums + x, vaddw_u16(vld1q_u32(sums + x), vget_low_u16(lo)));
        vst1q_u32(sums + x + 4, vaddw_u16(vld1q_u32(sums + x + 4), vget_high_u16(lo)));
        vst1q_u32(sums + x + 8, vaddw_u16(vld1q_u32(sums + x + 8), vget_low_u16(hi)));
        vst1q_u32(sums + x + 12, vaddw_u16(vld1q_u32(sums + x + 12), vget_high_u16(hi)));
    }
    IntegralColSumRow_C(sums + x, p + x, width - x);
}

}  // namespace tocra
