// Vector row pair of the colour conversion with block histograms (see
// yuv2rgb_hist.cpp).
#include <cstdint>

#include "filter/filter_kernels.h"
#include "frame/neon.h"

namespace {

struct Bgr16 {
    uint8x16_t b, g, r;
};

// Sixteen pixels: bytes are widened by interleaving with zero, the three
// sums are formed in 16-bit lanes, and each pair of halves is narrowed
// with saturation to 0..255.
inline Bgr16 Convert16(const uint8_t* y, const uint8_t* uv) {
    const uint8x16_t zero = vdupq_n_u8(0);
    const uint8x16x2_t yw = vzipq_u8(vld1q_u8(y), zero);
    const uint8x16x2_t c = vld2q_u8(uv);
    const uint8x16x2_t uw = vzipq_u8(c.val[0], zero), vw = vzipq_u8(c.val[1], zero);
    const int16x8_t k128 = vdupq_n_s16(128);
    const int16x8_t bias = vdupq_n_s16(32);
    Bgr16 out;
    int16x8_t b[2], g[2], r[2];
    for (int h = 0; h < 2; ++h) {
        const int16x8_t y64 = vaddq_s16(vshlq_n_s16(vreinterpretq_s16_u8(yw.val[h]), 6), bias);
        const int16x8_t u = vsubq_s16(vreinterpretq_s16_u8(uw.val[h]), k128);
        const int16x8_t v = vsubq_s16(vreinterpretq_s16_u8(vw.val[h]), k128);
        b[h] = vshrq_n_s16(vmlaq_n_s16(y64, u, 113), 6);
        g[h] = vshrq_n_s16(vmlsq_n_s16(vmlsq_n_s16(y64, u, 22), v, 46), 6);
        r[h] = vshrq_n_s16(vmlaq_n_s16(y64, v, 90), 6);
    }
    out.b = vcombine_u8(vqmovun_s16(b[0]), vqmovun_s16(b[1]));
    out.g = vcombine_u8(vqmovun_s16(g[0]), vqmovun_s16(g[1]));
    out.r = vcombine_u8(vqmovun_s16(r[0]), vqmovun_s16(r[1]));
    return out;
}

// Rounded means of eight 2x2 blocks: pairwise sums of the top row with the
// bottom row's accumulated onto them (at most 1020), then one rounding
// narrowing shift by 2.
inline uint8x8_t BlockMeans(uint8x16_t top, uint8x16_t bottom) {
    return vrshrn_n_u16(vpadalq_u8(vpaddlq_u8(top), bottom), 2);
}

// p, with what the compiler knows of its value forgotten: the three
// histograms then stay three base registers, where the compiler would
// otherwise fold their offsets from the first back into every count's
// index (a shift and an add more per count).
inline uint32_t* OwnBase(uint32_t* p) {
    __asm__("" : "+r"(p));
    return p;
}

// Counts the eight bytes of m (eight block means). On 64-bit ARM they are
// taken into a general register in one move: one field extraction, load,
// add and store each. Elsewhere they go through memory, one byte load each
// (on 32-bit ARM, with its fewer registers, extracting them counted more).
inline void CountBytes(uint32_t* counts, uint8x8_t m) {
#if defined(__aarch64__)
    const uint64_t w = vget_lane_u64(vreinterpret_u64_u8(m), 0);
    for (int i = 0; i < 8; ++i) ++counts[(w >> (8 * i)) & 0xFF];
#else
    uint8_t b[8];
    vst1_u8(b, m);
    for (int i = 0; i < 8; ++i) ++counts[b[i]];
#endif
}
}  // namespace

namespace tocra {

// Sixteen pixels per step on both rows; the width mod 16 columns go through
// the plain row, two pixels at a time.
void Yuv2RgbRow_NEON(const RgbPlanes& p, const RgbPair& pr, uint32_t* hist, int width) {
    uint32_t* const histB = hist;
    uint32_t* const histG = OwnBase(hist + 256);
    uint32_t* const histR = OwnBase(hist + 512);
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        const Bgr16 top = Convert16(pr.y0 + x, pr.uv0 + 2 * x);
        const Bgr16 bottom = Convert16(pr.y1 + x, pr.uv1 + 2 * x);
        vst1q_u8(p.b + pr.o0 + x, top.b);
        vst1q_u8(p.g + pr.o0 + x, top.g);
        vst1q_u8(p.r + pr.o0 + x, top.r);
        if (pr.writeSecond) {
            vst1q_u8(p.b + pr.o1 + x, bottom.b);
            vst1q_u8(p.g + pr.o1 + x, bottom.g);
            vst1q_u8(p.r + pr.o1 + x, bottom.r);
        }
        CountBytes(histB, BlockMeans(top.b, bottom.b));
        CountBytes(histG, BlockMeans(top.g, bottom.g));
        CountBytes(histR, BlockMeans(top.r, bottom.r));
    }
    if (x < width) Yuv2RgbRow_C(p, AdvancePair(pr, x), hist, width - x);
}

}  // namespace tocra
