// Plain reference versions of the vector kernels, and the row-level pieces
// that the exported kernels are built from. Internal to the library (tests
// compare each plain version with its vector one on the same input).
#ifndef BRIMVEL_FILTER_KERNELS_H
#define BRIMVEL_FILTER_KERNELS_H

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

// x2 down-scale by a rounded 2x2 mean. An odd row count's last pair reads
// the row after `rows`; an odd width's last block reads the byte at column
// `width`.
void DownScaleX4_C(const uint8_t* src, int rows, int width, uint8_t* dst, int srcStride, int dstStride);
void DownScaleX4_Neon(const uint8_t* src, int rows, int width, uint8_t* dst, int srcStride, int dstStride);
// Four bands of height / 4 source rows on the pool (see DownScaleX4_Neon_MT).
// Output rows are cut at dstStride.
int DownScaleX4_MT(const uint8_t* src, uint8_t* dst, int height, int width, int srcStride, int dstStride);

// x2 up-scale: the interior destination rows 2y+1 and 2y+2 of the source
// row pairs y = first .. first+pairs-1, every column but the first and last.
void UpScalePairs_C(const uint8_t* src, int firstPair, int pairs, int width, int srcStride, uint8_t* dst,
                    int dstStride);
void UpScalePairs_Neon(const uint8_t* src, int firstPair, int pairs, int width, int srcStride, uint8_t* dst,
                       int dstStride);

// Saturated signed difference a - b.
void UpScaleError_C(const uint8_t* a, const uint8_t* b, int8_t* err, int width, int rows, int stride);

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

// One band of `rows` rows with its 2x2-block histograms (B, G, R; cleared
// first, running sums at the end). An odd width's last step converts column
// `width` as well. A band that keeps to its own rows (kRead, kRepeat) never
// writes past its last row.
void Yuv2RgbBand_C(const RgbPlanes& p, uint32_t* hist, int width, int rows, RowAfter after);
void Yuv2RgbBand_Neon(const RgbPlanes& p, uint32_t* hist, int width, int rows, RowAfter after);
// True for the sizes the conversion refuses: width and row count both odd.
bool Yuv2RgbRefused(int width, int rows);
// Four bands of height / 4 rows on the pool, each through the size check,
// into set + 768 k. Bands 0..2 leave the next band's first row to it (kRead)
// unless that band refuses its rows; the last band does `lastAfter`, and is
// refused with kLastBandPastFrame when `refuseLast` is set.
int Yuv2RgbFourBands(const RgbPlanes& p, uint32_t* set, int width, int height, RowAfter lastAfter,
                     bool refuseLast);
// The line of a last band whose chroma would be read past the frame.
extern const char kLastBandPastFrame[];

}  // namespace tocra

#endif
