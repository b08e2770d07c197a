// Doubles both dimensions of an 8-bit plane: bilinear interpolation with
// sample phases 1/4 and 3/4 inside, linear along the borders, corners
// copied.
#include <cstdint>

#include "brimvel_tocra.h"
#include "filter/bands.h"
#include "filter/filter_kernels.h"
#include "frame/log.h"

namespace {

// A border row: d[0] = s[0], then (3a + b + 2) >> 2 and (a + 3b + 2) >> 2
// for each neighbour pair, d[2w - 1] = s[w - 1].
void BorderRow(uint8_t* d, const uint8_t* s, int width) {
    d[0] = s[0];
    for (int x = 0; x + 1 < width; ++x) {
        const int a = s[x], b = s[x + 1];
        d[2 * x + 1] = static_cast<uint8_t>((3 * a + b + 2) >> 2);
        d[2 * x + 2] = static_cast<uint8_t>((a + 3 * b + 2) >> 2);
    }
    d[2 * width - 1] = s[width - 1];
}

#if defined(BRIMVEL_PLAIN_ONLY)
constexpr tocra::UpScaleRowFn kUpScaleRow = tocra::UpScaleRow_C;
#else
constexpr tocra::UpScaleRowFn kUpScaleRow = tocra::UpScaleRow_NEON;
#endif

}  // namespace

namespace tocra {

void UpScaleRow_C(const uint8_t* s0, const uint8_t* s1, uint8_t* d0, uint8_t* d1, int width) {
    for (int x = 0; x + 1 < width; ++x) {
        const int a = s0[x], b = s0[x + 1], c = s1[x], d = s1[x + 1];
        d0[2 * x + 1] = static_cast<uint8_t>((9 * a + 3 * b + 3 * c + d + 8) >> 4);
        d0[2 * x + 2] = static_cast<uint8_t>((3 * a + 9 * b + c + 3 * d + 8) >> 4);
        d1[2 * x + 1] = static_cast<uint8_t>((3 * a + b + 9 * c + 3 * d + 8) >> 4);
        d1[2 * x + 2] = static_cast<uint8_t>((a + 3 * b + 3 * c + 9 * d + 8) >> 4);
    }
}

void UpScalePairs(const uint8_t* src, int firstPair, int pairs, int width, int srcStride, uint8_t* dst, int dstStride,
                  UpScaleRowFn row) {
    for (int y = firstPair; y < firstPair + pairs; ++y) {
        const uint8_t* s0 = src + RowOffset(y, srcStride);
        row(s0, s0 + srcStride, dst + RowOffset(2 * y + 1, dstStride), dst + RowOffset(2 * y + 2, dstStride), width);
    }
}

}  // namespace tocra

using tocra::RowOffset;

namespace {

struct UpJob {
    const uint8_t* src;
    uint8_t* dstRow1;  // destination + destination stride
    int pairRows;      // source height - 2
    int width;
    int srcStride;
    int dstStride;
    tocra::UpScaleRowFn row;
};

// band = ((height - 2) / 4) rounded down to even; task k takes the pairs
// from source row k*band, the last task all that remain.
void UpBand(void* arg, int index) {
    const UpJob* job = static_cast<const UpJob*>(arg);
    const int pairs = job->pairRows + 1;  // y = 0 .. height - 2
    const int band = (job->pairRows / 4) & ~1;
    const tocra::Band b = tocra::SplitBand(pairs, band, index);
    if (b.rows == 0) return;
    tocra::UpScalePairs(job->src, b.first, b.rows, job->width, job->srcStride, job->dstRow1 - job->dstStride,
                        job->dstStride, job->row);
}

}  // namespace

// The whole plane, height >= 1 and width >= 1: border rows on the calling
// thread, interior pairs on the pool, then the border columns.
void tocra::UpScalePlane(const uint8_t* src, int height, int width, int srcStride, int dstStride, uint8_t* dst,
                         UpScaleRowFn row) {
    BorderRow(dst, src, width);
    if (height >= 2) {
        UpJob job{src, dst + dstStride, height - 2, width, srcStride, dstStride, row};
        tocra::RunFourBands(UpBand, &job);
        const int last = 2 * width - 1;
        for (int y = 0; y + 1 < height; ++y) {
            const uint8_t* s0 = src + RowOffset(y, srcStride);
            const uint8_t* s1 = s0 + srcStride;
            uint8_t* d0 = dst + RowOffset(2 * y + 1, dstStride);
            uint8_t* d1 = d0 + dstStride;
            d0[0] = static_cast<uint8_t>((3 * s0[0] + s1[0] + 2) >> 2);
            d1[0] = static_cast<uint8_t>((s0[0] + 3 * s1[0] + 2) >> 2);
            d0[last] = static_cast<uint8_t>((3 * s0[width - 1] + s1[width - 1] + 2) >> 2);
            d1[last] = static_cast<uint8_t>((s0[width - 1] + 3 * s1[width - 1] + 2) >> 2);
        }
    }
    BorderRow(dst + RowOffset(2 * height - 1, dstStride), src + RowOffset(height - 1, srcStride), width);
}

// src holds height rows of srcStride bytes (srcStride >= width); dst 2*height
// rows of dstStride bytes (dstStride >= 2*width). A single source row gives
// two destination rows, both the interpolated row; with no rows or columns
// nothing is written.
extern "C" void MT_UpScale4X_NEON(const uint8_t* src, int height, int width, int srcStride, int dstStride,
                                  uint8_t* dst) {
    if (height <= 0 || width <= 0) {
        if (height < 0 || width < 0) {
            TOCRA_LOGE("%s invalid input: width[%d] height[%d]\n", "MT_UpScale4X_NEON", width, height);
        }
        return;
    }
    if (src == nullptr || dst == nullptr || srcStride < width || dstStride / 2 < width) {
        TOCRA_LOGE("%s invalid input: width[%d] height[%d] srcStride[%d] dstStride[%d]\n", "MT_UpScale4X_NEON", width,
                   height, srcStride, dstStride);
        return;
    }
    tocra::UpScalePlane(src, height, width, srcStride, dstStride, dst, kUpScaleRow);
}
