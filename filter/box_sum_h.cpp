// Horizontal box sums: out[x] = sum of p[j] for j in [x - R, x + R] clipped
// to the row, as 32-bit values in a dense buffer (pitch = width). Computed
// incrementally: the first R pixels, then the fill (x = 0..R), the slide
// (one pixel in, one out) and the drain (x = width-R..width-1).
#include <cstdint>

#include "brimvel_tocra.h"
#include "filter/bands.h"
#include "filter/filter_kernels.h"
#include "frame/log.h"

namespace tocra {

int32_t BoxSumHFill(int32_t* out, const uint8_t* p, int radius, int32_t s) {
    for (int x = 0; x <= radius; ++x) {
        s += p[x + radius];
        out[x] = s;
    }
    return s;
}

void BoxSumHFinish(int32_t* out, const uint8_t* p, int width, int radius, int x, int32_t s) {
    for (; x <= width - radius - 1; ++x) {
        s += p[x + radius] - p[x - radius - 1];
        out[x] = s;
    }
    for (; x < width; ++x) {
        s -= p[x - radius - 1];
        out[x] = s;
    }
}

void BoxSumHRow_C(int32_t* out, const uint8_t* p, int width, int radius) {
    int32_t s = 0;
    for (int j = 0; j < radius; ++j) s += p[j];
    BoxSumHFinish(out, p, width, radius, radius + 1, BoxSumHFill(out, p, radius, s));
}

void BoxSumHPair_C(int32_t* out, const uint8_t* p, int width, int stride, int radius) {
    BoxSumHRow_C(out, p, width, radius);
    BoxSumHRow_C(out + width, p + stride, width, radius);
}

namespace {

enum class HForm { kPlain, kRows, kPairs };

// Rows one at a time, or two per step with a single-row tail.
void BoxSumHPlane(int32_t* out, const uint8_t* src, int width, int stride, int rows, int radius, HForm form) {
    BoxSumHRowFn row = BoxSumHRow_C;
    BoxSumHPairFn pair = nullptr;
#if !defined(BRIMVEL_PLAIN_ONLY)
    if (form != HForm::kPlain) row = BoxSumHRow_NEON;
    if (form == HForm::kPairs) pair = BoxSumHPair_NEON;
#else
    if (form == HForm::kPairs) pair = BoxSumHPair_C;
#endif
    int y = 0;
    if (pair != nullptr)
        for (; y + 2 <= rows; y += 2)
            pair(out + RowOffset(y, width), src + RowOffset(y, stride), width, stride, radius);
    for (; y < rows; ++y) row(out + RowOffset(y, width), src + RowOffset(y, stride), width, radius);
}

// Kernels don't report; nothing is done for no rows. Refused with a line:
// null buffers, a negative radius or width <= 2R (the drain would read
// before the row's start, and the fill write past its end), and a stride
// below the width (the last row would end past the plane).
bool BoxSumHArgsOk(const char* name, const int32_t* out, const uint8_t* src, int width, int stride, int rows,
                   int radius) {
    if (rows <= 0) return false;
    if (out == nullptr || src == nullptr || radius < 0 || width <= 2 * static_cast<int64_t>(radius) || stride < width) {
        TOCRA_LOGE("%s invalid input: width[%d] stride[%d] rows[%d] radius[%d]\n", name, width, stride, rows, radius);
        return false;
    }
    return true;
}

}  // namespace
}  // namespace tocra

using tocra::RowOffset;

// Plain reference: one row at a time, scalar.
extern "C" void IntegralMat_H_S32XS32(int32_t* out, const uint8_t* src, int width, int stride, int rows, int radius) {
    if (!tocra::BoxSumHArgsOk("IntegralMat_H_S32XS32", out, src, width, stride, rows, radius)) return;
    tocra::BoxSumHPlane(out, src, width, stride, rows, radius, tocra::HForm::kPlain);
}

// One row at a time, vector initial sum and slide.
extern "C" void IntegralMat_H_S32XS32_Neon(int32_t* out, const uint8_t* src, int width, int stride, int rows,
                                           int radius) {
    if (!tocra::BoxSumHArgsOk("IntegralMat_H_S32XS32_Neon", out, src, width, stride, rows, radius)) return;
    tocra::BoxSumHPlane(out, src, width, stride, rows, radius, tocra::HForm::kRows);
}

// Two rows per step, a single-row tail for an odd row count.
extern "C" void IntegralMat_H_S32XS32_Neon3(int32_t* out, const uint8_t* src, int width, int stride, int rows,
                                            int radius) {
    if (!tocra::BoxSumHArgsOk("IntegralMat_H_S32XS32_Neon3", out, src, width, stride, rows, radius)) return;
    tocra::BoxSumHPlane(out, src, width, stride, rows, radius, tocra::HForm::kPairs);
}

// Task k: rows k*band .. of the band split floor(height / 4), last takes the rest.
extern "C" void IntegralMat_H_MtCaller(void* arg, int index) {
    const BoxSumHJob* job = static_cast<const BoxSumHJob*>(arg);
    const tocra::Band band = tocra::QuarterBand(job->height, index);
    if (band.rows == 0) return;
    IntegralMat_H_S32XS32_Neon3(job->pOut + RowOffset(band.first, job->width),
                                job->pSrc + RowOffset(band.first, job->stride), job->width, job->stride, band.rows,
                                job->radius);
}

// out needs width * height int32 values; src height rows of stride bytes.
// No rows: nothing to do. Refused (-998 and a line): what the row kernel
// refuses, checked once for the whole plane.
extern "C" int IntegralMat_H_MT(int32_t* out, const uint8_t* src, int width, int stride, int height, int radius) {
    if (height > 0 && (out == nullptr || src == nullptr || radius < 0 || width <= 2 * static_cast<int64_t>(radius) ||
                       stride < width)) {
        TOCRA_LOGE("%s invalid input: width[%d] stride[%d] height[%d] radius[%d]\n", "IntegralMat_H_MT", width, stride,
                   height, radius);
        return TOCRA_NULL_POINTER;
    }
    BoxSumHJob job{out, src, width, stride, height, radius, tocra::kBandTasks};
    return tocra::RunFourBands(IntegralMat_H_MtCaller, &job);
}
