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

using tocra::FlatOffset;
using tocra::PlaneSpan;

struct MirrorGeometry {
    int64_t pitch;        // luma
    int64_t chromaPitch;  // U and V
    int64_t width;
    int64_t height;
};

// The work on the planes, done (Apply) or only measured (Measure). Plane 0
// is luma, 1 and 2 are U and V.
//  Row:       row[i] = row[2x - i] for i < x; row[right + d] = row[right - 1 - d]
//             for d < rightLen.
//  ChromaRow: chroma[i] = chroma[x - i] for i < cx (about the luma x, equal to
//             twice the chroma edge for the even x callers pass); the right
//             side as for luma with the chroma edge and width.
//  Copy:      a whole row of `pitch` bytes from row `from` to row `to`.
struct Apply {
    uint8_t* planes[3];
    int64_t pitch, chromaPitch;

    void Row(int64_t row, int64_t x, int64_t right, int64_t rightLen) const {
        uint8_t* p = planes[0] + FlatOffset(row, pitch, 0);
        for (int64_t i = 0; i < x; ++i) p[i] = p[2 * x - i];
        for (int64_t d = 0; d < rightLen; ++d) p[right + d] = p[right - 1 - d];
    }
    void ChromaRow(int plane, int64_t row, int64_t x, int64_t cx, int64_t cright, int64_t crightLen) const {
        uint8_t* p = planes[plane] + FlatOffset(row, chromaPitch, 0);
        for (int64_t i = 0; i < cx; ++i) p[i] = p[x - i];
        for (int64_t d = 0; d < crightLen; ++d) p[cright + d] = p[cright - 1 - d];
    }
    void Copy(int plane, int64_t to, int64_t from) const {
        const int64_t rowBytes = plane == 0 ? pitch : chromaPitch;
        memcpy_s(planes[plane] + FlatOffset(to, rowBytes, 0), static_cast<size_t>(rowBytes),
                 planes[plane] + FlatOffset(from, rowBytes, 0), static_cast<size_t>(rowBytes));
    }
};

struct Measure {
    PlaneSpan* luma;
    PlaneSpan* chroma;
    int64_t pitch, chromaPitch;

    // A side of a mirrored row: n bytes written at `to`, n read from `from`
    // upward (the reversed order does not change the range).
    static void Side(PlaneSpan* s, int64_t row, int64_t rowPitch, int64_t to, int64_t from, int64_t n) {
        if (n <= 0) return;  // the loop does not run
        s->Add(FlatOffset(row, rowPitch, to), n);
        s->Add(FlatOffset(row, rowPitch, from), n);
    }
    void Row(int64_t row, int64_t x, int64_t right, int64_t rightLen) const {
        Side(luma, row, pitch, 0, x + 1, x);
        Side(luma, row, pitch, right, right - rightLen, rightLen);
    }
    void ChromaRow(int, int64_t row, int64_t x, int64_t cx, int64_t cright, int64_t crightLen) const {
        Side(chroma, row, chromaPitch, 0, x - cx + 1, cx);
        Side(chroma, row, chromaPitch, cright, cright - crightLen, crightLen);
    }
    void Copy(int plane, int64_t to, int64_t from) const {
        const int64_t rowBytes = plane == 0 ? pitch : chromaPitch;
        if (rowBytes <= 0) return;  // memcpy_s refuses a size of 0 without touching anything
        PlaneSpan* s = plane == 0 ? luma : chroma;
        s->Add(FlatOffset(to, rowBytes, 0), rowBytes);
        s->Add(FlatOffset(from, rowBytes, 0), rowBytes);
    }
};

// Calls f(i) for i = from .. to - 1, or with endsOnly just for the first and
// the last (the offsets are linear in i, so those bound the others).
template <typename F>
void ForRange(int64_t from, int64_t to, bool endsOnly, F&& f) {
    if (from >= to) return;
    if (!endsOnly) {
        for (int64_t i = from; i < to; ++i) f(i);
        return;
    }
    f(from);
    if (to - 1 > from) f(to - 1);
}

template <typename Access>
void Mirror(const MirrorGeometry& m, int64_t x, int64_t y, int64_t w, int64_t h, bool endsOnly, const Access& a) {
    const int64_t right = x + w;
    const int64_t rightLen = m.width - x - w;
    const int64_t cx = x >> 1, cright = right >> 1, crightLen = (m.width - x - w) >> 1;
    // Area rows, in pairs, with the chroma row of each pair.
    auto chromaRow = [&](int64_t k) {
        a.ChromaRow(1, (y >> 1) + k, x, cx, cright, crightLen);
        a.ChromaRow(2, (y >> 1) + k, x, cx, cright, crightLen);
    };
    if (endsOnly) {
        ForRange(y, y + h, true, [&](int64_t r) { a.Row(r, x, right, rightLen); });
        ForRange(0, h > 0 ? (h + 1) / 2 : 0, true, chromaRow);
    } else {
        for (int64_t k = 0; 2 * k < h; ++k) {
            for (int j = 0; j < 2; ++j) {
                const int64_t r = y + 2 * k + j;
                if (r < y + h) a.Row(r, x, right, rightLen);
            }
            chromaRow(k);
        }
    }
    // Top, whole rows.
    ForRange(0, y, endsOnly, [&](int64_t i) { a.Copy(0, i, 2 * y - i); });
    if (y >= 2) {
        ForRange(0, y >> 1, endsOnly, [&](int64_t i) {
            a.Copy(1, i, y - i);
            a.Copy(2, i, y - i);
        });
    }
    // Bottom, whole rows.
    ForRange(y + h, m.height, endsOnly, [&](int64_t r) { a.Copy(0, r, 2 * (y + h) - 1 - r); });
    const int64_t cb = (y >> 1) + (h >> 1);
    ForRange(0, (m.height >> 1) - ((y + h) >> 1), endsOnly, [&](int64_t k) {
        a.Copy(1, cb + k, cb - 1 - k);
        a.Copy(2, cb + k, cb - 1 - k);
    });
}

MirrorGeometry GeometryOf(tocra::FillKind kind, const tagST_PIC* dst) {
    if (kind == tocra::FillKind::kMirrorStride) {
        const int64_t chromaPitch = dst->width < 0 ? 0 : tocra::Pitch128(dst->width >> 1);
        return {dst->stride, chromaPitch, dst->width, dst->height};
    }
    return {dst->width, dst->width >> 1, dst->width, dst->height};
}

void Run(tocra::FillKind kind, tagST_PIC* dst, int x, int y, int w, int h) {
    const MirrorGeometry m = GeometryOf(kind, dst);
    const Apply a{{dst->pY, dst->pU, dst->pV}, m.pitch, m.chromaPitch};
    Mirror(m, x, y, w, h, false, a);
}

}  // namespace

namespace tocra {

void MirrorSpans(FillKind kind, const tagST_PIC* dst, int x, int y, int w, int h, PlaneSpan* luma, PlaneSpan* chroma) {
    const MirrorGeometry m = GeometryOf(kind, dst);
    const Measure a{luma, chroma, m.pitch, m.chromaPitch};
    Mirror(m, x, y, w, h, true, a);
}

}  // namespace tocra

// Every byte the mirror reads or writes is checked against the picture's
// layout first; a border wider than the area beside it reads on into the
// next or previous row of the plane, or into bytes the mirror has already
// written, exactly as the loops say, as long as it stays inside the planes.

// Pitch `width` for luma, width / 2 for U and V.
extern "C" void FillBlank3(tagST_PIC* dst, int x, int y, int w, int h) {
    if (!tocra::ValidFill("FillBlank3", tocra::FillKind::kMirror, true, dst, nullptr, x, y, w, h)) return;
    Run(tocra::FillKind::kMirror, dst, x, y, w, h);
}

// Pitch `stride` for luma; U and V use half the width rounded up to 128.
extern "C" void FillBlank3_Stride(tagST_PIC* dst, int x, int y, int w, int h) {
    if (!tocra::ValidFill("FillBlank3_Stride", tocra::FillKind::kMirrorStride, true, dst, nullptr, x, y, w, h)) return;
    Run(tocra::FillKind::kMirrorStride, dst, x, y, w, h);
}
