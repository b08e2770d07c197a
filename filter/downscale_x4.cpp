// Halves both dimensions of an 8-bit plane: each output pixel is the
// rounded mean of a 2x2 block, (a + b + c + d + 2) >> 2.
//
// Row pairs (r, r + 1) for r = 0, 2, ... below the row count, output
// columns x for 2x below the width. So an odd row count's last pair reads
// the row after it, and an odd width's last block reads the byte at column
// `width` (the row's padding, or the next row's first byte when the stride
// equals the width). Both are read as they are.
#include <cstdint>

#include "brimvel_tocra.h"
#include "filter/bands.h"
#include "filter/filter_kernels.h"
#include "frame/log.h"
#include "frame/neon.h"

namespace {

// Output columns of a row: one per source column pair, at most dstStride.
// An output row is never written past its stride: with ceil(width / 2)
// above dstStride the extra bytes would land in the next output row (which
// its own pair writes again) or past the plane's last row.
int OutColumns(int width, int dstStride) {
    const int cols = (width + 1) / 2;
    return cols < dstStride ? cols : dstStride;
}

// The block at source column x of the rows r0 (top) and r1 (bottom).
inline uint8_t Block(const uint8_t* r0, const uint8_t* r1, int x) {
    return static_cast<uint8_t>((r0[x] + r0[x + 1] + r1[x] + r1[x + 1] + 2) >> 2);
}

bool DownArgsOk(const char* name, const uint8_t* src, int rows, int width, const uint8_t* dst, int srcStride,
                int dstStride) {
    if (rows < 0 || width < 0 || (rows > 0 && width > 0 && (src == nullptr || dst == nullptr ||
                                                            srcStride < width || dstStride < (width + 1) / 2))) {
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
        const uint8_t* r1 = r0 + srcStride;
        uint8_t* d = dst + RowOffset(r / 2, dstStride);
        for (int x = 0; x < cols; ++x) d[x] = Block(r0, r1, 2 * x);
    }
}

// Sixteen outputs per vector step (32 source bytes of each row, pairwise
// added), the scalar block for the rest.
void DownScaleX4_Neon(const uint8_t* src, int rows, int width, uint8_t* dst, int srcStride, int dstStride) {
    const int cols = OutColumns(width, dstStride);
    // Block sums are at most 1020, so the rounding 2 is added in 16 bits
    // before a plain narrowing shift.
    const uint16x8_t two = vdupq_n_u16(2);
    for (int r = 0; r < rows; r += 2) {
        const uint8_t* r0 = src + RowOffset(r, srcStride);
        const uint8_t* r1 = r0 + srcStride;
        uint8_t* d = dst + RowOffset(r / 2, dstStride);
        int x = 0;
        for (; x + 16 <= cols && 2 * x + 32 <= width; x += 16) {
            const uint16x8_t lo = vaddq_u16(vpaddlq_u8(vld1q_u8(r0 + 2 * x)), vpaddlq_u8(vld1q_u8(r1 + 2 * x)));
            const uint16x8_t hi =
                vaddq_u16(vpaddlq_u8(vld1q_u8(r0 + 2 * x + 16)), vpaddlq_u8(vld1q_u8(r1 + 2 * x + 16)));
            vst1q_u8(d + x, vcombine_u8(vshrn_n_u16(vaddq_u16(lo, two), 2), vshrn_n_u16(vaddq_u16(hi, two), 2)));
        }
        for (; x < cols; ++x) d[x] = Block(r0, r1, 2 * x);
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
// With an odd band, the last pair of bands 0..2 (its last row and the next
// band's first) makes the same destination row as the next band's first
// pair. The later band's value stands, so those pairs are left to it and
// every destination row has one writer.
void DownBand(void* arg, int index) {
    const DownJob* job = static_cast<const DownJob*>(arg);
    const int band = job->height / 4;
    const Band b = QuarterBand(job->height, index);
    const int rows = index < kBandTasks - 1 ? (b.rows & ~1) : b.rows;
    DownScaleX4_Neon(job->src + RowOffset(b.first, job->srcStride), rows, job->width,
                     job->dst + RowOffset(index * (band >> 1), job->dstStride), job->srcStride, job->dstStride);
}

}  // namespace

int DownScaleX4_MT(const uint8_t* src, uint8_t* dst, int height, int width, int srcStride, int dstStride) {
    DownJob job{src, dst, width, height, srcStride, dstStride, kBandTasks};
    return RunFourBands(DownBand, &job);
}

}  // namespace tocra

extern "C" void Neon_DownScaleX4(const uint8_t* src, int rows, int width, uint8_t* dst, int srcStride,
                                 int dstStride) {
    if (!DownArgsOk("Neon_DownScaleX4", src, rows, width, dst, srcStride, dstStride)) return;
    tocra::DownScaleX4_Neon(src, rows, width, dst, srcStride, dstStride);
}

extern "C" int DownScaleX4_Neon_MT(const uint8_t* src, uint8_t* dst, int height, int width, int srcStride,
                                   int dstStride) {
    if (!DownArgsOk("DownScaleX4_Neon_MT", src, height, width, dst, srcStride, dstStride)) return TOCRA_NULL_POINTER;
    return tocra::DownScaleX4_MT(src, dst, height, width, srcStride, dstStride);
}
