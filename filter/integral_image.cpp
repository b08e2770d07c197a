// Summed-area table of an 8-bit plane. Both passes run in four bands on the
// pool: first the column sums of bands 0..2 (each into the last integral row
// of its band), which the calling thread turns into the integral rows that
// sit above bands 1..3; then every band builds its rows from the row above,
// two at a time, each row's prefix sums added to the row above it in one go.
#include <cstdint>
#include <cstring>

#include "brimvel_tocra.h"
#include "filter/bands.h"
#include "filter/filter_kernels.h"
#include "frame/log.h"

namespace tocra {

uint32_t IntegralRow_C(uint32_t* out, const uint32_t* above, const uint8_t* p, int width, uint32_t sum) {
    for (int x = 0; x < width; ++x) {
        sum += p[x];
        out[x] = above[x] + sum;
    }
    return sum;
}

void IntegralRowPair_C(uint32_t* out, const uint32_t* above, const uint8_t* p, int pitch, int stride, int width) {
    IntegralRow_C(out, above, p, width, 0);
    IntegralRow_C(out + pitch, out, p + stride, width, 0);
}

void IntegralAddRow_C(uint32_t* row, const uint32_t* add, int cols) {
    for (int c = 0; c < cols; ++c) row[c] += add[c];
}

void IntegralColSumRows_C(uint32_t* sums, const uint8_t* p, int stride, int rows, int width) {
    for (int i = 0; i < rows; ++i) {
        const uint8_t* q = p + RowOffset(i, stride);
        for (int x = 0; x < width; ++x) sums[x] += q[x];
    }
}

namespace {

struct IntegralRows {
    IntegralRowFn row;
    IntegralRowPairFn pair;
    IntegralAddRowFn add;
    IntegralColSumRowsFn colSums;
};

IntegralRows PickIntegralRows(bool plain) {
#if defined(BRIMVEL_PLAIN_ONLY)
    (void)plain;
    return IntegralRows{IntegralRow_C, IntegralRowPair_C, IntegralAddRow_C, IntegralColSumRows_C};
#else
    if (plain) return IntegralRows{IntegralRow_C, IntegralRowPair_C, IntegralAddRow_C, IntegralColSumRows_C};
    return IntegralRows{IntegralRow_NEON, IntegralRowPair_NEON, IntegralAddRow_NEON, IntegralColSumRows_NEON};
#endif
}

// Integral rows r .. r + count - 1 (r >= 1, count 1 or 2) from source rows
// r - 1 .. and integral row r - 1.
inline void BuildRows(const IntegralRows& rows, uint32_t* dst, int pitch, const uint8_t* src, int stride, int r,
                      int count) {
    uint32_t* out = dst + RowOffset(r, pitch);
    const uint32_t* above = out - pitch;
    const uint8_t* p = src + RowOffset(r - 1, stride);
    out[0] = above[0];
    if (count == 2) {
        out[pitch] = above[0];
        rows.pair(out + 1, above + 1, p, pitch, stride, pitch - 1);
    } else {
        rows.row(out + 1, above + 1, p, pitch - 1, 0);
    }
}

struct IntegralPlaneJob {
    IntegralRows rows;
    uint32_t* dst;  // integral row 0
    const uint8_t* src;
    int pitch;
    int stride;
    int height;
};

// Band k's column sums (column 0 stays 0) into integral row (k + 1) * band.
void IntegralColumnSums(void* arg, int k) {
    const IntegralPlaneJob* job = static_cast<const IntegralPlaneJob*>(arg);
    const Band band = QuarterBand(job->height, k);
    if (k == kBandTasks - 1 || band.rows == 0) return;
    uint32_t* sums = job->dst + RowOffset(band.first + band.rows, job->pitch);
    memset(sums, 0, sizeof(uint32_t) * static_cast<size_t>(job->pitch));
    job->rows.colSums(sums + 1, job->src + RowOffset(band.first, job->stride), job->stride, band.rows, job->pitch - 1);
}

// Band k's integral rows from the row above the band; the last row of
// bands 0..2 is already in place (the calling thread wrote it).
void IntegralBandRows(void* arg, int k) {
    const IntegralPlaneJob* job = static_cast<const IntegralPlaneJob*>(arg);
    const Band band = QuarterBand(job->height, k);
    const int last = k == kBandTasks - 1 ? band.rows : band.rows - 1;
    for (int i = 0; i < last; i += 2) {
        BuildRows(job->rows, job->dst, job->pitch, job->src, job->stride, band.first + i + 1, last - i >= 2 ? 2 : 1);
    }
}

}  // namespace

void IntegralPlane(const uint8_t* src, uint32_t* dst, int width, int height, int stride, bool plain) {
    const int pitch = width + 1;
    memset(dst, 0, sizeof(uint32_t) * static_cast<size_t>(pitch));
    if (height <= 0) return;
    IntegralPlaneJob job{PickIntegralRows(plain), dst, src, pitch, stride, height};
    const int band = height / 4;
    if (band > 0) {
        RunFourBands(IntegralColumnSums, &job);
        // Row (k + 1) * band holds band k's column sums: its running sum
        // along the row, plus the integral row above band k, is the
        // integral row itself.
        for (int k = 0; k < kBandTasks - 1; ++k) {
            uint32_t* row = dst + RowOffset((k + 1) * band, pitch);
            const uint32_t* above = row - RowOffset(band, pitch);
            uint32_t s = 0;
            for (int c = 0; c < pitch; ++c) {
                s += row[c];
                row[c] = above[c] + s;
            }
        }
    }
    RunFourBands(IntegralBandRows, &job);
}

}  // namespace tocra

using namespace tocra;

// Task k fills integral rows k*band+1 .. (k+1)*band (the last task up to
// the plane's height), band = height / 4: column 0 is 0, then the running
// sum of the source row.
extern "C" void IntegralMat_partH_Caller(void* arg, int index) {
    const IntegralJob* job = static_cast<const IntegralJob*>(arg);
    const int width = job->pitch - 1;
    const IntegralRows rows = PickIntegralRows(false);
    const Band band = QuarterBand(job->integralHeight - 1, index);
    for (int i = 0; i < band.rows; ++i) {
        const int srcRow = band.first + i;  // integral row srcRow + 1
        uint32_t* out = reinterpret_cast<uint32_t*>(job->pRow1) + RowOffset(srcRow, job->pitch);
        memset(out, 0, sizeof(uint32_t) * static_cast<size_t>(job->pitch));
        rows.row(out + 1, out + 1, job->pSrc + RowOffset(srcRow, job->srcStride), width, 0);
    }
}

// Rows 1 .. integralHeight-1 each get the row above added, all `pitch`
// columns (column 0 included).
extern "C" void IntegralMat_partV_Caller(int32_t* row1, int pitch, int integralHeight) {
    if (pitch < 1 || integralHeight < 2) return;  // no column or no row: nothing to add
    if (row1 == nullptr) {
        TOCRA_LOGE("%s null pointer\n", "IntegralMat_partV_Caller");
        return;
    }
    const IntegralRows rows = PickIntegralRows(false);
    uint32_t* row0 = reinterpret_cast<uint32_t*>(row1 - pitch);
    for (int r = 1; r < integralHeight; ++r)
        rows.add(row0 + RowOffset(r, pitch), row0 + RowOffset(r - 1, pitch), pitch);
}

// dst needs (width + 1) * (height + 1) int32 values; src needs `height` rows
// of `stride` bytes (stride >= width). Sums wrap modulo 2^32. Refused with
// a line: a negative size (row 0 or column 0 would lie outside dst), a null
// dst, and, when source bytes are read, a null src or a stride below the
// width (the last row would end past the plane).
extern "C" void IntergralMat_MT(const uint8_t* src, int32_t* dst, int width, int height, int stride) {
    const bool reads = width > 0 && height > 0;
    if (dst == nullptr || width < 0 || height < 0 || (reads && (src == nullptr || stride < width)) ||
        static_cast<uint64_t>(width + 1ull) * (height + 1ull) > SIZE_MAX / 8) {
        TOCRA_LOGE("%s invalid input: width[%d] height[%d] stride[%d]\n", "IntergralMat_MT", width, height, stride);
        return;
    }
    IntegralPlane(src, reinterpret_cast<uint32_t*>(dst), width, height, stride, false);
}
