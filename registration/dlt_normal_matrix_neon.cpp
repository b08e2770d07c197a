// NEON accumulation of the DLT normal matrix: the same operations as
// DltNormalMatrix_C (dlt_normal_matrix.cpp), four entries at a time.
#include "frame/neon.h"
#include "registration/dlt_rows.h"
#include "registration/homography.h"

namespace tocra {

// Rows 0..3 take columns 0..7 as two vectors, rows 4..7 columns 4..7 as one
// (entries left of the diagonal are computed too and then overwritten by
// the mirror); column 8 is scalar. The accumulator lives in registers for
// the whole pass.
void DltNormalMatrix_NEON(const float* ref, const float* match, int n, const float* norm, float* LtL) {
    float32x4_t lo[4], hi[8];
    float last[9];
    for (int j = 0; j < 4; ++j) lo[j] = vdupq_n_f32(0.0f);
    for (int j = 0; j < 8; ++j) hi[j] = vdupq_n_f32(0.0f);
    for (int j = 0; j < 9; ++j) last[j] = 0.0f;

    for (int i = 0; i < n; ++i) {
        float Lx[9], Ly[9];
        DltPairRows(ref, match, i, norm, Lx, Ly);
        const float32x4_t x0 = vld1q_f32(Lx), x1 = vld1q_f32(Lx + 4);
        const float32x4_t y0 = vld1q_f32(Ly), y1 = vld1q_f32(Ly + 4);
        for (int j = 0; j < 4; ++j) {
            lo[j] = vaddq_f32(lo[j], vaddq_f32(vmulq_n_f32(x0, Lx[j]), vmulq_n_f32(y0, Ly[j])));
        }
        for (int j = 0; j < 8; ++j) {
            hi[j] = vaddq_f32(hi[j], vaddq_f32(vmulq_n_f32(x1, Lx[j]), vmulq_n_f32(y1, Ly[j])));
        }
        for (int j = 0; j < 9; ++j) last[j] += Lx[j] * Lx[8] + Ly[j] * Ly[8];
    }

    for (int j = 0; j < 4; ++j) vst1q_f32(LtL + j * 9, lo[j]);
    for (int j = 0; j < 8; ++j) vst1q_f32(LtL + j * 9 + 4, hi[j]);
    for (int j = 0; j < 9; ++j) LtL[j * 9 + 8] = last[j];
    for (int j = 4; j < 9; ++j) {
        for (int k = 0; k < 4; ++k) LtL[j * 9 + k] = 0.0f;  // below the diagonal: mirrored next
    }
    LtL[8 * 9 + 4] = LtL[8 * 9 + 5] = LtL[8 * 9 + 6] = LtL[8 * 9 + 7] = 0.0f;
    DltMirror(LtL);
}

}  // namespace tocra
