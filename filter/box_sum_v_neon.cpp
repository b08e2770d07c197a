// Vector row of the vertical box pass; the width mod 8 columns go to the
// plain row.
#include <cstdint>

#include "filter/filter_kernels.h"
#include "frame/neon.h"

namespace tocra {

// Eight columns per step: sums and counts in 32-bit lanes, the scaling in
// float (two separate multiplies, row reciprocal first), truncation, then a
// saturating narrow through 16 bits to 0..255.
void BoxSumVRow_NEON(uint8_t* dst, const BoxSumVLine& l, int width) {
    const float32x4_t ry = vdupq_n_f32(l.rowRecip);
    int32_t* acc = l.acc;
    int x = 0;
    for (; x + 8 <= width; x += 8) {
        int32x4_t a0 = vld1q_s32(acc + x), a1 = vld1q_s32(acc + x + 4);
        if (l.add != nullptr) {
            a0 = vaddq_s32(a0, vld1q_s32(l.add + x));
            a1 = vaddq_s32(a1, vld1q_s32(l.add + x + 4));
        }
        if (l.sub != nullptr) {
            a0 = vsubq_s32(a0, vld1q_s32(l.sub + x));
            a1 = vsubq_s32(a1, vld1q_s32(l.sub + x + 4));
        }
        vst1q_s32(acc + x, a0);
        vst1q_s32(acc + x + 4, a1);
        const int32x4_t h0 = vshrq_n_s32(vmulq_n_s32(vld1q_s32(l.colCount + x), l.rowCount), 1);
        const int32x4_t h1 = vshrq_n_s32(vmulq_n_s32(vld1q_s32(l.colCount + x + 4), l.rowCount), 1);
        const float32x4_t f0 = vmulq_f32(vmulq_f32(vcvtq_f32_s32(vaddq_s32(a0, h0)), ry), vld1q_f32(l.colRecip + x));
        const float32x4_t f1 =
            vmulq_f32(vmulq_f32(vcvtq_f32_s32(vaddq_s32(a1, h1)), ry), vld1q_f32(l.colRecip + x + 4));
        const int16x8_t n16 = vcombine_s16(vqmovn_s32(vcvtq_s32_f32(f0)), vqmovn_s32(vcvtq_s32_f32(f1)));
        vst1_u8(dst + x, vqmovun_s16(n16));
    }
    BoxSumVLine tail = l;
    tail.acc += x;
    if (tail.add != nullptr) tail.add += x;
    if (tail.sub != nullptr) tail.sub += x;
    tail.colCount += x;
    tail.colRecip += x;
    BoxSumVRow_C(dst + x, tail, width - x);
}

}  // namespace tocra
