// Perspective warp of a YUV 4:2:0 frame onto the reference grid: the plain
// rows, the row walks of both variants (row pairs on the caller's thread,
// four bands on four threads), the texel checks and the entry points.
//
// A destination position (c, r) maps to the source position (X / D, Y / D)
// with X = h0 c + h1 r + h2, Y = h3 c + h4 r + h5, D = h6 c + h7 r + 1. The
// reciprocal of D is taken once per run of eight columns and held for the
// run. Luma is processed in 2x2 blocks: only the block's top-left pixel is
// mapped; its four outputs share the 7-bit fractions and step the integer
// base by one pixel. Chroma is the nearest sample of the block's mapping.
//
// The matrix decides where the warp reads, so before anything is written
// every texel the call would read is checked against the source planes
// (flat arrays: a read past a row's end takes the next row's first bytes,
// and a read past the luma's end the chroma's first bytes when the frame is
// one buffer, as the arithmetic says). A call that would read outside is
// refused.
#include <cmath>
#include <cstring>

#include "frame/log.h"
#include "frame/numeric.h"
#include "frame/picture.h"
#include "warp/warp_internal.h"

namespace tocra {

namespace {

// 7-bit fraction |s - i| * 128, truncated. It is below 128 for every
// position that fits an int. A saturated position (beyond the int range,
// where the conversion itself is undefined) takes 127 so that the blend
// stays in range, and NaN takes 0, as the ARM conversion gives it.
inline int32_t Fraction(float s, int32_t i) {
    const float f = std::fabs(s - static_cast<float>(i)) * 128.0f;
    if (!(f < 127.0f)) return f == f ? 127 : 0;
    return static_cast<int32_t>(f);
}

inline uint8_t Blend(int32_t a, int32_t b, int32_t c, int32_t d, int32_t fx, int32_t fy) {
    const int32_t top = (128 - fx) * a + fx * b;
    const int32_t bottom = (128 - fx) * c + fx * d;
    return static_cast<uint8_t>((((top + 32) >> 6) * (128 - fy) + ((bottom + 32) >> 6) * fy + 128) >> 8);
}

// The end of the divisor run that starts at c0 (eight columns, or what is
// left of the area).
inline int RunEnd(int c0, int areaEnd) { return areaEnd - c0 > 8 ? c0 + 8 : areaEnd; }

}  // namespace

bool BlockInside(const WarpPlanes& p, float sx, float sy, bool twoRows, bool writeChroma) {
    const ReadLimits lim = SourceLimits(p);
    const int64_t ix = TruncSatToInt32(sx), iy = TruncSatToInt32(sy);
    // Luma: rows iy .. iy + 2 (iy + 1 for a single row), columns ix .. ix + 2.
    const int64_t lo = FlatOffset(iy, p.pitch, ix);
    const int64_t hi = FlatOffset(iy + (twoRows ? 2 : 1), p.pitch, ix + 2);
    if (lo < lim.lumaLo || hi >= lim.lumaHi) return false;
    if (!writeChroma) return true;
    const int64_t cpitch = p.chromaPitch;
    if (p.nv12) {
        const int64_t index = FlatOffset((iy + 1) >> 1, cpitch, (ix + 1) & ~int64_t{1});
        return index >= lim.chromaLo && index + 1 < lim.chromaHi;
    }
    const int64_t index = FlatOffset((iy + 1) >> 1, cpitch, (ix + 1) >> 1);
    return index >= lim.chromaLo && index < lim.chromaHi;
}

void WarpBlock_C(const WarpPlanes& p, int c, int r, float sx, float sy, bool twoRows, bool writeChroma) {
    const int32_t ix = TruncSatToInt32(sx), iy = TruncSatToInt32(sy);
    const int32_t fx = Fraction(sx, ix), fy = Fraction(sy, iy);
    const ptrdiff_t pitch = p.pitch;
    for (int j = 0; j < (twoRows ? 2 : 1); ++j) {
        uint8_t* out = p.dstY + (static_cast<ptrdiff_t>(r) + j) * pitch + c;
        const uint8_t* s = p.srcY + (static_cast<ptrdiff_t>(iy) + j) * pitch + ix;
        for (int i = 0; i < 2; ++i) out[i] = Blend(s[i], s[i + 1], s[i + pitch], s[i + pitch + 1], fx, fy);
    }
    if (!writeChroma) return;
    const ptrdiff_t cpitch = p.chromaPitch;
    if (p.nv12) {
        const ptrdiff_t index =
            ((static_cast<ptrdiff_t>(ix) + 1) & ~ptrdiff_t{1}) + cpitch * ((static_cast<ptrdiff_t>(iy) + 1) >> 1);
        uint8_t* out = p.dstU + (r >> 1) * cpitch + c;
        out[0] = p.srcU[index];
        out[1] = p.srcU[index + 1];
    } else {
        const ptrdiff_t index =
            ((static_cast<ptrdiff_t>(iy) + 1) >> 1) * cpitch + ((static_cast<ptrdiff_t>(ix) + 1) >> 1);
        const ptrdiff_t out = (r >> 1) * cpitch + (c >> 1);
        p.dstU[out] = p.srcU[index];
        p.dstV[out] = p.srcV[index];
    }
}

// Calls f(c, sx, sy) for the blocks c, c + 2, ... before cEnd of row r,
// mapped with the held reciprocal q; stops at the first false.
template <typename F>
inline bool ForBlocks(const float* H, int c, int cEnd, int r, float q, F&& f) {
    const float rf = static_cast<float>(r);
    for (; c != cEnd; c += 2) {
        const float cf = static_cast<float>(c);
        const float X = H[0] * cf + H[1] * rf + H[2];
        const float Y = H[3] * cf + H[4] * rf + H[5];
        if (!f(c, X * q, Y * q)) return false;
    }
    return true;
}

void WarpBlocks_C(const WarpPlanes& p, const float* H, int c, int cEnd, int r, float q, bool twoRows,
                  bool writeChroma) {
    ForBlocks(H, c, cEnd, r, q, [&](int cc, float sx, float sy) {
        WarpBlock_C(p, cc, r, sx, sy, twoRows, writeChroma);
        return true;
    });
}

bool BlocksInside_C(const WarpPlanes& p, const float* H, int c, int cEnd, int r, float q, bool twoRows,
                    bool writeChroma) {
    return ForBlocks(H, c, cEnd, r, q,
                     [&](int, float sx, float sy) { return BlockInside(p, sx, sy, twoRows, writeChroma); });
}

// Calls f(c0, cEnd, q) for each divisor run of the row: D starts at
// h6 x + h7 r + 1 and grows by 8 h6 after each reciprocal.
template <typename F>
inline bool ForRuns(const float* H, int x, int w, int r, F&& f) {
    const float step = 8.0f * H[6];
    float denom = H[6] * static_cast<float>(x) + H[7] * static_cast<float>(r) + 1.0f;
    const int end = x + w;
    for (int c0 = x; c0 != end;) {
        const float q = 1.0f / denom;
        denom += step;
        const int cEnd = RunEnd(c0, end);
        if (!f(c0, cEnd, q)) return false;
        c0 = cEnd;
    }
    return true;
}

void WarpRow_C(const WarpPlanes& p, const float* H, int x, int w, int r, bool twoRows, const float* /*table*/,
               bool writeChroma) {
    ForRuns(H, x, w, r, [&](int c0, int cEnd, float q) {
        WarpBlocks_C(p, H, c0, cEnd, r, q, twoRows, writeChroma);
        return true;
    });
}

bool WarpRowInside_C(const WarpPlanes& p, const float* H, int x, int w, int r, bool twoRows, const float* /*table*/,
                     bool writeChroma) {
    return ForRuns(H, x, w, r, [&](int c0, int cEnd, float q) {
        return BlocksInside_C(p, H, c0, cEnd, r, q, twoRows, writeChroma);
    });
}

void FillColumnTable(float* table, int x, int count) {
    float v[4] = {static_cast<float>(x), static_cast<float>(x + 2), static_cast<float>(x + 4),
                  static_cast<float>(x + 6)};
    for (int k = 0; k < count; ++k) {
        for (int i = 0; i < 4; ++i) {
            table[4 * k + i] = v[i];
            v[i] += 8.0f;
        }
    }
}

WarpRowFn DefaultWarpRow() {
#if defined(BRIMVEL_PLAIN_ONLY)
    return WarpRow_C;
#else
    return WarpRow_NEON;
#endif
}

WarpCheckFn DefaultWarpCheck() {
#if defined(BRIMVEL_PLAIN_ONLY)
    return WarpRowInside_C;
#else
    return WarpRowInside_NEON;
#endif
}

namespace {

// The one row walk: rows start .. end - 1 in pairs; an odd last row on its
// own, or (wholePairs, the single-threaded variants) as a pair that reaches
// one row past end. With sharedFirstChroma the first row leaves its chroma
// row to the band before. f(r, twoRows, writeChroma) answers whether to go
// on.
template <typename F>
bool WalkRows(int64_t start, int64_t end, bool wholePairs, bool sharedFirstChroma, F&& f) {
    int64_t r = start;
    for (; r + 1 < end; r += 2) {
        if (!f(static_cast<int>(r), true, !(sharedFirstChroma && r == start))) return false;
    }
    if (r < end) return f(static_cast<int>(r), wholePairs, !(sharedFirstChroma && r == start));
    return true;
}

// Band b of n of the threaded variants. The previous band may have ended on
// a single row whose chroma row is this band's first one too.
template <typename F>
bool WalkBand(const WarpJob& job, int band, int bands, F&& f) {
    const int bandH = job.h / bands;
    const int64_t start = job.y + static_cast<int64_t>(band) * bandH;
    const bool shared = band > 0 && (bandH & 1) != 0 && (start & 1) != 0;
    return WalkRows(start, start + bandH, false, shared, f);
}

}  // namespace

void WarpBand(const WarpJob& job, int band, int bands) {
    WalkBand(job, band, bands, [&](int r, bool two, bool chroma) {
        job.row(job.planes, job.H, job.x, job.w, r, two, job.table, chroma);
        return true;
    });
}

bool BandInside(const WarpJob& job, int band, int bands) {
    return WalkBand(job, band, bands, [&](int r, bool two, bool chroma) {
        return job.inside(job.planes, job.H, job.x, job.w, r, two, job.table, chroma);
    });
}

namespace {

constexpr int kWarpThreads = 4;

struct BandCheck {
    const WarpJob* job;
    bool inside[kWarpThreads];
};

void* CheckBandThread(void* arg) {
    const tagST_THREAD_RECORD* rec = static_cast<const tagST_THREAD_RECORD*>(arg);
    BandCheck* check = static_cast<BandCheck*>(rec->arg);
    check->inside[rec->index] = BandInside(*check->job, rec->index, kWarpThreads);
    return nullptr;
}

void* WarpBandThread(void* arg) {
    const tagST_THREAD_RECORD* rec = static_cast<const tagST_THREAD_RECORD*>(arg);
    WarpBand(*static_cast<const WarpJob*>(rec->arg), rec->index, kWarpThreads);
    return nullptr;
}

}  // namespace

bool RunWarpBands(const WarpJob& job, void (*beforeWarp)(void*), void (*onOneBand)(void*), void* context) {
    // The checks walk the rows the warp will walk: the four bands, or the
    // whole area as one band when the threads cannot be started.
    bool oneBand = false;
    bool inside = true;
    if (job.w > 0 && job.h > 0) {
        BandCheck check{&job, {false, false, false, false}};
        if (create_thread_lock(CheckBandThread, &check, kWarpThreads) == 0) {
            for (bool b : check.inside) inside = inside && b;
        } else {
            oneBand = true;
            inside = BandInside(job, 0, 1);
        }
    }
    if (!inside) return false;
    if (beforeWarp != nullptr) beforeWarp(context);
    if (!oneBand && create_thread_lock(WarpBandThread, const_cast<WarpJob*>(&job), kWarpThreads) == 0) return true;
    if (oneBand || BandInside(job, 0, 1)) {
        if (onOneBand != nullptr) onOneBand(context);
        WarpBand(job, 0, 1);
    } else {
        // The four bands were checked but the one band would read outside
        // the source (its rows are paired differently, or it takes the
        // h mod 4 rows after the bands): the four bands, in turn, here.
        for (int b = 0; b < kWarpThreads; ++b) WarpBand(job, b, kWarpThreads);
    }
    return true;
}

}  // namespace tocra

using namespace tocra;
using tocra::FillKind;

namespace {

constexpr const char* kRangeLine = "%s invalid input: picture, matrix or area out of range\n";

WarpJob MakeJob(const tagST_PIC* src, const tagST_PIC* dst, const float* H, const tagST_REGISTRATION_AREA* area,
                const float* table, int pitch, int chromaPitch, int rows, bool nv12, bool vector) {
    WarpJob job{};
    job.planes = WarpPlanes{src->pY, src->pU, src->pV, dst->pY, dst->pU, dst->pV, pitch, chromaPitch, rows, nv12};
    job.H = H;
    job.table = table;
    job.x = area->x;
    job.y = area->y;
    job.w = area->width;
    job.h = area->height;
    job.row = vector ? DefaultWarpRow() : WarpRow_C;
    job.inside = vector ? DefaultWarpCheck() : WarpRowInside_C;
    return job;
}

// The single-threaded variants: row pairs from y while below y + h (an odd
// h warps the row after the area), checked first.
bool PairsInside(const WarpJob& job) {
    return WalkRows(job.y, static_cast<int64_t>(job.y) + job.h, true, false, [&](int r, bool two, bool chroma) {
        return job.inside(job.planes, job.H, job.x, job.w, r, two, job.table, chroma);
    });
}

void WarpPairs(const WarpJob& job) {
    WalkRows(job.y, static_cast<int64_t>(job.y) + job.h, true, false, [&](int r, bool two, bool chroma) {
        job.row(job.planes, job.H, job.x, job.w, r, two, job.table, chroma);
        return true;
    });
}

// A call whose texels would leave the source: the line of the other range
// checks.
int Refused(const char* func) {
    TOCRA_LOGE(kRangeLine, func);
    return TOCRA_NULL_POINTER;
}

bool ValidScratch(const char* func, const unsigned char* scratch) {
    if (scratch != nullptr) return true;
    TOCRA_LOGE("%s invalid input: no column table\n", func);
    return false;
}

struct CopyFill {
    tagST_PIC* dst;
    tagST_PIC* src;
    const tagST_REGISTRATION_AREA* area;
};

void CopyBorderNeon(void* context) {
    const CopyFill* f = static_cast<const CopyFill*>(context);
    FillBlank_neon_NV12(f->dst, f->src, f->area->x, f->area->y, f->area->width, f->area->height);
}

void LogOneBand(void* context) {
    const tagST_REGISTRATION_AREA* area = static_cast<const tagST_REGISTRATION_AREA*>(context);
    TOCRA_LOGI("realHeight = %d", area->height);
    TOCRA_LOGI("startY = %d", area->y);
}

}  // namespace

// Single-threaded planar warp, pitch `width` (chroma width / 2), then the
// mirror fill around the area.
extern "C" int AffineTransform_YUV420(tagST_PIC* ref, tagST_PIC* src, tagST_PIC* dst, float* H,
                                      tagST_REGISTRATION_AREA* area, unsigned char* /*scratch*/) {
    const char* func = "AffineTransform_YUV420";
    if (!ValidWarp(func, WarpShape{true, false, false, FillKind::kMirror}, ref, src, dst, H, area))
        return TOCRA_NULL_POINTER;
    const WarpJob job = MakeJob(src, dst, H, area, nullptr, ref->width, ref->width >> 1, ref->height, false, false);
    if (!PairsInside(job)) return Refused(func);
    WarpPairs(job);
    FillBlank3(dst, area->x, area->y, area->width, area->height);
    return TOCRA_OK;
}

// Single-threaded NV12 warp, pitch `width` for both planes; the border is
// copied from the unwarped source first. With h <= 0 only that copy runs.
extern "C" int AffineTransform_NV12(tagST_PIC* ref, tagST_PIC* src, tagST_PIC* dst, float* H,
                                    tagST_REGISTRATION_AREA* area, unsigned char* /*scratch*/) {
    const char* func = "AffineTransform_NV12";
    if (!ValidWarp(func, WarpShape{false, false, false, FillKind::kCopy}, ref, src, dst, H, area))
        return TOCRA_NULL_POINTER;
    const WarpJob job = MakeJob(src, dst, H, area, nullptr, ref->width, ref->width, ref->height, true, false);
    if (!PairsInside(job)) return Refused(func);
    FillBlank_NV12(dst, src, area->x, area->y, area->width, area->height);
    if (area->height <= 0) return TOCRA_OK;
    WarpPairs(job);
    return TOCRA_OK;
}

extern "C" int AffineTransform(tagST_PIC* ref, tagST_PIC* src, tagST_PIC* dst, float* H, tagST_REGISTRATION_AREA* area,
                               unsigned char* scratch) {
    if (ref == nullptr) {
        TOCRA_LOGE(kRangeLine, "AffineTransform");
        return TOCRA_NULL_POINTER;
    }
    if (ref->format == TOCRA_FORMAT_YUV420) return AffineTransform_YUV420(ref, src, dst, H, area, scratch);
    return AffineTransform_NV12(ref, src, dst, H, area, scratch);
}

// The scratch is the column table: at least width / 8 vectors of 16 bytes.
// The border is copied from the unwarped source before the workers start.
extern "C" int AffineTransform_neon_NV12(tagST_PIC* ref, tagST_PIC* src, tagST_PIC* dst, float* H,
                                         tagST_REGISTRATION_AREA* area, unsigned char* scratch) {
    const char* func = "AffineTransform_neon_NV12";
    if (!ValidWarp(func, WarpShape{false, true, false, FillKind::kCopyNeon}, ref, src, dst, H, area) ||
        !ValidScratch(func, scratch))
        return TOCRA_NULL_POINTER;
    float* table = reinterpret_cast<float*>(scratch);
    FillColumnTable(table, area->x, static_cast<int>(static_cast<unsigned>(ref->width) / 8u));
    const WarpJob job = MakeJob(src, dst, H, area, table, ref->width, ref->width, ref->height, true, true);
    CopyFill fill{dst, src, area};
    if (!RunWarpBands(job, CopyBorderNeon, nullptr, &fill)) return Refused(func);
    return TOCRA_OK;
}

// Planar, pitch `width` (chroma width / 2); the mirror fill follows the
// workers. The scratch is the column table: width / 8 vectors of 16 bytes.
extern "C" int AffineTransform_neon_YUV420(tagST_PIC* ref, tagST_PIC* src, tagST_PIC* dst, float* H,
                                           tagST_REGISTRATION_AREA* area, unsigned char* scratch) {
    const char* func = "AffineTransform_neon_YUV420";
    if (!ValidWarp(func, WarpShape{true, true, false, FillKind::kMirror}, ref, src, dst, H, area) ||
        !ValidScratch(func, scratch))
        return TOCRA_NULL_POINTER;
    TOCRA_LOGI("Reg pstRegistrationArea->realHeight = %d\n", area->height);
    float* table = reinterpret_cast<float*>(scratch);
    FillColumnTable(table, area->x, ref->width / 8);
    const WarpJob job = MakeJob(src, dst, H, area, table, ref->width, ref->width >> 1, ref->height, false, true);
    if (!RunWarpBands(job, nullptr, LogOneBand, area)) return Refused(func);
    FillBlank3(dst, area->x, area->y, area->width, area->height);
    return TOCRA_OK;
}

// Planar with 128-aligned pitches: both pictures' stride becomes width
// rounded up to 128, the luma pitch; U and V use half of it rounded up to
// 128. The scratch is the column table: stride / 8 vectors of 16 bytes.
extern "C" int AffineTransform_neon_Stride_YUV420(tagST_PIC* ref, tagST_PIC* src, tagST_PIC* dst, float* H,
                                                  tagST_REGISTRATION_AREA* area, unsigned char* scratch) {
    const char* func = "AffineTransform_neon_Stride_YUV420";
    if (!ValidWarp(func, WarpShape{true, true, true, FillKind::kMirrorStride}, ref, src, dst, H, area) ||
        !ValidScratch(func, scratch))
        return TOCRA_NULL_POINTER;
    const int stride = Pitch128(ref->width);
    float* table = reinterpret_cast<float*>(scratch);
    FillColumnTable(table, area->x, stride / 8);
    const WarpJob job = MakeJob(src, dst, H, area, table, stride, Pitch128(stride >> 1), ref->height, false, true);
    if (!RunWarpBands(job, nullptr, nullptr, nullptr)) return Refused(func);
    // Set after the check, so that a refused call leaves the records as
    // they were; the warp itself takes the pitches from the job.
    src->stride = stride;
    dst->stride = stride;
    FillBlank3_Stride(dst, area->x, area->y, area->width, area->height);
    return TOCRA_OK;
}

extern "C" int AffineTransform_neon(tagST_PIC* ref, tagST_PIC* src, tagST_PIC* dst, float* H,
                                    tagST_REGISTRATION_AREA* area, unsigned char* scratch) {
    if (ref == nullptr) {
        TOCRA_LOGE(kRangeLine, "AffineTransform_neon");
        return TOCRA_NULL_POINTER;
    }
    if (ref->format == TOCRA_FORMAT_YUV420) return AffineTransform_neon_Stride_YUV420(ref, src, dst, H, area, scratch);
    return AffineTransform_neon_NV12(ref, src, dst, H, area, scratch);
}
