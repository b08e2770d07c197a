// Vector rows of the summed-area table; tails go to the plain rows.
#include <cstdint>

#include "filter/bands.h"
#include "filter/filter_kernels.h"
#include "frame/neon.h"

namespace tocra {

namespace {

// Running sums of sixteen bytes on top of carry (its four lanes equal) into
// s[0..3]; carry becomes the last of them. The byte pairs are added (eight
// 16-bit lanes) and each group of four pair sums gets its running sum (two
// 64-bit shift and add steps; a group covers eight pixels, at most 2040):
// that is the running sum at every odd pixel, and the one at the even pixel
// before it is that less the odd byte. Interleaved, they are the running
// sums of the two groups of eight pixels, widened on top of the total in
// turn.
inline void RunningSums16(const uint8_t* p, uint32x4_t& carry, uint32x4_t s[4]) {
    const uint8x16_t b = vld1q_u8(p);
    uint64x2_t pairs = vreinterpretq_u64_u16(vpaddlq_u8(b));
    pairs = vaddq_u64(pairs, vshlq_n_u64(pairs, 16));
    pairs = vaddq_u64(pairs, vshlq_n_u64(pairs, 32));
    const uint16x8_t odd = vreinterpretq_u16_u64(pairs);
    const uint16x8_t even = vsubq_u16(odd, vshrq_n_u16(vreinterpretq_u16_u8(b), 8));
    const uint16x8x2_t g = vzipq_u16(even, odd);
    s[0] = vaddw_u16(carry, vget_low_u16(g.val[0]));
    s[1] = vaddw_u16(carry, vget_high_u16(g.val[0]));
    const uint32x4_t mid = vdupq_lane_u32(vget_high_u32(s[1]), 1);
    s[2] = vaddw_u16(mid, vget_low_u16(g.val[1]));
    s[3] = vaddw_u16(mid, vget_high_u16(g.val[1]));
    carry = vdupq_lane_u32(vget_high_u32(s[3]), 1);
}

}  // namespace

// Sixteen pixels per step; the row above is added on the way out.
uint32_t IntegralRow_NEON(uint32_t* out, const uint32_t* above, const uint8_t* p, int width, uint32_t sum) {
    uint32x4_t carry = vdupq_n_u32(sum);
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        uint32x4_t s[4];
        RunningSums16(p + x, carry, s);
        for (int q = 0; q < 4; ++q) vst1q_u32(out + x + 4 * q, vaddq_u32(s[q], vld1q_u32(above + x + 4 * q)));
    }
    return IntegralRow_C(out + x, above + x, p + x, width - x, vgetq_lane_u32(carry, 0));
}

// Both rows sixteen pixels at a time: the first row's values stay in
// registers for the second.
void IntegralRowPair_NEON(uint32_t* out, const uint32_t* above, const uint8_t* p, int pitch, int stride, int width) {
    uint32x4_t carry0 = vdupq_n_u32(0), carry1 = vdupq_n_u32(0);
    uint32_t* out1 = out + pitch;
    const uint8_t* p1 = p + stride;
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        uint32x4_t s0[4], s1[4];
        RunningSums16(p + x, carry0, s0);
        RunningSums16(p1 + x, carry1, s1);
        for (int q = 0; q < 4; ++q) {
            const uint32x4_t o = vaddq_u32(s0[q], vld1q_u32(above + x + 4 * q));
            vst1q_u32(out + x + 4 * q, o);
            vst1q_u32(out1 + x + 4 * q, vaddq_u32(o, s1[q]));
        }
    }
    IntegralRow_C(out + x, above + x, p + x, width - x, vgetq_lane_u32(carry0, 0));
    IntegralRow_C(out1 + x, out + x, p1 + x, width - x, vgetq_lane_u32(carry1, 0));
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

namespace {

// Rows per run of 16-bit column sums: 256 x 255 still fits.
constexpr int kColSumRun = 256;

// kVec x 16 columns from the top row down: each run of rows is summed in
// 16-bit lanes held in registers, then widened onto the 32-bit sums.
template <int kVec>
void ColSumStrip(uint32_t* sums, const uint8_t* p, int stride, int rows) {
    for (int r0 = 0; r0 < rows; r0 += kColSumRun) {
        const int run = rows - r0 < kColSumRun ? rows - r0 : kColSumRun;
        uint16x8_t acc[2 * kVec];
        for (int v = 0; v < 2 * kVec; ++v) acc[v] = vdupq_n_u16(0);
        const uint8_t* q = p + RowOffset(r0, stride);
        for (int i = 0; i < run; ++i, q += stride) {
            for (int v = 0; v < kVec; ++v) {
                const uint8x16_t b = vld1q_u8(q + 16 * v);
                acc[2 * v] = vaddw_u8(acc[2 * v], vget_low_u8(b));
                acc[2 * v + 1] = vaddw_u8(acc[2 * v + 1], vget_high_u8(b));
            }
        }
        for (int v = 0; v < 2 * kVec; ++v) {
            uint32_t* s = sums + 8 * v;
            vst1q_u32(s, vaddw_u16(vld1q_u32(s), vget_low_u16(acc[v])));
            vst1q_u32(s + 4, vaddw_u16(vld1q_u32(s + 4), vget_high_u16(acc[v])));
        }
    }
}

}  // namespace

// Strips of 64 columns, then of 16, walked down all the rows; the columns
// left over go to the plain version.
void IntegralColSumRows_NEON(uint32_t* sums, const uint8_t* p, int stride, int rows, int width) {
    int x = 0;
    for (; x + 64 <= width; x += 64) ColSumStrip<4>(sums + x, p + x, stride, rows);
    for (; x + 16 <= width; x += 16) ColSumStrip<1>(sums + x, p + x, stride, rows);
    IntegralColSumRows_C(sums + x, p + x, stride, rows, width - x);
}

}  // namespace tocra
