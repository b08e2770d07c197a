// The driver's kernels as the library exports them.
#include "bench/arm/cost_kernels.h"
#include "registration/homography.h"

namespace cost {

bool Available(const char*) { return true; }

void IntergralMat_MT(const uint8_t* src, int32_t* dst, int width, int height, int stride) {
    ::IntergralMat_MT(src, dst, width, height, stride);
}
int IntegralMat_H_MT(int32_t* out, const uint8_t* src, int width, int stride, int height, int radius) {
    return ::IntegralMat_H_MT(out, src, width, stride, height, radius);
}
int IntegralMat_V_MT(uint8_t* dst, const int32_t* in, int width, int stride, int height, int radius, uint8_t** cursor) {
    return ::IntegralMat_V_MT(dst, in, width, stride, height, radius, cursor);
}
int BoxFiltering_neon(const uint8_t* src, uint8_t* dst, int width, int stride, int height, int radius, uint8_t* work,
                      int workSize) {
    return ::BoxFiltering_neon(src, dst, width, stride, height, radius, work, workSize);
}
int DownScaleX4_Neon_MT(const uint8_t* src, uint8_t* dst, int height, int width, int srcStride, int dstStride) {
    return ::DownScaleX4_Neon_MT(src, dst, height, width, srcStride, dstStride);
}
void MT_UpScale4X_NEON(const uint8_t* src, int height, int width, int srcStride, int dstStride, uint8_t* dst) {
    ::MT_UpScale4X_NEON(src, height, width, srcStride, dstStride, dst);
}
int UpScaleError_Neon_MT(const uint8_t* a, const uint8_t* b, int8_t* err, int width, int height, int stride) {
    return ::UpScaleError_Neon_MT(a, b, err, width, height, stride);
}
int YUV2RGB_LUTX4_NEON_MT(const uint8_t* y, const uint8_t* uv, uint8_t* b, uint8_t* g, uint8_t* r, uint32_t* hist,
                          int width, int height, int uvStride, int stride) {
    return ::YUV2RGB_LUTX4_NEON_MT(y, uv, b, g, r, hist, width, height, uvStride, stride);
}
int GetCumSum_Neon_MT(const uint8_t* plane, int width, int height, int stride, uint32_t* set) {
    return ::GetCumSum_Neon_MT(plane, width, height, stride, set);
}
int GetCumHist_Neon_MT(const uint8_t* plane, int width, int height, int stride, int step, uint32_t* set) {
    return ::GetCumHist_Neon_MT(plane, width, height, stride, step, set);
}
int GenerateDiscriptor_Brief_MT(ST_IMAGEFEATURES* features, int* integral, int integralStride) {
    return ::GenerateDiscriptor_Brief_MT(features, integral, integralStride);
}
int GetBrief_Descriptors_TocraAPI(tagST_BRIEF_REQUEST* request) { return ::GetBrief_Descriptors_TocraAPI(request); }
int RansacEstimation(tagST_MATCH_PAIRS* pairs, float* H, tagRANSAC_PARAMS* params, unsigned char* scratch) {
    return ::RansacEstimation(pairs, H, params, scratch);
}
void DltNormalMatrix(const float* ref, const float* match, int n, const float* norm, float* LtL) {
#if defined(BRIMVEL_PLAIN_ONLY)
    tocra::DltNormalMatrix_C(ref, match, n, norm, LtL);
#else
    tocra::DltNormalMatrix_NEON(ref, match, n, norm, LtL);
#endif
}
int AffineTransform_neon(tagST_PIC* ref, tagST_PIC* src, tagST_PIC* dst, float* H, tagST_REGISTRATION_AREA* area,
                         unsigned char* scratch) {
    return ::AffineTransform_neon(ref, src, dst, H, area, scratch);
}
void FillBlank_neon_NV12(tagST_PIC* dst, tagST_PIC* src, int x, int y, int w, int h) {
    ::FillBlank_neon_NV12(dst, src, x, y, w, h);
}
int Ransac_Regis_TocraAPI(tagST_RANSAC_REGIS_REQUEST* request) { return ::Ransac_Regis_TocraAPI(request); }

}  // namespace cost
