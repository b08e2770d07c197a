// Internal pieces of the homography estimation: inlier classification,
// subset degeneracy test, normalised DLT, 9x9 Jacobi eigen solver, 3x3
// product and the RANSAC sampler. Not exported; the tests reach them
// through the static archive.
//
// Points are interleaved float x, y. A homography is nine row-major floats
// mapping a reference point to its matched point; the inlier test uses 1 in
// place of h8.
#ifndef BRIMVEL_REGISTRATION_HOMOGRAPHY_H
#define BRIMVEL_REGISTRATION_HOMOGRAPHY_H

#include <cmath>
#include <cstdint>

#include "brimvel_tocra.h"

namespace tocra {

// Bytes of work area the eigen solver needs: four arrays of nine words,
// plus up to three bytes to bring the start to a 4-byte boundary.
constexpr int kJacobiWorkWords = 4 * 9;
constexpr int kJacobiWorkBytes = kJacobiWorkWords * 4 + 3;

// Rotations allowed per solve: 81 times the sweep factor.
constexpr int kRansacSweepFactor = 2;
constexpr int kRefineSweepFactor = 30;

// The sampler: a 64-bit multiply-with-carry generator. Each step sets
// state = low32(state) * 4164903690 + high32(state) and yields the new low
// word. Every RANSAC call starts from all ones.
constexpr uint64_t kMwcSeed = 0xFFFFFFFFFFFFFFFFull;
inline uint32_t MwcNext(uint64_t* state) {
    *state = static_cast<uint64_t>(static_cast<uint32_t>(*state)) * 4164903690u + (*state >> 32);
    return static_cast<uint32_t>(*state);
}

// Classifies every pair against H: mask[i] = 1 when the squared
// reprojection distance is at most threshold (NaN counts as outlier).
// Writes the sum of the inliers' squared distances into errSum and returns
// the inlier count. pointNum <= 0 writes no mask byte and returns 0.
int FindInliers(const tagST_MATCH_PAIRS* pairs, unsigned char* mask, const float* H, float threshold, float* errSum);

// Four points (eight floats). 1 when no three of them are collinear within
// the integer rule |cross| <= 0.1 * (sum of the coordinate differences'
// magnitudes), 0 otherwise.
int CheckSubset(const float* points);

// Normalised direct linear transform on n pairs. Leaves H untouched and
// returns 0 when the points of either side have no spread (n < 1 included);
// returns -1 (H untouched) for a null pointer. work needs kJacobiWorkBytes.
int HomographyDLT(const float* refPoints, const float* matchPoints, int n, float* H, int sweepFactor,
                  unsigned char* work);

// Eigen-decomposition of the symmetric 9x9 matrix A (destroyed): W gets the
// eigenvalues in descending order, the rows of V the matching unit
// eigenvectors. At most 81 * sweepFactor rotations. Returns 0.
int JacobiEigen(float* A, float* W, float* V, int sweepFactor, unsigned char* work);

// The symmetric 9x9 normal matrix of the DLT over n pairs (all 81 entries
// written). norm holds cM.x, cM.y, sM.x, sM.y, cm.x, cm.y, sm.x, sm.y: each
// point is centred on its mean and multiplied by its scale. The vector form
// gives the same bytes; HomographyDLT uses it.
void DltNormalMatrix_C(const float* ref, const float* match, int n, const float* norm, float* LtL);
#if !defined(BRIMVEL_PLAIN_ONLY)
void DltNormalMatrix_NEON(const float* ref, const float* match, int n, const float* norm, float* LtL);
#endif

// c = a * b for row-major 3x3 matrices; c must not alias a or b.
void MatrixMul3x3(const float* a, const float* b, float* c);

}  // namespace tocra

#endif
