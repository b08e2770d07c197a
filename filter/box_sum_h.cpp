// Horizontal box sums: out[x] = sum of p[j] for j in [x - R, x + R] clipped
// to the row, as 32-bit values in a dense buffer (pitch = width).
#include <cstdint>

#include "brimvel_tocra.h"
#include "filter/bands.h"
#include "frame/log.h"
#include "frame/neon.h"

namespace {

// The running sum, valid for any width and radius: the window's right
// edge enters while it is inside the row, the left edge leaves once it has
// passed column 0. For width > 2R this is exactly the three-phase loop
// (fill, slide, drain).
void RowSumsPlain(int32_t* out, const uint8_t* p, int width, int radius) {
    int32_t s = 0;
    const int pre = radius < width ? radius : width;
    for (int j = 0; j < pre; ++j) s += p[j];
    for (int x = 0; x < width; ++x) {
        if (x + radius < width) s += p[x + radius];
        if (x - radius - 1 >= 0) s -= p[x - radius - 1];
        out[x] = s;
    }
}

// Sum of the first n bytes, sixteen per step.
int32_t InitialSum(const uint8_t* p, int n) {
    uint32x4_t acc = vdupq_n_u32(0);
    int j = 0;
    for (; j + 16 <= n; j += 16) acc = vpadalq_u16(acc, vpaddlq_u8(vld1q_u8(p + j)));
    uint64x2_t a2 = vpaddlq_u32(acc);
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
    const int16x8_t d =
        Prefix8(vreinterpretq_s16_u16(vsubl_u8(vld1_u8(p + x + radius), vld1_u8(p + x - radius - 1))));
    const int32x4_t lo = vaddq_s32(vmovl_s16(vget_low_s16(d)), carry);
    const int32x4_t hi = vaddq_s32(vmovl_s16(vget_high_s16(d)), carry);
    vst1q_s32(out + x, lo);
    vst1q_s32(out + x + 4, hi);
    return vdupq_lane_s32(vget_high_s32(hi), 1);
}

// Sixteen differences at once: the bytes are widened by interleaving with
// zero, each half of the differences gets its running sum in 16-bit lanes
// (the high half on top of the low half's total, at most 16 x 255 in
// size), and the halves are sign-extended by interleaving with their sign.
inline int32x4_t SlideSixteen(int32_t* out, const uint8_t* p, int x, int radius, int32x4_t carry) {
    const uint8x16_t zero8 = vdupq_n_u8(0);
    const uint8x16x2_t in = vzipq_u8(vld1q_u8(p + x + radius), zero8);
    const uint8x16x2_t outgoing = vzipq_u8(vld1q_u8(p + x - radius - 1), zero8);
    int16x8_t d[2];
    for (int h = 0; h < 2; ++h)
        d[h] = Prefix8(vsubq_s16(vreinterpretq_s16_u8(in.val[h]), vreinterpretq_s16_u8(outgoing.val[h])));
    d[1] = vaddq_s16(d[1], vdupq_lane_s16(vget_high_s16(d[0]), 3));
    int32x4_t last = carry;
    for (int h = 0; h < 2; ++h) {
        const int16x8x2_t w = vzipq_s16(d[h], vshrq_n_s16(d[h], 15));
        vst1q_s32(out + x + 8 * h, vaddq_s32(vreinterpretq_s32_s16(w.val[0]), carry));
        last = vaddq_s32(vreinterpretq_s32_s16(w.val[1]), carry);
        vst1q_s32(out + x + 8 * h + 4, last);
    }
    return vdupq_lane_s32(vget_high_s32(last), 1);
}

// Fill phase: x = 0..R.
inline int32_t Fill(int32_t* out, const uint8_t* p, int radius, int32_t s) {
    for (int x = 0; x <= radius; ++x) {
        s += p[x + radius];
        out[x] = s;
    }
    return s;
}

// Slide and drain phases from column x on, scalar.
inline void SlideAndDrain(int32_t* out, const uint8_t* p, int width, int radius, int x, int32_t s) {
    for (; x <= width - radius - 1; ++x) {
        s += p[x + radius] - p[x - radius - 1];
        out[x] = s;
    }
    for (; x < width; ++x) {
        s -= p[x - radius - 1];
        out[x] = s;
    }
}

// One row, vector slide. Needs width > 2R.
void RowSumsNeon(int32_t* out, const uint8_t* p, int width, int radius) {
    int32_t s = Fill(out, p, radius, InitialSum(p, radius));
    int x = radius + 1;
    int32x4_t carry = vdupq_n_s32(s);
    for (; x + 16 <= width - radius; x += 16) carry = SlideSixteen(out, p, x, radius, carry);
    for (; x + 8 <= width - radius; x += 8) carry = SlideEight(out, p, x, radius, carry);
    SlideAndDrain(out, p, width, radius, x, vgetq_lane_s32(carry, 0));
}

// Two rows interleaved, so that the two carry chains overlap. Needs width > 2R.
void RowPairSumsNeon(int32_t* out0, const uint8_t* p0, int32_t* out1, const uint8_t* p1, int width, int radius) {
    int32_t s0 = Fill(out0, p0, radius, InitialSum(p0, radius));
    int32_t s1 = Fill(out1, p1, radius, InitialSum(p1, radius));
    int x = radius + 1;
    int32x4_t c0 = vdupq_n_s32(s0), c1 = vdupq_n_s32(s1);
    for (; x + 16 <= width - radius; x += 16) {
        c0 = SlideSixteen(out0, p0, x, radius, c0);
        c1 = SlideSixteen(out1, p1, x, radius, c1);
    }
    for (; x + 8 <= width - radius; x += 8) {
        c0 = SlideEight(out0, p0, x, radius, c0);
        c1 = SlideEight(out1, p1, x, radius, c1);
    }
    SlideAndDrain(out0, p0, width, radius, x, vgetq_lane_s32(c0, 0));
    SlideAndDrain(out1, p1, width, radius, x, vgetq_lane_s32(c1, 0));
}

// Kernels don't report; arguments that would read or write out of bounds
// leave the output untouched (with a log line for the impossible ones).
bool RowKernelArgsOk(const char* name, int32_t* out, const uint8_t* src, int width, int stride, int rows,
                     int radius) {
    if (width <= 0 || rows <= 0) return false;
    if (out == nullptr || src == nullptr || stride < width || radius < 0) {
        TOCRA_LOGE("%s invalid input: width[%d] stride[%d] rows[%d] radius[%d]\n", name, width, stride, rows,
                   radius);
        return false;
    }
    return true;
}

}  // namespace

using tocra::RowOffset;

// Plain reference: one row at a time, scalar.
extern "C" void IntegralMat_H_S32XS32(int32_t* out, const uint8_t* src, int width, int stride, int rows,
                                      int radius) {
    if (!RowKernelArgsOk("IntegralMat_H_S32XS32", out, src, width, stride, rows, radius)) return;
    for (int y = 0; y < rows; ++y) RowSumsPlain(out + RowOffset(y, width), src + RowOffset(y, stride), width, radius);
}

// One row at a time, vector initial sum and slide.
extern "C" void IntegralMat_H_S32XS32_Neon(int32_t* out, const uint8_t* src, int width, int stride, int rows,
                                           int radius) {
    if (!RowKernelArgsOk("IntegralMat_H_S32XS32_Neon", out, src, width, stride, rows, radius)) return;
    for (int y = 0; y < rows; ++y) {
        int32_t* o = out + RowOffset(y, width);
        const uint8_t* p = src + RowOffset(y, stride);
        if (width > 2 * radius) {
            RowSumsNeon(o, p, width, radius);
        } else {
            RowSumsPlain(o, p, width, radius);
        }
    }
}

// Two rows per step, a single-row tail for an odd row count.
extern "C" void IntegralMat_H_S32XS32_Neon3(int32_t* out, const uint8_t* src, int width, int stride, int rows,
                                            int radius) {
    if (!RowKernelArgsOk("IntegralMat_H_S32XS32_Neon3", out, src, width, stride, rows, radius)) return;
    if (width <= 2 * radius) {
        for (int y = 0; y < rows; ++y) RowSumsPlain(out + RowOffset(y, width), src + RowOffset(y, stride), width, radius);
        return;
    }
    int y = 0;
    for (; y + 2 <= rows; y += 2) {
        RowPairSumsNeon(out + RowOffset(y, width), src + RowOffset(y, stride), out + RowOffset(y + 1, width),
                        src + RowOffset(y + 1, stride), width, radius);
    }
    if (y < rows) RowSumsNeon(out + RowOffset(y, width), src + RowOffset(y, stride), width, radius);
}

// Task k: rows k*band .. of the band split floor(height / 4), last takes the rest.
extern "C" void IntegralMat_H_MtCaller(void* arg, int index) {
    const BoxSumHJob* job = static_cast<const BoxSumHJob*>(arg);
    const tocra::Band band = tocra::QuarterBand(job->height, index);
    if (band.rows == 0) return;
    IntegralMat_H_S32XS32_Neon3(job->pOut + RowOffset(band.first, job->width),
                                job->pSrc + RowOffset(band.first, job->stride), job->width, job->stride, band.rows,
                                job->radius);
}

// out needs width * height int32 values; src height rows of stride bytes.
extern "C" int IntegralMat_H_MT(int32_t* out, const uint8_t* src, int width, int stride, int height, int radius) {
    if (out == nullptr || src == nullptr || width < 0 || height < 0 || stride < width || radius < 0) {
        TOCRA_LOGE("%s invalid input: width[%d] stride[%d] height[%d] radius[%d]\n", "IntegralMat_H_MT", width,
                   stride, height, radius);
        return TOCRA_NULL_POINTER;
    }
    BoxSumHJob job{out, src, width, stride, height, radius, tocra::kBandTasks};
    return tocra::RunFourBands(IntegralMat_H_MtCaller, &job);
}
