// Vector rows of the horizontal box sums; the slide's tail and the drain go
// to the plain finish.
#include <cstdint>

#include "filter/filter_kernels.h"
#include "frame/neon.h"

namespace tocra {
namespace {

// Sum of the first n bytes, sixteen per step.
int32_t InitialSum(const uint8_t* p, int n) {
    uint32x4_t acc = vdupq_n_u32(0);
    int j = 0;
    for (; j + 16 <= n; j += 16) acc = vpadalq_u16(acc, vpaddlq_u8(vld1q_u8(p + j)));
    const uint64x2_t a2 = vpaddlq_u32(acc);
    int32_t s = static_cast<int32_t>(vgetq_lane_u64(a2, 0) + vgetq_lane_u64(a2, 1));
    for (; j < n; ++j) s += p[j];
    return s;
}

// In-register running sum of eight 16-bit lanes.
inline int16x8_t Prefix8(int16x8_t v) {
    const int16x8_t zero = vdupq_n_s16(0);
    v = vaddq_s16(v, vextq_s16(zero, v, 7));
    v = vaddq_s16(v, vextq_s16(zero, v, 6));
    return vaddq_s16(v, vextq_s16(zero, v, 4));
}

// Eight differences p[x + R] - p[x - R - 1] turned into running sums on
// top of `carry` (the sum at x - 1, in every lane).
inline int32x4_t SlideEight(int32_t* out, const uint8_t* p, int x, int radius, int32x4_t carry) {
    const int16x8_t d = Prefix8(vreinterpretq_s16_u16(vsubl_u8(vld1_u8(p + x + radius), vld1_u8(p + x - radius - 1))));
    const int32x4_t lo = vaddq_s32(vmovl_s16(vget_low_s16(d)), carry);
    const int32x4_t hi = vaddq_s32(vmovl_s16(vget_high_s16(d)), carry);
    vst1q_s32(out + x, lo);
    vst1q_s32(out + x + 4, hi);
    return vdupq_lane_s32(vget_high_s32(hi), 1);
}

// Sixteen differences at once: each half of the differences gets its
// running sum in 16-bit lanes (the high half on top of the low half's
// total, at most 16 x 255 in size), then is widened onto the carry.
inline int32x4_t SlideSixteen(int32_t* out, const uint8_t* p, int x, int radius, int32x4_t carry) {
    const uint8x16_t in = vld1q_u8(p + x + radius);
    const uint8x16_t outgoing = vld1q_u8(p + x - radius - 1);
    int16x8_t d0 = Prefix8(vreinterpretq_s16_u16(vsubl_u8(vget_low_u8(in), vget_low_u8(outgoing))));
    int16x8_t d1 = Prefix8(vreinterpretq_s16_u16(vsubl_u8(vget_high_u8(in), vget_high_u8(outgoing))));
    d1 = vaddq_s16(d1, vdupq_lane_s16(vget_high_s16(d0), 3));
    vst1q_s32(out + x, vaddw_s16(carry, vget_low_s16(d0)));
    vst1q_s32(out + x + 4, vaddw_s16(carry, vget_high_s16(d0)));
    vst1q_s32(out + x + 8, vaddw_s16(carry, vget_low_s16(d1)));
    const int32x4_t last = vaddw_s16(carry, vget_high_s16(d1));
    vst1q_s32(out + x + 12, last);
    return vdupq_lane_s32(vget_high_s32(last), 1);
}

}  // namespace

void BoxSumHRow_NEON(int32_t* out, const uint8_t* p, int width, int radius) {
    const int32_t s = BoxSumHFill(out, p, radius, InitialSum(p, radius));
    int x = radius + 1;
    int32x4_t carry = vdupq_n_s32(s);
    for (; x + 16 <= width - radius; x += 16) carry = SlideSixteen(out, p, x, radius, carry);
    for (; x + 8 <= width - radius; x += 8) carry = SlideEight(out, p, x, radius, carry);
    BoxSumHFinish(out, p, width, radius, x, vgetq_lane_s32(carry, 0));
}

// Two rows interleaved, so that the two carry chains overlap.
void BoxSumHPair_NEON(int32_t* out, const uint8_t* p, int width, int stride, int radius) {
    int32_t* out1 = out + width;
    const uint8_t* p1 = p + stride;
    const int32_t s0 = BoxSumHFill(out, p, radius, InitialSum(p, radius));
    const int32_t s1 = BoxSumHFill(out1, p1, radius, InitialSum(p1, radius));
    int x = radius + 1;
    int32x4_t c0 = vdupq_n_s32(s0), c1 = vdupq_n_s32(s1);
    for (; x + 16 <= width - radius; x += 16) {
        c0 = SlideSixteen(out, p, x, radius, c0);
        c1 = SlideSixteen(out1, p1, x, radius, c1);
    }
    for (; x + 8 <= width - radius; x += 8) {
        c0 = SlideEight(out, p, x, radius, c0);
        c1 = SlideEight(out1, p1, x, radius, c1);
    }
    BoxSumHFinish(out, p, width, radius, x, vgetq_lane_s32(c0, 0));
    BoxSumHFinish(out1, p1, width, radius, x, vgetq_lane_s32(c1, 0));
}

}  // namespace tocra
