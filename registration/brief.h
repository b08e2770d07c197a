// Internal pieces of the BRIEF descriptor stage, reachable by the tests and
// the benchmarks through the static archive.
#ifndef BRIMVEL_REGISTRATION_BRIEF_H
#define BRIMVEL_REGISTRATION_BRIEF_H

#include <cstdint>

#include "brimvel_tocra.h"

namespace tocra {

// Pixel of a 1/64-pixel keypoint coordinate: (float)v / 64, widened to
// double, plus one half, truncated toward zero.
inline int BriefCentre(int32_t v) {
    return static_cast<int>(static_cast<double>(static_cast<float>(v) * 0.015625f) + 0.5);
}

// True when every box of the pattern around the keypoint lies inside a
// width x height image, i.e. every integral entry the descriptor reads
// exists.
bool BriefKeypointInside(const tagST_KEYPOINT& kp, int width, int height);

// The table-driven kernel: the same bytes as GenerateDiscriptor_Brief, each
// box through smoothedSum, the tests read from the pattern table.
void GenerateDiscriptor_Brief_Table(const int* integral, ST_IMAGEFEATURES* features, int integralStride);

}  // namespace tocra

#endif
