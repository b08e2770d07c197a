// Border fills that write every pixel outside the registration area with a
// constant (white luma, neutral chroma) or with the same pixels of a second
// picture, the unwarped source. Rows are walked in pairs, two luma rows with
// one chroma row per step: the top band (for an odd y up to y rounded up to
// even), the area band (only the columns left and right of the area), then
// the bottom band.
#include <cstring>

#include "frame/log.h"
#include "warp/warp_internal.h"

namespace tocra {

// Row copies: the plain form copies (or sets) the run with the C library;
// the vector form (border_fill_neon.cpp) moves whole vectors and hands the
// rest of the run to the plain form.
void FillSpan_C(uint8_t* dst, const FillSource& s, size_t offset, size_t n) {
    if (n == 0) return;
    if (s.plane == nullptr) {
        memset(dst + offset, s.value, n);
    } else {
        memcpy(dst + offset, s.plane + offset, n);
    }
}

FillSpanFn DefaultFillSpan() {
#if defined(BRIMVEL_PLAIN_ONLY)
    return FillSpan_C;
#else
    return FillSpan_NEON;
#endif
}

}  // namespace tocra

namespace {

using tocra::FillSource;
using tocra::FlatOffset;

// The rows of one fill: luma pitch `width`; planar chroma pitch width / 2,
// NV12 chroma pitch `width`. Runs go to span(plane, offset, n) with plane 0
// luma, 1 U (or the interleaved plane) and 2 V.
struct FillRows {
    int64_t width;
    int64_t height;
    bool planar;
};

template <typename Span>
void WholeRows(const FillRows& f, int64_t r, Span& span) {
    const int64_t w = f.width;
    span(0, FlatOffset(r, w, 0), w);
    span(0, FlatOffset(r + 1, w, 0), w);
    if (f.planar) {
        const int64_t cw = w >> 1;
        span(1, FlatOffset(r >> 1, cw, 0), cw);
        span(2, FlatOffset(r >> 1, cw, 0), cw);
    } else {
        span(1, FlatOffset(r >> 1, w, 0), w);
    }
}

template <typename Span>
void SideColumns(const FillRows& f, int64_t r, int64_t x, int64_t w, Span& span) {
    const int64_t pitch = f.width;
    const int64_t right = x + w;
    const int64_t rightLen = pitch - right;
    for (int j = 0; j < 2; ++j) {
        span(0, FlatOffset(r + j, pitch, 0), x);
        span(0, FlatOffset(r + j, pitch, right), rightLen);
    }
    if (f.planar) {
        const int64_t cpitch = pitch >> 1;
        const int64_t crLen = (f.width - w - x) >> 1;
        for (int plane = 1; plane <= 2; ++plane) {
            span(plane, FlatOffset(r >> 1, cpitch, 0), x >> 1);
            span(plane, FlatOffset(r >> 1, cpitch, right >> 1), crLen);
        }
    } else {
        span(1, FlatOffset(r >> 1, pitch, 0), x);
        span(1, FlatOffset(r >> 1, pitch, right), rightLen);
    }
}

// The three bands in row pairs: the top band (topRows luma rows, an even
// number: y rounded up to even for the plain forms, down for the vector
// forms), the area band (only the columns beside the area) while the row is
// below y + h, the bottom band up to the height. With endsOnly, only the
// first and last row pair of each band: the offsets grow linearly with the
// row, so those two bound every run of the band.
template <typename Span>
void WalkFill(const FillRows& f, int64_t topRows, int64_t x, int64_t y, int64_t w, int64_t h, bool endsOnly,
              Span& span) {
    auto band = [&](int64_t from, int64_t to, bool whole) {
        auto pair = [&](int64_t r) {
            if (whole) {
                WholeRows(f, r, span);
            } else {
                SideColumns(f, r, x, w, span);
            }
        };
        if (from >= to) return;
        if (endsOnly) {
            pair(from);
            if (to - 2 > from) pair(to - 2);
            return;
        }
        for (int64_t r = from; r < to; r += 2) pair(r);
    };
    // Where each loop of row pairs stops.
    auto stop = [](int64_t from, int64_t limit) {
        return limit > from ? from + (limit - from) + ((limit - from) & 1) : from;
    };
    const int64_t r1 = stop(0, topRows);
    const int64_t r2 = stop(r1, y + h);
    const int64_t r3 = stop(r2, f.height);
    band(0, r1, true);
    band(r1, r2, false);
    band(r2, r3, true);
}

int64_t TopRows(tocra::FillKind kind, int y) {
    if (kind == tocra::FillKind::kCopyNeon) return 2 * static_cast<int64_t>(y >> 1);
    return static_cast<int64_t>(y) + (y & 1);
}

// Runs a checked fill.
void Fill(tocra::FillKind kind, tagST_PIC* dst, const tagST_PIC* src, bool planar, int x, int y, int w, int h) {
    uint8_t* planes[3] = {dst->pY, dst->pU, planar ? dst->pV : nullptr};
    FillSource sources[3];
    if (src != nullptr) {
        sources[0] = {src->pY, 0};
        sources[1] = {src->pU, 0};
        sources[2] = {planar ? src->pV : nullptr, 0};
    } else {
        sources[0] = {nullptr, 255};
        sources[1] = {nullptr, 128};
        sources[2] = {nullptr, 128};
    }
    const tocra::FillSpanFn fn = kind == tocra::FillKind::kCopyNeon ? tocra::DefaultFillSpan() : tocra::FillSpan_C;
    auto span = [&](int plane, int64_t offset, int64_t n) {
        fn(planes[plane], sources[plane], static_cast<size_t>(offset), static_cast<size_t>(n));
    };
    const FillRows f{dst->width, dst->height, planar};
    WalkFill(f, TopRows(kind, y), x, y, w, h, false, span);
}

}  // namespace

namespace tocra {

void CopyFillSpans(FillKind kind, bool planar, const tagST_PIC* dst, int x, int y, int w, int h, PlaneSpan* luma,
                   PlaneSpan* chroma) {
    auto span = [&](int plane, int64_t offset, int64_t n) { (plane == 0 ? luma : chroma)->Add(offset, n); };
    const FillRows f{dst->width, dst->height, planar};
    WalkFill(f, TopRows(kind, y), x, y, w, h, true, span);
}

}  // namespace tocra

using tocra::FillKind;
using tocra::ValidFill;

// Every byte these fills read or write is checked against the destination's
// layout first (pitch `width`, `height` rows; the source laid out alike);
// anything else runs exactly as the bands say, including an area that
// reaches past a row's end into the next row of the plane, an odd y (the
// top band of the plain forms covers y rounded up to even) and a negative h
// (no area band: top and bottom bands cover the picture).

extern "C" void FillBlank2(tagST_PIC* dst, int x, int y, int w, int h) {
    if (!ValidFill("FillBlank2", FillKind::kConstant, true, dst, nullptr, x, y, w, h)) return;
    Fill(FillKind::kConstant, dst, nullptr, true, x, y, w, h);
}

extern "C" void FillBlank_YUV420(tagST_PIC* dst, tagST_PIC* src, int x, int y, int w, int h) {
    if (!ValidFill("FillBlank_YUV420", FillKind::kCopy, true, dst, src, x, y, w, h)) return;
    Fill(FillKind::kCopy, dst, src, true, x, y, w, h);
}

extern "C" void FillBlank_NV12(tagST_PIC* dst, tagST_PIC* src, int x, int y, int w, int h) {
    if (!ValidFill("FillBlank_NV12", FillKind::kCopy, false, dst, src, x, y, w, h)) return;
    Fill(FillKind::kCopy, dst, src, false, x, y, w, h);
}

// The vector forms split the top band as y / 2 chroma rows and 2 * (y / 2)
// luma rows: the same as the plain forms for the even y that callers pass.
extern "C" void FillBlank_neon_YUV420(tagST_PIC* dst, tagST_PIC* src, int x, int y, int w, int h) {
    if (!ValidFill("FillBlank_neon_YUV420", FillKind::kCopyNeon, true, dst, src, x, y, w, h)) return;
    Fill(FillKind::kCopyNeon, dst, src, true, x, y, w, h);
}

extern "C" void FillBlank_neon_NV12(tagST_PIC* dst, tagST_PIC* src, int x, int y, int w, int h) {
    if (!ValidFill("FillBlank_neon_NV12", FillKind::kCopyNeon, false, dst, src, x, y, w, h)) return;
    Fill(FillKind::kCopyNeon, dst, src, false, x, y, w, h);
}
