// Normal matrix of the direct linear transform: for every pair the two rows
//   Lx = (X, Y, 1, 0, 0, 0, -x X, -x Y, -x)
//   Ly = (0, 0, 0, X, Y, 1, -y X, -y Y, -y)
// of the normalised points are accumulated into LtL += Lx^T Lx + Ly^T Ly,
// pair by pair, entry by entry, as Lx[j] Lx[k] + Ly[j] Ly[k] (two products,
// their sum, then the addition). The vector form does the same operations
// on four entries at once, so both give the same bytes.
#include "frame/neon.h"
#include "registration/homography.h"

namespace tocra {

namespace {

inline void PairRows(const float* ref, const float* match, int i, const float* norm, float* Lx, float* Ly) {
    const float X = (ref[2 * i] - norm[0]) * norm[2];
    const float Y = (ref[2 * i + 1] - norm[1]) * norm[3];
    const float x = (match[2 * i] - norm[4]) * norm[6];
    const float y = (match[2 * i + 1] - norm[5]) * norm[7];
    Lx[0] = X;
    Lx[1] = Y;
    Lx[2] = 1.0f;
    Lx[3] = 0.0f;
    Lx[4] = 0.0f;
    Lx[5] = 0.0f;
    Lx[6] = -x * X;
    Lx[7] = -x * Y;
    Lx[8] = -x;
    Ly[0] = 0.0f;
    Ly[1] = 0.0f;
    Ly[2] = 0.0f;
    Ly[3] = X;
    Ly[4] = Y;
    Ly[5] = 1.0f;
    Ly[6] = -y * X;
    Ly[7] = -y * Y;
    Ly[8] = -y;
}

// Lower triangle from the upper one.
inline void Mirror(float* LtL) {
    for (int j = 0; j < 9; ++j) {
        for (int k = 0; k < j; ++k) LtL[j * 9 + k] = LtL[k * 9 + j];
    }
}

}  // namespace

void DltNormalMatrix_C(const float* ref, const float* match, int n, const float* norm, float* LtL) {
    for (int i = 0; i < 81; ++i) LtL[i] = 0.0f;
    for (int i = 0; i < n; ++i) {
        float Lx[9], Ly[9];
        PairRows(ref, match, i, norm, Lx, Ly);
        for (int j = 0; j < 9; ++j) {
            for (int k = j; k < 9; ++k) LtL[j * 9 + k] += Lx[j] * Lx[k] + Ly[j] * Ly[k];
        }
    }
    Mirror(LtL);
}

// Rows 0..3 take columns 0..7 as two vectors, rows 4..7 columns 4..7 as one
// (entries left of the diagonal are computed too and then overwritten by
// the mirror); column 8 is scalar. The accumulator lives in registers for
// the whole pass.
void DltNormalMatrix_Neon(const float* ref, const float* match, int n, const float* norm, float* LtL) {
    float32x4_t lo[4], hi[8];
    float last[9];
    for (int j = 0; j < 4; ++j) lo[j] = vdupq_n_f32(0.0f);
    for (int j = 0; j < 8; ++j) hi[j] = vdupq_n_f32(0.0f);
    for (int j = 0; j < 9; ++j) last[j] = 0.0f;

    for (int i = 0; i < n; ++i) {
        float Lx[9], Ly[9];
        PairRows(ref, match, i, norm, Lx, Ly);
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
    Mirror(LtL);
}

}  // namespace tocra
