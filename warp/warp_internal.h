// Internal pieces of the perspective warp and the border fills.
#ifndef BRIMVEL_WARP_WARP_INTERNAL_H
#define BRIMVEL_WARP_WARP_INTERNAL_H

#include <cstdint>

#include "brimvel_tocra.h"

namespace tocra {

// The planes of one warp, with the pitches the variant uses. Chroma is
// either two planes (U, V) or one interleaved plane (v == nullptr).
struct WarpPlanes {
    const uint8_t* srcY;
    const uint8_t* srcU;
    const uint8_t* srcV;
    uint8_t* dstY;
    uint8_t* dstU;
    uint8_t* dstV;
    int pitch;        // luma row pitch
    int chromaPitch;  // planar: U and V pitch; NV12: pitch of the interleaved plane
    int rows;         // luma rows of the planes
    bool nv12;
};

// Warps the 2x2 blocks of row pair (r, r + 1) (only row r when twoRows is
// false) between columns x and x + w of the area, with the divisor held
// for runs of eight columns. Chroma is written only when writeChroma is set. Every texel read is kept inside the source
// planes (see ReadClamped), so any matrix is memory-safe; for the reads that
// lie inside the planes the result is the exact warp.
void WarpRowPlain(const WarpPlanes& p, const float* H, int x, int w, int r, bool twoRows, bool writeChroma = true);

// The same, vectorised: the eight columns of a divisor run are mapped as two
// four-lane vectors from the column table (vectors {x, x+2, x+4, x+6} + 8k),
// and the four blocks of a run are blended in 16-bit lanes. Gives the same
// bytes as WarpRowPlain.
void WarpRowNeon(const WarpPlanes& p, const float* H, int x, int w, int r, bool twoRows, const float* table,
                 bool writeChroma = true);

// Fills the column table: count vectors of four floats starting at
// {x, x+2, x+4, x+6}, each the previous plus 8.
void FillColumnTable(float* table, int x, int count);

// Everything a band of the threaded warp needs.
struct WarpJob {
    WarpPlanes planes;
    const float* H;
    const float* table;
    int x, y, w, h;
};

// Band b of n: rows y + b * (h / n) up to the next band's start, in row
// pairs, an odd last row on its own. The h mod n rows after the last band
// are not warped. With an odd band height, a band starting on an odd row
// shares its first chroma row with the previous band's last row; that row
// is written by the previous band only, so no two threads write one byte.
void WarpBand(const WarpJob& job, int band, int bands);

// ---- where a call reads and writes ------------------------------------------
//
// Nothing in a picture tells the real size of its planes, so the checks take
// the planes to be as large as the layout says: luma pitch times rows,
// chroma pitch times rows / 2. A call is refused only when one of the bytes
// it would read or write lies outside those planes (rows may spill into the
// next row of the same plane: that stays inside). Every accepted call does
// exactly what the unchecked arithmetic does.

// Byte ranges touched in one plane, as offsets from its first byte.
struct PlaneSpan {
    int64_t lo = INT64_MAX;  // lowest offset touched
    int64_t hi = INT64_MIN;  // one past the highest
    bool negative = false;   // a run of negative length (a copy of -n bytes)
    void Add(int64_t offset, int64_t n);
    // True when every range lies in [0, size) (an empty span always does).
    bool Inside(int64_t size) const;
};

// row * pitch + col; any result beyond +-2^62 (an overflow included) is
// returned as a value far outside every plane.
int64_t FlatOffset(int64_t row, int64_t pitch, int64_t col);

// Plane sizes in bytes: luma, and each chroma plane (U and V alike, or the
// interleaved plane).
struct PlaneSizes {
    int64_t luma;
    int64_t chroma;
};

enum class FillKind {
    kConstant,     // FillBlank2
    kCopy,         // FillBlank_YUV420, FillBlank_NV12 (top band rounded up to even)
    kCopyNeon,     // FillBlank_neon_*: top band y / 2 row pairs
    kMirror,       // FillBlank3: pitch width, chroma width / 2
    kMirrorStride  // FillBlank3_Stride: pitch stride, chroma (width / 2) rounded up to 128
};

// The ranges a fill of dst (its width, height and, for kMirrorStride, its
// stride) with the area (x, y, w, h) would touch in the luma planes and in
// each chroma plane. A copy fill reads the source at the offsets it writes.
void FillSpans(FillKind kind, bool planar, const tagST_PIC* dst, int x, int y, int w, int h, PlaneSpan* luma,
               PlaneSpan* chroma);

// The planes a fill takes its destination (and source) to have: the
// destination's own layout.
PlaneSizes FillPlaneSizes(FillKind kind, bool planar, const tagST_PIC* dst);

// Checks a fill's pictures and area: the pictures and their planes set, and
// every byte the fill touches inside the destination's layout. Logs a line
// naming `func` otherwise. The source picture's own width and height are
// never read.
bool ValidFill(const char* func, FillKind kind, bool planar, const tagST_PIC* dst, const tagST_PIC* src, int x,
               int y, int w, int h);

// Which warp, for the checks: the rows a plain variant writes (row pairs,
// an odd h one row past the area) or the threaded ones (the bands' rows,
// never past y + h), and its fill.
struct WarpShape {
    bool planar;
    bool threaded;
    bool stride;  // pitches rounded up to 128
    FillKind fill;
};

// Checks a warp: records and planes set; the first picture of a size that
// is not negative; the column loop able to end (an even, non-negative w
// whenever rows are warped); every byte written inside the planes of a
// frame of the first picture's size; and the fill's bytes inside both those
// planes and the destination's own layout. The source and destination's own
// width and height are not compared with the first picture's. Texel reads
// are kept inside the source planes by the kernels (see ReadClamped). Logs a
// line naming `func` otherwise.
bool ValidWarp(const char* func, const WarpShape& shape, const tagST_PIC* ref, const tagST_PIC* src,
               const tagST_PIC* dst, const float* H, const tagST_REGISTRATION_AREA* area);

}  // namespace tocra

#endif
