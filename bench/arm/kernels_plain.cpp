// The driver's kernels through the library's plain twins: the same band
// split on the same four pool workers as the exported kernels, with each
// band's rows done by the plain (scalar) form. Which function each figure
// measures:
//
//   IntergralMat_MT         tocra::IntegralPlane with the plain rows (the
//                           exported driver: both passes banded)
//   IntegralMat_H_MT        IntegralMat_H_S32XS32 (exported plain rows) per band
//   IntegralMat_V_MT        tocra::BoxSumV_C per slice, slices as exported
//   BoxFiltering_neon       the two passes above (no log or timing lines)
//   DownScaleX4_Neon_MT     the library's band driver with tocra::DownScaleRow_C
//   MT_UpScale4X_NEON       the library's plane driver with tocra::UpScaleRow_C
//   UpScaleError_Neon_MT    the library's band driver with tocra::UpScaleErrorRow_C
//   YUV2RGB_LUTX4_NEON_MT   the library's band driver with tocra::Yuv2RgbRow_C
//   GetCumSum_Neon_MT       tocra::GetCumSum_C per band
//   GetCumHist_Neon_MT      tocra::GetCumHist_C per band
//   GenerateDiscriptor_Brief_MT
//                           tocra::GenerateDiscriptor_Brief_Table (each box
//                           through smoothedSum) per worker
//   RansacEstimation        the library's own, linked with the normal matrix
//                           of the DLT redirected to tocra::DltNormalMatrix_C
//                           (see the wrap below)
//   DltNormalMatrix         tocra::DltNormalMatrix_C
//   AffineTransform_neon    AffineTransform (exported plain variants
//                           AffineTransform_YUV420 / _NV12: one thread, pitch
//                           `width`, their own border fill)
//   FillBlank_neon_NV12     FillBlank_NV12 (exported plain copy fill)
//
// The whole entry points (descriptors, registration) have no plain form
// here; they come with a library built with plain rows.
#include <cstring>

#include "bench/arm/cost_kernels.h"
#include "filter/bands.h"
#include "filter/filter_kernels.h"
#include "registration/brief.h"
#include "registration/homography.h"

using tocra::Band;
using tocra::RowOffset;

// The executable is linked with --wrap for the normal-matrix symbol: the
// library's HomographyDLT then calls this, and RANSAC runs the plain form.
extern "C" void __wrap__ZN5tocra20DltNormalMatrix_NEONEPKfS1_iS1_Pf(const float* ref, const float* match, int n,
                                                                   const float* norm, float* LtL) {
    tocra::DltNormalMatrix_C(ref, match, n, norm, LtL);
}

namespace cost {

bool Available(const char* kernel) {
    return strcmp(kernel, "brief_api") != 0 && strcmp(kernel, "ransac_regis") != 0;
}

namespace {

struct BoxHJob {
    int32_t* out;
    const uint8_t* src;
    int width, stride, height, radius;
};

void BoxHBand(void* arg, int k) {
    const BoxHJob* j = static_cast<const BoxHJob*>(arg);
    const Band b = tocra::QuarterBand(j->height, k);
    if (b.rows == 0) return;
    IntegralMat_H_S32XS32(j->out + RowOffset(b.first, j->width), j->src + RowOffset(b.first, j->stride), j->width,
                          j->stride, b.rows, j->radius);
}

struct BoxVJob {
    const int32_t* in;
    uint8_t* dst;
    uint8_t* scratch;
    int width, stride, height, radius;
};

// The slices of the exported pass: band = ceil(height / 4) output rows, R
// halo rows on each side, computed into the scratch and copied out.
void BoxVBand(void* arg, int k) {
    const BoxVJob* j = static_cast<const BoxVJob*>(arg);
    const int band = (j->height + 3) / 4;
    const int R = j->radius;
    const int outFirst = k * band;
    int outEnd = outFirst + band;
    if (k == tocra::kBandTasks - 1 || outEnd > j->height) outEnd = j->height;
    if (outFirst >= outEnd) return;
    const int sliceFirst = outFirst - R > 0 ? outFirst - R : 0;
    const int sliceEnd = outEnd + R < j->height ? outEnd + R : j->height;
    uint8_t* slice = j->scratch + RowOffset(k * (band + 2 * R), j->stride);
    tocra::BoxSumV_C(slice, j->in + RowOffset(sliceFirst, j->width), j->width, j->stride, sliceEnd - sliceFirst, R);
    memcpy(j->dst + RowOffset(outFirst, j->stride), slice + RowOffset(outFirst - sliceFirst, j->stride),
           RowOffset(outEnd - outFirst, j->stride));
}

struct HistJob {
    const uint8_t* plane;
    int width, height, stride, step;  // step 0: every pixel
    uint32_t* set;
};

void HistBand(void* arg, int k) {
    const HistJob* j = static_cast<const HistJob*>(arg);
    const Band b = tocra::QuarterBand(j->height, k);
    const uint8_t* p = j->plane + RowOffset(b.first, j->stride);
    if (j->step == 0) {
        tocra::GetCumSum_C(p, j->width, b.rows, j->stride, j->set + 256 * k);
    } else {
        tocra::GetCumHist_C(p, j->width, b.rows, j->stride, j->step, j->set + 256 * k);
    }
}

struct BriefJob {
    ST_IMAGEFEATURES* features;
    const int* integral;
    int integralStride;
};

void BriefWorker(void* arg, int k) {
    const BriefJob* j = static_cast<const BriefJob*>(arg);
    const int per = j->features->count / 4;
    ST_IMAGEFEATURES part;
    part.pKeyPoints = j->features->pKeyPoints + static_cast<size_t>(per) * k;
    part.pDescriptors = j->features->pDescriptors + static_cast<size_t>(per) * k * TOCRA_DESCRIPTOR_BYTES;
    part.count = k == 3 ? j->features->count - 3 * per : per;
    tocra::GenerateDiscriptor_Brief_Table(j->integral, &part, j->integralStride);
}

}  // namespace

void IntergralMat_MT(const uint8_t* src, int32_t* dst, int width, int height, int stride) {
    tocra::IntegralPlane(src, reinterpret_cast<uint32_t*>(dst), width, height, stride, true);
}

int IntegralMat_H_MT(int32_t* out, const uint8_t* src, int width, int stride, int height, int radius) {
    BoxHJob job{out, src, width, stride, height, radius};
    return tocra::RunFourBands(BoxHBand, &job);
}

int IntegralMat_V_MT(uint8_t* dst, const int32_t* in, int width, int stride, int height, int radius,
                     uint8_t** cursor) {
    uint8_t* scratch = *cursor;
    *cursor += RowOffset(2 * radius + (height + 3) / 4, stride) * 4;
    BoxVJob job{in, dst, scratch, width, stride, height, radius};
    return tocra::RunFourBands(BoxVBand, &job);
}

int BoxFiltering_neon(const uint8_t* src, uint8_t* dst, int width, int stride, int height, int radius, uint8_t* work,
                      int /*workSize*/) {
    int32_t* sums = reinterpret_cast<int32_t*>(work);
    uint8_t* cursor = work + static_cast<size_t>(width) * static_cast<size_t>(height) * 4;
    IntegralMat_H_MT(sums, src, width, stride, height, radius);
    IntegralMat_V_MT(dst, sums, width, stride, height, radius, &cursor);
    return 0;
}

int DownScaleX4_Neon_MT(const uint8_t* src, uint8_t* dst, int height, int width, int srcStride, int dstStride) {
    return tocra::DownScaleX4_MT(src, dst, height, width, srcStride, dstStride, tocra::DownScaleRow_C);
}

void MT_UpScale4X_NEON(const uint8_t* src, int height, int width, int srcStride, int dstStride, uint8_t* dst) {
    tocra::UpScalePlane(src, height, width, srcStride, dstStride, dst, tocra::UpScaleRow_C);
}

int UpScaleError_Neon_MT(const uint8_t* a, const uint8_t* b, int8_t* err, int width, int height, int stride) {
    return tocra::UpScaleError_MT(a, b, err, width, height, stride, tocra::UpScaleErrorRow_C);
}

int YUV2RGB_LUTX4_NEON_MT(const uint8_t* y, const uint8_t* uv, uint8_t* b, uint8_t* g, uint8_t* r, uint32_t* hist,
                          int width, int height, int uvStride, int stride) {
    return tocra::Yuv2RgbFourBands(tocra::RgbPlanes{y, uv, b, g, r, stride, uvStride}, hist, width, height,
                                   tocra::RowAfter::kReadWrite, false, tocra::Yuv2RgbRow_C);
}

int GetCumSum_Neon_MT(const uint8_t* plane, int width, int height, int stride, uint32_t* set) {
    HistJob job{plane, width, height, stride, 0, set};
    return tocra::RunFourBands(HistBand, &job);
}

int GetCumHist_Neon_MT(const uint8_t* plane, int width, int height, int stride, int step, uint32_t* set) {
    HistJob job{plane, width, height, stride, step, set};
    return tocra::RunFourBands(HistBand, &job);
}

int GenerateDiscriptor_Brief_MT(ST_IMAGEFEATURES* features, int* integral, int integralStride) {
    BriefJob job{features, integral, integralStride};
    return tocra::RunFourBands(BriefWorker, &job);
}

int GetBrief_Descriptors_TocraAPI(tagST_BRIEF_REQUEST*) { return -1; }

int RansacEstimation(tagST_MATCH_PAIRS* pairs, float* H, tagRANSAC_PARAMS* params, unsigned char* scratch) {
    return ::RansacEstimation(pairs, H, params, scratch);
}

void DltNormalMatrix(const float* ref, const float* match, int n, const float* norm, float* LtL) {
    tocra::DltNormalMatrix_C(ref, match, n, norm, LtL);
}

int AffineTransform_neon(tagST_PIC* ref, tagST_PIC* src, tagST_PIC* dst, float* H, tagST_REGISTRATION_AREA* area,
                         unsigned char* scratch) {
    return ::AffineTransform(ref, src, dst, H, area, scratch);
}

void FillBlank_neon_NV12(tagST_PIC* dst, tagST_PIC* src, int x, int y, int w, int h) {
    ::FillBlank_NV12(dst, src, x, y, w, h);
}

int Ransac_Regis_TocraAPI(tagST_RANSAC_REGIS_REQUEST*) { return -1; }

}  // namespace cost
