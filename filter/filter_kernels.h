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
// `width`. srcEnd, when set, is one past the last source byte that may be
// read: a bottom-row byte at column `width` at or past it is replaced by
// the byte to its left.
void DownScaleX4_C(const uint8_t* src, int rows, int width, uint8_t* dst, int srcStride, int dstStride,
                   const uint8_t* srcEnd = nullptr);
void DownScaleX4_Neon(const uint8_t* src, int rows, int width, uint8_t* dst, int srcStride, int dstStride,
                      const uint8_t* srcEnd = nullptr);
// Four bands of height / 4 source rows on the pool (see DownScaleX4_Neon_MT).
int DownScaleX4_MT(const uint8_t* src, uint8_t* dst, int height, int width, int srcStride, int dstStride,
                   const uint8_t* srcEnd);

// x2 up-scale: the interior destination rows 2y+1 and 2y+2 of the source
// row pairs y = first .. first+pairs-1, every column but the first and last.
void UpScalePairs_C(const uint8_t* src, int firstPair, int pairs, int width, int srcStride, uint8_t* dst,
                    int dstStride);
void UpScalePairs_Neon(const uint8_t* src, int firstPair, int pairs, int width, int srcStride, uint8_t* dst,
                       int dstStride);

// Saturated signed difference a - b.
void UpScaleError_C(const uint8_t* a, const uint8_t* b, int8_t* err, int width, int rows, int stride);

// Colour conversion of one band with 2x2-block histograms. `rowsBelow`
// rows after the band may be read (never written) to complete the band's
// last block when it has an odd number of rows; with none, the last row
// stands in for the missing one. The same holds for an odd width, whose
// last column stands in for the missing one.
void Yuv2RgbBand_C(const uint8_t* y, const uint8_t* uv, uint8_t* b, uint8_t* g, uint8_t* r, uint32_t* hist,
                   int width, int rows, int rowsBelow, int stride, int uvStride);
void Yuv2RgbBand_Neon(const uint8_t* y, const uint8_t* uv, uint8_t* b, uint8_t* g, uint8_t* r, uint32_t* hist,
                      int width, int rows, int rowsBelow, int stride, int uvStride);

}  // namespace tocra

#endif
