// Internal pieces of the perspective warp and the border fills.
#ifndef BRIMVEL_WARP_WARP_INTERNAL_H
#define BRIMVEL_WARP_WARP_INTERNAL_H

#include <cstddef>
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

// One row of the warp: the 2x2 blocks of row pair (r, r + 1) (only row r
// when twoRows is false) between columns x and x + w of the area, with the
// divisor held for runs of eight columns. Chroma is written only when
// writeChroma is set. The table holds the block-start columns as vectors
// {x, x+2, x+4, x+6} + 8k; the plain row does not read it. Rows read the
// source unchecked: every texel they use has been checked first (see
// WarpRowInside_C).
using WarpRowFn = void (*)(const WarpPlanes& p, const float* H, int x, int w, int r, bool twoRows, const float* table,
                           bool writeChroma);
void WarpRow_C(const WarpPlanes& p, const float* H, int x, int w, int r, bool twoRows, const float* table,
               bool writeChroma);

// Whether every texel the same row would read (luma and, when writeChroma
// is set, chroma) lies inside the source planes, taken as flat arrays of
// pitch * rows and chromaPitch * (rows / 2) bytes: a read past a row's end
// into the next row of the plane is inside, and so is a read past a plane's
// end into the next plane of a frame held in one buffer (SourceLimits).
using WarpCheckFn = bool (*)(const WarpPlanes& p, const float* H, int x, int w, int r, bool twoRows, const float* table,
                             bool writeChroma);
bool WarpRowInside_C(const WarpPlanes& p, const float* H, int x, int w, int r, bool twoRows, const float* table,
                     bool writeChroma);

#if !defined(BRIMVEL_PLAIN_ONLY)
// The vector rows: the eight columns of a divisor run mapped as two
// four-lane vectors from the column table. Same bytes and answers as the
// plain rows; runs near the plane's edges and the columns after the last
// whole run go to the plain blocks below.
void WarpRow_NEON(const WarpPlanes& p, const float* H, int x, int w, int r, bool twoRows, const float* table,
                  bool writeChroma);
bool WarpRowInside_NEON(const WarpPlanes& p, const float* H, int x, int w, int r, bool twoRows, const float* table,
                        bool writeChroma);
#endif

// The plain blocks at columns c, c + 2, ... before cEnd of row r with the
// held reciprocal q: the arithmetic every row hands its edge runs and its
// tail to.
void WarpBlocks_C(const WarpPlanes& p, const float* H, int c, int cEnd, int r, float q, bool twoRows, bool writeChroma);
bool BlocksInside_C(const WarpPlanes& p, const float* H, int c, int cEnd, int r, float q, bool twoRows,
                    bool writeChroma);
// Where the source may be read, as byte offsets from srcY (luma) and from
// srcU / srcV (chroma, U and V alike): [lo, hi). A plane on its own is its
// pitch times its rows. When the planes follow each other in memory (U
// starting where luma ends, V where U ends) they are one frame in one
// buffer, and a read that runs from one plane into the next stays inside.
struct ReadLimits {
    int64_t lumaLo, lumaHi;
    int64_t chromaLo, chromaHi;
};
ReadLimits SourceLimits(const WarpPlanes& p);

// One block at its mapped position (sx, sy): the reads checked, or done.
bool BlockInside(const WarpPlanes& p, float sx, float sy, bool twoRows, bool writeChroma);
void WarpBlock_C(const WarpPlanes& p, int c, int r, float sx, float sy, bool twoRows, bool writeChroma);

// Fills the column table: count vectors of four floats starting at
// {x, x+2, x+4, x+6}, each the previous plus 8.
void FillColumnTable(float* table, int x, int count);

// Everything a band of the threaded warp needs, with the row functions the
// entry point chose.
struct WarpJob {
    WarpPlanes planes;
    const float* H;
    const float* table;
    int x, y, w, h;
    WarpRowFn row;
    WarpCheckFn inside;
};

// The row functions of the exported vector warps: the NEON rows, or the
// plain ones in a plain-only build.
WarpRowFn DefaultWarpRow();
WarpCheckFn DefaultWarpCheck();

// Band b of n: rows y + b * (h / n) up to the next band's start, in row
// pairs, an odd last row on its own. The h mod n rows after the last band
// are not warped. With an odd band height, a band starting on an odd row
// shares its first chroma row with the previous band's last row; that row
// is written by the previous band only, so no two threads write one byte.
void WarpBand(const WarpJob& job, int band, int bands);
// Whether band b of n reads only inside the source planes.
bool BandInside(const WarpJob& job, int band, int bands);

// The threaded warp of the job's area: every band checked on four threads,
// then warped on four threads (on this thread, as one band, when threads
// cannot be started). False, with nothing written, when a band would read
// outside the source planes. beforeWarp runs between the check and the
// warp (the NV12 border copy); onOneBand when the warp runs as one band on
// this thread.
bool RunWarpBands(const WarpJob& job, void (*beforeWarp)(void*), void (*onOneBand)(void*), void* context);

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

// Where a fill takes its bytes: a constant (plane null), or the same
// offset of another plane.
struct FillSource {
    const uint8_t* plane;
    uint8_t value;
};

// Copies (or sets) n bytes of a row at offset in dst from the source.
using FillSpanFn = void (*)(uint8_t* dst, const FillSource& s, size_t offset, size_t n);
void FillSpan_C(uint8_t* dst, const FillSource& s, size_t offset, size_t n);
#if !defined(BRIMVEL_PLAIN_ONLY)
void FillSpan_NEON(uint8_t* dst, const FillSource& s, size_t offset, size_t n);
#endif
// The span copy of the vector fills: FillSpan_NEON, or the plain one in a
// plain-only build.
FillSpanFn DefaultFillSpan();

// Checks a fill's pictures and area: the pictures and their planes set, and
// every byte the fill touches inside the destination's layout. Logs a line
// naming `func` otherwise. The source picture's own width and height are
// never read.
bool ValidFill(const char* func, FillKind kind, bool planar, const tagST_PIC* dst, const tagST_PIC* src, int x, int y,
               int w, int h);

// Which warp, for the checks: the rows a plain variant writes (row pairs,
// an odd h one row past the area) or the threaded ones (the bands' rows,
// never past y + h), and its fill.
struct WarpShape {
    bool planar;
    bool threaded;
    bool stride;  // pitches rounded up to 128
    FillKind fill;
};

// Checks a warp's records and layout: records and planes set; the first
// picture of a size that is not negative; the column loop able to end (an
// even, non-negative w whenever rows are warped); every byte written inside
// the planes of a frame of the first picture's size; and the fill's bytes
// inside both those planes and the destination's own layout. The source
// and destination's own width and height are not compared with the first
// picture's. The texels the matrix makes the warp read are checked apart,
// row by row (WarpRowInside_C). Logs a line naming `func` otherwise.
bool ValidWarp(const char* func, const WarpShape& shape, const tagST_PIC* ref, const tagST_PIC* src,
               const tagST_PIC* dst, const float* H, const tagST_REGISTRATION_AREA* area);

}  // namespace tocra

#endif
