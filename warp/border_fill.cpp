// Border fills that write every pixel outside the registration area with a
// constant (white luma, neutral chroma) or with the same pixels of a second
// picture, the unwarped source. Rows are walked in pairs, two luma rows with
// one chroma row per step: the top band (for an odd y up to y rounded up to
// even), the area band (only the columns left and right of the area), then
// the bottom band.
#include <cstring>

#include "frame/log.h"
#include "frame/neon.h"
#include "warp/warp_internal.h"

namespace tocra {

bool ValidFillInput(const char* func, const tagST_PIC* dst, const tagST_PIC* src, int x, int y, int w, int h,
                    bool planar) {
    bool ok = dst != nullptr && dst->width > 0 && dst->height > 0 && (dst->height & 1) == 0 && dst->pY != nullptr &&
              dst->pU != nullptr && (!planar || dst->pV != nullptr);
    if (ok && src != nullptr) {
        ok = src->width == dst->width && src->height == dst->height && src->pY != nullptr && src->pU != nullptr &&
             (!planar || src->pV != nullptr);
    }
    ok = ok && x >= 0 && y >= 0 && w >= 0 && h >= 0 && static_cast<int64_t>(x) + w <= dst->width &&
         static_cast<int64_t>(y) + h <= dst->height;
    if (!ok) TOCRA_LOGE("%s invalid input: picture or area out of range\n", func);
    return ok;
}

}  // namespace tocra

using namespace tocra;

namespace {

// Where a fill takes its bytes: a constant, or the same place of another
// plane.
struct Source {
    const uint8_t* plane;  // null: the constant
    uint8_t value;
};

// Row copies: the plain form, and the vector form that moves 32 bytes (luma)
// or 16 bytes (chroma) per step.
void FillSpanPlain(uint8_t* dst, const Source& s, size_t offset, size_t n) {
    if (n == 0) return;
    if (s.plane == nullptr) {
        memset(dst + offset, s.value, n);
    } else {
        memcpy(dst + offset, s.plane + offset, n);
    }
}

void FillSpanNeon(uint8_t* dst, const Source& s, size_t offset, size_t n) {
    if (s.plane == nullptr) {
        FillSpanPlain(dst, s, offset, n);
        return;
    }
    uint8_t* d = dst + offset;
    const uint8_t* p = s.plane + offset;
    size_t i = 0;
    for (; i + 32 <= n; i += 32) {
        vst1q_u8(d + i, vld1q_u8(p + i));
        vst1q_u8(d + i + 16, vld1q_u8(p + i + 16));
    }
    for (; i + 16 <= n; i += 16) vst1q_u8(d + i, vld1q_u8(p + i));
    for (; i < n; ++i) d[i] = p[i];
}

using SpanFn = void (*)(uint8_t*, const Source&, size_t, size_t);

// The planes of one fill: luma pitch `width`; planar chroma pitch width / 2,
// NV12 chroma pitch `width`.
struct FillPlanes {
    uint8_t* y;
    uint8_t* u;
    uint8_t* v;  // null for NV12
    Source sy, su, sv;
    int width;
    int height;
};

void FillWholeRows(const FillPlanes& f, int r, SpanFn span) {
    const size_t w = static_cast<size_t>(f.width);
    span(f.y, f.sy, static_cast<size_t>(r) * w, w);
    span(f.y, f.sy, static_cast<size_t>(r + 1) * w, w);
    if (f.v != nullptr) {
        const size_t cw = w >> 1;
        span(f.u, f.su, static_cast<size_t>(r >> 1) * cw, cw);
        span(f.v, f.sv, static_cast<size_t>(r >> 1) * cw, cw);
    } else {
        span(f.u, f.su, static_cast<size_t>(r >> 1) * w, w);
    }
}

void FillSideColumns(const FillPlanes& f, int r, int x, int w, SpanFn span) {
    const size_t pitch = static_cast<size_t>(f.width);
    const size_t right = static_cast<size_t>(x + w);
    const size_t rightLen = pitch - right;
    for (int j = 0; j < 2; ++j) {
        const size_t row = static_cast<size_t>(r + j) * pitch;
        span(f.y, f.sy, row, static_cast<size_t>(x));
        span(f.y, f.sy, row + right, rightLen);
    }
    if (f.v != nullptr) {
        const size_t cpitch = pitch >> 1;
        const size_t row = static_cast<size_t>(r >> 1) * cpitch;
        const size_t cx = static_cast<size_t>(x >> 1);
        const size_t cr = right >> 1;
        const size_t crLen = static_cast<size_t>((f.width - w - x) >> 1);
        span(f.u, f.su, row, cx);
        span(f.u, f.su, row + cr, crLen);
        span(f.v, f.sv, row, cx);
        span(f.v, f.sv, row + cr, crLen);
    } else {
        const size_t row = static_cast<size_t>(r >> 1) * pitch;
        span(f.u, f.su, row, static_cast<size_t>(x));
        span(f.u, f.su, row + right, rightLen);
    }
}

// topRows: luma rows of the top band (y rounded up to even for the plain
// forms, down for the vector forms).
void FillBorder(const FillPlanes& f, int topRows, int x, int y, int w, int h, SpanFn span) {
    int r = 0;
    for (; r < topRows; r += 2) FillWholeRows(f, r, span);
    for (; r < y + h; r += 2) FillSideColumns(f, r, x, w, span);
    for (; r < f.height; r += 2) FillWholeRows(f, r, span);
}

FillPlanes PlanesOf(tagST_PIC* dst, const tagST_PIC* src, bool planar) {
    FillPlanes f{};
    f.y = dst->pY;
    f.u = dst->pU;
    f.v = planar ? dst->pV : nullptr;
    if (src != nullptr) {
        f.sy = {src->pY, 0};
        f.su = {src->pU, 0};
        f.sv = {planar ? src->pV : nullptr, 0};
    } else {
        f.sy = {nullptr, 255};
        f.su = {nullptr, 128};
        f.sv = {nullptr, 128};
    }
    f.width = dst->width;
    f.height = dst->height;
    return f;
}

int RoundUpEven(int y) { return y + (y & 1); }

}  // namespace

extern "C" void FillBlank2(tagST_PIC* dst, int x, int y, int w, int h) {
    if (!ValidFillInput("FillBlank2", dst, nullptr, x, y, w, h, true)) return;
    FillBorder(PlanesOf(dst, nullptr, true), RoundUpEven(y), x, y, w, h, FillSpanPlain);
}

extern "C" void FillBlank_YUV420(tagST_PIC* dst, tagST_PIC* src, int x, int y, int w, int h) {
    if (src == nullptr || !ValidFillInput("FillBlank_YUV420", dst, src, x, y, w, h, true)) {
        if (src == nullptr) TOCRA_LOGE("%s invalid input: picture or area out of range\n", "FillBlank_YUV420");
        return;
    }
    FillBorder(PlanesOf(dst, src, true), RoundUpEven(y), x, y, w, h, FillSpanPlain);
}

extern "C" void FillBlank_NV12(tagST_PIC* dst, tagST_PIC* src, int x, int y, int w, int h) {
    if (src == nullptr || !ValidFillInput("FillBlank_NV12", dst, src, x, y, w, h, false)) {
        if (src == nullptr) TOCRA_LOGE("%s invalid input: picture or area out of range\n", "FillBlank_NV12");
        return;
    }
    FillBorder(PlanesOf(dst, src, false), RoundUpEven(y), x, y, w, h, FillSpanPlain);
}

// The vector forms split the top band as y / 2 chroma rows and 2 * (y / 2)
// luma rows: the same as the plain forms for the even y that callers pass.
extern "C" void FillBlank_neon_YUV420(tagST_PIC* dst, tagST_PIC* src, int x, int y, int w, int h) {
    if (src == nullptr || !ValidFillInput("FillBlank_neon_YUV420", dst, src, x, y, w, h, true)) {
        if (src == nullptr) TOCRA_LOGE("%s invalid input: picture or area out of range\n", "FillBlank_neon_YUV420");
        return;
    }
    FillBorder(PlanesOf(dst, src, true), 2 * (y >> 1), x, y, w, h, FillSpanNeon);
}

extern "C" void FillBlank_neon_NV12(tagST_PIC* dst, tagST_PIC* src, int x, int y, int w, int h) {
    if (src == nullptr || !ValidFillInput("FillBlank_neon_NV12", dst, src, x, y, w, h, false)) {
        if (src == nullptr) TOCRA_LOGE("%s invalid input: picture or area out of range\n", "FillBlank_neon_NV12");
        return;
    }
    FillBorder(PlanesOf(dst, src, false), 2 * (y >> 1), x, y, w, h, FillSpanNeon);
}
