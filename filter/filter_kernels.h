// Plain reference versions of the vector kernels, and the row-level pieces
// that the exported kernels are built from. Internal to the library (tests
// compare each plain version with its vector one on the same input).
#ifndef BRIMVEL_FILTER_KERNELS_H
#define BRIMVEL_FILTER_KERNELS_H

#include <cstddef>
#include <cstdint>

namespace tocra {

// Integral image rows: out[0] = 0, out[c] = p[0] + ... + p[c - 1], c = 1..width.
void IntegralRowPrefix_C(uint32_t* out, const uint8_t* p, int width);
void IntegralRowPrefix_Neon(uint32_t* out, const uint8_t* p, int width);
// Column pass: each of the `cols` values of rows 1..rows-1 gets the value
// above it added (row 0 is left as it is).
void IntegralColumns_C(uint32_t* row0, int pitch, int rows, int cols);
void IntegralColumns_Neon(uint32_t* row0, int pitch, int rows, int cols);

// Vertical box sums of one slice, divided by the clipped window area.
void BoxSumV_C(uint8_t* dst, const int32_t* in, int width, int stride, int rows, int radius);

// Cumulative histograms.
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
void UpScalePairs(const uint8_t* src, int firstPair, int pairs, int width, int srcStride, uint8_t* dst,
                  int dstStride, UpScaleRowFn row);
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
int Yuv2RgbFourBands(const RgbPlanes& p, uint32_t* set, int width, int height, RowAfter lastAfter,
                     bool refuseLast, Yuv2RgbRowFn row);
int Yuv2RgbFourBands(const RgbPlanes& p, uint32_t* set, int width, int height, RowAfter lastAfter,
                     bool refuseLast);
// The line of a last band whose chroma would be read past the frame.
extern const char kLastBandPastFrame[];

}  // namespace tocra

#endif
