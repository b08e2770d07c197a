// Internal pieces of the BRIEF descriptor stage, reachable by the tests and
// the benchmarks through the static archive.
#ifndef BRIMVEL_REGISTRATION_BRIEF_H
#define BRIMVEL_REGISTRATION_BRIEF_H

#include <cstddef>
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

// Integral entries a descriptor reads around its centre: rows centre + up ..
// centre + down and columns centre + left .. centre + right, inclusive.
struct BriefReach {
    int up, down, left, right;
};
extern const BriefReach kBriefReach;

// The 64 descriptor bytes of the keypoint whose centre entry is p in an
// integral image of the given row stride (in entries).
void BriefDescriptorAt(const uint32_t* p, ptrdiff_t stride, uint8_t* d);

// Descriptors without a whole-frame integral. Keypoints are sorted by column
// band, then by row; each worker walks its share of that order and keeps a
// window of integral rows for the current band in its own scratch, built
// from the image only where keypoints need it. A window's entries count the
// pixels from its own first row and column, so they differ from the whole
// frame's integral by terms that cancel in every four-corner box sum: the
// bytes are those of GenerateDiscriptor_Brief over the full integral.
constexpr int kBriefBandColumns = 256;  // keypoint centre columns per band
constexpr int kBriefWindowRows = 192;   // integral rows a window holds
// Widest band window: the band's centres plus the pattern's reach.
constexpr int kBriefWindowColumns = kBriefBandColumns + 64;
constexpr size_t kBriefWindowBytes = size_t(kBriefWindowRows) * kBriefWindowColumns * sizeof(uint32_t);
constexpr int kBriefStripWorkers = 4;

// A keypoint's place in the walk: band and row in the key, its index after.
struct BriefSlot {
    uint64_t key;
    int32_t index;
};

// A descriptor call takes two blocks: the walk order (a slot per keypoint,
// at least one) and the windows (one per worker).
size_t BriefOrderBytes(int count);
constexpr size_t kBriefWindowsBytes = kBriefStripWorkers * kBriefWindowBytes;

// One integral row of a window: out[j] = above[j] + sum + src[0] + ... +
// src[j - 1] for j < n (reads src[0 .. n - 2]). Unsigned, so that sums wrap
// as the full integral's do. The NEON row does whole groups of eight and
// hands the rest, with its running sum, to the plain row.
void BriefIntegralRow_C(const uint8_t* src, const uint32_t* above, uint32_t* out, int n, uint32_t sum);
#if !defined(BRIMVEL_PLAIN_ONLY)
void BriefIntegralRow_NEON(const uint8_t* src, const uint32_t* above, uint32_t* out, int n, uint32_t sum);
#endif

// Sorts the slots of keypoints[0 .. count) into walk order (all keypoints
// must be inside the image, see BriefKeypointInside).
void BriefOrderKeypoints(const tagST_KEYPOINT* keypoints, int count, BriefSlot* slots);

// Descriptors of slots[begin .. end) of the walk, window kept in `window`
// (kBriefWindowBytes), integral rows built with `row`.
using BriefIntegralRowFn = void (*)(const uint8_t*, const uint32_t*, uint32_t*, int, uint32_t);
void BriefDescribeSlots(const uint8_t* image, int width, int stride, const ST_IMAGEFEATURES& features,
                        const BriefSlot* slots, int begin, int end, uint32_t* window, BriefIntegralRowFn row);

// The table-driven kernel: the same bytes as GenerateDiscriptor_Brief, each
// box through smoothedSum, the tests read from the pattern table.
void GenerateDiscriptor_Brief_Table(const int* integral, ST_IMAGEFEATURES* features, int integralStride);

}  // namespace tocra

#endif
