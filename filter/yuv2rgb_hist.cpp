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
#include "frame/numeric.h"

namespace {

struct Bgr {
    uint8_t b, g, r;
};

inline Bgr Convert(int y, int u8, int v8) {
    const int u = u8 - 128, v = v8 - 128, y64 = 64 * y + 32;
    return Bgr{tocra::ClampToByte((y64 + 113 * u) >> 6), tocra::ClampToByte((y64 - 22 * u - 46 * v) >> 6),
               tocra::ClampToByte((y64 + 90 * v) >> 6)};
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

#if defined(BRIMVEL_PLAIN_ONLY)
constexpr tocra::Yuv2RgbRowFn kYuv2RgbRow = tocra::Yuv2RgbRow_C;
#else
constexpr tocra::Yuv2RgbRowFn kYuv2RgbRow = tocra::Yuv2RgbRow_NEON;
#endif

// Sets up the row pair starting at band row rr. An odd row count's last
// pair takes the row after the band as its second row (kReadWrite writes
// it, kRead only reads it) or, with kRepeat, its own row again. A band that
// keeps to its own rows (kRead, kRepeat) leaves column `width` of its last
// row alone when the stride puts that byte in the next row.
tocra::RgbPair SetUpPair(const tocra::RgbPlanes& p, int rr, int rows, int width, tocra::RowAfter after) {
    const bool last = rr + 1 == rows;
    const int r2 = last && after == tocra::RowAfter::kRepeat ? rr : rr + 1;
    tocra::RgbPair pr;
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

}  // namespace

namespace tocra {

// Two pixels at a time on both rows: writes both rows (the second when it
// is the band's) and counts the blocks. An odd width's last step converts
// column `width` too.
void Yuv2RgbRow_C(const RgbPlanes& p, const RgbPair& pr, uint32_t* hist, int width) {
    for (int x = 0; x < width; x += 2) {
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

RgbPair AdvancePair(const RgbPair& pr, int x) {
    RgbPair q = pr;
    q.y0 += x, q.y1 += x, q.uv0 += 2 * x, q.uv1 += 2 * x;
    q.o0 += static_cast<size_t>(x), q.o1 += static_cast<size_t>(x);
    return q;
}

void Yuv2RgbBand(const RgbPlanes& p, uint32_t* hist, int width, int rows, RowAfter after, Yuv2RgbRowFn row) {
    memset(hist, 0, 3 * 256 * sizeof(uint32_t));
    for (int rr = 0; rr < rows; rr += 2) row(p, SetUpPair(p, rr, rows, width, after), hist, width);
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
    tocra::Yuv2RgbBand(tocra::RgbPlanes{y, uv, b, g, r, stride, uvStride}, hist, width, rows,
                       tocra::RowAfter::kReadWrite, kYuv2RgbRow);
}

namespace {

struct RgbJob {
    tocra::RgbPlanes planes;
    uint32_t* hist;
    int width;
    int height;
    tocra::RowAfter lastAfter;  // what the last band does with the row after the plane
    bool refuseLast;            // the last band's reads would leave the frame
    tocra::Yuv2RgbRowFn row;
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
    const tocra::RgbPlanes bp{p.y + o,   p.uv + RowOffset(band.first, p.uvStride), p.b + o, p.g + o, p.r + o, p.stride,
                              p.uvStride};
    tocra::RowAfter after = job->lastAfter;
    if (index < tocra::kBandTasks - 1) {
        const bool nextWrites = !tocra::Yuv2RgbRefused(job->width, tocra::QuarterBand(job->height, index + 1).rows);
        after = nextWrites ? tocra::RowAfter::kRead : tocra::RowAfter::kReadWrite;
    }
    tocra::Yuv2RgbBand(bp, job->hist + 768 * index, job->width, band.rows, after, job->row);
}

}  // namespace

const char tocra::kLastBandPastFrame[] =
    "DownScaleYuv2RgbHist_Neon last colour band refused: its chroma lies past the frame.\n";

int tocra::Yuv2RgbFourBands(const RgbPlanes& p, uint32_t* set, int width, int height, RowAfter lastAfter,
                            bool refuseLast, Yuv2RgbRowFn row) {
    RgbJob job{p, set, width, height, lastAfter, refuseLast, row};
    return RunFourBands(RgbBand, &job);
}

int tocra::Yuv2RgbFourBands(const RgbPlanes& p, uint32_t* set, int width, int height, RowAfter lastAfter,
                            bool refuseLast) {
    return Yuv2RgbFourBands(p, set, width, height, lastAfter, refuseLast, kYuv2RgbRow);
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
