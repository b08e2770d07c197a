// Doubles both dimensions of an 8-bit plane: bilinear interpolation with
// sample phases 1/4 and 3/4 inside, linear along the borders, corners
// copied.
#include <cstdint>

#include "brimvel_tocra.h"
#include "filter/bands.h"
#include "filter/filter_kernels.h"
#include "frame/log.h"
#include "frame/neon.h"

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

// The interior of one source row pair, columns 1 .. x0*2 and on, scalar,
// from source column x0 up to width - 2.
void PairScalar(const uint8_t* s0, const uint8_t* s1, uint8_t* d0, uint8_t* d1, int x0, int width) {
    for (int x = x0; x + 1 < width; ++x) {
        const int a = s0[x], b = s0[x + 1], c = s1[x], d = s1[x + 1];
        d0[2 * x + 1] = static_cast<uint8_t>((9 * a + 3 * b + 3 * c + d + 8) >> 4);
        d0[2 * x + 2] = static_cast<uint8_t>((3 * a + 9 * b + c + 3 * d + 8) >> 4);
        d1[2 * x + 1] = static_cast<uint8_t>((3 * a + b + 9 * c + 3 * d + 8) >> 4);
        d1[2 * x + 2] = static_cast<uint8_t>((a + 3 * b + 3 * c + 9 * d + 8) >> 4);
    }
}

}  // namespace

namespace tocra {

void UpScalePairs_C(const uint8_t* src, int firstPair, int pairs, int width, int srcStride, uint8_t* dst,
                    int dstStride) {
    for (int y = firstPair; y < firstPair + pairs; ++y) {
        const uint8_t* s0 = src + RowOffset(y, srcStride);
        PairScalar(s0, s0 + srcStride, dst + RowOffset(2 * y + 1, dstStride), dst + RowOffset(2 * y + 2, dstStride), 0,
                   width);
    }
}

// Eight source columns per step. With horizontal terms h = 3a + b and
// g = a + 3b of each row, the four phases are 3h0 + h1, 3g0 + g1, h0 + 3h1
// and g0 + 3g1, rounded once by a narrowing shift of 4.
void UpScalePairs_Neon(const uint8_t* src, int firstPair, int pairs, int width, int srcStride, uint8_t* dst,
                       int dstStride) {
    for (int y = firstPair; y < firstPair + pairs; ++y) {
        const uint8_t* s0 = src + RowOffset(y, srcStride);
        const uint8_t* s1 = s0 + srcStride;
        uint8_t* d0 = dst + RowOffset(2 * y + 1, dstStride);
        uint8_t* d1 = dst + RowOffset(2 * y + 2, dstStride);
        int x = 0;
        for (; x + 8 < width; x += 8) {
            const uint8x8_t a = vld1_u8(s0 + x), b = vld1_u8(s0 + x + 1);
            const uint8x8_t c = vld1_u8(s1 + x), d = vld1_u8(s1 + x + 1);
            const uint16x8_t h0 = vmlal_u8(vmovl_u8(b), a, vdup_n_u8(3));
            const uint16x8_t g0 = vmlal_u8(vmovl_u8(a), b, vdup_n_u8(3));
            const uint16x8_t h1 = vmlal_u8(vmovl_u8(d), c, vdup_n_u8(3));
            const uint16x8_t g1 = vmlal_u8(vmovl_u8(c), d, vdup_n_u8(3));
            uint8x8x2_t top, bottom;
            top.val[0] = vrshrn_n_u16(vmlaq_n_u16(h1, h0, 3), 4);
            top.val[1] = vrshrn_n_u16(vmlaq_n_u16(g1, g0, 3), 4);
            bottom.val[0] = vrshrn_n_u16(vmlaq_n_u16(h0, h1, 3), 4);
            bottom.val[1] = vrshrn_n_u16(vmlaq_n_u16(g0, g1, 3), 4);
            vst2_u8(d0 + 2 * x + 1, top);
            vst2_u8(d1 + 2 * x + 1, bottom);
        }
        PairScalar(s0, s1, d0, d1, x, width);
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
};

// band = ((height - 2) / 4) rounded down to even; task k takes the pairs
// from source row k*band, the last task all that remain.
void UpBand(void* arg, int index) {
    const UpJob* job = static_cast<const UpJob*>(arg);
    const int pairs = job->pairRows + 1;  // y = 0 .. height - 2
    const int band = (job->pairRows / 4) & ~1;
    const tocra::Band b = tocra::SplitBand(pairs, band, index);
    if (b.rows == 0) return;
    tocra::UpScalePairs_Neon(job->src, b.first, b.rows, job->width, job->srcStride, job->dstRow1 - job->dstStride,
                             job->dstStride);
}

}  // namespace

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
    BorderRow(dst, src, width);
    if (height >= 2) {
        UpJob job{src, dst + dstStride, height - 2, width, srcStride, dstStride};
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
