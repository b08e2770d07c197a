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

// Checks that the pictures, matrix and area describe a warp that stays
// inside every plane: all pointers set, equal sizes, even height, the area
// inside the picture with even x and w, and the rows a plain warp writes
// (an odd h writes one row past the area) inside the picture. Logs a line
// naming `func` and returns false otherwise.
bool ValidWarpInput(const char* func, const tagST_PIC* ref, const tagST_PIC* src, const tagST_PIC* dst,
                    const float* H, const tagST_REGISTRATION_AREA* area, bool planar);

// Checks a fill's picture(s) and area: pointers set, positive even height,
// the area inside the picture. Logs a line naming `func` otherwise.
bool ValidFillInput(const char* func, const tagST_PIC* dst, const tagST_PIC* src, int x, int y, int w, int h,
                    bool planar);

}  // namespace tocra

#endif
