// Normalised direct linear transform: both point sets are centred on their
// means and scaled by the reciprocal of their mean absolute deviation, the
// 9x9 normal matrix of the two equations per pair is built
// (dlt_normal_matrix.cpp), and its
// eigenvector of the smallest eigenvalue, mapped back through the two
// normalisations, is the homography. Single precision throughout.
#include <cfloat>
#include <cmath>

#include "registration/homography.h"

namespace tocra {

void MatrixMul3x3(const float* a, const float* b, float* c) {
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) {
            c[i * 3 + j] = a[i * 3 + 1] * b[3 + j] + a[i * 3 + 0] * b[j] + a[i * 3 + 2] * b[6 + j];
        }
    }
}

int HomographyDLT(const float* refPoints, const float* matchPoints, int n, float* H, int sweepFactor,
                  unsigned char* work) {
    // No points have no spread: H untouched, result 0, nothing read. A null
    // address is refused with -1 (a guard of our own).
    if (n < 1) return 0;
    if (refPoints == nullptr || matchPoints == nullptr || H == nullptr || work == nullptr) return -1;

    const float fn = static_cast<float>(n);
    float cMx = 0.0f, cMy = 0.0f, cmx = 0.0f, cmy = 0.0f;
    for (int i = 0; i < n; ++i) {
        cMx += refPoints[2 * i];
        cMy += refPoints[2 * i + 1];
        cmx += matchPoints[2 * i];
        cmy += matchPoints[2 * i + 1];
    }
    cMx /= fn;
    cMy /= fn;
    cmx /= fn;
    cmy /= fn;

    float sMx = 0.0f, sMy = 0.0f, smx = 0.0f, smy = 0.0f;
    for (int i = 0; i < n; ++i) {
        sMx += std::fabs(refPoints[2 * i] - cMx);
        sMy += std::fabs(refPoints[2 * i + 1] - cMy);
        smx += std::fabs(matchPoints[2 * i] - cmx);
        smy += std::fabs(matchPoints[2 * i + 1] - cmy);
    }
    if (std::fabs(sMx) < FLT_EPSILON || std::fabs(sMy) < FLT_EPSILON || std::fabs(smx) < FLT_EPSILON ||
        std::fabs(smy) < FLT_EPSILON) {
        return 0;
    }
    sMx = fn / sMx;
    sMy = fn / sMy;
    smx = fn / smx;
    smy = fn / smy;

    const float norm[8] = {cMx, cMy, sMx, sMy, cmx, cmy, smx, smy};
    float LtL[81];
#if defined(BRIMVEL_PLAIN_ONLY)
    DltNormalMatrix_C(refPoints, matchPoints, n, norm, LtL);
#else
    DltNormalMatrix_NEON(refPoints, matchPoints, n, norm, LtL);
#endif

    float W[9];
    float V[81];
    JacobiEigen(LtL, W, V, sweepFactor, work);
    const float* H0 = V + 8 * 9;  // eigenvector of the smallest eigenvalue

    const float invHnorm[9] = {1.0f / smx, 0.0f, cmx, 0.0f, 1.0f / smy, cmy, 0.0f, 0.0f, 1.0f};
    const float Hnorm2[9] = {sMx, 0.0f, -cMx * sMx, 0.0f, sMy, -cMy * sMy, 0.0f, 0.0f, 1.0f};
    float tmp[9];
    float out[9];
    MatrixMul3x3(invHnorm, H0, tmp);
    MatrixMul3x3(tmp, Hnorm2, out);

    // Scaled so that h8 becomes 1; an h8 of 0 gives infinities, which the
    // inlier test then rejects.
    const float scale = 1.0f / out[8];
    for (int i = 0; i < 9; ++i) H[i] = out[i] * scale;
    return 0;
}

}  // namespace tocra
