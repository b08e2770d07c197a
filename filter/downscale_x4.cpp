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

namespace {

#if defined(BRIMVEL_PLAIN_ONLY)
constexpr tocra::DownScaleRowFn kDownScaleRow = tocra::DownScaleRow_C;
#else
constexpr tocra::DownScaleRowFn kDownScaleRow = tocra::DownScaleRow_NEON;
#endif

// Output columns of a row: one per source column pair, at most dstStride.
// The exported kernels refuse a dstStride below (width + 1) / 2; the frame
// statistics (whose half-size stride can equal width / 2 with an odd width)
// cut the row there: the byte past it is the next output row's first, which
// that row's pair writes again (from another band, at the same time), or,
// after the last row, the R plane's first byte, which the colour conversion
// writes afterwards.
int OutColumns(int width, int dstStride) {
    const int cols = (width + 1) / 2;
    return cols < dstStride ? cols : dstStride;
}

bool DownArgsOk(const char* name, const uint8_t* src, int rows, int width, const uint8_t* dst, int srcStride,
                int dstStride) {
    if (rows < 0 || width < 0 ||
        (rows > 0 && width > 0 &&
         (src == nullptr || dst == nullptr || srcStride < width || dstStride < (width + 1) / 2))) {
        TOCRA_LOGE("%s invalid input: width[%d] rows[%d] srcStride[%d] dstStride[%d]\n", name, width, rows, srcStride,
                   dstStride);
        return false;
    }
    return true;
}

}  // namespace

namespace tocra {

void DownScaleRow_C(const uint8_t* s0, const uint8_t* s1, uint8_t* dst, int cols) {
    for (int x = 0; x < cols; ++x) {
        dst[x] = static_cast<uint8_t>((s0[2 * x] + s0[2 * x + 1] + s1[2 * x] + s1[2 * x + 1] + 2) >> 2);
    }
}

void DownScalePlane(const uint8_t* src, int rows, int width, uint8_t* dst, int srcStride, int dstStride,
                    DownScaleRowFn row) {
    const int cols = OutColumns(width, dstStride);
    for (int r = 0; r < rows; r += 2) {
        const uint8_t* s0 = src + RowOffset(r, srcStride);
        row(s0, s0 + srcStride, dst + RowOffset(r / 2, dstStride), cols);
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
    DownScaleRowFn row;
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
    DownScalePlane(job->src + RowOffset(b.first, job->srcStride), rows, job->width,
                   job->dst + RowOffset(index * (band >> 1), job->dstStride), job->srcStride, job->dstStride, job->row);
}

}  // namespace

int DownScaleX4_MT(const uint8_t* src, uint8_t* dst, int height, int width, int srcStride, int dstStride,
                   DownScaleRowFn row) {
    DownJob job{src, dst, width, height, srcStride, dstStride, kBandTasks, row};
    return RunFourBands(DownBand, &job);
}

int DownScaleX4_MT(const uint8_t* src, uint8_t* dst, int height, int width, int srcStride, int dstStride) {
    return DownScaleX4_MT(src, dst, height, width, srcStride, dstStride, kDownScaleRow);
}

}  // namespace tocra

extern "C" void Neon_DownScaleX4(const uint8_t* src, int rows, int width, uint8_t* dst, int srcStride, int dstStride) {
    if (!DownArgsOk("Neon_DownScaleX4", src, rows, width, dst, srcStride, dstStride)) return;
    tocra::DownScalePlane(src, rows, width, dst, srcStride, dstStride, kDownScaleRow);
}

extern "C" int DownScaleX4_Neon_MT(const uint8_t* src, uint8_t* dst, int height, int width, int srcStride,
                                   int dstStride) {
    if (!DownArgsOk("DownScaleX4_Neon_MT", src, height, width, dst, srcStride, dstStride)) return TOCRA_NULL_POINTER;
    return tocra::DownScaleX4_MT(src, dst, height, width, srcStride, dstStride, kDownScaleRow);
}
