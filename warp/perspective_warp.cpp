// Perspective warp of a YUV 4:2:0 frame onto the reference grid: the plain
// block arithmetic, the input checks, and the single-threaded variants with
// their dispatcher.
//
// A destination position (c, r) maps to the source position (X / D, Y / D)
// with X = h0 c + h1 r + h2, Y = h3 c + h4 r + h5, D = h6 c + h7 r + 1. The
// reciprocal of D is taken once per run of eight columns and held for the
// run. Luma is processed in 2x2 blocks: only the block's top-left pixel is
// mapped; its four outputs share the 7-bit fractions and step the integer
// base by one pixel. Chroma is the nearest sample of the block's mapping.
#include <cmath>
#include <cstring>

#include "frame/log.h"
#include "warp/warp_internal.h"

namespace tocra {

namespace {

// Float to int by truncation toward zero, saturating like the ARM
// conversion (NaN gives 0), so that no input is undefined.
inline int32_t TruncSat(float v) {
    if (!(v == v)) return 0;
    if (v >= 2147483648.0f) return INT32_MAX;
    if (v <= -2147483648.0f) return INT32_MIN;
    return static_cast<int32_t>(v);
}

// 7-bit fraction |s - i| * 128, truncated. It is below 128 for every
// position that fits an int; far-away (or NaN) positions clamp to 127 so
// that the blend stays in range.
inline int32_t Fraction(float s, int32_t i) {
    const float f = std::fabs(s - static_cast<float>(i)) * 128.0f;
    if (!(f < 127.0f)) return f == f ? 127 : 0;
    return static_cast<int32_t>(f);
}

// Reads inside [0, size): an index outside the plane takes the nearest
// byte of the plane. Every index that the valid area and matrix produce is
// inside, and reads it as it is.
inline uint8_t ReadClamped(const uint8_t* plane, int64_t size, int64_t index) {
    if (index < 0) index = 0;
    if (index >= size) index = size - 1;
    return plane[index];
}

inline uint8_t Blend(int32_t a, int32_t b, int32_t c, int32_t d, int32_t fx, int32_t fy) {
    const int32_t top = (128 - fx) * a + fx * b;
    const int32_t bottom = (128 - fx) * c + fx * d;
    return static_cast<uint8_t>((((top + 32) >> 6) * (128 - fy) + ((bottom + 32) >> 6) * fy + 128) >> 8);
}

}  // namespace

// One block, from its exact mapping (sx, sy), with reads kept inside the
// planes.
void WarpBlockPlain(const WarpPlanes& p, int c, int r, float sx, float sy, bool twoRows, bool writeChroma) {
    const int32_t ix = TruncSat(sx), iy = TruncSat(sy);
    const int32_t fx = Fraction(sx, ix), fy = Fraction(sy, iy);
    const int64_t pitch = p.pitch;
    const int64_t size = pitch * p.rows;
    for (int j = 0; j < (twoRows ? 2 : 1); ++j) {
        uint8_t* out = p.dstY + (static_cast<int64_t>(r) + j) * pitch + c;
        for (int i = 0; i < 2; ++i) {
            const int64_t base = (static_cast<int64_t>(iy) + j) * pitch + ix + i;
            out[i] = Blend(ReadClamped(p.srcY, size, base), ReadClamped(p.srcY, size, base + 1),
                           ReadClamped(p.srcY, size, base + pitch), ReadClamped(p.srcY, size, base + pitch + 1), fx,
                           fy);
        }
    }
    const int64_t cpitch = p.chromaPitch;
    const int64_t csize = cpitch * (p.rows >> 1);
    if (csize <= 0 || !writeChroma) return;
    if (p.nv12) {
        int64_t index = ((static_cast<int64_t>(ix) + 1) & ~int64_t{1}) + cpitch * ((static_cast<int64_t>(iy) + 1) >> 1);
        if (index < 0) index = 0;
        if (index > csize - 2) index = csize - 2;
        uint8_t* out = p.dstU + (r >> 1) * cpitch + c;
        out[0] = p.srcU[index];
        out[1] = p.srcU[index + 1];
    } else {
        const int64_t cx = (static_cast<int64_t>(ix) + 1) >> 1;
        const int64_t cy = (static_cast<int64_t>(iy) + 1) >> 1;
        const int64_t index = cy * cpitch + cx;
        const int64_t out = (r >> 1) * cpitch + (c >> 1);
        p.dstU[out] = ReadClamped(p.srcU, csize, index);
        p.dstV[out] = ReadClamped(p.srcV, csize, index);
    }
}

void WarpRowPlain(const WarpPlanes& p, const float* H, int x, int w, int r, bool twoRows, bool writeChroma) {
    const float rf = static_cast<float>(r);
    const float step = 8.0f * H[6];
    float denom = H[6] * static_cast<float>(x) + H[7] * rf + 1.0f;
    float q = 0.0f;
    for (int c = x; c != x + w; c += 2) {
        if (((c - x) & 7) == 0) {
            q = 1.0f / denom;
            denom += step;
        }
        const float cf = static_cast<float>(c);
        const float X = H[0] * cf + H[1] * rf + H[2];
        const float Y = H[3] * cf + H[4] * rf + H[5];
        WarpBlockPlain(p, c, r, X * q, Y * q, twoRows, writeChroma);
    }
}

}  // namespace tocra

using namespace tocra;
using tocra::FillKind;

namespace {

WarpPlanes PlanesOf(const tagST_PIC* src, const tagST_PIC* dst, int pitch, int chromaPitch, int rows, bool nv12) {
    return WarpPlanes{src->pY, src->pU, src->pV, dst->pY, dst->pU, dst->pV, pitch, chromaPitch, rows, nv12};
}

}  // namespace

// Single-threaded planar warp, pitch `width` (chroma width / 2), then the
// mirror fill around the area. Rows y, y + 2, ... below y + h are warped in
// pairs; an odd h writes one row past the area.
extern "C" int AffineTransform_YUV420(tagST_PIC* ref, tagST_PIC* src, tagST_PIC* dst, float* H,
                                      tagST_REGISTRATION_AREA* area, unsigned char* /*scratch*/) {
    if (!ValidWarp("AffineTransform_YUV420", WarpShape{true, false, false, FillKind::kMirror}, ref, src, dst, H, area))
        return TOCRA_NULL_POINTER;
    const WarpPlanes p = PlanesOf(src, dst, ref->width, ref->width >> 1, ref->height, false);
    for (int64_t r = area->y; r < static_cast<int64_t>(area->y) + area->height; r += 2)
        WarpRowPlain(p, H, area->x, area->width, static_cast<int>(r), true);
    FillBlank3(dst, area->x, area->y, area->width, area->height);
    return TOCRA_OK;
}

// Single-threaded NV12 warp, pitch `width` for both planes; the border is
// copied from the unwarped source first. With h <= 0 only that copy runs.
extern "C" int AffineTransform_NV12(tagST_PIC* ref, tagST_PIC* src, tagST_PIC* dst, float* H,
                                    tagST_REGISTRATION_AREA* area, unsigned char* /*scratch*/) {
    if (!ValidWarp("AffineTransform_NV12", WarpShape{false, false, false, FillKind::kCopy}, ref, src, dst, H, area))
        return TOCRA_NULL_POINTER;
    FillBlank_NV12(dst, src, area->x, area->y, area->width, area->height);
    if (area->height <= 0) return TOCRA_OK;
    const WarpPlanes p = PlanesOf(src, dst, ref->width, ref->width, ref->height, true);
    for (int64_t r = area->y; r < static_cast<int64_t>(area->y) + area->height; r += 2)
        WarpRowPlain(p, H, area->x, area->width, static_cast<int>(r), true);
    return TOCRA_OK;
}

extern "C" int AffineTransform(tagST_PIC* ref, tagST_PIC* src, tagST_PIC* dst, float* H,
                               tagST_REGISTRATION_AREA* area, unsigned char* scratch) {
    if (ref == nullptr) {
        TOCRA_LOGE("%s invalid input: picture, matrix or area out of range\n", "AffineTransform");
        return TOCRA_NULL_POINTER;
    }
    if (ref->format == TOCRA_FORMAT_YUV420) return AffineTransform_YUV420(ref, src, dst, H, area, scratch);
    return AffineTransform_NV12(ref, src, dst, H, area, scratch);
}
