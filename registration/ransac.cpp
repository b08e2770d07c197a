// RANSAC homography estimation with least-squares refits.
//
// Samples of four pairs are drawn with a multiply-with-carry generator
// restarted at every call, so equal inputs give equal results. A model is
// scored by its inlier count, refitted on its inliers when it looks
// promising, and kept when it beats the best so far; the iteration budget
// shrinks with the inlier ratio. The survivors are compacted, in order, to
// the front of the caller's arrays.
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "brimvel_tocra.h"
#include "frame/log.h"
#include "frame/numeric.h"
#include "registration/homography.h"

namespace tocra {

namespace {

constexpr int kSampleSize = 4;
constexpr int kMaxSampleAttempts = 100;
// Minimum squared integer distance between an earlier draw's reference
// point and a later draw's matched point.
constexpr int64_t kMinSampleDistance2 = 200;
// The line number that goes with the tag "Refine" to iMalloc and iFree: a
// fixed value, whatever line of this file the call is on.
constexpr int kRefineTagLine = 133;

inline unsigned char* AlignUp4(unsigned char* p) {
    return reinterpret_cast<unsigned char*>((reinterpret_cast<uintptr_t>(p) + 3) & ~uintptr_t{3});
}

// Truncated difference of two float coordinates, as the degeneracy and
// distance tests use it.
inline int32_t TruncDiff(float a, float b) { return TruncSatToInt32(a - b); }

// Draws four distinct, well-spread, non-degenerate pairs into the two sample
// arrays. Returns false after the 100th abandoned attempt.
bool DrawSample(const tagST_MATCH_PAIRS* pairs, uint64_t* state, float* refSample, float* matchSample) {
    const int n = pairs->pointNum;
    const float* ref = pairs->pRefPoint;
    const float* match = pairs->pMatchPoint;
    for (int attempt = 0; attempt < kMaxSampleAttempts; ++attempt) {
        int idx[kSampleSize];
        bool ok = true;
        for (int k = 0; k < kSampleSize && ok; ++k) {
            idx[k] = static_cast<int>(MwcNext(state) % static_cast<uint32_t>(n));
            for (int j = 0; j < k; ++j) {
                // The earlier draw's reference point against this draw's
                // matched point.
                const int64_t dx = TruncDiff(ref[2 * idx[j]], match[2 * idx[k]]);
                const int64_t dy = TruncDiff(ref[2 * idx[j] + 1], match[2 * idx[k] + 1]);
                const uint64_t d2 = static_cast<uint64_t>(dx * dx) + static_cast<uint64_t>(dy * dy);
                if (idx[k] == idx[j] || d2 < static_cast<uint64_t>(kMinSampleDistance2)) {
                    ok = false;
                    break;
                }
            }
        }
        if (!ok) continue;
        for (int k = 0; k < kSampleSize; ++k) {
            refSample[2 * k] = ref[2 * idx[k]];
            refSample[2 * k + 1] = ref[2 * idx[k] + 1];
            matchSample[2 * k] = match[2 * idx[k]];
            matchSample[2 * k + 1] = match[2 * idx[k] + 1];
        }
        if (CheckSubset(refSample) && CheckSubset(matchSample)) return true;
    }
    return false;
}

// New iteration budget from the inlier ratio (single precision, with the
// power and the logarithms taken in double and rounded to float). Sets
// *stop when every pair is an inlier.
int UpdateNumIters(float confidence, int n, int best, int niters, bool* stop) {
    float p = confidence;
    if (p < 0.0f) p = 0.0f;
    if (p > 1.0f) p = 1.0f;
    float ep = static_cast<float>(n - best) / static_cast<float>(n);
    if (ep < 0.0f) ep = 0.0f;
    if (ep > 1.0f) ep = 1.0f;

    float num = 1.0f - p;
    if (!(num > FLT_MIN)) num = FLT_MIN;  // max(1 - p, FLT_MIN); a NaN confidence takes FLT_MIN
    float denom = static_cast<float>(1.0 - std::pow(static_cast<double>(1.0f - ep), 4.0));
    if (static_cast<double>(denom) < DBL_MIN) {
        *stop = true;
        return niters;
    }
    num = static_cast<float>(std::log(static_cast<double>(num)));
    denom = static_cast<float>(std::log(static_cast<double>(denom)));
    if (denom >= 0.0f || -num >= static_cast<float>(niters) * -denom) return niters;
    return TruncSatToInt32(static_cast<double>(num / denom) + 0.5);
}

// Copies the pairs whose mask byte is nonzero, in order, to the front of
// refOut and matchOut and returns how many. The outputs may be the inputs
// (a stable compaction in place: a pair only ever moves forward).
int GatherMarked(const unsigned char* mask, int n, const float* ref, const float* match, float* refOut,
                 float* matchOut) {
    int m = 0;
    for (int i = 0; i < n; ++i) {
        if (mask[i] == 0) continue;
        refOut[2 * m] = ref[2 * i];
        refOut[2 * m + 1] = ref[2 * i + 1];
        matchOut[2 * m] = match[2 * i];
        matchOut[2 * m + 1] = match[2 * i + 1];
        ++m;
    }
    return m;
}

}  // namespace

int CheckSubset(const float* points) {
    for (int i = 1; i < kSampleSize; ++i) {
        for (int j = 0; j < i; ++j) {
            for (int k = 0; k < j; ++k) {
                const int32_t d1x = TruncDiff(points[2 * j], points[2 * i]);
                const int32_t d1y = TruncDiff(points[2 * j + 1], points[2 * i + 1]);
                const int32_t d2x = TruncDiff(points[2 * k], points[2 * i]);
                const int32_t d2y = TruncDiff(points[2 * k + 1], points[2 * i + 1]);
                // 32-bit wrap-around like the device's integer multiply;
                // widened first so that the wrap is defined.
                const int32_t cross = static_cast<int32_t>(
                    static_cast<uint32_t>(static_cast<int64_t>(d1y) * d2x - static_cast<int64_t>(d1x) * d2y));
                const int64_t absCross = cross < 0 ? -static_cast<int64_t>(cross) : cross;
                const int64_t spread = std::llabs(d2x) + std::llabs(d2y) + std::llabs(d1x) + std::llabs(d1y);
                if (static_cast<double>(absCross) <= 0.1 * static_cast<double>(spread)) return 0;
            }
        }
    }
    return 1;
}

int FindInliers(const tagST_MATCH_PAIRS* pairs, unsigned char* mask, const float* H, float threshold, float* errSum) {
    const float* ref = pairs->pRefPoint;
    const float* match = pairs->pMatchPoint;
    int count = 0;
    float sum = 0.0f;
    for (int i = 0; i < pairs->pointNum; ++i) {
        const float x = ref[2 * i];
        const float y = ref[2 * i + 1];
        const float w = 1.0f / (H[6] * x + H[7] * y + 1.0f);
        const float px = (H[0] * x + H[1] * y + H[2]) * w;
        const float py = (H[3] * x + H[4] * y + H[5]) * w;
        const float dx = px - match[2 * i];
        const float dy = py - match[2 * i + 1];
        const float e = dx * dx + dy * dy;
        if (e <= threshold) {
            mask[i] = 1;
            ++count;
            sum += e;
        } else {
            mask[i] = 0;
        }
    }
    *errSum = sum;
    return count;
}

}  // namespace tocra

using namespace tocra;

extern "C" int AlignData(int value, int alignment) {
    // Unsigned arithmetic: a value near INT_MAX wraps instead of overflowing.
    const uint32_t v = static_cast<uint32_t>(value) + static_cast<uint32_t>(alignment) - 1u;
    return static_cast<int>(v & (0u - static_cast<uint32_t>(alignment)));
}

extern "C" int Refine(tagST_MATCH_PAIRS* pairs, unsigned char* mask, float* H, float threshold, float* errSum,
                      int* inlierCount) {
    // Guards of our own: null records are refused with the function's
    // failure result before any memory is touched.
    if (pairs == nullptr || mask == nullptr || H == nullptr || errSum == nullptr || inlierCount == nullptr) return -1;
    const int n = pairs->pointNum;
    if (n > 0 && (pairs->pRefPoint == nullptr || pairs->pMatchPoint == nullptr)) return -1;
    if (n < 0) {
        // 60 * n + 56 bytes is no size for a negative count: the request for
        // the work memory fails, as the allocator answers one it cannot meet.
        TOCRA_LOGE("Refine malloc failed!\n");
        return -1;
    }
    const uint64_t bytes = 60u * static_cast<uint64_t>(n) + 56u;
    if (bytes > SIZE_MAX) return -1;

    unsigned char* mem = static_cast<unsigned char*>(iMalloc(static_cast<size_t>(bytes), "Refine", kRefineTagLine));
    if (mem == nullptr) {
        // Inside RANSAC the iteration's model is then not accepted and the
        // search goes on.
        TOCRA_LOGE("Refine malloc failed!\n");
        return -1;
    }
    float* matchIn = reinterpret_cast<float*>(mem);
    float* refIn = matchIn + 2 * static_cast<size_t>(n);
    unsigned char* work = mem + 16 * static_cast<size_t>(n);

    const float* ref = pairs->pRefPoint;
    const float* match = pairs->pMatchPoint;
    for (int pass = 0; pass < 3; ++pass) {
        const int m = GatherMarked(mask, n, ref, match, refIn, matchIn);
        // The fit takes the first inlierCount gathered pairs; with the mask
        // and count from one classification (as inside RANSAC) that is all
        // of them. A caller's count above what the mask gathered would read
        // slots never written (or past the work memory), so the fit stops
        // at the gathered pairs.
        const int fitCount = *inlierCount < m ? *inlierCount : m;
        if (HomographyDLT(refIn, matchIn, fitCount, H, kRefineSweepFactor, work) != 0) break;
        const int c = FindInliers(pairs, mask, H, threshold, errSum);
        if (c == *inlierCount) break;
        *inlierCount = c;
    }
    iFree(mem, "Refine", kRefineTagLine);
    return 0;
}

extern "C" int RansacEstimation(tagST_MATCH_PAIRS* pairs, float* H, tagRANSAC_PARAMS* params, unsigned char* scratch) {
    // Guards of our own, answered with the call's failure result (-1) before
    // anything is written: null records, and null arrays or scratch when
    // there are pairs to read.
    if (pairs == nullptr || H == nullptr || params == nullptr) {
        TOCRA_LOGE("ransac RansacEstimation: param pointer is invalid\n");
        return -1;
    }
    const int n = pairs->pointNum;
    if (n > 0 && (pairs->pRefPoint == nullptr || pairs->pMatchPoint == nullptr || scratch == nullptr)) {
        TOCRA_LOGE("ransac RansacEstimation: param pointer is invalid\n");
        return -1;
    }
    if (params->maxIters >= 1 && n < kSampleSize) {
        // One to three pairs: no attempt can draw four distinct indices, so
        // the 100th abandoned attempt ends the call with -1, nothing written
        // and no line; that answer is given without drawing. With no pairs
        // (or a negative count) a draw would take an index modulo zero or
        // far outside the arrays, so it is refused with -1 and a line.
        if (n < 1) TOCRA_LOGE("ransac RansacEstimation: no pairs to sample, pointNum = %d\n", n);
        return -1;
    }

    // From here on n < 1 means no iteration: nothing of the scratch is used.
    const size_t masks = n > 0 ? static_cast<size_t>(n) : 0u;
    unsigned char* bestMask = scratch;
    unsigned char* curMask = scratch + masks;
    unsigned char* work = AlignUp4(scratch + 2 * masks);

    float model[9] = {};  // kept across iterations: a failed fit scores the previous model
    int best = kSampleSize;
    float bestErr = 0.0f;
    int niters = params->maxIters;
    int iterations = 0;
    uint64_t state = kMwcSeed;

    if (niters >= 1) {
        do {
            float refSample[2 * kSampleSize];
            float matchSample[2 * kSampleSize];
            if (!DrawSample(pairs, &state, refSample, matchSample)) return -1;
            HomographyDLT(refSample, matchSample, kSampleSize, model, kRansacSweepFactor, work);

            float e = 0.0f;
            int c = FindInliers(pairs, curMask, model, params->threshold, &e);
            bool refined = true;
            if (c > 5 && c > best / 2) refined = Refine(pairs, curMask, model, params->threshold, &e, &c) == 0;

            if (refined && (c > best || (c == best && e < bestErr))) {
                memcpy_s(H, 9 * sizeof(float), model, 9 * sizeof(float));
                best = c;
                bestErr = e;
                unsigned char* t = bestMask;
                bestMask = curMask;
                curMask = t;
                bool stop = false;
                niters = UpdateNumIters(params->confidence, n, best, niters, &stop);
                if (stop) break;
            }
            ++iterations;
        } while (iterations < niters);
    }

    // Compaction by the best mask. With no accepted model the mask bytes are
    // what the caller's scratch held and the count becomes 4. With fewer than
    // four pairs (no iteration ran) only the n pairs and n mask bytes that
    // exist are read; the count still becomes 4, as the caller asked for no
    // iteration.
    GatherMarked(bestMask, n, pairs->pRefPoint, pairs->pMatchPoint, pairs->pRefPoint, pairs->pMatchPoint);
    pairs->pointNum = best;
    TOCRA_LOGI("ransac iteration count:%d\n", iterations);
    TOCRA_LOGI("ransac find inliner count:%d/%d\n", best, n);
    return 0;
}

extern "C" int RefineHomography(tagST_MATCH_PAIRS* pairs, float* H, unsigned char* scratch) {
    // Guards of our own: null records or buffers leave H as it was and
    // answer -1. No pair at all is the fit's own case: no spread, H
    // untouched, result 0.
    if (pairs == nullptr || H == nullptr || scratch == nullptr) return -1;
    if (pairs->pointNum < 1) return 0;
    if (pairs->pRefPoint == nullptr || pairs->pMatchPoint == nullptr) return -1;
    return HomographyDLT(pairs->pRefPoint, pairs->pMatchPoint, pairs->pointNum, H, kRefineSweepFactor, scratch);
}

extern "C" int HomographyEstimation(tagST_MATCH_PAIRS* pairs, float* H, tagRANSAC_PARAMS* params,
                                    unsigned char* scratch) {
    // Guard of our own: nothing runs and nothing is printed for a null
    // record or buffer.
    if (pairs == nullptr || H == nullptr || params == nullptr || scratch == nullptr) return -1;
    RansacEstimation(pairs, H, params, scratch);
    RefineHomography(pairs, H, scratch);

    const int n = pairs->pointNum;
    float sum = 0.0f;
    if (pairs->pRefPoint != nullptr && pairs->pMatchPoint != nullptr) {
        for (int i = 0; i < n; ++i) {
            const float x = pairs->pRefPoint[2 * i];
            const float y = pairs->pRefPoint[2 * i + 1];
            const float w = 1.0f / (H[6] * x + H[7] * y + 1.0f);
            const float dx = (H[0] * x + H[1] * y + H[2]) * w - pairs->pMatchPoint[2 * i];
            const float dy = (H[3] * x + H[4] * y + H[5]) * w - pairs->pMatchPoint[2 * i + 1];
            sum = static_cast<float>(sum + std::sqrt(static_cast<double>(dx * dx + dy * dy)));
        }
    }
    printf("project error after lmmin:%lf, pointNum:%d\n", static_cast<double>(sum / static_cast<float>(n)), n);
    return 0;
}
