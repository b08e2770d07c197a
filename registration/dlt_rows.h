// The two DLT rows of one pair and the mirror of the normal matrix's upper
// triangle: the plain and the NEON accumulation share them, so that both
// form the same products.
#ifndef BRIMVEL_REGISTRATION_DLT_ROWS_H
#define BRIMVEL_REGISTRATION_DLT_ROWS_H

namespace tocra {

inline void DltPairRows(const float* ref, const float* match, int i, const float* norm, float* Lx, float* Ly) {
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
inline void DltMirror(float* LtL) {
    for (int j = 0; j < 9; ++j) {
        for (int k = 0; k < j; ++k) LtL[j * 9 + k] = LtL[k * 9 + j];
    }
}

}  // namespace tocra

#endif
