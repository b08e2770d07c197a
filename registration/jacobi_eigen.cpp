// Cyclic-by-pivot Jacobi eigen solver for the 9x9 normal matrix of the DLT.
//
// Each rotation zeroes the largest off-diagonal element. Two index arrays in
// the work area remember, per row, the column of the largest magnitude to
// the right of the diagonal and, per column, the row of the largest
// magnitude above it, so the pivot search costs 2n reads instead of n^2/2.
#include <cfloat>
#include <cmath>
#include <cstdint>

#include "registration/homography.h"

namespace tocra {

namespace {

constexpr int kN = 9;

inline void Rotate(float& x, float& y, float c, float s) {
    const float a = c * x - s * y;
    const float b = s * x + c * y;
    x = a;
    y = b;
}

// Column of the largest |A[row][m]|, m > row.
inline int RowPivot(const float* A, int row) {
    int best = row + 1;
    float mv = std::fabs(A[row * kN + best]);
    for (int m = row + 2; m < kN; ++m) {
        const float v = std::fabs(A[row * kN + m]);
        if (mv < v) {
            mv = v;
            best = m;
        }
    }
    return best;
}

// Row of the largest |A[m][col]|, m < col.
inline int ColumnPivot(const float* A, int col) {
    int best = 0;
    float mv = std::fabs(A[col]);
    for (int m = 1; m < col; ++m) {
        const float v = std::fabs(A[m * kN + col]);
        if (mv < v) {
            mv = v;
            best = m;
        }
    }
    return best;
}

}  // namespace

int JacobiEigen(float* A, float* W, float* V, int sweepFactor, unsigned char* work) {
    // The index arrays live at the first 4-byte boundary of the work area;
    // the two further arrays of nine words are reserved.
    const uintptr_t base = (reinterpret_cast<uintptr_t>(work) + 3) & ~uintptr_t{3};
    int32_t* indR = reinterpret_cast<int32_t*>(base);
    int32_t* indC = indR + kN;

    for (int i = 0; i < kN; ++i) {
        for (int j = 0; j < kN; ++j) V[i * kN + j] = 0.0f;
        V[i * kN + i] = 1.0f;
        W[i] = A[i * kN + i];
    }
    for (int k = 0; k < kN; ++k) {
        if (k < kN - 1) indR[k] = RowPivot(A, k);
        if (k > 0) indC[k] = ColumnPivot(A, k);
    }

    const int maxRotations = kN * kN * sweepFactor;
    for (int iter = 0; iter < maxRotations; ++iter) {
        // Largest off-diagonal element: first among the rows, then the columns.
        int k = 0;
        float mv = std::fabs(A[indR[0]]);
        for (int i = 1; i < kN - 1; ++i) {
            const float v = std::fabs(A[i * kN + indR[i]]);
            if (mv < v) {
                mv = v;
                k = i;
            }
        }
        int l = indR[k];
        for (int i = 1; i < kN; ++i) {
            const float v = std::fabs(A[indC[i] * kN + i]);
            if (mv < v) {
                mv = v;
                k = indC[i];
                l = i;
            }
        }

        const float p = A[k * kN + l];
        if (std::fabs(p) <= FLT_EPSILON) break;

        float y = (W[l] - W[k]) * 0.5f;
        float t = static_cast<float>(std::fabs(y) + std::hypot(static_cast<double>(p), static_cast<double>(y)));
        float s = static_cast<float>(std::hypot(static_cast<double>(p), static_cast<double>(t)));
        const float c = t / s;
        s = p / s;
        t = (p / t) * p;
        if (y < 0.0f) {
            s = -s;
            t = -t;
        }
        A[k * kN + l] = 0.0f;
        W[k] -= t;
        W[l] += t;

        // Rows and columns k and l of the upper triangle (k < l).
        for (int i = 0; i < k; ++i) Rotate(A[i * kN + k], A[i * kN + l], c, s);
        for (int i = k + 1; i < l; ++i) Rotate(A[k * kN + i], A[i * kN + l], c, s);
        for (int i = l + 1; i < kN; ++i) Rotate(A[k * kN + i], A[l * kN + i], c, s);
        for (int i = 0; i < kN; ++i) Rotate(V[k * kN + i], V[l * kN + i], c, s);

        for (int j = 0; j < 2; ++j) {
            const int idx = j == 0 ? k : l;
            if (idx < kN - 1) indR[idx] = RowPivot(A, idx);
            if (idx > 0) indC[idx] = ColumnPivot(A, idx);
        }
    }

    // Descending selection sort; each position takes the first strictly
    // larger later value, and the eigenvector rows follow.
    for (int i = 0; i < kN - 1; ++i) {
        int m = i;
        for (int j = i + 1; j < kN; ++j) {
            if (W[m] < W[j]) m = j;
        }
        if (m != i) {
            const float tw = W[m];
            W[m] = W[i];
            W[i] = tw;
            for (int j = 0; j < kN; ++j) {
                const float tv = V[m * kN + j];
                V[m * kN + j] = V[i * kN + j];
                V[i * kN + j] = tv;
            }
        }
    }
    return 0;
}

}  // namespace tocra
