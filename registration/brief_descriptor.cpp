// BRIEF descriptors: 512 comparisons of 9x9 box sums around each keypoint,
// read from the integral image, packed into 64 bytes (the first test of a
// byte in its most significant bit).
//
// The test pattern lives in data/brief_pattern_64.txt; the build turns it
// into a table and into a straight-line kernel with the offsets as constants
// (cmake/generate_brief_pattern.cmake). The straight-line kernel ships; the
// table-driven one stays beside it as the reference the tests compare with.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "brimvel_tocra.h"
#include "frame/entry_guard.h"
#include "frame/hooks.h"
#include "frame/log.h"
#include "frame/platform.h"
#include "registration/brief.h"

namespace tocra {
namespace {

#include "brief_pattern_64_table.inc"

constexpr int kWorkers = kBriefStripWorkers;
constexpr int kBoxHalf = 4;  // a box spans offset - 4 .. offset + 4

// What each of the four workers receives.
struct BriefJob {
    int32_t integralStride;
    int32_t workerCount;
    const int* integral;
    ST_IMAGEFEATURES* features;
};

// A keypoint's boxes read 58 integral rows, each a row pitch apart, so the
// kernel waits on memory far more than it computes: the rows of the
// keypoint two ahead are requested while the current one is worked on
// (1.6x on a 12-megapixel plane). Five 64-byte lines cover the 57 entries
// read in each row. Only addresses are formed; a prefetch never faults.
constexpr int kPrefetchAhead = 2;
void PrefetchPatch(const uint32_t* base, ptrdiff_t stride, const tagST_KEYPOINT& kp) {
    constexpr int kFirst = kBriefMinDx - kBoxHalf;
    constexpr int kLast = kBriefMaxDx + kBoxHalf + 1;
    const intptr_t centre =
        reinterpret_cast<intptr_t>(base) + (static_cast<intptr_t>(BriefCentre(kp.y)) * stride + BriefCentre(kp.x)) *
                                               static_cast<intptr_t>(sizeof(uint32_t));
    const intptr_t rowBytes = stride * static_cast<intptr_t>(sizeof(uint32_t));
    for (int r = kBriefMinDy - kBoxHalf; r <= kBriefMaxDy + kBoxHalf + 1; ++r) {
        const intptr_t row = centre + r * rowBytes;
        for (int c = kFirst; c < kLast; c += 16) __builtin_prefetch(reinterpret_cast<const void*>(row + 4 * c));
        __builtin_prefetch(reinterpret_cast<const void*>(row + 4 * kLast));
    }
}

// Workers 0 .. 3 in turn: wait until idle, hand over the job, post; then
// clean them in order and answer the last result. A slot the pool cannot
// take (the caller did not start the pool) runs its share on the calling
// thread, so no descriptor is left unwritten.
int RunOnWorkers(MultiThreadCallback body, void* job) {
    bool pooled[kWorkers];
    for (int t = 0; t < kWorkers; ++t) {
        pooled[t] = MultiThread_wait(t) == 0;
        if (pooled[t]) {
            MultiThread_set(t, body, job);
            MultiThread_post(t);
        } else {
            body(job, t);
        }
    }
    int status = 0;
    for (int t = 0; t < kWorkers; ++t) status = pooled[t] ? MultiThread_clean(t) : 0;
    return status;
}

bool UsableFeatures(const int* integral, const ST_IMAGEFEATURES* features) {
    return integral != nullptr && features != nullptr && features->count > 0 && features->pKeyPoints != nullptr &&
           features->pDescriptors != nullptr;
}

}  // namespace

const BriefReach kBriefReach = {kBriefMinDy - kBoxHalf, kBriefMaxDy + kBoxHalf + 1, kBriefMinDx - kBoxHalf,
                                kBriefMaxDx + kBoxHalf + 1};
static_assert(kBriefMaxDy - kBriefMinDy + 2 * kBoxHalf + 2 <= kBriefWindowRows,
              "a keypoint's integral rows must fit in a strip window");
static_assert(kBriefBandColumns + kBriefMaxDx - kBriefMinDx + 2 * kBoxHalf + 1 <= kBriefWindowColumns,
              "a band's integral columns must fit in a strip window");

bool BriefKeypointInside(const tagST_KEYPOINT& kp, int width, int height) {
    const int64_t px = BriefCentre(kp.x);
    const int64_t py = BriefCentre(kp.y);
    // Integral rows py + dy - 4 .. py + dy + 5 and the same for columns.
    return px + kBriefMinDx - kBoxHalf >= 0 && px + kBriefMaxDx + kBoxHalf + 1 <= width &&
           py + kBriefMinDy - kBoxHalf >= 0 && py + kBriefMaxDy + kBoxHalf + 1 <= height;
}

void BriefDescriptorAt(const uint32_t* p, ptrdiff_t stride, uint8_t* d) {
#include "brief_pattern_64_unrolled.inc"
}

void GenerateDiscriptor_Brief_Table(const int* integral, ST_IMAGEFEATURES* features, int integralStride) {
    if (!UsableFeatures(integral, features)) return;
    for (int i = 0; i < features->count; ++i) {
        const tagST_KEYPOINT& kp = features->pKeyPoints[i];
        const int px = BriefCentre(kp.x);
        const int py = BriefCentre(kp.y);
        uint8_t* d = features->pDescriptors + static_cast<size_t>(i) * TOCRA_DESCRIPTOR_BYTES;
        for (int byte = 0; byte < TOCRA_DESCRIPTOR_BYTES; ++byte) {
            int v = 0;
            for (int bit = 0; bit < 8; ++bit) {
                const signed char* t = kBriefPattern[byte * 8 + bit];
                const int a = smoothedSum(integral, px, py, t[0], t[1], integralStride);
                const int b = smoothedSum(integral, px, py, t[2], t[3], integralStride);
                v |= (a < b) << (7 - bit);
            }
            d[byte] = static_cast<uint8_t>(v);
        }
    }
}

}  // namespace tocra

using namespace tocra;

extern "C" int smoothedSum(const int* integral, int a, int b, int c, int d, int stride) {
    if (integral == nullptr) return 0;
    // Unsigned reads: the entries of a large image wrap modulo 2^32 and the
    // four-corner difference is still exact.
    const uint32_t* s = reinterpret_cast<const uint32_t*>(integral);
    const ptrdiff_t R = static_cast<ptrdiff_t>(b) + c;
    const ptrdiff_t K = static_cast<ptrdiff_t>(a) + d;
    const ptrdiff_t top = (R - 4) * stride;
    const ptrdiff_t bottom = (R + 5) * stride;
    return static_cast<int>(s[bottom + K + 5] - s[bottom + K - 4] - s[top + K + 5] + s[top + K - 4]);
}

extern "C" void GenerateDiscriptor_Brief(const int* integral, ST_IMAGEFEATURES* features, int integralStride) {
    if (!UsableFeatures(integral, features)) return;
    const uint32_t* base = reinterpret_cast<const uint32_t*>(integral);
    const ptrdiff_t stride = integralStride;
    for (int i = 0; i < features->count; ++i) {
        const tagST_KEYPOINT& kp = features->pKeyPoints[i];
        const uint32_t* p = base + static_cast<ptrdiff_t>(BriefCentre(kp.y)) * stride + BriefCentre(kp.x);
        if (i + kPrefetchAhead < features->count) {
            PrefetchPatch(base, stride, features->pKeyPoints[i + kPrefetchAhead]);
        }
        BriefDescriptorAt(p, stride, features->pDescriptors + static_cast<size_t>(i) * TOCRA_DESCRIPTOR_BYTES);
    }
}

// Worker t takes keypoints per * t onwards, per = count / 4; the last worker
// takes the remainder.
extern "C" void GenerateDiscriptor_Brief_MT_Caller(void* arg, int workerIndex) {
    const BriefJob* job = static_cast<const BriefJob*>(arg);
    if (job == nullptr || job->features == nullptr || workerIndex < 0 || workerIndex >= job->workerCount) return;
    const ST_IMAGEFEATURES* all = job->features;
    if (all->count <= 0) return;
    const int per = all->count / job->workerCount;
    ST_IMAGEFEATURES part;
    part.pKeyPoints = all->pKeyPoints + static_cast<size_t>(per) * workerIndex;
    part.pDescriptors = all->pDescriptors + static_cast<size_t>(per) * workerIndex * TOCRA_DESCRIPTOR_BYTES;
    part.count = workerIndex == job->workerCount - 1 ? all->count - per * (job->workerCount - 1) : per;
    GenerateDiscriptor_Brief(job->integral, &part, job->integralStride);
}

extern "C" int GenerateDiscriptor_Brief_MT(ST_IMAGEFEATURES* features, int* integral, int integralStride) {
    if (features == nullptr || integral == nullptr) return -1;
    BriefJob job = {integralStride, kWorkers, integral, features};
    return RunOnWorkers(GenerateDiscriptor_Brief_MT_Caller, &job);
}

namespace {

// One worker's share of the walk: slots per * t onwards, per = count / 4,
// the last worker taking the remainder.
struct BriefStripJob {
    const uint8_t* image;
    int width;
    int stride;
    ST_IMAGEFEATURES features;
    const BriefSlot* slots;
    uint8_t* windows;
};

void BriefStripWorker(void* arg, int t) {
    const BriefStripJob* job = static_cast<const BriefStripJob*>(arg);
    const int count = job->features.count;
    const int per = count / kBriefStripWorkers;
    const int begin = per * t;
    const int end = t == kBriefStripWorkers - 1 ? count : begin + per;
#if defined(BRIMVEL_PLAIN_ONLY)
    const BriefIntegralRowFn row = BriefIntegralRow_C;
#else
    const BriefIntegralRowFn row = BriefIntegralRow_NEON;
#endif
    uint32_t* window = reinterpret_cast<uint32_t*>(job->windows + static_cast<size_t>(t) * kBriefWindowBytes);
    BriefDescribeSlots(job->image, job->width, job->stride, job->features, job->slots, begin, end, window, row);
}

}  // namespace

extern "C" int GetBrief_Descriptors_TocraAPI(tagST_BRIEF_REQUEST* request) {
    TOCRA_ONE_CALL_AT_A_TIME("GetBrief_Descriptors_TocraAPI");
    if (request == nullptr) {
        TOCRA_LOGE("GetBrief_Descriptors_TocraAPI request pointer is null\n");
        return TOCRA_NULL_POINTER;
    }
    const uint8_t* image = static_cast<const uint8_t*>(ConvertAddr(request->hImage));
    tagST_KEYPOINT* keypoints = static_cast<tagST_KEYPOINT*>(ConvertAddr(request->hKeyPoints));
    uint8_t* descriptors = static_cast<uint8_t*>(ConvertAddr(request->hDescriptors));
    if (image == nullptr || keypoints == nullptr || descriptors == nullptr) {
        TOCRA_LOGE("GetBrief_Descriptors_TocraAPI FunConvert2Addr convert addr pointer error\n");
        return TOCRA_NULL_POINTER;
    }

    // Checks of our own, before any memory is written. A count below one
    // describes no keypoint: nothing is read or written and the call ends
    // as an empty one does. With keypoints, sizes that describe no image or
    // rows that overlap (the stride below the width), and keypoints whose
    // boxes would read outside the integral image, are refused (-998).
    const int width = request->width;
    const int height = request->height;
    const int stride = request->stride;
    const int count = request->count > 0 ? request->count : 0;
    // A frame whose whole-frame integral ((width + 1) x (height + 1) entries)
    // could not be addressed is not an image any buffer holds either.
    const uint64_t entries = (static_cast<uint64_t>(width) + 1) * (static_cast<uint64_t>(height) + 1);
    if (count > 0 && (width <= 0 || height <= 0 || stride < width || entries > SIZE_MAX / 8 ||
                      static_cast<uint64_t>(count) * TOCRA_DESCRIPTOR_BYTES > SIZE_MAX / 2)) {
        TOCRA_LOGE("GetBrief_Descriptors_TocraAPI invalid size: width[%d] height[%d] stride[%d] count[%d]\n", width,
                   height, stride, request->count);
        return TOCRA_NULL_POINTER;
    }
    for (int i = 0; i < count; ++i) {
        if (!BriefKeypointInside(keypoints[i], width, height)) {
            TOCRA_LOGE("GetBrief_Descriptors_TocraAPI keypoint %d out of range\n", i);
            return TOCRA_NULL_POINTER;
        }
    }

    // The walk order, then a window of integral rows per worker.
    BriefSlot* slots = static_cast<BriefSlot*>(platform_malloc(BriefOrderBytes(count)));
    uint8_t* windows = slots == nullptr ? nullptr : static_cast<uint8_t*>(platform_malloc(kBriefWindowsBytes));
    if (windows == nullptr) {
        platform_free(slots);
        TOCRA_LOGE("GetBrief_Descriptors_TocraAPI malloc error\n");
        return TOCRA_NO_MEMORY;
    }
    if (MultiThread_Init(kWorkers) != 0) {
        // The walk order's block is not released on this path (the caller
        // contract documents the leak); the windows are.
        platform_free(windows);
        TOCRA_LOGE("GetBrief_Descriptors_TocraAPI MultiThread_Init fail\n");
        return TOCRA_THREAD_FAILED;
    }
    BriefOrderKeypoints(keypoints, count, slots);
    BriefStripJob job = {image, width, stride, {keypoints, descriptors, count}, slots, windows};
    RunOnWorkers(BriefStripWorker, &job);
    platform_free(windows);
    platform_free(slots);
    platform_cacheflush(descriptors, descriptors + static_cast<size_t>(count) * TOCRA_DESCRIPTOR_BYTES);
    MultiThread_destory();
    return TOCRA_OK;
}
