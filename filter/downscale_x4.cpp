// Halves both dimensions of an 8-bit plane: each output pixel is the
// rounded mean of a 2x2 block, (a + b + c + d + 2) >> 2.
#include <cstdint>

#include "brimvel_tocra.h"
#include "filter/bands.h"
#include "filter/filter_kernels.h"
#include "frame/log.h"
#include "frame/neon.h"

namespace {

// Output columns of a row: one per source column pair, at most dstStride
// (a destination narrower than that is never written past its rows).
int OutColumns(int width, int dstStride) {
    const int cols = (width + 1) / 2;
    return cols < dstStride ? cols : dstStride;
}

// The odd width's last block reads the byte just past the width when the
// row has padding, and repeats the last pixel when it has none.
inline uint8_t Block(const uint8_t* r0, const uint8_t* r1, int x, int width, int srcStride) {
    const int x1 = (x + 1 < width || srcStride > width) ? x + 1 : x;
    return static_cast<uint8_t>((r0[x] + r0[x1] + r1[x] + r1[x1] + 2) >> 2);
}

bool DownArgsOk(const char* name, const uint8_t* src, int rows, int width, const uint8_t* dst, int srcStride,
                int dstStride) {
    if (rows < 0 || width < 0 || (rows > 0 && width > 0 && (src == nullptr || dst == nullptr ||
                                                            srcStride < width || dstStride <= 0))) {
        TOCRA_LOGE("%s invalid input: width[%d] rows[%d] srcStride[%d] dstStride[%d]\n", name, width, rows,
                   srcStride, dstStride);
        return false;
    }
    return true;
}

}  // namespace

namespace tocra {

void DownScaleX4_C(const uint8_t* src, int rows, int width, uint8_t* dst, int srcStride, int dstStride) {
    const int cols = OutColumns(width, dstStride);
    for (int r = 0; r < rows; r += 2) {
        const uint8_t* r0 = src + RowOffset(r, srcStride);
        // An odd row count's last row stands in for the missing one below it.
        const uint8_t* r1 = r + 1 < rows ? r0 + srcStride : r0;
        uint8_t* d = dst + RowOffset(r / 2, dstStride);
        for (int x = 0; x < cols; ++x) d[x] = Block(r0, r1, 2 * x, width, srcStride);
    }
}

}  // namespace tocra

using tocra::RowOffset;

// src holds `rows` rows of srcStride bytes, dst ceil(rows / 2) rows of
// dstStride bytes (ceil(width / 2) of them written, at most dstStride).
// Sixteen outputs per vector step (32 source bytes, pairwise added), a
// scalar tail for the rest.
extern "C" void Neon_DownScaleX4(const uint8_t* src, int rows, int width, uint8_t* dst, int srcStride,
                                 int dstStride) {
    if (!DownArgsOk("Neon_DownScaleX4", src, rows, width, dst, srcStride, dstStride)) return;
    const int cols = OutColumns(width, dstStride);
    for (int r = 0; r < rows; r += 2) {
        const uint8_t* r0 = src + RowOffset(r, srcStride);
        const uint8_t* r1 = r + 1 < rows ? r0 + srcStride : r0;
        uint8_t* d = dst + RowOffset(r / 2, dstStride);
        int x = 0;
        // Block sums are at most 1020, so the rounding 2 is added in 16 bits
        // before a plain narrowing shift.
        const uint16x8_t two = vdupq_n_u16(2);
        for (; x + 16 <= cols && 2 * x + 32 <= width; x += 16) {
            const uint16x8_t lo = vaddq_u16(vpaddlq_u8(vld1q_u8(r0 + 2 * x)), vpaddlq_u8(vld1q_u8(r1 + 2 * x)));
            const uint16x8_t hi =
                vaddq_u16(vpaddlq_u8(vld1q_u8(r0 + 2 * x + 16)), vpaddlq_u8(vld1q_u8(r1 + 2 * x + 16)));
            vst1q_u8(d + x, vcombine_u8(vshrn_n_u16(vaddq_u16(lo, two), 2), vshrn_n_u16(vaddq_u16(hi, two), 2)));
        }
        for (; x < cols; ++x) d[x] = Block(r0, r1, 2 * x, width, srcStride);
    }
}

namespace {

struct DownJob {
    const uint8_t* src;
    uint8_t* dst;
    int width;
    int height;
    int srcStride;
    int dstStride;
    int taskCount;
};

// Band k = source rows k*band .., written from destination row k*(band>>1).
// With an odd band the last pair of bands 0..2 would straddle into the next
// band and write the same destination row as that band's first pair; the
// later band keeps that row, so every row has exactly one writer.
void DownBand(void* arg, int index) {
    const DownJob* job = static_cast<const DownJob*>(arg);
    const int band = job->height / 4;
    const tocra::Band b = tocra::QuarterBand(job->height, index);
    const int rows = index < tocra::kBandTasks - 1 ? (b.rows & ~1) : b.rows;
    Neon_DownScaleX4(job->src + RowOffset(b.first, job->srcStride), rows, job->width,
                     job->dst + RowOffset(index * (band >> 1), job->dstStride), job->srcStride, job->dstStride);
}

}  // namespace

extern "C" int DownScaleX4_Neon_MT(const uint8_t* src, uint8_t* dst, int height, int width, int srcStride,
                                   int dstStride) {
    if (!DownArgsOk("DownScaleX4_Neon_MT", src, height, width, dst, srcStride, dstStride)) return TOCRA_NULL_POINTER;
    DownJob job{src, dst, width, height, srcStride, dstStride, tocra::kBandTasks};
    return tocra::RunFourBands(DownBand, &job);
}
