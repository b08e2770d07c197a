// Mirror fill: the destination's own valid area reflected outward. The
// mirror is asymmetric on purpose: the left and top sides reflect about the
// first valid column or row without repeating it (row[x - d] = row[x + d]);
// the right and bottom sides reflect about the area's edge with the last
// valid column or row repeated (row[x + w + d] = row[x + w - 1 - d]).
#include <cstring>

#include "frame/log.h"
#include "frame/picture.h"
#include "warp/warp_internal.h"

namespace {

struct MirrorPlanes {
    uint8_t* y;
    uint8_t* u;
    uint8_t* v;
    int pitch;        // luma
    int chromaPitch;  // U and V
    int width;
    int height;
};

void MirrorRow(uint8_t* row, int x, int right, int rightLen) {
    for (int i = 0; i < x; ++i) row[i] = row[2 * x - i];
    for (int d = 0; d < rightLen; ++d) row[right + d] = row[right - 1 - d];
}

// Chroma rows: the left side reflects about the luma x (equal to twice the
// chroma edge for the even x callers pass).
void MirrorChromaRow(uint8_t* row, int x, int cx, int cright, int crightLen) {
    for (int i = 0; i < cx; ++i) row[i] = row[x - i];
    for (int d = 0; d < crightLen; ++d) row[cright + d] = row[cright - 1 - d];
}

void CopyRow(uint8_t* plane, int pitch, int to, int from) {
    memcpy_s(plane + static_cast<ptrdiff_t>(to) * pitch, static_cast<size_t>(pitch),
             plane + static_cast<ptrdiff_t>(from) * pitch, static_cast<size_t>(pitch));
}

// The mirror reads inside the picture only when each border is no wider
// than the valid area beside it; anything else is refused, since it would
// read outside the rows or planes.
bool ValidMirror(const char* func, const tagST_PIC* dst, int x, int y, int w, int h) {
    if (!tocra::ValidFillInput(func, dst, nullptr, x, y, w, h, true)) return false;
    const int64_t W = dst->width, H = dst->height;
    const int64_t right = static_cast<int64_t>(x) + w, bottom = static_cast<int64_t>(y) + h;
    const bool left = x == 0 || 2 * static_cast<int64_t>(x) < right;
    const bool rightOk = right == W || 2 * right - W >= x;
    const bool top = y == 0 || 2 * static_cast<int64_t>(y) < bottom;
    const bool bottomOk = bottom == H || 2 * bottom - H >= y;
    // The bottom chroma rows read back from row cb - 1 of their own count.
    const int64_t cb = (y >> 1) + (h >> 1);
    const int64_t bottomChroma = (H >> 1) - (bottom >> 1);
    const bool chroma = bottomChroma <= 0 || cb - bottomChroma >= 0;
    if (left && rightOk && top && bottomOk && chroma) return true;
    TOCRA_LOGE("%s invalid input: border wider than the area beside it\n", func);
    return false;
}

void Mirror(const MirrorPlanes& m, int x, int y, int w, int h) {
    const int right = x + w;
    const int rightLen = m.width - x - w;
    const int cx = x >> 1, cright = right >> 1, crightLen = (m.width - x - w) >> 1;
    // Area rows, in pairs, with the chroma row of each pair.
    for (int k = 0; y + 2 * k < y + h; ++k) {
        for (int j = 0; j < 2; ++j) {
            const int r = y + 2 * k + j;
            if (r < y + h) MirrorRow(m.y + static_cast<ptrdiff_t>(r) * m.pitch, x, right, rightLen);
        }
        const int cr = (y >> 1) + k;
        MirrorChromaRow(m.u + static_cast<ptrdiff_t>(cr) * m.chromaPitch, x, cx, cright, crightLen);
        MirrorChromaRow(m.v + static_cast<ptrdiff_t>(cr) * m.chromaPitch, x, cx, cright, crightLen);
    }
    // Top, whole rows.
    for (int i = 0; i < y; ++i) CopyRow(m.y, m.pitch, i, 2 * y - i);
    if (y >= 2) {
        for (int i = 0; i < (y >> 1); ++i) {
            CopyRow(m.u, m.chromaPitch, i, y - i);
            CopyRow(m.v, m.chromaPitch, i, y - i);
        }
    }
    // Bottom, whole rows.
    for (int r = y + h; r < m.height; ++r) CopyRow(m.y, m.pitch, r, 2 * (y + h) - 1 - r);
    const int cb = (y >> 1) + (h >> 1);
    for (int k = 0; ((y + h) >> 1) + k < (m.height >> 1); ++k) {
        CopyRow(m.u, m.chromaPitch, cb + k, cb - 1 - k);
        CopyRow(m.v, m.chromaPitch, cb + k, cb - 1 - k);
    }
}

}  // namespace

// Pitch `width` for luma, width / 2 for U and V.
extern "C" void FillBlank3(tagST_PIC* dst, int x, int y, int w, int h) {
    if (!ValidMirror("FillBlank3", dst, x, y, w, h)) return;
    Mirror(MirrorPlanes{dst->pY, dst->pU, dst->pV, dst->width, dst->width >> 1, dst->width, dst->height}, x, y, w, h);
}

// Pitch `stride` for luma; U and V use half the width rounded up to 128.
extern "C" void FillBlank3_Stride(tagST_PIC* dst, int x, int y, int w, int h) {
    if (!ValidMirror("FillBlank3_Stride", dst, x, y, w, h)) return;
    if (dst->stride < dst->width) {
        TOCRA_LOGE("%s invalid input: border wider than the area beside it\n", "FillBlank3_Stride");
        return;
    }
    Mirror(MirrorPlanes{dst->pY, dst->pU, dst->pV, dst->stride, tocra::Pitch128(dst->width >> 1), dst->width,
                        dst->height},
           x, y, w, h);
}
