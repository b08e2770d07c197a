// The kernels that the instruction-count driver runs, under the library's
// exported names and signatures, defined in kernels_library.cpp. Linked
// with the library as built they give the NEON figures; linked with the
// library built with plain rows only (-DBRIMVEL_PLAIN_ONLY=ON), the plain
// figures.
#ifndef TOCRA_BENCH_ARM_COST_KERNELS_H
#define TOCRA_BENCH_ARM_COST_KERNELS_H

#include <cstdint>

#include "brimvel_tocra.h"

namespace cost {

// False when this build has no form of the named driver kernel.
bool Available(const char* kernel);

void IntergralMat_MT(const uint8_t* src, int32_t* dst, int width, int height, int stride);
int IntegralMat_H_MT(int32_t* out, const uint8_t* src, int width, int stride, int height, int radius);
int IntegralMat_V_MT(uint8_t* dst, const int32_t* in, int width, int stride, int height, int radius, uint8_t** cursor);
int BoxFiltering_neon(const uint8_t* src, uint8_t* dst, int width, int stride, int height, int radius, uint8_t* work,
                      int workSize);
int DownScaleX4_Neon_MT(const uint8_t* src, uint8_t* dst, int height, int width, int srcStride, int dstStride);
void MT_UpScale4X_NEON(const uint8_t* src, int height, int width, int srcStride, int dstStride, uint8_t* dst);
int UpScaleError_Neon_MT(const uint8_t* a, const uint8_t* b, int8_t* err, int width, int height, int stride);
int YUV2RGB_LUTX4_NEON_MT(const uint8_t* y, const uint8_t* uv, uint8_t* b, uint8_t* g, uint8_t* r, uint32_t* hist,
                          int width, int height, int uvStride, int stride);
int GetCumSum_Neon_MT(const uint8_t* plane, int width, int height, int stride, uint32_t* set);
int GetCumHist_Neon_MT(const uint8_t* plane, int width, int height, int stride, int step, uint32_t* set);
int GenerateDiscriptor_Brief_MT(ST_IMAGEFEATURES* features, int* integral, int integralStride);
int GetBrief_Descriptors_TocraAPI(tagST_BRIEF_REQUEST* request);
int RansacEstimation(tagST_MATCH_PAIRS* pairs, float* H, tagRANSAC_PARAMS* params, unsigned char* scratch);
// The DLT's 9x9 normal matrix over n pairs (internal to the library).
void DltNormalMatrix(const float* ref, const float* match, int n, const float* norm, float* LtL);
int AffineTransform_neon(tagST_PIC* ref, tagST_PIC* src, tagST_PIC* dst, float* H, tagST_REGISTRATION_AREA* area,
                         unsigned char* scratch);
void FillBlank_neon_NV12(tagST_PIC* dst, tagST_PIC* src, int x, int y, int w, int h);
int Ransac_Regis_TocraAPI(tagST_RANSAC_REGIS_REQUEST* request);

}  // namespace cost

#endif
