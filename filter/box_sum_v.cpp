// Vertical box sums of the horizontal sums, divided by the number of pixels
// that the clipped (2R+1) x (2R+1) window covers, written as 8-bit pixels.
#include <cstdint>
#include <cstring>
#include <vector>

#include "brimvel_tocra.h"
#include "filter/bands.h"
#include "filter/filter_kernels.h"
#include "frame/log.h"
#include "frame/neon.h"

namespace {

// count[i] = min(i, R) + 1 + min(L - 1 - i, R): the window's extent along a
// run of length L; recip[i] = 1 / count[i], divided in double, kept as float.
void WindowCounts(int32_t* count, float* recip, int length, int radius) {
    for (int i = 0; i < length; ++i) {
        const int before = i < radius ? i : radius;
        const int after = length - 1 - i < radius ? length - 1 - i : radius;
        count[i] = before + 1 + after;
        recip[i] = static_cast<float>(1.0 / count[i]);
    }
}

// Rows 0 .. min(R, rows) - 1 seed the accumulator.
void SeedAccumulator(int32_t* acc, const int32_t* in, int width, int rows, int radius) {
    const int seed = radius < rows ? radius : rows;
    for (int r = 0; r < seed; ++r) {
        const int32_t* row = in + tocra::RowOffset(r, width);
        for (int x = 0; x < width; ++x) acc[x] += row[x];
    }
}

inline uint8_t ScaleToPixel(int32_t sum, int32_t cx, int32_t cy, float rowRecip, float colRecip) {
    const float f = static_cast<float>(sum + ((cx * cy) >> 1)) * rowRecip * colRecip;
    const int v = static_cast<int>(f);
    return static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v));
}

}  // namespace

namespace tocra {

void BoxSumV_C(uint8_t* dst, const int32_t* in, int width, int stride, int rows, int radius) {
    if (width <= 0 || rows <= 0) return;
    std::vector<int32_t> colCount(width), rowCount(rows), acc(width, 0);
    std::vector<float> colRecip(width), rowRecip(rows);
    WindowCounts(colCount.data(), colRecip.data(), width, radius);
    WindowCounts(rowCount.data(), rowRecip.data(), rows, radius);
    SeedAccumulator(acc.data(), in, width, rows, radius);
    for (int y = 0; y < rows; ++y) {
        if (y + radius <= rows - 1) {
            const int32_t* add = in + RowOffset(y + radius, width);
            for (int x = 0; x < width; ++x) acc[x] += add[x];
        }
        if (y >= radius + 1) {
            const int32_t* sub = in + RowOffset(y - radius - 1, width);
            for (int x = 0; x < width; ++x) acc[x] -= sub[x];
        }
        uint8_t* d = dst + RowOffset(y, stride);
        for (int x = 0; x < width; ++x) d[x] = ScaleToPixel(acc[x], colCount[x], rowCount[y], rowRecip[y], colRecip[x]);
    }
}

}  // namespace tocra

using tocra::RowOffset;

// The number that the slice kernel's "malloc fail" log line prints after its
// name: part of the line's text (the call's line when it was written as
// __LINE__), whatever line of this file the call is on now.
constexpr int kMallocFailLogLine = 90;

// Slice kernel: rows of `in` (pitch width) to rows of dst (pitch stride); the
// first and last rows are the image's borders. Eight columns per vector
// step: sums and counts in 32-bit lanes, the scaling in float (two separate
// multiplies, row reciprocal first), truncation, then a saturating narrow
// through 16 bits to 0..255; a scalar loop does the width mod 8 columns.
extern "C" void IntegralMat_V_S32XS32_Neon2(uint8_t* dst, const int32_t* in, int width, int stride, int rows,
                                            int radius) {
    if (width <= 0 || rows <= 0) return;
    if (dst == nullptr || in == nullptr || stride < width || radius < 0) {
        TOCRA_LOGE("%s invalid input: width[%d] stride[%d] rows[%d] radius[%d]\n", "IntegralMat_V_S32XS32_Neon2",
                   width, stride, rows, radius);
        return;
    }
    const size_t w = static_cast<size_t>(width), n = static_cast<size_t>(rows);
    int32_t* colCount = static_cast<int32_t*>(iMalloc(w * sizeof(int32_t), "IntegralMat_V_S32XS32_Neon2", __LINE__));
    int32_t* rowCount = static_cast<int32_t*>(iMalloc(n * sizeof(int32_t), "IntegralMat_V_S32XS32_Neon2", __LINE__));
    float* colRecip = static_cast<float*>(iMalloc(w * sizeof(float), "IntegralMat_V_S32XS32_Neon2", __LINE__));
    float* rowRecip = static_cast<float*>(iMalloc(n * sizeof(float), "IntegralMat_V_S32XS32_Neon2", __LINE__));
    int32_t* acc = static_cast<int32_t*>(iMalloc(w * sizeof(int32_t), "IntegralMat_V_S32XS32_Neon2", __LINE__));
    if (colCount == nullptr || rowCount == nullptr || colRecip == nullptr || rowRecip == nullptr || acc == nullptr) {
        TOCRA_LOGI("%s %d malloc fail!\n", "IntegralMat_V_S32XS32_Neon2", kMallocFailLogLine);
        iFree(colCount, "IntegralMat_V_S32XS32_Neon2", __LINE__);
        iFree(rowCount, "IntegralMat_V_S32XS32_Neon2", __LINE__);
        iFree(colRecip, "IntegralMat_V_S32XS32_Neon2", __LINE__);
        iFree(rowRecip, "IntegralMat_V_S32XS32_Neon2", __LINE__);
        iFree(acc, "IntegralMat_V_S32XS32_Neon2", __LINE__);
        return;
    }
    WindowCounts(colCount, colRecip, width, radius);
    WindowCounts(rowCount, rowRecip, rows, radius);
    memset(acc, 0, w * sizeof(int32_t));
    SeedAccumulator(acc, in, width, rows, radius);

    const int vecEnd = width & ~7;
    for (int y = 0; y < rows; ++y) {
        const int32_t* add = y + radius <= rows - 1 ? in + RowOffset(y + radius, width) : nullptr;
        const int32_t* sub = y >= radius + 1 ? in + RowOffset(y - radius - 1, width) : nullptr;
        uint8_t* d = dst + RowOffset(y, stride);
        const int32_t cy = rowCount[y];
        const float32x4_t ry = vdupq_n_f32(rowRecip[y]);
        for (int x = 0; x < vecEnd; x += 8) {
            int32x4_t a0 = vld1q_s32(acc + x), a1 = vld1q_s32(acc + x + 4);
            if (add != nullptr) {
                a0 = vaddq_s32(a0, vld1q_s32(add + x));
                a1 = vaddq_s32(a1, vld1q_s32(add + x + 4));
            }
            if (sub != nullptr) {
                a0 = vsubq_s32(a0, vld1q_s32(sub + x));
                a1 = vsubq_s32(a1, vld1q_s32(sub + x + 4));
            }
            vst1q_s32(acc + x, a0);
            vst1q_s32(acc + x + 4, a1);
            const int32x4_t h0 = vshrq_n_s32(vmulq_n_s32(vld1q_s32(colCount + x), cy), 1);
            const int32x4_t h1 = vshrq_n_s32(vmulq_n_s32(vld1q_s32(colCount + x + 4), cy), 1);
            const float32x4_t f0 = vmulq_f32(vmulq_f32(vcvtq_f32_s32(vaddq_s32(a0, h0)), ry), vld1q_f32(colRecip + x));
            const float32x4_t f1 =
                vmulq_f32(vmulq_f32(vcvtq_f32_s32(vaddq_s32(a1, h1)), ry), vld1q_f32(colRecip + x + 4));
            const int16x8_t n16 = vcombine_s16(vqmovn_s32(vcvtq_s32_f32(f0)), vqmovn_s32(vcvtq_s32_f32(f1)));
            vst1_u8(d + x, vqmovun_s16(n16));
        }
        for (int x = vecEnd; x < width; ++x) {
            if (add != nullptr) acc[x] += add[x];
            if (sub != nullptr) acc[x] -= sub[x];
            d[x] = ScaleToPixel(acc[x], colCount[x], cy, rowRecip[y], colRecip[x]);
        }
    }
    iFree(colCount, "IntegralMat_V_S32XS32_Neon2", __LINE__);
    iFree(rowCount, "IntegralMat_V_S32XS32_Neon2", __LINE__);
    iFree(colRecip, "IntegralMat_V_S32XS32_Neon2", __LINE__);
    iFree(rowRecip, "IntegralMat_V_S32XS32_Neon2", __LINE__);
    iFree(acc, "IntegralMat_V_S32XS32_Neon2", __LINE__);
}

// Task k computes output rows [k*band, (k+1)*band) (band = ceil(height / 4))
// from a slice that reaches R rows beyond them on each side, inside its own
// scratch slice of band + 2R rows, then copies the exact rows out in one
// block. Slices are clamped to the plane: for heights such as 5 or 9 the
// last bands would start at or past the last row; they then compute only
// the rows that exist, or nothing.
extern "C" void IntegralMat_V_MtCaller(void* arg, int index) {
    const BoxSumVJob* job = static_cast<const BoxSumVJob*>(arg);
    const int band = (job->height + 3) / 4;
    const int R = job->radius;
    const int outFirst = index * band;
    int outEnd = outFirst + band;
    if (index == tocra::kBandTasks - 1 || outEnd > job->height) outEnd = job->height;
    if (outFirst >= outEnd) return;
    const int sliceFirst = outFirst - R > 0 ? outFirst - R : 0;
    const int sliceEnd = outEnd + R < job->height ? outEnd + R : job->height;
    uint8_t* slice = job->pScratch + RowOffset(index * (band + 2 * R), job->stride);
    IntegralMat_V_S32XS32_Neon2(slice, job->pIn + RowOffset(sliceFirst, job->width), job->width, job->stride,
                                sliceEnd - sliceFirst, R);
    memcpy(job->pDst + RowOffset(outFirst, job->stride), slice + RowOffset(outFirst - sliceFirst, job->stride),
           RowOffset(outEnd - outFirst, job->stride));
}

// dst needs height rows of stride bytes (each is written whole, padding
// included); in holds width * height int32 sums; *cursor points at a
// scratch area of stride * (2R + ceil(height / 4)) * 4 bytes and is advanced
// past it.
extern "C" int IntegralMat_V_MT(uint8_t* dst, const int32_t* in, int width, int stride, int height, int radius,
                                uint8_t** cursor) {
    if (dst == nullptr || in == nullptr || cursor == nullptr || *cursor == nullptr || width < 0 || height < 0 ||
        stride < width || radius < 0) {
        TOCRA_LOGE("%s invalid input: width[%d] stride[%d] height[%d] radius[%d]\n", "IntegralMat_V_MT", width,
                   stride, height, radius);
        return TOCRA_NULL_POINTER;
    }
    uint8_t* scratch = *cursor;
    *cursor += RowOffset(2 * radius + (height + 3) / 4, stride) * 4;
    BoxSumVJob job{in, dst, scratch, width, stride, height, radius, tocra::kBandTasks};
    return tocra::RunFourBands(IntegralMat_V_MtCaller, &job);
}
