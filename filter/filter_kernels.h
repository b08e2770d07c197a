// Plain reference versions of the vector kernels, and the row-level pieces
// that the exported kernels are built from. Internal to the library (tests
// compare each plain version with its vector one on the same input).
#ifndef BRIMVEL_FILTER_KERNELS_H
#define BRIMVEL_FILTER_KERNELS_H

#include <cstddef>
#include <cstdint>

namespace tocra {

// Integral image rows. IntegralRow: out[x] = above[x] + sum + p[0] + ... +
// p[x] for x = 0..width-1 (out may be above); returns the row's running sum.
using IntegralRowFn = uint32_t (*)(uint32_t* out, const uint32_t* above, const uint8_t* p, int width, uint32_t sum);
uint32_t IntegralRow_C(uint32_t* out, const uint32_t* above, const uint8_t* p, int width, uint32_t sum);
// Two integral rows: out = above + the running sums of p, then out + pitch =
// out + the running sums of p + stride (both from 0), width values each.
using IntegralRowPairFn = void (*)(uint32_t* out, const uint32_t* above, const uint8_t* p, int pitch, int stride,
                                   int width);
void IntegralRowPair_C(uint32_t* out, const uint32_t* above, const uint8_t* p, int pitch, int stride, int width);
// row[c] += add[c], c = 0..cols-1.
using IntegralAddRowFn = void (*)(uint32_t* row, const uint32_t* add, int cols);
void IntegralAddRow_C(uint32_t* row, const uint32_t* add, int cols);
// sums[x] += p[x] + p[stride + x] + ... over `rows` rows, x = 0..width-1.
using IntegralColSumRowsFn = void (*)(uint32_t* sums, const uint8_t* p, int stride, int rows, int width);
void IntegralColSumRows_C(uint32_t* sums, const uint8_t* p, int stride, int rows, int width);
#if !defined(BRIMVEL_PLAIN_ONLY)
uint32_t IntegralRow_NEON(uint32_t* out, const uint32_t* above, const uint8_t* p, int width, uint32_t sum);
void IntegralRowPair_NEON(uint32_t* out, const uint32_t* above, const uint8_t* p, int pitch, int stride, int width);
void IntegralAddRow_NEON(uint32_t* row, const uint32_t* add, int cols);
void IntegralColSumRows_NEON(uint32_t* sums, const uint8_t* p, int stride, int rows, int width);
#endif
// The summed-area table of IntergralMat_MT (arguments already checked) with
// the plain rows or the vector ones (plain-only builds: always plain).
void IntegralPlane(const uint8_t* src, uint32_t* dst, int width, int height, int stride, bool plain);

// Horizontal box sums of one row (needs width > 2R): out[x] = p[x-R] + ...
// + p[x+R], clipped to the row. The pair form does the row at p and the one
// `stride` bytes below it, into out and out + width.
using BoxSumHRowFn = void (*)(int32_t* out, const uint8_t* p, int width, int radius);
using BoxSumHPairFn = void (*)(int32_t* out, const uint8_t* p, int width, int stride, int radius);
void BoxSumHRow_C(int32_t* out, const uint8_t* p, int width, int radius);
void BoxSumHPair_C(int32_t* out, const uint8_t* p, int width, int stride, int radius);
// The running sum s at column x - 1 carried on to the row's end (slide,
// then drain): the plain tail of every form.
void BoxSumHFinish(int32_t* out, const uint8_t* p, int width, int radius, int x, int32_t s);
// s + p[R] + ... + p[2R] written to out[0..R] (the fill); returns the sum.
int32_t BoxSumHFill(int32_t* out, const uint8_t* p, int radius, int32_t s);
#if !defined(BRIMVEL_PLAIN_ONLY)
void BoxSumHRow_NEON(int32_t* out, const uint8_t* p, int width, int radius);
void BoxSumHPair_NEON(int32_t* out, const uint8_t* p, int width, int stride, int radius);
#endif

// One output row of the vertical box pass: the accumulator takes row `add`
// and gives back row `sub` (either may be null), and every column is
// scaled by its window's area into dst.
struct BoxSumVLine {
    int32_t* acc;
    const int32_t* add;
    const int32_t* sub;
    const int32_t* colCount;
    const float* colRecip;
    int32_t rowCount;
    float rowRecip;
};
using BoxSumVRowFn = void (*)(uint8_t* dst, const BoxSumVLine& line, int width);
void BoxSumVRow_C(uint8_t* dst, const BoxSumVLine& line, int width);
#if !defined(BRIMVEL_PLAIN_ONLY)
void BoxSumVRow_NEON(uint8_t* dst, const BoxSumVLine& line, int width);
#endif
// Vertical box sums of one slice, divided by the clipped window area: the
// slice kernel with the plain rows (the reference for the vector one).
void BoxSumV_C(uint8_t* dst, const int32_t* in, int width, int stride, int rows, int radius);
// Bytes of the scratch area that IntegralMat_V_MT really touches for a
// plane (its slices clamped to the plane), at most the area it reserves.
int64_t BoxSumVScratchExtent(int width, int stride, int height, int radius);

// Cumulative histograms. A count row adds the bytes at columns 0, step,
// 2 step, ... < width to four counter sets (4 x 256, added up at the end).
using CumCountRowFn = void (*)(uint32_t* counts, const uint8_t* p, int width, int step);
void CumCountRow_C(uint32_t* counts, const uint8_t* p, int width, int step);
#if !defined(BRIMVEL_PLAIN_ONLY)
void CumCountRow_NEON(uint32_t* counts, const uint8_t* p, int width, int step);
#endif
// Rows 0, step, ... < rows counted, then the running sum; step > 0.
void CumHistPlane(const uint8_t* plane, int width, int rows, int stride, int step, uint32_t* hist, bool plain);
// True when the four subsampled bands of GetCumHist_Neon_MT read nothing,
// or read only inside `height` rows of `stride` bytes at a non-null plane.
bool CumHistBandsReadInside(const uint8_t* plane, int width, int height, int stride, int step);
void GetCumHist_C(const uint8_t* plane, int width, int rows, int stride, int step, uint32_t* hist);
void GetCumSum_C(const uint8_t* plane, int width, int rows, int stride, uint32_t* hist);

// Row functions come in pairs with one signature: FooRow_C (plain) and
// FooRow_NEON (whole vectors, the rest handed to FooRow_C). The plane
// drivers take the row to run; the exported kernels pass the NEON one
// unless the library is built plain-only.

// x2 down-scale by a rounded 2x2 mean: cols outputs from the rows s0, s1
// (bytes 0 .. 2 cols - 1 of each). An odd row count's last pair reads the
// row after `rows`; an odd width's last block reads the byte at column
// `width`.
using DownScaleRowFn = void (*)(const uint8_t* s0, const uint8_t* s1, uint8_t* dst, int cols);
void DownScaleRow_C(const uint8_t* s0, const uint8_t* s1, uint8_t* dst, int cols);
void DownScaleRow_NEON(const uint8_t* s0, const uint8_t* s1, uint8_t* dst, int cols);
void DownScalePlane(const uint8_t* src, int rows, int width, uint8_t* dst, int srcStride, int dstStride,
                    DownScaleRowFn row);
// Four bands of height / 4 source rows on the pool (see DownScaleX4_Neon_MT).
// Output rows are cut at dstStride. Without a row: the build's default.
int DownScaleX4_MT(const uint8_t* src, uint8_t* dst, int height, int width, int srcStride, int dstStride,
                   DownScaleRowFn row);
int DownScaleX4_MT(const uint8_t* src, uint8_t* dst, int height, int width, int srcStride, int dstStride);

// x2 up-scale: the interior of destination rows d0 = 2y+1 and d1 = 2y+2 from
// source rows s0 = y and s1 = y+1, columns 1 .. 2 width - 2.
using UpScaleRowFn = void (*)(const uint8_t* s0, const uint8_t* s1, uint8_t* d0, uint8_t* d1, int width);
void UpScaleRow_C(const uint8_t* s0, const uint8_t* s1, uint8_t* d0, uint8_t* d1, int width);
void UpScaleRow_NEON(const uint8_t* s0, const uint8_t* s1, uint8_t* d0, uint8_t* d1, int width);
// The source row pairs y = first .. first+pairs-1.
void UpScalePairs(const uint8_t* src, int firstPair, int pairs, int width, int srcStride, uint8_t* dst, int dstStride,
                  UpScaleRowFn row);
// The whole plane (height, width >= 1), as MT_UpScale4X_NEON.
void UpScalePlane(const uint8_t* src, int height, int width, int srcStride, int dstStride, uint8_t* dst,
                  UpScaleRowFn row);

// Saturated signed difference a - b; err may be b.
using UpScaleErrorRowFn = void (*)(const uint8_t* a, const uint8_t* b, int8_t* err, int width);
void UpScaleErrorRow_C(const uint8_t* a, const uint8_t* b, int8_t* err, int width);
void UpScaleErrorRow_NEON(const uint8_t* a, const uint8_t* b, int8_t* err, int width);
void UpScaleErrorPlane(const uint8_t* a, const uint8_t* b, int8_t* err, int width, int rows, int stride,
                       UpScaleErrorRowFn row);
int UpScaleError_MT(const uint8_t* a, const uint8_t* b, int8_t* err, int width, int height, int stride,
                    UpScaleErrorRowFn row);

// Colour conversion: luma y and outputs b, g, r with rows `stride` apart,
// chroma uv with rows uvStride apart (the pair of pixel x at 2x, 2x + 1).
struct RgbPlanes {
    const uint8_t* y;
    const uint8_t* uv;
    uint8_t* b;
    uint8_t* g;
    uint8_t* r;
    int stride;
    int uvStride;
};

// What the last pair of an odd row count does with the row after it.
enum class RowAfter {
    kReadWrite,  // converts it like any other row (the kernel on its own)
    kRead,       // reads it for the last blocks only: the next band writes it
    kRepeat,     // it may not be read: the last row stands in for it, in the blocks only
};

// One row pair of a band: the two luma and chroma rows read, the offsets
// of the two output rows, and which of its bytes the band writes.
struct RgbPair {
    const uint8_t* y0;
    const uint8_t* uv0;
    const uint8_t* y1;
    const uint8_t* uv1;
    size_t o0, o1;     // output offsets of the two rows
    bool writeSecond;  // the second row is the band's to write
    bool lastCol0;     // column `width` (odd width) of the first row is the band's to write
    bool lastCol1;     // the same for the second row
};
// The pair from column x on.
RgbPair AdvancePair(const RgbPair& pr, int x);

// Converts `width` columns of a row pair (an odd width's last step converts
// column `width` as well) and counts its 2x2 blocks into hist (B, G, R).
using Yuv2RgbRowFn = void (*)(const RgbPlanes& p, const RgbPair& pr, uint32_t* hist, int width);
void Yuv2RgbRow_C(const RgbPlanes& p, const RgbPair& pr, uint32_t* hist, int width);
void Yuv2RgbRow_NEON(const RgbPlanes& p, const RgbPair& pr, uint32_t* hist, int width);

// One band of `rows` rows with its 2x2-block histograms (B, G, R; cleared
// first, running sums at the end). A band that keeps to its own rows
// (kRead, kRepeat) never writes past its last row.
void Yuv2RgbBand(const RgbPlanes& p, uint32_t* hist, int width, int rows, RowAfter after, Yuv2RgbRowFn row);
// True for the sizes the conversion refuses: width and row count both odd.
bool Yuv2RgbRefused(int width, int rows);
// Four bands of height / 4 rows on the pool, each through the size check,
// into set + 768 k. Bands 0..2 leave the next band's first row to it (kRead)
// unless that band refuses its rows; the last band does `lastAfter`, and is
// refused with kLastBandPastFrame when `refuseLast` is set.
int Yuv2RgbFourBands(const RgbPlanes& p, uint32_t* set, int width, int height, RowAfter lastAfter, bool refuseLast,
                     Yuv2RgbRowFn row);
int Yuv2RgbFourBands(const RgbPlanes& p, uint32_t* set, int width, int height, RowAfter lastAfter, bool refuseLast);
// The line of a last band whose chroma would be read past the frame.
extern const char kLastBandPastFrame[];

}  // namespace tocra

#endif
