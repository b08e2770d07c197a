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

// One row pair of a band, as the band function sets it up.
struct PairRows {
    const uint8_t* y0;
    const uint8_t* uv0;
    const uint8_t* y1;
    const uint8_t* uv1;
    size_t o0, o1;      // output offsets of the two rows
    bool writeSecond;   // the second row is the band's to write
    bool lastCol0;      // column `width` (odd width) of the first row is the band's to write
    bool lastCol1;      // the same for the second row
};

// Scalar columns from x0 on, two pixels at a time: writes both rows (the
// second when it is the band's) and counts the blocks. An odd width's last
// step converts column `width` too.
void PairTail(const tocra::RgbPlanes& p, const PairRows& pr, uint32_t* hist, int x0, int width) {
    for (int x = x0; x < width; x += 2) {
        const bool inside = x + 1 < width;
        const Bgr a = ConvertAt(pr.y0, pr.uv0, x), c = ConvertAt(pr.y1, pr.uv1, x);
        const Bgr b = ConvertAt(pr.y0, pr.uv0, x + 1), d = ConvertAt(pr.y1, pr.uv1, x + 1);
        const size_t o0 = pr.o0 + static_cast<size_t>(x), o1 = pr.o1 + static_cast<size_t>(x);
        p.b[o0] = a.b, p.g[o0] = a.g, p.r[o0] = a.r;
        if (inside || pr.lastCol0) p.b[o0 + 1] = b.b, p.g[o0 + 1] = b.g, p.r[o0 + 1] = b.r;
        if (pr.writeSecond) {
            p.b[o1] = c.b, p.g[o1] = c.g, p.r[o1] = c.r;
            if (inside || pr.lastCol1) p.b[o1 + 1] = d.b, p.g[o1 + 1] = d.g, p.r[o1 + 1] = d.r;
        }
        CountBlock(hist, a, b, c, d);
    }
}

// Sets up the row pair starting at band row rr. An odd row count's last
// pair takes the row after the band as its second row (kReadWrite writes
// it, kRead only reads it) or, with kRepeat, its own row again. A band that
// keeps to its own rows (kRead, kRepeat) leaves column `width` of its last
// row alone when the stride puts that byte in the next row.
PairRows SetUpPair(const tocra::RgbPlanes& p, int rr, int rows, int width, tocra::RowAfter after) {
    const bool last = rr + 1 == rows;
    const int r2 = last && after == tocra::RowAfter::kRepeat ? rr : rr + 1;
    PairRows pr;
    pr.o0 = tocra::RowOffset(rr, p.stride);
    pr.o1 = tocra::RowOffset(r2, p.stride);
    pr.y0 = p.y + pr.o0;
    pr.y1 = p.y + pr.o1;
    pr.uv0 = p.uv + tocra::RowOffset(rr, p.uvStride);
    pr.uv1 = p.uv + tocra::RowOffset(r2, p.uvStride);
    const bool ownRowsOnly = after != tocra::RowAfter::kReadWrite;
    pr.writeSecond = !last || !ownRowsOnly;
    pr.lastCol0 = !ownRowsOnly || rr + 1 < rows || width < p.stride;
    pr.lastCol1 = !ownRowsOnly || r2 + 1 < rows || width < p.stride;
    return pr;
}

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

void Yuv2RgbBand_C(const RgbPlanes& p, uint32_t* hist, int width, int rows, RowAfter after) {
    memset(hist, 0, 3 * 256 * sizeof(uint32_t));
    for (int rr = 0; rr < rows; rr += 2) {
        PairTail(p, SetUpPair(p, rr, rows, width, after), hist, 0, width);
    }
    RunningSums(hist, 3);
}

// Sixteen pixels per step on two rows at once; the width mod 16 columns
// go through the scalar path two pixels at a time.
void Yuv2RgbBand_Neon(const RgbPlanes& p, uint32_t* hist, int width, int rows, RowAfter after) {
    memset(hist, 0, 3 * 256 * sizeof(uint32_t));
    uint8_t means[3][8];
    for (int rr = 0; rr < rows; rr += 2) {
        const PairRows pr = SetUpPair(p, rr, rows, width, after);
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
            vst1_u8(means[0], BlockMeans(top.b, bottom.b));
            vst1_u8(means[1], BlockMeans(top.g, bottom.g));
            vst1_u8(means[2], BlockMeans(top.r, bottom.r));
            for (int i = 0; i < 8; ++i) {
                ++hist[means[0][i]];
                ++hist[256 + means[1][i]];
                ++hist[512 + means[2][i]];
            }
        }
        PairTail(p, pr, hist, x, width);
    }
    RunningSums(hist, 3);
}

bool Yuv2RgbRefused(int width, int rows) { return (width & 1) && (rows & 1); }

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

// The kernel's own size check: a width and a row count that are both odd
// are refused with one line, and nothing (counters included) is written.
bool BothOdd(int width, int rows) {
    if (tocra::Yuv2RgbRefused(width, rows)) {
        TOCRA_LOGE("%s", "YUV2RGBX4_LUT_NEON height and width % 2 != 0.");
        return true;
    }
    return false;
}

}  // namespace

// y, b, g, r: rows of `stride` bytes; uv: rows of uvStride bytes, the pair of
// pixel x at bytes 2x, 2x + 1; hist: 3 x 256 counters (B, G, R). An odd row
// count's last pair converts the row after it as well; an odd width's last
// step converts column `width` as well.
extern "C" void YUV2RGB_LUTX4_NEON(const uint8_t* y, const uint8_t* uv, uint8_t* b, uint8_t* g, uint8_t* r,
                                   uint32_t* hist, int width, int rows, int stride, int uvStride) {
    if (BothOdd(width, rows)) return;
    if (!RgbArgsOk("YUV2RGB_LUTX4_NEON", y, uv, b, g, r, hist, width, rows, stride, uvStride)) return;
    tocra::Yuv2RgbBand_Neon(tocra::RgbPlanes{y, uv, b, g, r, stride, uvStride}, hist, width, rows,
                            tocra::RowAfter::kReadWrite);
}

namespace {

struct RgbJob {
    tocra::RgbPlanes planes;
    uint32_t* hist;
    int width;
    int height;
    tocra::RowAfter lastAfter;  // what the last band does with the row after the plane
    bool refuseLast;            // the last band's reads would leave the frame
};

// Band k of floor(height / 4) rows (the last takes the rest) into its own
// 768 counters, through the kernel's size check: a band whose row count is
// odd with an odd width is refused on its own (its line, its rows and its
// counters untouched). Bands 0..2 with an odd row count complete their last
// blocks with the next band's first row, which that band writes; with an
// odd width and stride == width, column `width` of a band's last row is the
// next band's first byte, which that band writes too. Only when the next
// band refuses its rows does the band write into them itself.
void RgbBand(void* arg, int index) {
    const RgbJob* job = static_cast<const RgbJob*>(arg);
    const tocra::Band band = tocra::QuarterBand(job->height, index);
    if (BothOdd(job->width, band.rows)) return;
    if (index == tocra::kBandTasks - 1 && job->refuseLast) {
        TOCRA_LOGE("%s", tocra::kLastBandPastFrame);
        return;
    }
    const tocra::RgbPlanes& p = job->planes;
    const size_t o = RowOffset(band.first, p.stride);
    const tocra::RgbPlanes bp{p.y + o, p.uv + RowOffset(band.first, p.uvStride), p.b + o, p.g + o, p.r + o,
                              p.stride, p.uvStride};
    tocra::RowAfter after = job->lastAfter;
    if (index < tocra::kBandTasks - 1) {
        const bool nextWrites = !tocra::Yuv2RgbRefused(job->width, tocra::QuarterBand(job->height, index + 1).rows);
        after = nextWrites ? tocra::RowAfter::kRead : tocra::RowAfter::kReadWrite;
    }
    tocra::Yuv2RgbBand_Neon(bp, job->hist + 768 * index, job->width, band.rows, after);
}

}  // namespace

const char tocra::kLastBandPastFrame[] = "DownScaleYuv2RgbHist_Neon last colour band refused: its chroma lies past the frame.\n";

int tocra::Yuv2RgbFourBands(const RgbPlanes& p, uint32_t* set, int width, int height, RowAfter lastAfter,
                            bool refuseLast) {
    RgbJob job{p, set, width, height, lastAfter, refuseLast};
    return RunFourBands(RgbBand, &job);
}

// hist: 4 x 3 x 256 counters, one set per band. The last band, with an odd
// row count, converts the row after the plane as well.
extern "C" int YUV2RGB_LUTX4_NEON_MT(const uint8_t* y, const uint8_t* uv, uint8_t* b, uint8_t* g, uint8_t* r,
                                     uint32_t* hist, int width, int height, int uvStride, int stride) {
    if (!RgbArgsOk("YUV2RGB_LUTX4_NEON_MT", y, uv, b, g, r, hist, width, height, stride, uvStride)) {
        return TOCRA_NULL_POINTER;
    }
    return tocra::Yuv2RgbFourBands(tocra::RgbPlanes{y, uv, b, g, r, stride, uvStride}, hist, width, height,
                                   tocra::RowAfter::kReadWrite, false);
}
