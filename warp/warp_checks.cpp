// The checks of the warp and fill entry points: the byte ranges a call
// would read and write, against the planes its pictures describe.
#include "frame/log.h"
#include "frame/picture.h"
#include "warp/warp_internal.h"

namespace tocra {

namespace {

constexpr int64_t kFar = INT64_C(1) << 62;

inline int64_t NotNegative(int64_t v) { return v < 0 ? 0 : v; }

}  // namespace

void PlaneSpan::Add(int64_t offset, int64_t n) {
    if (n < 0) {
        negative = true;
        return;
    }
    if (n == 0) return;
    if (offset < lo) lo = offset;
    if (offset + n > hi) hi = offset + n;
}

bool PlaneSpan::Inside(int64_t size) const {
    if (negative) return false;
    if (lo > hi) return true;  // nothing touched
    return lo >= 0 && hi <= size;
}

ReadLimits SourceLimits(const WarpPlanes& p) {
    const int64_t luma = static_cast<int64_t>(p.pitch) * p.rows;
    const int64_t chroma = static_cast<int64_t>(p.chromaPitch) * (p.rows >> 1);
    // Compared as addresses: planes in separate blocks are never joined.
    const uintptr_t y = reinterpret_cast<uintptr_t>(p.srcY), u = reinterpret_cast<uintptr_t>(p.srcU),
                    v = reinterpret_cast<uintptr_t>(p.srcV);
    const bool yu = luma >= 0 && u == y + static_cast<uint64_t>(luma);
    const bool uv = !p.nv12 && chroma >= 0 && v == u + static_cast<uint64_t>(chroma);
    ReadLimits lim{0, luma, 0, chroma};
    if (p.nv12) {
        if (yu) {
            lim.lumaHi += chroma;
            lim.chromaLo = -luma;
        }
        return lim;
    }
    if (yu) lim.lumaHi += uv ? 2 * chroma : chroma;
    // U and V are read at the same offset, so the offsets inside both: from
    // the luma's start (both joined) up to V's end, the frame's end.
    if (yu && uv) lim.chromaLo = -luma;
    return lim;
}

int64_t FlatOffset(int64_t row, int64_t pitch, int64_t col) {
    int64_t t;
    if (__builtin_mul_overflow(row, pitch, &t) || __builtin_add_overflow(t, col, &t) || t > kFar || t < -kFar)
        return kFar;
    return t;
}

void CopyFillSpans(FillKind kind, bool planar, const tagST_PIC* dst, int x, int y, int w, int h, PlaneSpan* luma,
                   PlaneSpan* chroma);
void MirrorSpans(FillKind kind, const tagST_PIC* dst, int x, int y, int w, int h, PlaneSpan* luma, PlaneSpan* chroma);

void FillSpans(FillKind kind, bool planar, const tagST_PIC* dst, int x, int y, int w, int h, PlaneSpan* luma,
               PlaneSpan* chroma) {
    if (kind == FillKind::kMirror || kind == FillKind::kMirrorStride) {
        MirrorSpans(kind, dst, x, y, w, h, luma, chroma);
    } else {
        CopyFillSpans(kind, planar, dst, x, y, w, h, luma, chroma);
    }
}

PlaneSizes FillPlaneSizes(FillKind kind, bool planar, const tagST_PIC* dst) {
    const int64_t W = NotNegative(dst->width), rows = NotNegative(dst->height);
    if (kind == FillKind::kMirrorStride) {
        const int64_t chromaPitch = dst->width < 0 ? 0 : Pitch128(dst->width >> 1);
        return {NotNegative(dst->stride) * rows, chromaPitch * (rows >> 1)};
    }
    return {W * rows, (planar ? (W >> 1) : W) * (rows >> 1)};
}

bool ValidFill(const char* func, FillKind kind, bool planar, const tagST_PIC* dst, const tagST_PIC* src, int x, int y,
               int w, int h) {
    const bool copies = kind == FillKind::kCopy || kind == FillKind::kCopyNeon;
    bool ok = dst != nullptr && dst->pY != nullptr && dst->pU != nullptr && (!planar || dst->pV != nullptr);
    if (ok && copies) {
        ok = src != nullptr && src->pY != nullptr && src->pU != nullptr && (!planar || src->pV != nullptr);
    }
    if (ok) {
        PlaneSpan luma, chroma;
        FillSpans(kind, planar, dst, x, y, w, h, &luma, &chroma);
        const PlaneSizes sizes = FillPlaneSizes(kind, planar, dst);
        ok = luma.Inside(sizes.luma) && chroma.Inside(sizes.chroma);
    }
    if (!ok) TOCRA_LOGE("%s invalid input: picture or area out of range\n", func);
    return ok;
}

bool ValidWarp(const char* func, const WarpShape& shape, const tagST_PIC* ref, const tagST_PIC* src,
               const tagST_PIC* dst, const float* H, const tagST_REGISTRATION_AREA* area) {
    const bool planar = shape.planar;
    bool ok = ref != nullptr && src != nullptr && dst != nullptr && H != nullptr && area != nullptr;
    ok = ok && src->pY != nullptr && src->pU != nullptr && dst->pY != nullptr && dst->pU != nullptr &&
         (!planar || (src->pV != nullptr && dst->pV != nullptr));
    // A frame of negative size has no planes.
    ok = ok && ref->width >= 0 && ref->height >= 0;
    if (ok) {
        const int64_t W = ref->width, rows = ref->height;
        const int64_t pitch = shape.stride ? Pitch128(ref->width) : W;
        const int64_t chromaPitch = !planar ? pitch : shape.stride ? Pitch128(static_cast<int>(pitch >> 1)) : W >> 1;
        const PlaneSizes frame{pitch * rows, chromaPitch * (rows >> 1)};
        const int64_t x = area->x, y = area->y, w = area->width, h = area->height;

        // Rows written: the plain variants warp row pairs (an odd h writes
        // the row after the area); the bands never pass y + h.
        const int64_t warped = h <= 0 ? 0 : shape.threaded ? h : h + (h & 1);
        PlaneSpan luma, chroma;
        if (warped > 0) {
            // The column loop ends only on c == x + w; its int counters must
            // reach the area's last column and row without overflowing.
            ok = w >= 0 && (w & 1) == 0 && x + w <= INT32_MAX && y + warped <= INT32_MAX;
            // The vector rows take one column-table vector per eight columns.
            const int64_t tableVectors = pitch / 8;
            if (shape.threaded) ok = ok && (w >> 3) <= tableVectors;
            if (ok && w > 0) {
                const int64_t last = y + warped - 1;
                luma.Add(FlatOffset(y, pitch, x), w);
                luma.Add(FlatOffset(last, pitch, x), w);
                // One chroma sample (planar) or pair (NV12) per 2 x 2 block.
                const int64_t c0 = planar ? (x >> 1) : x;
                const int64_t cn = planar ? ((x + w - 2) >> 1) + 1 - (x >> 1) : w;
                chroma.Add(FlatOffset(y >> 1, chromaPitch, c0), cn);
                chroma.Add(FlatOffset(last >> 1, chromaPitch, c0), cn);
            }
        }
        // The fill around the area, with the destination's own fields (the
        // stride variant sets the stride first).
        tagST_PIC filled = *dst;
        if (shape.stride) filled.stride = static_cast<int32_t>(pitch);
        PlaneSpan fillLuma, fillChroma;
        FillSpans(shape.fill, planar, &filled, area->x, area->y, area->width, area->height, &fillLuma, &fillChroma);
        const PlaneSizes own = FillPlaneSizes(shape.fill, planar, &filled);
        ok = ok && luma.Inside(frame.luma) && chroma.Inside(frame.chroma) && fillLuma.Inside(frame.luma) &&
             fillChroma.Inside(frame.chroma) && fillLuma.Inside(own.luma) && fillChroma.Inside(own.chroma);
    }
    if (!ok) {
        TOCRA_LOGE("%s invalid input: picture, matrix or area out of range\n", func);
        return false;
    }
    return true;
}

}  // namespace tocra
