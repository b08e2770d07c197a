// Colour conversion of a half-size luma plane with its per-pixel chroma
// pairs, with cumulative histograms of 2x2-block means of B, G and R.
//
//   B = clamp((64 Y + 113 u + 32) >> 6)
//   R = clamp((64 Y +  90 v + 32) >> 6)
//   G = clamp((64 Y -  22 u - 46 v + 32) >> 6),   u = U - 128, v = V - 128
#include <cstdint>
#include <cstring>

#include "brimvel_tocra.h"
#include "filter/bands.h"
#include "filter/filter_kernels.h"
#include "frame/log.h"
#include "frame/neon.h"

namespace {

inline uint8_t Clamp8(int v) { return static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v)); }

struct Bgr {
    uint8_t b, g, r;
};

inline Bgr Convert(int y, int u8, int v8) {
    const int u = u8 - 128, v = v8 - 128, y64 = 64 * y + 32;
    return Bgr{Clamp8((y64 + 113 * u) >> 6), Clamp8((y64 - 22 * u - 46 * v) >> 6), Clamp8((y64 + 90 * v) >> 6)};
}

inline Bgr ConvertAt(const uint8_t* y, const uint8_t* uv, int x) { return Convert(y[x], uv[2 * x], uv[2 * x + 1]); }

void RunningSums(uint32_t* hist, int count) {
    for (int c = 0; c < count; ++c) {
        uint32_t* h = hist + 256 * c;
        for (int v = 1; v < 256; ++v) h[v] += h[v - 1];
    }
}

// Histogram entries of one block: B at 0, G at 256, R at 512.
inline void CountBlock(uint32_t* hist, Bgr p, Bgr q, Bgr s, Bgr t) {
    ++hist[(p.b + q.b + s.b + t.b + 2) >> 2];
    ++hist[256 + ((p.g + q.g + s.g + t.g + 2) >> 2)];
    ++hist[512 + ((p.r + q.r + s.r + t.r + 2) >> 2)];
}

// Scalar columns from x0 on for the row pair (y0, y1): writes row 0 (and
// row 1 when writeSecond) and counts the blocks. An odd width's last column
// stands in for the missing one.
void PairTail(const uint8_t* y0, const uint8_t* uv0, const uint8_t* y1, const uint8_t* uv1, uint8_t* b0, uint8_t* g0,
              uint8_t* r0, uint8_t* b1, uint8_t* g1, uint8_t* r1, bool writeSecond, uint32_t* hist, int x0,
              int width) {
    for (int x = x0; x < width; x += 2) {
        const int xn = x + 1 < width ? x + 1 : x;
        const Bgr p = ConvertAt(y0, uv0, x), q = ConvertAt(y0, uv0, xn);
        const Bgr s = ConvertAt(y1, uv1, x), t = ConvertAt(y1, uv1, xn);
        b0[x] = p.b, g0[x] = p.g, r0[x] = p.r;
        if (xn != x) b0[xn] = q.b, g0[xn] = q.g, r0[xn] = q.r;
        if (writeSecond) {
            b1[x] = s.b, g1[x] = s.g, r1[x] = s.r;
            if (xn != x) b1[xn] = t.b, g1[xn] = t.g, r1[xn] = t.r;
        }
        CountBlock(hist, p, q, s, t);
    }
}

// The second row of the pair starting at band row rr: the next band row, a
// row below the band, or the row itself.
inline int SecondRow(int rr, int rows, int rowsBelow) { return rr + 1 < rows || rowsBelow > 0 ? rr + 1 : rr; }

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

// Rounded means of eight 2x2 blocks; the sums are at most 1020, so the
// rounding 2 is added in 16 bits before a plain narrowing shift.
inline uint8x8_t BlockMeans(uint8x16_t top, uint8x16_t bottom) {
    return vshrn_n_u16(vaddq_u16(vaddq_u16(vpaddlq_u8(top), vpaddlq_u8(bottom)), vdupq_n_u16(2)), 2);
}

}  // namespace

namespace tocra {

void Yuv2RgbBand_C(const uint8_t* y, const uint8_t* uv, uint8_t* b, uint8_t* g, uint8_t* r, uint32_t* hist,
                   int width, int rows, int rowsBelow, int stride, int uvStride) {
    memset(hist, 0, 3 * 256 * sizeof(uint32_t));
    for (int rr = 0; rr < rows; rr += 2) {
        const int r2 = SecondRow(rr, rows, rowsBelow);
        const size_t o0 = RowOffset(rr, stride), o1 = RowOffset(r2, stride);
        PairTail(y + o0, uv + RowOffset(rr, uvStride), y + o1, uv + RowOffset(r2, uvStride), b + o0, g + o0, r + o0,
                 b + o1, g + o1, r + o1, rr + 1 < rows, hist, 0, width);
    }
    RunningSums(hist, 3);
}

// Sixteen pixels per step on two rows at once; the width mod 16 columns
// go through the scalar path two pixels at a time.
void Yuv2RgbBand_Neon(const uint8_t* y, const uint8_t* uv, uint8_t* b, uint8_t* g, uint8_t* r, uint32_t* hist,
                      int width, int rows, int rowsBelow, int stride, int uvStride) {
    memset(hist, 0, 3 * 256 * sizeof(uint32_t));
    uint8_t means[3][8];
    for (int rr = 0; rr < rows; rr += 2) {
        const int r2 = SecondRow(rr, rows, rowsBelow);
        const bool writeSecond = rr + 1 < rows;
        const size_t o0 = RowOffset(rr, stride), o1 = RowOffset(r2, stride);
        const uint8_t* y0 = y + o0;
        const uint8_t* y1 = y + o1;
        const uint8_t* uv0 = uv + RowOffset(rr, uvStride);
        const uint8_t* uv1 = uv + RowOffset(r2, uvStride);
        int x = 0;
        for (; x + 16 <= width; x += 16) {
            const Bgr16 p = Convert16(y0 + x, uv0 + 2 * x);
            const Bgr16 q = Convert16(y1 + x, uv1 + 2 * x);
            vst1q_u8(b + o0 + x, p.b);
            vst1q_u8(g + o0 + x, p.g);
            vst1q_u8(r + o0 + x, p.r);
            if (writeSecond) {
                vst1q_u8(b + o1 + x, q.b);
                vst1q_u8(g + o1 + x, q.g);
                vst1q_u8(r + o1 + x, q.r);
            }
            vst1_u8(means[0], BlockMeans(p.b, q.b));
            vst1_u8(means[1], BlockMeans(p.g, q.g));
            vst1_u8(means[2], BlockMeans(p.r, q.r));
            for (int i = 0; i < 8; ++i) {
                ++hist[means[0][i]];
                ++hist[256 + means[1][i]];
                ++hist[512 + means[2][i]];
            }
        }
        PairTail(y0, uv0, y1, uv1, b + o0, g + o0, r + o0, b + o1, g + o1, r + o1, writeSecond, hist, x, width);
    }
    RunningSums(hist, 3);
}

}  // namespace tocra

using tocra::RowOffset;

namespace {

bool RgbArgsOk(const char* name, const uint8_t* y, const uint8_t* uv, const uint8_t* b, const uint8_t* g,
               const uint8_t* r, const uint32_t* hist, int width, int rows, int stride, int uvStride) {
    if (hist == nullptr || width < 0 || rows < 0 ||
        (width > 0 && rows > 0 &&
         (y == nullptr || uv == nullptr || b == nullptr || g == nullptr || r == nullptr || stride < width ||
          uvStride / 2 < width))) {
        TOCRA_LOGE("%s invalid input: width[%d] rows[%d] stride[%d] uvStride[%d]\n", name, width, rows, stride,
                   uvStride);
        return false;
    }
    return true;
}

bool BothOdd(int width, int rows) {
    if ((width & 1) && (rows & 1)) {
        TOCRA_LOGE("%s", "YUV2RGBX4_LUT_NEON height and width % 2 != 0.");
        return true;
    }
    return false;
}

}  // namespace

// y, b, g, r: rows of `stride` bytes; uv: rows of uvStride bytes, the pair of
// pixel x at bytes 2x, 2x + 1; hist: 3 x 256 counters (B, G, R). An odd
// row count's last row stands in for the missing row below it.
extern "C" void YUV2RGB_LUTX4_NEON(const uint8_t* y, const uint8_t* uv, uint8_t* b, uint8_t* g, uint8_t* r,
                                   uint32_t* hist, int width, int rows, int stride, int uvStride) {
    if (BothOdd(width, rows)) return;
    if (!RgbArgsOk("YUV2RGB_LUTX4_NEON", y, uv, b, g, r, hist, width, rows, stride, uvStride)) return;
    tocra::Yuv2RgbBand_Neon(y, uv, b, g, r, hist, width, rows, 0, stride, uvStride);
}

namespace {

struct RgbJob {
    const uint8_t* y;
    const uint8_t* uv;
    uint8_t* b;
    uint8_t* g;
    uint8_t* r;
    uint32_t* hist;
    int width;
    int height;
    int uvStride;
    int stride;
};

// Band k of floor(height / 4) rows (the last takes the rest) into its own
// 768 counters. A band with an odd row count completes its last block with
// the first row of the next band, which it reads but does not write.
void RgbBand(void* arg, int index) {
    const RgbJob* job = static_cast<const RgbJob*>(arg);
    const tocra::Band band = tocra::QuarterBand(job->height, index);
    const size_t o = RowOffset(band.first, job->stride);
    tocra::Yuv2RgbBand_Neon(job->y + o, job->uv + RowOffset(band.first, job->uvStride), job->b + o, job->g + o,
                            job->r + o, job->hist + 768 * index, job->width, band.rows,
                            job->height - band.first - band.rows, job->stride, job->uvStride);
}

}  // namespace

// hist: 4 x 3 x 256 counters, one set per band. A frame whose width and
// height are both odd is refused as a whole (one message, nothing written).
extern "C" int YUV2RGB_LUTX4_NEON_MT(const uint8_t* y, const uint8_t* uv, uint8_t* b, uint8_t* g, uint8_t* r,
                                     uint32_t* hist, int width, int height, int uvStride, int stride) {
    if (BothOdd(width, height)) return TOCRA_OK;
    if (!RgbArgsOk("YUV2RGB_LUTX4_NEON_MT", y, uv, b, g, r, hist, width, height, stride, uvStride)) {
        return TOCRA_NULL_POINTER;
    }
    RgbJob job{y, uv, b, g, r, hist, width, height, uvStride, stride};
    return tocra::RunFourBands(RgbBand, &job);
}
