// Saturated signed difference of two 8-bit planes: err = clamp(a - b, -128, 127).
#include <cstdint>

#include "brimvel_tocra.h"
#include "filter/bands.h"
#include "filter/filter_kernels.h"
#include "frame/log.h"
#include "frame/neon.h"

namespace {

inline int8_t SatDiff(uint8_t a, uint8_t b) {
    const int d = a - b;
    return static_cast<int8_t>(d < -128 ? -128 : (d > 127 ? 127 : d));
}

bool ErrArgsOk(const char* name, const uint8_t* a, const uint8_t* b, const int8_t* err, int width, int rows,
               int stride) {
    if (width < 0 || rows < 0 ||
        (width > 0 && rows > 0 && (a == nullptr || b == nullptr || err == nullptr || stride < width))) {
        TOCRA_LOGE("%s invalid input: width[%d] rows[%d] stride[%d]\n", name, width, rows, stride);
        return false;
    }
    return true;
}

}  // namespace

namespace tocra {

void UpScaleError_C(const uint8_t* a, const uint8_t* b, int8_t* err, int width, int rows, int stride) {
    for (int y = 0; y < rows; ++y) {
        const size_t o = RowOffset(y, stride);
        for (int x = 0; x < width; ++x) err[o + x] = SatDiff(a[o + x], b[o + x]);
    }
}

}  // namespace tocra

// All three planes hold `rows` rows of `stride` bytes; err may be b (each
// element is read before it is written). Sixteen pixels per vector step,
// a scalar tail.
extern "C" void UpScaleError_NEON(const uint8_t* a, const uint8_t* b, int8_t* err, int width, int rows, int stride) {
    if (!ErrArgsOk("UpScaleError_NEON", a, b, err, width, rows, stride)) return;
    for (int y = 0; y < rows; ++y) {
        const size_t o = tocra::RowOffset(y, stride);
        const uint8_t* pa = a + o;
        const uint8_t* pb = b + o;
        int8_t* pe = err + o;
        int x = 0;
        for (; x + 16 <= width; x += 16) {
            const uint8x16_t va = vld1q_u8(pa + x), vb = vld1q_u8(pb + x);
            const int16x8_t lo = vreinterpretq_s16_u16(vsubl_u8(vget_low_u8(va), vget_low_u8(vb)));
            const int16x8_t hi = vreinterpretq_s16_u16(vsubl_u8(vget_high_u8(va), vget_high_u8(vb)));
            vst1q_s8(pe + x, vcombine_s8(vqmovn_s16(lo), vqmovn_s16(hi)));
        }
        for (; x < width; ++x) pe[x] = SatDiff(pa[x], pb[x]);
    }
}

namespace {

struct ErrJob {
    const uint8_t* a;
    const uint8_t* b;
    int8_t* err;
    int width;
    int height;
    int stride;
    int taskCount;
};

void ErrBand(void* arg, int index) {
    const ErrJob* job = static_cast<const ErrJob*>(arg);
    const tocra::Band band = tocra::QuarterBand(job->height, index);
    const size_t o = tocra::RowOffset(band.first, job->stride);
    UpScaleError_NEON(job->a + o, job->b + o, job->err + o, job->width, band.rows, job->stride);
}

}  // namespace

extern "C" int UpScaleError_Neon_MT(const uint8_t* a, const uint8_t* b, int8_t* err, int width, int height,
                                    int stride) {
    if (!ErrArgsOk("UpScaleError_Neon_MT", a, b, err, width, height, stride)) return TOCRA_NULL_POINTER;
    ErrJob job{a, b, err, width, height, stride, tocra::kBandTasks};
    return tocra::RunFourBands(ErrBand, &job);
}
