// Saturated signed difference of two 8-bit planes: err = clamp(a - b, -128, 127).
#include <cstdint>

#include "brimvel_tocra.h"
#include "filter/bands.h"
#include "filter/filter_kernels.h"
#include "frame/log.h"
#include "frame/numeric.h"

namespace {

#if defined(BRIMVEL_PLAIN_ONLY)
constexpr tocra::UpScaleErrorRowFn kErrorRow = tocra::UpScaleErrorRow_C;
#else
constexpr tocra::UpScaleErrorRowFn kErrorRow = tocra::UpScaleErrorRow_NEON;
#endif

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

void UpScaleErrorRow_C(const uint8_t* a, const uint8_t* b, int8_t* err, int width) {
    for (int x = 0; x < width; ++x) err[x] = ClampToInt8(a[x] - b[x]);
}

void UpScaleErrorPlane(const uint8_t* a, const uint8_t* b, int8_t* err, int width, int rows, int stride,
                       UpScaleErrorRowFn row) {
    for (int y = 0; y < rows; ++y) {
        const size_t o = RowOffset(y, stride);
        row(a + o, b + o, err + o, width);
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
    UpScaleErrorRowFn row;
};

void ErrBand(void* arg, int index) {
    const ErrJob* job = static_cast<const ErrJob*>(arg);
    const Band band = QuarterBand(job->height, index);
    const size_t o = RowOffset(band.first, job->stride);
    UpScaleErrorPlane(job->a + o, job->b + o, job->err + o, job->width, band.rows, job->stride, job->row);
}

}  // namespace

int UpScaleError_MT(const uint8_t* a, const uint8_t* b, int8_t* err, int width, int height, int stride,
                    UpScaleErrorRowFn row) {
    ErrJob job{a, b, err, width, height, stride, kBandTasks, row};
    return RunFourBands(ErrBand, &job);
}

}  // namespace tocra

// All three planes hold `rows` rows of `stride` bytes; err may be b (each
// element is read before it is written).
extern "C" void UpScaleError_NEON(const uint8_t* a, const uint8_t* b, int8_t* err, int width, int rows, int stride) {
    if (!ErrArgsOk("UpScaleError_NEON", a, b, err, width, rows, stride)) return;
    tocra::UpScaleErrorPlane(a, b, err, width, rows, stride, kErrorRow);
}

extern "C" int UpScaleError_Neon_MT(const uint8_t* a, const uint8_t* b, int8_t* err, int width, int height,
                                    int stride) {
    if (!ErrArgsOk("UpScaleError_Neon_MT", a, b, err, width, height, stride)) return TOCRA_NULL_POINTER;
    return tocra::UpScaleError_MT(a, b, err, width, height, stride, kErrorRow);
}
