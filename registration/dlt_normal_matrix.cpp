// Normal matrix of the direct linear transform: for every pair the two rows
//   Lx = (X, Y, 1, 0, 0, 0, -x X, -x Y, -x)
//   Ly = (0, 0, 0, X, Y, 1, -y X, -y Y, -y)
// of the normalised points are accumulated into LtL += Lx^T Lx + Ly^T Ly,
// pair by pair, entry by entry, as Lx[j] Lx[k] + Ly[j] Ly[k] (two products,
// their sum, then the addition). The vector form does the same operations
// on four entries at once, so both give the same bytes.
#include "registration/dlt_rows.h"
#include "registration/homography.h"

namespace tocra {

void DltNormalMatrix_C(const float* ref, const float* match, int n, const float* norm, float* LtL) {
    for (int i = 0; i < 81; ++i) LtL[i] = 0.0f;
    for (int i = 0; i < n; ++i) {
        float Lx[9], Ly[9];
        DltPairRows(ref, match, i, norm, Lx, Ly);
        for (int j = 0; j < 9; ++j) {
            for (int k = j; k < 9; ++k) LtL[j * 9 + k] += Lx[j] * Lx[k] + Ly[j] * Ly[k];
        }
    }
    DltMirror(LtL);
}

}  // namespace tocra
